// dbfinspect: shows what is inside a dBASE IV table (.DBF with its production .MDX): the header,
// the fields, the index tags, the records (in record order or in a tag's order), the result of
// a seek, and an integrity check of both files.
//
//   dbfinspect TABLE.DBF                 header, fields, record count, tags
//   dbfinspect TABLE.DBF --records       every record as CSV (deleted flag, record number, fields)
//   dbfinspect TABLE.DBF --tag KEY1      the same in the order of tag KEY1
//   dbfinspect TABLE.DBF --seek KEY0 "1.2.3.4"   [--near]   seek and show the record reached
//   dbfinspect TABLE.DBF --check         check everything; exit 1 naming every defect
//
// Exit status: 0 done (and, with --check, no defect); 1 a defect; 2 a bad command line, a table
// that cannot be opened or a tag it does not have.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <string>

#include "dbase/Checker.h"
#include "dbase/Table.h"
#include "ProgramVersion.h"
#include "vb/Strings.h"

namespace {

std::string Csv(std::string_view v) {
  v = vb::Trim(v);
  if (v.find_first_of(",\"\n\r") == std::string_view::npos) return std::string(v);
  std::string out = "\"";
  for (char c : v) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

void PrintRecord(dbase::Table& t) {
  std::string line = t.Deleted() ? "*" : "";
  line += "," + std::to_string(t.RecNo());
  for (int i = 0; i < t.FieldCount(); ++i) line += "," + Csv(t.GetText(i));
  std::cout << line << "\n";
}

void PrintCsvHeader(dbase::Table& t) {
  std::string line = "DELETED,RECNO";
  for (const dbase::FieldInfo& f : t.Fields()) line += "," + f.name;
  std::cout << line << "\n";
}

std::string Hex(int v) {
  char b[8];
  std::snprintf(b, sizeof b, "0x%02X", v);
  return b;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Shows, lists, seeks and checks a dBASE IV table and its production index"};
  std::string path, tag, seekTag, seekKey;
  std::vector<std::string> seek;
  bool records = false, check = false, near = false;
  app.add_option("table", path, "the table's .DBF file")->required();
  app.add_flag("--records", records, "list every record as CSV, deleted flag first");
  app.add_option("--tag", tag, "list the records in the order of this tag");
  app.add_option("--seek", seek, "TAG KEY: seek KEY in TAG and show the record reached")->expected(2);
  app.add_flag("--near", near, "with --seek: a near seek (first key at or after KEY, as a prefix)");
  app.add_flag("--check", check, "check the .DBF and every tag of the .MDX; exit 1 on any defect");
  app.set_version_flag("--version", TY_VERSION_LINE("dbfinspect"), "Print the version and exit");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version end well; a bad command line ends with status 2, as a table that
    // cannot be opened does.
    return app.exit(e) == 0 ? 0 : 2;
  }

  if (check) {
    dbase::CheckReport rep = dbase::CheckTable(path);
    for (const std::string& n : rep.notes) std::cout << n << "\n";
    if (rep.Ok()) {
      std::cout << "OK\n";
      return 0;
    }
    for (const std::string& d : rep.defects) std::cout << "DEFECT: " << d << "\n";
    std::cout << rep.defects.size() << " defect(s)\n";
    return 1;
  }

  size_t slash = path.find_last_of('/');
  std::string folder = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
  std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = file.find_last_of('.');
  std::string stem = dot == std::string::npos ? file : file.substr(0, dot);

  dbase::Table t;
  t.SetLocation(folder);
  t.SetTableName(stem);
  t.SetNoticeSink([](const std::string& m) { std::cerr << "note: " << m << "\n"; });
  int s = t.OpenTableReadOnly();
  if (s != dbase::kOk) {
    std::cerr << "dbfinspect: " << path << ": " << dbase::StatusText(s) << "\n";
    return 2;
  }

  if (!seek.empty()) {
    seekTag = seek[0];
    seekKey = seek[1];
    if (t.SelectTag(seekTag) != dbase::kOk) {
      std::cerr << "dbfinspect: no tag \"" << seekTag << "\" in " << path << "\n";
      return 2;
    }
    s = near ? t.SeekNear(seekKey) : t.SeekKey(seekKey);
    std::cout << (near ? "SeekNear " : "SeekKey ") << t.SelectedTag() << " \"" << seekKey
              << "\": " << (s == dbase::kOk ? "found" : "not found") << " (status " << s << ", "
              << dbase::StatusText(s) << ")\n";
    if (!t.Eof()) {
      std::cout << "key \"" << t.CurrentKey() << "\"\n";
      PrintCsvHeader(t);
      PrintRecord(t);
    } else {
      std::cout << "past the end: no record\n";
    }
    return 0;
  }

  if (records || !tag.empty()) {
    if (t.SelectTag(tag) != dbase::kOk) {
      std::cerr << "dbfinspect: no tag \"" << tag << "\" in " << path << "\n";
      return 2;
    }
    PrintCsvHeader(t);
    for (int r = t.GoTop(); r == dbase::kOk && !t.Eof(); r = t.Skip(1)) PrintRecord(t);
    return 0;
  }

  dbase::TableInfo info = t.Info();
  long deleted = 0;
  t.SelectTag("");
  for (int r = t.GoTop(); r == dbase::kOk && !t.Eof(); r = t.Skip(1)) deleted += t.Deleted();
  std::cout << "table      " << info.dbfPath << "\n";
  std::cout << "version    " << Hex(info.version) << ", last update " << info.updateYear << "-"
            << info.updateMonth << "-" << info.updateDay << ", header " << info.headerLength
            << " bytes, record " << info.recordLength << " bytes\n";
  std::cout << "flags      production index " << (info.productionMdx ? "yes" : "no")
            << ", language driver " << Hex(info.languageDriver) << "\n";
  std::cout << "records    " << t.RecordCount() << " (" << deleted << " deleted)\n";
  std::cout << "fields     " << t.FieldCount() << "\n";
  int i = 0;
  for (const dbase::FieldInfo& f : t.Fields()) {
    char line[80];
    std::snprintf(line, sizeof line, "  %3d %-10s %c %3d", ++i, f.name.c_str(), f.type, f.width);
    std::cout << line << (f.decimals ? "." + std::to_string(f.decimals) : "") << "\n";
  }
  std::vector<dbase::TagInfo> tags = t.Tags();
  std::cout << "index      " << (info.mdxPath.empty() ? "none" : info.mdxPath) << ", " << tags.size()
            << " tag(s)" << (info.indexRebuilt ? " (rebuilt from the records)" : "") << "\n";
  for (const dbase::TagInfo& g : tags) {
    char line[64];
    std::snprintf(line, sizeof line, "tag %-10s", g.name.c_str());
    std::cout << line << " \"" << g.expression << "\", key length " << g.keyLength << ", "
              << (g.unique ? "unique" : "not unique") << ", "
              << (g.descending ? "descending" : "ascending") << ", " << g.entries << " keys\n";
  }
  return 0;
}
