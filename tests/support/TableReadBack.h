// Reading a table back from disk in the tests: its records as field-name -> trimmed text, read
// with a table control of their own (every test program that uses it links the table engine).
#pragma once

#include <map>
#include <string>
#include <vector>

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

}  // namespace tytest
