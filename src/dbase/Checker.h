// The integrity check of a table: the .DBF header against the file and its records' syntax,
// the production .MDX's header, tag table and name tree, every tag's B-tree (page structure,
// depth, separators, order, flags) and every tag's entries against the keys computed from the
// records (completeness; for a unique tag, one entry per key pointing at its first record).
// Used by "dbfinspect --check" and by the tests; it reads the files itself and changes nothing.
#pragma once

#include <string>
#include <vector>

namespace dbase {

struct CheckReport {
  std::vector<std::string> defects;  // each a sentence naming the fault and where it is
  std::vector<std::string> notes;    // facts worth showing (counts, levels), not faults
  bool Ok() const { return defects.empty(); }
};

// Checks the table whose data file is dbfPath; its .MDX is looked for beside it (same stem,
// any case). Never throws; a missing or unreadable file is a defect in the report.
CheckReport CheckTable(const std::string& dbfPath);

}  // namespace dbase
