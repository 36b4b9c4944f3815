// Reading tables back from disk in the tests: a table's records as field-name -> trimmed text,
// its record count, the table files of a folder with their bytes, and the table checker's
// findings, each read with a table control of its own (every test program that uses it links the
// table engine).
#pragma once

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "dbase/Checker.h"
#include "dbase/Table.h"
#include "vb/Strings.h"

namespace tytest {

using Record = std::map<std::string, std::string>;

// The records of table `stem` in `folder`, in the order of `tag` ("" = record order), read from
// the files on disk; none when the table cannot be opened. Field texts lose their blanks at both
// ends.
inline std::vector<Record> ReadTable(const std::string& folder, const std::string& stem,
                                     const std::string& tag = "") {
  dbase::Table t;
  t.SetLocation(folder);
  t.SetTableName(stem);
  std::vector<Record> out;
  if (t.OpenTableReadOnly() != dbase::kOk) return out;
  t.SelectTag(tag);
  const auto fields = t.Fields();
  for (int s = t.GoTop(); s == dbase::kOk && !t.Eof(); s = t.Skip(1)) {
    Record r;
    for (size_t i = 0; i < fields.size(); ++i) {
      r[fields[i].name] = std::string(vb::Trim(t.GetText(static_cast<int>(i))));
    }
    out.push_back(std::move(r));
  }
  return out;
}

// The number of records of table `stem` in `folder`, deleted ones included; -1 when the table
// cannot be opened (it is not there).
inline long RecordCount(const std::string& folder, const std::string& stem) {
  dbase::Table t;
  t.SetLocation(folder);
  t.SetTableName(stem);
  if (t.OpenTableReadOnly() != dbase::kOk) return -1;
  return t.RecordCount();
}

// The ending of `path` in upper case (".DBF").
inline std::string UpperExtension(const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  for (char& c : ext) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return ext;
}

// Every .DBF and .MDX file of `folder` (any case of the ending; not its sub-folders), by name,
// with its bytes.
inline std::map<std::string, std::string> TableFiles(const std::string& folder) {
  std::map<std::string, std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(folder)) {
    const std::string ext = UpperExtension(e.path());
    if (ext == ".DBF" || ext == ".MDX") {
      std::ifstream f(e.path(), std::ios::binary);
      out[e.path().filename().string()].assign(std::istreambuf_iterator<char>(f), {});
    }
  }
  return out;
}

// What the table checker finds in every .DBF of `folder` (any case of the ending), each as
// "FILE.DBF: defect"; also a line when the folder holds fewer than `atLeast` tables.
inline std::vector<std::string> TableDefects(const std::string& folder, int atLeast = 0) {
  std::vector<std::string> out;
  int tables = 0;
  for (const auto& e : std::filesystem::directory_iterator(folder)) {
    if (UpperExtension(e.path()) != ".DBF") continue;
    ++tables;
    for (const auto& d : dbase::CheckTable(e.path().string()).defects)
      out.push_back(e.path().filename().string() + ": " + d);
  }
  if (tables < atLeast) out.push_back("only " + std::to_string(tables) + " tables");
  return out;
}

}  // namespace tytest
