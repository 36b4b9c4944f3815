// The run-time's string functions (1-based positions, blanks-only trimming, ASCII case).
#include "vb/Strings.h"

#include <cstdint>
#include <cstring>

#include "vb/Failure.h"

namespace vb {
namespace {

char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

// The fields of the tables are fixed-width and padded with blanks, so a trim often walks a long
// run of them: runs are stepped over eight bytes at a time.
constexpr uint64_t kEightBlanks = 0x2020202020202020ull;

std::string_view LTrim(std::string_view s) {
  const char* p = s.data();
  const size_t n = s.size();
  size_t b = 0;
  for (uint64_t w; b + 8 <= n; b += 8) {
    std::memcpy(&w, p + b, sizeof w);
    if (w != kEightBlanks) break;
  }
  while (b < n && p[b] == ' ') ++b;
  return b == n ? std::string_view() : s.substr(b);  // all blanks: the empty view
}

std::string_view RTrim(std::string_view s) {
  const char* p = s.data();
  size_t e = s.size();  // one past the last byte kept
  for (uint64_t w; e >= 8; e -= 8) {
    std::memcpy(&w, p + e - 8, sizeof w);
    if (w != kEightBlanks) break;
  }
  while (e > 0 && p[e - 1] == ' ') --e;
  return e == 0 ? std::string_view() : s.substr(0, e);  // all blanks: the empty view
}

std::string_view Trim(std::string_view s) { return RTrim(LTrim(s)); }

std::string UCase(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = Upper(c);
  return out;
}

std::string LCase(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = Lower(c);
  return out;
}

long InStr(std::string_view s, std::string_view find) { return InStr(1, s, find); }

long InStr(long start, std::string_view s, std::string_view find) {
  if (start < 1) Raise(kInvalidCall);
  if (s.empty()) return 0;
  const long len = static_cast<long>(s.size());
  if (find.empty()) return start <= len + 1 ? start : 0;
  if (start > len) return 0;
  const size_t pos = s.find(find, static_cast<size_t>(start - 1));
  return pos == std::string_view::npos ? 0 : static_cast<long>(pos) + 1;
}

long InStrRev(std::string_view s, std::string_view find) {
  if (s.empty()) return 0;
  if (find.empty()) return static_cast<long>(s.size());
  const size_t pos = s.rfind(find);
  return pos == std::string_view::npos ? 0 : static_cast<long>(pos) + 1;
}

std::string_view Mid(std::string_view s, long start, long length) {
  if (start < 1 || length < -1) Raise(kInvalidCall);
  if (static_cast<size_t>(start) > s.size()) return {};
  const std::string_view rest = s.substr(static_cast<size_t>(start - 1));
  if (length < 0 || static_cast<size_t>(length) >= rest.size()) return rest;
  return rest.substr(0, static_cast<size_t>(length));
}

std::string_view Left(std::string_view s, long n) {
  if (n < 0) Raise(kInvalidCall);
  return static_cast<size_t>(n) >= s.size() ? s : s.substr(0, static_cast<size_t>(n));
}

std::string_view Right(std::string_view s, long n) {
  if (n < 0) Raise(kInvalidCall);
  return static_cast<size_t>(n) >= s.size() ? s : s.substr(s.size() - static_cast<size_t>(n));
}

std::string Replace(std::string_view s, std::string_view find, std::string_view with) {
  if (find.empty()) return std::string(s);
  std::string out;
  out.reserve(s.size());
  size_t i = 0;
  for (;;) {
    const size_t pos = s.find(find, i);
    if (pos == std::string_view::npos) break;
    out.append(s.substr(i, pos - i));
    out.append(with);
    i = pos + find.size();
  }
  out.append(s.substr(i));
  return out;
}

std::string RemoveBlanks(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char c : s) {
    if (c != ' ') out.push_back(c);
  }
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

}  // namespace vb
