// The run-time's string functions over byte strings: positions are 1-based, "not found" is 0,
// and only ASCII letters have case.
#pragma once

#include <string>
#include <string_view>

namespace vb {

// Blanks (" ") removed at both ends / the left / the right. Tabs and other white space are kept.
std::string_view Trim(std::string_view s);
std::string_view LTrim(std::string_view s);
std::string_view RTrim(std::string_view s);

// ASCII upper / lower case; other bytes unchanged.
std::string UCase(std::string_view s);
std::string LCase(std::string_view s);

// Position (1-based) of the first `find` in `s`, 0 when absent. An empty `s` gives 0 (even for
// an empty `find`); an empty `find` in a non-empty `s` gives 1.
long InStr(std::string_view s, std::string_view find);
// Same, searching from position `start`. An empty `s` gives 0; an empty `find` returns `start`
// when start <= len + 1, else 0. A start past the end gives 0.
// REQUIRES: start >= 1, else Failure(5).
long InStr(long start, std::string_view s, std::string_view find);
// Position (1-based) of the last `find` in `s`, 0 when absent (or when `s` is empty). An empty
// `find` gives len(s).
long InStrRev(std::string_view s, std::string_view find);

// `length` chars from position `start` (1-based); a negative length means "to the end". A start
// past the end gives "". REQUIRES: start >= 1 (else Failure(5)); length >= -1 (else Failure(5)).
std::string_view Mid(std::string_view s, long start, long length = -1);
// The first / last n chars (all of s when n >= len). REQUIRES: n >= 0, else Failure(5).
std::string_view Left(std::string_view s, long n);
std::string_view Right(std::string_view s, long n);

// Every non-overlapping `find` replaced by `with`, left to right. An empty `find` returns s.
std::string Replace(std::string_view s, std::string_view find, std::string_view with);

// `s` with every blank (" ") removed.
std::string RemoveBlanks(std::string_view s);

// Case-sensitive byte comparison, as the run-time's "=" on strings.
inline bool Equals(std::string_view a, std::string_view b) { return a == b; }
// ASCII case-insensitive equality.
bool EqualsNoCase(std::string_view a, std::string_view b);

}  // namespace vb
