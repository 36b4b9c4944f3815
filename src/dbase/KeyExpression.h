// Index key expressions: the dBASE expressions that make an index tag's key out of a record.
// Understood: character fields joined with "+" (any spacing, names in any case), DTOS(datefield),
// STR(numfield[,width[,decimals]]) and UPPER(charfield). Keys are character keys of a fixed
// length, the parts' texts concatenated:
//   C field         the field's bytes, trailing blanks included
//   DTOS(d)         the date field's eight bytes "yyyymmdd"; a blank date gives eight blanks
//   STR(n[,w[,p]])  the number rounded (halves away from zero) to p decimals (0 by default),
//                   right-aligned in w characters (10 by default); a blank field counts as 0;
//                   w asterisks when it does not fit
//   UPPER(c)        the field's bytes with a..z upper-cased
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dbase/Status.h"
#include "dbase/TableInfo.h"

namespace dbase {

class KeyExpression {
 public:
  static constexpr int kMaxKeyLength = 100;
  static constexpr int kMaxTextLength = 220;

  // Parses `text` against the table's fields (offsets as in the record, flag byte at 0).
  // Returns kOk, or kBadExpression for anything not understood: unknown function or field,
  // a part of the wrong type (a number or date not wrapped in STR/DTOS), a key longer than
  // kMaxKeyLength or an expression text longer than kMaxTextLength. On failure *this is unchanged.
  int Parse(std::string_view text, const std::vector<FieldInfo>& fields);

  // The expression as stored in the index: field names upper case, parts joined by " + ",
  // e.g. "SITE + STR(NUMBER,3)".
  const std::string& Text() const { return text_; }
  int KeyLength() const { return keyLength_; }
  // True when the expression is one field name alone.
  bool IsSingleField() const { return terms_.size() == 1 && terms_[0].kind == kField; }

  // Writes the key of `record` (record bytes, flag byte first) to out[0..KeyLength()).
  // REQUIRES: record holds the table's whole record.
  void Evaluate(const char* record, char* out) const;
  std::string Evaluate(const char* record) const;

 private:
  enum Kind { kField, kDtos, kStr, kUpper };
  struct Term {
    Kind kind;
    int offset;    // of the field in the record
    int width;     // of the field
    int outWidth;  // bytes in the key
    int decimals;  // STR only
  };
  std::vector<Term> terms_;
  std::string text_;
  int keyLength_ = 0;
};

// STR(value, width, decimals) of a numeric field's text (blank counts as 0), written to out.
void FormatStr(std::string_view fieldText, int width, int decimals, char* out);

}  // namespace dbase
