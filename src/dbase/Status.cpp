// The texts of the table engine's statuses.
#include "dbase/Status.h"

namespace dbase {

const char* StatusText(int status) {
  switch (status) {
    case kOk: return "ok";
    case kAfter: return "not found; positioned on the next key";
    case kEof: return "end of table";
    case kBof: return "start of table";
    case kNotOpen: return "table not open";
    case kNoSuchTag: return "no such index tag";
    case kNoSuchField: return "no such field";
    case kBadFieldSpec: return "bad field definition";
    case kBadTagSpec: return "bad index tag definition";
    case kBadExpression: return "key expression not understood";
    case kNoRecord: return "no current record";
    case kReadOnly: return "table opened read-only";
    case kNoTags: return "table has no index tag";
    case kFileMissing: return "table file missing";
    case kCannotCreate: return "cannot create table file";
    case kIoError: return "file read/write error";
    case kCorruptDbf: return "table file damaged";
    case kCorruptMdx: return "index file damaged";
    case kExists: return "table already exists";
    case kBadName: return "no location or bad table name";
    case kAlreadyOpen: return "table already open";
    case kTooLarge: return "table full: a file would pass its size limit";
    default: return "unknown status";
  }
}

}  // namespace dbase
