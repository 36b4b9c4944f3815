// Turning dates and numbers into text the way the run-time's Format and Str do, for the handful
// of format strings the system uses, plus allocation-free writers for the per-line path.
#pragma once

#include <string>
#include <string_view>

#include "Dates.h"

namespace vb {

// Formats a date with a pattern made of the tokens "yyyy", "yy", "mmmm", "mmm", "mm", "m", "dd",
// "d", "hh", "h", "nn", "ss", "s", "AM/PM" and literal characters. "mm"/"m" straight after an hour
// token (with only separators between) means minutes, as in the run-time. Characters in double
// quotes or after "\" are copied literally. The date is rounded to the whole second first.
// Used with "hh:mm:ss", "yyyymmdd", "dd/mm/yyyy", "dd/mm/yyyy hh:mm:ss", "yyyy-mm-dd".
std::string FormatDate(Date d, std::string_view fmt);

// Formats a number with a numeric pattern of "0" (digit, shown even when zero), "#" (digit, shown
// only when significant), one optional ".", one optional ",": thousands grouping, and literal
// characters around them. Rounds half away from zero to the number of decimal places. A value
// wider than the pattern shows all its digits. "###" of 0 is "", "###.00" of 0.5 is ".50",
// "00000" of 42 is "00042"; a negative value gets a leading "-" (unless it rounds to zero).
// An empty pattern gives the general form (like Str without the leading blank).
std::string FormatNumber(double x, std::string_view fmt);

// Writes "hh:mm:ss" of `d` (rounded to the second) into out[0..7]. No terminator.
void FormatTimeTo(Date d, char out[8]);
// Writes "yyyymmdd" of `d` (rounded to the second) into out[0..7]. No terminator.
void FormatYmdTo(Date d, char out[8]);
// Writes `v` zero-padded into exactly `width` chars of out (no terminator): the text of
// FormatNumber(v, "000...") with `width` zeros. When that text is longer (a value that needs more
// digits, or "-" in front of a negative value) the first `width` chars are written, which is what a
// character field of that width keeps of the longer text; callers that need the full text use
// FormatNumber. REQUIRES: width >= 1.
void FormatZeroPadTo(long v, int width, char* out);

// Str: a leading blank for non-negative numbers, "-" otherwise; no "0" before the decimal point
// (" .5", "-.5"); whole numbers without a decimal part; up to 15 significant digits, with an
// exponent ("1E+20") for very large or small values.
std::string Str(double x);

// The general text of a number (what CStr gives): Str without the leading blank.
std::string CStr(double x);

}  // namespace vb
