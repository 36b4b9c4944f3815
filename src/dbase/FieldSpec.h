// Reading the definition strings from which tables are created:
//   field  "name|type|width[|decimals]"            e.g. "IP|C|15", "Visits|N|5", "Dated|D|8"
//   tag    "name|expression|filter|unique|order"    e.g. "key0|IP + Site||U|", "key1|Site"
// In a tag definition the trailing parts may be missing or empty: missing means no filter, not
// unique, ascending. "U" marks a unique tag ("N" or empty: not unique), "D" a descending one.
#pragma once

#include <string>
#include <string_view>

#include "dbase/Status.h"
#include "dbase/TableInfo.h"

namespace dbase {

// A parsed tag definition (the expression is checked later, against the fields).
struct TagSpec {
  std::string name;        // upper case
  std::string expression;  // as written
  bool unique = false;
  bool descending = false;
};

// True when `name` can be a field or tag name: 1..10 characters, a letter first, then letters,
// digits or "_".
bool IsValidName(std::string_view name);

// Parses a field definition into `out` (name upper-cased; offset left 0). Types: C width 1..254,
// N width 1..20 with decimals 0..width-2 (0 when absent), D width 8 (or absent).
// Returns kOk or kBadFieldSpec.
int ParseFieldSpec(std::string_view text, FieldInfo& out);

// Parses a tag definition into `out`. A non-empty filter is refused (filtered tags are not
// supported), as are unknown flags and more than five parts. Returns kOk or kBadTagSpec.
int ParseTagSpec(std::string_view text, TagSpec& out);

}  // namespace dbase
