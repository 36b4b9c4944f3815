// Small allocation-free text helpers of the hit processing: ASCII case folding into a buffer,
// one-character slices and the ";"-separated pattern lists of the site options.
#pragma once

#include <string>
#include <string_view>

#include "vb/Strings.h"

namespace analysis {

inline char UpperChar(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }
inline char LowerChar(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// Writes `s` lower-cased into `out`, reusing its storage.
// `s` upper-cased into `out`, reusing its buffer.
inline void UpperAsciiInto(std::string_view s, std::string& out) {
  out.resize(s.size());
  for (size_t i = 0; i < s.size(); ++i) out[i] = UpperChar(s[i]);
}

inline void LowerAsciiInto(std::string_view s, std::string& out) {
  out.assign(s);
  for (char& c : out) c = LowerChar(c);
}

// The one character at 0-based `pos`, or empty text beyond the end (a one-character Mid).
inline std::string_view MidChar(std::string_view s, size_t pos) {
  return pos < s.size() ? s.substr(pos, 1) : std::string_view{};
}

// Calls `f(pattern)` for each pattern of a ";"-separated list, in order, until `f` returns true;
// returns whether one did. A list that does not end with ";" is read as if it did; patterns are
// trimmed of blanks and empty ones are skipped, so "a; b;" and "a;b" hold the same two patterns
// and an empty list holds none.
template <class F>
bool AnyPattern(std::string_view list, F&& f) {
  size_t start = 0;
  while (start < list.size()) {
    size_t semi = list.find(';', start);
    if (semi == std::string_view::npos) semi = list.size();
    std::string_view pattern = vb::Trim(list.substr(start, semi - start));
    if (!pattern.empty() && f(pattern)) return true;
    start = semi + 1;
  }
  return false;
}

}  // namespace analysis
