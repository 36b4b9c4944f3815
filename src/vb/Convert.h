// Conversions between text and numbers with the run-time's rules: the lenient leading-number
// reader Val, the strict conversions CDbl/CInt/CLng/CBool, and round-half-to-even.
#pragma once

#include <cstdint>
#include <string_view>

namespace vb {

// The leading numeric part of `s`: blanks, tabs and line feeds anywhere are skipped ("1 2" -> 12),
// an optional sign, digits with one decimal point, an exponent with E or D; "&H"/"&O" give hex and
// octal. Empty or non-numeric text gives 0. Never throws: a number too large for a double gives
// +-infinity, so that a following CInt/CLng fails with "Overflow" as the run-time would.
double Val(std::string_view s);

// True when CDbl(s) would succeed.
bool IsNumeric(std::string_view s);

// Strict conversion: surrounding blanks are allowed, then an optional sign, digits with one decimal
// point, optional exponent (E or D), or "&H"/"&O" digits. Anything else, or empty text, throws
// Failure(13) "Type mismatch". A value too large for a double throws Failure(6).
double CDbl(std::string_view s);

// Nearest whole number; exact halves go to the even neighbour (2.5 -> 2, 3.5 -> 4, -2.5 -> -2).
double RoundHalfEven(double x);

// RoundHalfEven(x) as a 16-bit integer. Outside -32768..32767 (or NaN) throws Failure(6).
int16_t CInt(double x);
// RoundHalfEven(x) as a 32-bit integer. Outside the int32 range (or NaN) throws Failure(6).
int32_t CLng(double x);
// CInt(CDbl(s)): Failure(13) for text that is not a number, Failure(6) when out of range.
int16_t CInt(std::string_view s);
// CLng(CDbl(s)).
int32_t CLng(std::string_view s);

// "True"/"False" in any case (surrounding blanks allowed), or a number (0 is false, anything else
// true). Anything else throws Failure(13).
bool CBool(std::string_view s);

}  // namespace vb
