// Status codes of the table engine: every operation of dbase::Table that can fail or miss
// returns one of these. The engine never throws; 0 means success (or "found" for a seek),
// every other value is positive, and a non-zero status is information, not an error.
#pragma once

namespace dbase {

enum Status : int {
  kOk = 0,
  kAfter = 1,            // SeekKey/SeekNear: no equal key; positioned on the next key in order
  kEof = 2,              // SeekKey/SeekNear: nothing equal or after (positioned past the end);
                         // Skip ran off the end
  kBof = 3,              // Skip ran off the start (positioned on the first record)

  kNotOpen = 10,         // the table is not open
  kNoSuchTag = 11,       // SelectTag: no tag of that name
  kNoSuchField = 12,     // a field name that the table does not have
  kBadFieldSpec = 13,    // CreateTable: a field definition that cannot be used
  kBadTagSpec = 14,      // CreateTable: a tag definition that cannot be used
  kBadExpression = 15,   // CreateTable: a key expression the engine does not understand
  kNoRecord = 16,        // ReplaceRecord (or a read) without a current record
  kReadOnly = 17,        // a change to a table opened read-only
  kNoTags = 18,          // a seek on a table that has no index tag

  kFileMissing = 20,     // the table's .DBF does not exist in the location
  kCannotCreate = 21,    // a file could not be created (folder missing, read-only, ...)
  kIoError = 22,         // reading or writing a file failed
  kCorruptDbf = 23,      // the .DBF is not a table this engine can read
  kCorruptMdx = 24,      // the .MDX is damaged (and the table could not be opened without it)
  kExists = 25,          // CreateTable: the table's files are already there
  kBadName = 26,         // no location or table name set, or a name that cannot be a file stem
  kAlreadyOpen = 27,     // OpenTable/CreateTable on a control whose table is open
  kTooLarge = 28,        // AppendRecord: the table is full, the record would take its .DBF or
                         // its .MDX past the size limit (Table::SetSizeLimit) or its record
                         // count past 32 bits; nothing was written
};

// A short English description of a status ("found", "no such tag", ...); "unknown status" for
// a value not listed above. Never returns null.
const char* StatusText(int status);

}  // namespace dbase
