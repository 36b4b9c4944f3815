// The descriptions of a table that its parts share: a field as the .DBF describes it, an index
// tag of the production .MDX, and the header facts of an open table.
#pragma once

#include <string>

namespace dbase {

// One field of a table, as the .DBF describes it.
struct FieldInfo {
  std::string name;  // upper case, at most 10 characters
  char type = 'C';   // 'C', 'N' or 'D'
  int width = 0;     // bytes in the record
  int decimals = 0;  // 'N' only
  int offset = 0;    // byte offset in the record (the deleted flag is byte 0)
};

// One index tag of the production .MDX.
struct TagInfo {
  std::string name;        // upper case, at most 10 characters
  std::string expression;  // key expression as stored, e.g. "IP + SITE + DTOS(VISITDATE)"
  int keyLength = 0;       // bytes per key
  bool unique = false;     // one entry per distinct key (the first record holding it)
  bool descending = false; // keys run from high to low; equal keys still by record number
  long entries = 0;        // keys held now
};

// Header facts of an open table (for inspection).
struct TableInfo {
  std::string dbfPath, mdxPath;   // the files as found or created ("" for an absent .MDX)
  int version = 0;                // .DBF byte 0
  int updateYear = 0, updateMonth = 0, updateDay = 0;  // .DBF bytes 1-3 (full year)
  int headerLength = 0, recordLength = 0;
  bool productionMdx = false;     // .DBF byte 28
  int languageDriver = 0;         // .DBF byte 29
  bool readOnly = false;
  bool indexRebuilt = false;      // the index was rebuilt from the records when opening
};

}  // namespace dbase
