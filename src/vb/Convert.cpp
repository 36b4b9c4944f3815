// Text-to-number conversions with the run-time's rules (lenient Val, strict CDbl and friends).
#include "vb/Convert.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "vb/Failure.h"

namespace vb {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A radix literal ("&H..."/"&O...") is typed by its size, as the run-time types it: a value that
// fits in 16 bits is a 16-bit integer (so "&HFFFF" is -1), one that fits in 32 bits a 32-bit integer
// (so "&HFFFFFFFF" is -1 and "&H10000" is 65536).
double RadixValue(uint64_t v) {
  if (v <= 0xFFFFu) return static_cast<int16_t>(static_cast<uint16_t>(v));
  return static_cast<int32_t>(static_cast<uint32_t>(v));
}

// Turns a cleaned decimal text ("-12.5E3", digits only, no blanks) into a double without any
// dependence on the C locale. Out of range: +-infinity for too large, 0 for too small.
double ParseClean(const std::string& clean, long decimalExponentEstimate) {
  double v = 0;
  auto [ptr, ec] = std::from_chars(clean.data(), clean.data() + clean.size(), v,
                                   std::chars_format::general);
  (void)ptr;
  if (ec == std::errc::result_out_of_range) {
    const bool negative = !clean.empty() && clean[0] == '-';
    if (decimalExponentEstimate > 0) {
      return negative ? -std::numeric_limits<double>::infinity()
                      : std::numeric_limits<double>::infinity();
    }
    return negative ? -0.0 : 0.0;
  }
  if (ec != std::errc()) return 0;
  return v;
}

// The strict number grammar shared by CDbl and IsNumeric. Returns false for text that is not a
// number; `value` may be infinite when the number is too large for a double.
bool ParseStrict(std::string_view s, double& value) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
  s = s.substr(b, e - b);
  if (s.empty()) return false;

  if (s[0] == '&') {
    if (s.size() < 3) return false;
    const char kind = s[1];
    const int radix = (kind == 'H' || kind == 'h') ? 16 : (kind == 'O' || kind == 'o') ? 8 : 0;
    if (radix == 0) return false;
    uint64_t v = 0;
    for (size_t i = 2; i < s.size(); ++i) {
      const int d = HexValue(s[i]);
      if (d < 0 || d >= radix) return false;
      v = v * radix + d;
      if (v > 0xFFFFFFFFu) {
        value = std::numeric_limits<double>::infinity();
        return true;
      }
    }
    value = RadixValue(v);
    return true;
  }

  std::string clean;
  clean.reserve(s.size());
  size_t i = 0;
  if (s[i] == '+' || s[i] == '-') {
    if (s[i] == '-') clean.push_back('-');
    ++i;
  }
  long intDigits = 0, mantissaDigits = 0;
  while (i < s.size() && IsDigit(s[i])) {
    clean.push_back(s[i++]);
    ++intDigits;
    ++mantissaDigits;
  }
  if (i < s.size() && s[i] == '.') {
    clean.push_back('.');
    ++i;
    while (i < s.size() && IsDigit(s[i])) {
      clean.push_back(s[i++]);
      ++mantissaDigits;
    }
  }
  if (mantissaDigits == 0) return false;
  long exponent = 0;
  if (i < s.size() && (s[i] == 'E' || s[i] == 'e' || s[i] == 'D' || s[i] == 'd')) {
    clean.push_back('e');
    ++i;
    bool negativeExp = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
      negativeExp = s[i] == '-';
      clean.push_back(s[i++]);
    }
    if (i >= s.size() || !IsDigit(s[i])) return false;
    while (i < s.size() && IsDigit(s[i])) {
      if (exponent < 100000) exponent = exponent * 10 + (s[i] - '0');
      clean.push_back(s[i++]);
    }
    if (negativeExp) exponent = -exponent;
  }
  if (i != s.size()) return false;
  value = ParseClean(clean, exponent + intDigits);
  return true;
}

}  // namespace

double Val(std::string_view s) {
  const size_t n = s.size();
  size_t i = 0;
  // Blanks, tabs and line feeds are not part of the text as far as Val is concerned.
  auto skip = [&] {
    while (i < n && (s[i] == ' ' || s[i] == '\t' || s[i] == '\n')) ++i;
  };
  skip();
  if (i >= n) return 0;

  if (s[i] == '&') {
    ++i;
    skip();
    if (i >= n) return 0;
    const char kind = s[i];
    const int radix = (kind == 'H' || kind == 'h') ? 16 : (kind == 'O' || kind == 'o') ? 8 : 0;
    if (radix == 0) return 0;
    ++i;
    uint64_t v = 0;
    for (;;) {
      skip();
      if (i >= n) break;
      const int d = HexValue(s[i]);
      if (d < 0 || d >= radix) break;
      // Beyond 32 bits only the low 32 bits are kept (Val never fails).
      v = (v * radix + d) & 0xFFFFFFFFull;
      ++i;
    }
    return RadixValue(v);
  }

  std::string clean;
  if (s[i] == '+' || s[i] == '-') {
    if (s[i] == '-') clean.push_back('-');
    ++i;
  }
  long intDigits = 0, mantissaDigits = 0;
  bool seenPoint = false;
  for (;;) {
    skip();
    if (i >= n) break;
    if (IsDigit(s[i])) {
      clean.push_back(s[i]);
      ++mantissaDigits;
      if (!seenPoint) ++intDigits;
    } else if (s[i] == '.' && !seenPoint) {
      seenPoint = true;
      clean.push_back('.');
    } else {
      break;
    }
    ++i;
  }
  if (mantissaDigits == 0) return 0;

  long exponent = 0;
  if (i < n && (s[i] == 'E' || s[i] == 'e' || s[i] == 'D' || s[i] == 'd')) {
    size_t save = i;
    ++i;
    skip();
    bool negativeExp = false;
    if (i < n && (s[i] == '+' || s[i] == '-')) {
      negativeExp = s[i] == '-';
      ++i;
    }
    std::string digits;
    for (;;) {
      skip();
      if (i >= n || !IsDigit(s[i])) break;
      digits.push_back(s[i]);
      if (exponent < 100000) exponent = exponent * 10 + (s[i] - '0');
      ++i;
    }
    if (digits.empty()) {
      i = save;  // a bare "E" is not an exponent: the number ends before it
      exponent = 0;
    } else {
      clean.push_back('e');
      if (negativeExp) clean.push_back('-');
      clean += digits;
      if (negativeExp) exponent = -exponent;
    }
  }
  if (clean == "-" || clean == "." || clean == "-.") return 0;
  return ParseClean(clean, exponent + intDigits);
}

bool IsNumeric(std::string_view s) {
  double v;
  return ParseStrict(s, v);
}

double CDbl(std::string_view s) {
  double v = 0;
  if (!ParseStrict(s, v)) Raise(kTypeMismatch);
  if (std::isinf(v)) Raise(kOverflow);
  return v;
}

double RoundHalfEven(double x) {
  if (!std::isfinite(x)) return x;
  const double lower = std::floor(x);
  const double diff = x - lower;
  if (diff > 0.5) return lower + 1;
  if (diff < 0.5) return lower;
  return std::fmod(lower, 2.0) == 0 ? lower : lower + 1;
}

int16_t CInt(double x) {
  if (std::isnan(x)) Raise(kOverflow);
  const double r = RoundHalfEven(x);
  if (r < -32768.0 || r > 32767.0) Raise(kOverflow);
  return static_cast<int16_t>(r);
}

int32_t CLng(double x) {
  if (std::isnan(x)) Raise(kOverflow);
  const double r = RoundHalfEven(x);
  if (r < -2147483648.0 || r > 2147483647.0) Raise(kOverflow);
  return static_cast<int32_t>(r);
}

int16_t CInt(std::string_view s) { return CInt(CDbl(s)); }

int32_t CLng(std::string_view s) { return CLng(CDbl(s)); }

bool CBool(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
  const std::string_view t = s.substr(b, e - b);
  auto equalsNoCase = [](std::string_view a, std::string_view word) {
    if (a.size() != word.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
      char c = a[i];
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
      if (c != word[i]) return false;
    }
    return true;
  };
  if (equalsNoCase(t, "true")) return true;
  if (equalsNoCase(t, "false")) return false;
  double v = 0;
  if (!ParseStrict(t, v)) Raise(kTypeMismatch);
  return v != 0;
}

}  // namespace vb
