// The text rules of the record fields: fixed-width key parts, the zero-padded numbers of visit and
// page numbers, the shortened referrer, the download file name, the visit duration, and the
// combining of a stored date with its stored time of day. Pure functions that do not allocate,
// for the per-hit path.
#pragma once

#include <cstdint>
#include <string_view>

#include "vb/Dates.h"
#include "vb/ShortCopy.h"

namespace database {

// Writes `s` left-aligned into out[0..width-1], cut or blank-padded. No terminator. In line, as
// every record field of the per-hit path goes through here. REQUIRES: width >= 0.
inline void PadInto(char* out, int width, std::string_view s) {
  vb::PadField(out, static_cast<size_t>(width), s);
}

// A whole number in the "00000"-style form with `width` zeros: at least `width` digits with
// leading zeros, all digits when it has more (the table field then keeps the first ones); "-"
// before a negative number. The text lives in `buf`. REQUIRES: 1 <= width <= 20.
std::string_view ZeroPadded(int64_t value, int width, char (&buf)[24]);

// Fills the `width`-byte field at `out` with ZeroPadded(value, width), cut to the field as
// PadInto cuts it: the visit and page numbers of every record. A number that fits the field is
// written straight in. REQUIRES: 1 <= width <= 20.
void PutZeroPadded(char* out, int width, int64_t value);

// The referrer as the "Visits" and "Referrers" tables keep it: surrounding blanks removed, one
// trailing "/" dropped, and when a "/" is found from the 8th character on at a position above 8,
// everything from it on removed (so "http://host/path/" becomes "http://host"; an https referrer,
// whose 8th character is the second "/" of "//", keeps its path). A view into `referrer`.
std::string_view ShortenReferrer(std::string_view referrer);

// The file name of a requested page: everything up to and including the last "/" removed, then
// everything up to and including the last "\" of what remains. A view into `page`.
std::string_view DownloadName(std::string_view page);

// The visit duration as "MinsOn" keeps it: minutes ":" two-digit seconds, where the split into
// minutes only starts above 60 seconds (59 -> "0:59", 60 -> "0:60", 61 -> "1:01", 3600 ->
// "60:00"). The text lives in `buf`.
std::string_view MinsOnText(int64_t seconds, char (&buf)[24]);

// `d` in whole seconds (rounded), for comparing times that went through "hh:mm:ss" text.
int64_t WholeSeconds(vb::Date d);

// `date` plus the time of day that `timeText` ("hh:mm:ss", blank-padded) gives; `date` unchanged
// when the text is empty or not a time of day.
vb::Date CombineDateTime(vb::Date date, std::string_view timeText);

// The 12-digit key of the country table for a dotted IPv4 address: each of the first four parts
// read as a 16-bit number and written as at least three digits ("10.0.0.1" -> "010000000001").
// Throws vb::Failure (13 for a part that is not a number, 9 for fewer than four parts, 6 for a
// part outside 16 bits). The text lives in `buf`.
std::string_view CountryKey(std::string_view ip, char (&buf)[48]);

}  // namespace database
