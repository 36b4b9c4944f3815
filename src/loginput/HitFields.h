// The hit fields: the values of one log line that the hit processing works with, and the
// splitting of a line into its fields by the site's separator.
//
// One HitFields record lives for the whole run. It is cleared once per file, before the first
// line; afterwards a field is overwritten only when the log has its column, so a column that the
// field map does not name keeps the value of an earlier hit. Text fields are std::string buffers
// that are reused line after line, so filling them allocates nothing once they have grown to the
// longest value seen.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "loginput/FieldMap.h"

namespace loginput {

struct HitFields {
  std::string clientAddress;
  std::string userName;
  std::string siteName;
  std::string computerName = "2";  // cleared to "2", not to empty: kept so
  std::string serverAddress;
  std::string method;
  std::string page;  // the URI stem
  std::string query;
  int32_t status = 0;
  int32_t systemStatus = 0;
  int32_t bytesSent = 0;
  int32_t bytesReceived = 0;
  int32_t timeTaken = 0;
  int32_t serverPort = 0;
  std::string protocolVersion;
  std::string userAgent;
  std::string cookie;
  std::string referrer;

  // A line whose analysed columns other than the page were not copied yet (see
  // DeferAnalysedHitFields): its text, separator and the map it was read with.
  struct Deferred {
    bool pending = false;
    char separator = ' ';
    FieldMap map;
    std::string line;
  } deferred;
};

// Empties every text field, zeroes every number, sets the computer name to "2" and forgets a
// deferred line. Keeps the buffers' capacity.
void ClearHitFields(HitFields& hits);

// A line split at every occurrence of a one-character separator, as views into the line: two
// separators in a row give an empty field, and an empty line gives no field at all. Only the
// fields up to a requested place are looked for, the rest of the line is left unsplit.
class SplitFields {
 public:
  SplitFields() : ends_(128) {}  // up to 64 places without growing (see Split)
  // Splits `line` at `separator`, finding fields 0..lastPlace; pass the highest place that will be
  // read (the map's MaxPlace()); a negative lastPlace finds nothing. The views stay valid while
  // `line`'s bytes do.
  void Split(std::string_view line, char separator, int lastPlace);
  // Number of fields found (at most lastPlace + 1).
  int Count() const { return count_; }
  // Field `place`, or "" when the line has no such field.
  std::string_view operator[](int place) const {
    if (place < 0 || place >= Count()) return {};
    const size_t begin = place == 0 ? 0 : ends_[static_cast<size_t>(place) - 1] + 1;
    return std::string_view(line_ + begin, ends_[static_cast<size_t>(place)] - begin);
  }

 private:
  const char* line_ = nullptr;
  // Where each field ends (the offset of its separator, or the line's length): offsets rather
  // than views keep the per-field work to one 4-byte store. Entries 0..count_-1 are in use; the
  // vector only ever grows, to the most places asked for.
  std::vector<uint32_t> ends_;
  int count_ = 0;
};

// Copies the mapped places of `fields` into `hits`: a slot with a place >= 0 overwrites its field
// (with "" or 0 when the line is too short); an absent slot leaves its field as it was. The date
// and time slots have no field here (the hit processing reads them from `fields` itself). Numeric
// fields take the leading whole number of the text (optional sign, then digits; "-" or any other
// non-number gives 0; values beyond 32 bits are cut to the nearest 32-bit limit).
void FillHitFields(const SplitFields& fields, const FieldMap& map, HitFields& hits);

// The same for the fields the hit processing reads: client address, user name, method, page,
// query, status, user agent and referrer. The other fields are left as they were (the hit
// processing never reads them, so copying them would be work for nobody).
void FillAnalysedHitFields(const SplitFields& fields, const FieldMap& map, HitFields& hits);
// The page alone, as FillAnalysedHitFields copies it (nothing when the map has no page).
void FillHitPage(const SplitFields& fields, const FieldMap& map, HitFields& hits);
// FillAnalysedHitFields without the page: for a hit whose page was copied (and adjusted) first.
void FillAnalysedHitFieldsButPage(const SplitFields& fields, const FieldMap& map,
                                  HitFields& hits);

// A hit that the page filter drops reads none of its columns but the page, yet a column that a
// later map lacks must keep this hit's value. Rather than copy those columns, this keeps the line
// (its bytes are copied once, `line` need not outlive the call) with `separator` and `map`;
// SettleHitFields copies them in only when a later hit will not overwrite them itself.
// REQUIRES: the page was copied from this line already; the next hit's columns are settled by
// SettleHitFields before anything else reads the fields.
void DeferAnalysedHitFields(std::string_view line, char separator, const FieldMap& map,
                            HitFields& hits);
// Before a hit read with `next`: when a line is deferred and `next` maps the analysed columns
// (the page aside) exactly as that line's map did, the coming hit overwrites each of them (or
// defers them again), so the deferred line is dropped; otherwise its columns are copied in now,
// as FillAnalysedHitFieldsButPage would have. Either way nothing is deferred afterwards.
// Allocates nothing when it drops the line.
void SettleHitFields(const FieldMap& next, HitFields& hits);

// The highest place that FillAnalysedHitFields and the hit processing read (those fields, the
// date with the zone column after it, and the time), or -1 when none is mapped.
int AnalysedMaxPlace(const FieldMap& map);

// The leading whole number of `text` as FillHitFields reads it.
int32_t ParseHitNumber(std::string_view text);

}  // namespace loginput
