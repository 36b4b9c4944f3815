// Text-to-number conversions with the run-time's rules (lenient Val, strict CDbl and friends).
#include "vb/Convert.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

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

// A decimal number collected digit by digit into a fixed buffer (no allocation), then converted
// without any dependence on the C locale. Only the first kMaxDigits significant digits are kept,
// which is far beyond a double's precision; dropped integer digits still count in the exponent.
class NumberBuilder {
 public:
  void Negative() { negative_ = true; }
  void IntDigit(char c) {
    any_ = true;
    if (c == '0' && digits_ == 0) return;  // leading zeros carry nothing
    if (digits_ < kMaxDigits) {
      mantissa_[digits_++] = c;
    } else {
      ++exponent_;
    }
  }
  void FracDigit(char c) {
    any_ = true;
    if (c == '0' && digits_ == 0) {
      --exponent_;  // 0.05: the zero only moves the point
      return;
    }
    if (digits_ < kMaxDigits) {
      mantissa_[digits_++] = c;
      --exponent_;
    }
  }
  void Exponent(long e) { explicitExponent_ = e; }
  bool Any() const { return any_; }

  // The value; +-infinity when too large for a double, 0 when too small.
  double Value() const {
    if (digits_ == 0) return negative_ ? -0.0 : 0.0;
    const long exp = exponent_ + explicitExponent_;
    // Magnitude check first: the value lies in [10^(exp+digits-1), 10^(exp+digits)).
    const long magnitude = exp + digits_;
    if (magnitude > 400) return negative_ ? -kInf : kInf;
    if (magnitude < -400) return negative_ ? -0.0 : 0.0;
    char text[kMaxDigits + 16];
    int n = 0;
    for (int i = 0; i < digits_; ++i) text[n++] = mantissa_[i];
    text[n++] = 'e';
    const auto [end, ec0] = std::to_chars(text + n, text + sizeof text, exp);
    (void)ec0;
    n = static_cast<int>(end - text);
    double v = 0;
    const auto [ptr, ec] = std::from_chars(text, text + n, v, std::chars_format::scientific);
    (void)ptr;
    if (ec == std::errc::result_out_of_range) v = magnitude > 0 ? kInf : 0.0;
    else if (ec != std::errc()) v = 0;
    return negative_ ? -v : v;
  }

 private:
  static constexpr int kMaxDigits = 40;
  static constexpr double kInf = std::numeric_limits<double>::infinity();
  char mantissa_[kMaxDigits];
  int digits_ = 0;
  long exponent_ = 0;
  long explicitExponent_ = 0;
  bool negative_ = false;
  bool any_ = false;
};

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

  NumberBuilder num;
  size_t i = 0;
  if (s[i] == '+' || s[i] == '-') {
    if (s[i] == '-') num.Negative();
    ++i;
  }
  while (i < s.size() && IsDigit(s[i])) num.IntDigit(s[i++]);
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && IsDigit(s[i])) num.FracDigit(s[i++]);
  }
  if (!num.Any()) return false;
  if (i < s.size() && (s[i] == 'E' || s[i] == 'e' || s[i] == 'D' || s[i] == 'd')) {
    ++i;
    bool negativeExp = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) negativeExp = s[i++] == '-';
    if (i >= s.size() || !IsDigit(s[i])) return false;
    long exponent = 0;
    while (i < s.size() && IsDigit(s[i])) {
      if (exponent < 100000) exponent = exponent * 10 + (s[i] - '0');
      ++i;
    }
    num.Exponent(negativeExp ? -exponent : exponent);
  }
  if (i != s.size()) return false;
  value = num.Value();
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

  NumberBuilder num;
  if (s[i] == '+' || s[i] == '-') {
    if (s[i] == '-') num.Negative();
    ++i;
  }
  bool seenPoint = false;
  for (;;) {
    skip();
    if (i >= n) break;
    if (IsDigit(s[i])) {
      if (seenPoint) num.FracDigit(s[i]);
      else num.IntDigit(s[i]);
    } else if (s[i] == '.' && !seenPoint) {
      seenPoint = true;
    } else {
      break;
    }
    ++i;
  }
  if (!num.Any()) return 0;

  if (i < n && (s[i] == 'E' || s[i] == 'e' || s[i] == 'D' || s[i] == 'd')) {
    ++i;
    skip();
    bool negativeExp = false;
    if (i < n && (s[i] == '+' || s[i] == '-')) {
      negativeExp = s[i] == '-';
      ++i;
    }
    long exponent = 0;
    bool anyDigit = false;
    for (;;) {
      skip();
      if (i >= n || !IsDigit(s[i])) break;
      anyDigit = true;
      if (exponent < 100000) exponent = exponent * 10 + (s[i] - '0');
      ++i;
    }
    // A bare "E" is not an exponent: the number ends before it.
    if (anyDigit) num.Exponent(negativeExp ? -exponent : exponent);
  }
  return num.Value();
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
