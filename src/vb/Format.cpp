// Date and number formatting with the run-time's Format and Str rules.
#include "vb/Format.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vb {
namespace {

constexpr const char* kMonthNames[12] = {"January", "February", "March",     "April",
                                         "May",     "June",     "July",      "August",
                                         "September", "October", "November", "December"};
constexpr const char* kDayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                      "Thursday", "Friday", "Saturday"};

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

void AppendPadded(std::string& out, long v, int width) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "%0*ld", width, v);
  out += buf;
}

// Length of the run of `c` (case-insensitive) at fmt[i].
size_t RunLength(std::string_view fmt, size_t i, char c) {
  size_t n = 0;
  while (i + n < fmt.size() && Lower(fmt[i + n]) == c) ++n;
  return n;
}

bool StartsWithNoCase(std::string_view s, size_t i, std::string_view word) {
  if (i + word.size() > s.size()) return false;
  for (size_t k = 0; k < word.size(); ++k) {
    if (Lower(s[i + k]) != Lower(word[k])) return false;
  }
  return true;
}

// True when the next date token after position i (skipping literal characters) is a seconds token.
bool SecondsFollow(std::string_view fmt, size_t i) {
  while (i < fmt.size()) {
    const char c = Lower(fmt[i]);
    if (c == 's') return true;
    if (c == 'y' || c == 'm' || c == 'd' || c == 'h' || c == 'n' || c == 'w' || c == 'q') return false;
    ++i;
  }
  return false;
}

// 15 significant decimal digits of |x| (trailing zeros removed) and the decimal exponent of the
// first digit: 1234.5 -> "12345", 3. The run-time works from this 15-digit form, which is why
// 2.675 formats as 2.68 although its binary value lies just below.
void SignificantDigits(double x, std::string& digits, int& exponent) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.14e", std::fabs(x));
  digits.clear();
  const char* p = buf;
  for (; *p && *p != 'e'; ++p) {
    if (*p >= '0' && *p <= '9') digits.push_back(*p);
  }
  exponent = (*p == 'e') ? std::atoi(p + 1) : 0;
  while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
  if (digits == "0") exponent = 0;
}

// |x| rounded half away from zero to `decimals` places, as integer-part digits (no leading zeros,
// "" for zero) and exactly `decimals` fraction digits.
void FixedDigits(double x, int decimals, std::string& intPart, std::string& fracPart) {
  std::string digits;
  int exponent;
  SignificantDigits(x, digits, exponent);
  intPart.clear();
  fracPart.clear();
  if (digits == "0") {
    fracPart.assign(decimals, '0');
    return;
  }
  // Place the digits on a grid: position k (0-based in `digits`) has weight 10^(exponent - k).
  // Keep the digits with weight >= 10^-decimals.
  const long keep = static_cast<long>(exponent) + 1 + decimals;  // digits to keep
  std::string kept;
  bool roundUp = false;
  if (keep <= 0) {
    roundUp = keep == 0 && digits[0] >= '5';
  } else {
    kept = digits.substr(0, std::min<size_t>(digits.size(), static_cast<size_t>(keep)));
    kept.append(static_cast<size_t>(keep) - kept.size(), '0');
    roundUp = static_cast<size_t>(keep) < digits.size() && digits[keep] >= '5';
  }
  int pointPos = exponent + 1;  // digits of `kept` before the decimal point
  if (keep <= 0) {
    kept.clear();
    pointPos = -decimals;  // so that kept (empty) means zero with `decimals` places
  }
  if (roundUp) {
    int k = static_cast<int>(kept.size()) - 1;
    while (k >= 0 && kept[k] == '9') kept[k--] = '0';
    if (k >= 0) {
      ++kept[k];
    } else {
      kept.insert(kept.begin(), '1');
      ++pointPos;
    }
  }
  // Now kept's digits with the point after pointPos digits; total fraction digits = decimals.
  if (pointPos > 0) {
    intPart = kept.substr(0, static_cast<size_t>(pointPos));
    fracPart = kept.substr(static_cast<size_t>(pointPos));
  } else {
    fracPart.assign(static_cast<size_t>(-pointPos), '0');
    fracPart += kept;
  }
  fracPart.resize(static_cast<size_t>(decimals), '0');
  size_t nz = 0;
  while (nz < intPart.size() && intPart[nz] == '0') ++nz;
  intPart.erase(0, nz);
}

// One section of a numeric pattern, with its digit placeholders located.
std::string FormatSection(double x, std::string_view fmt, bool withSign) {
  // Pass 1: find placeholders, the decimal point, grouping, scaling and percent.
  int intPlaces = 0, firstZero = -1, decPlaces = 0;
  bool hasPoint = false, grouping = false, percent = false;
  int scaleCommas = 0;
  {
    bool inQuote = false;
    int pendingCommas = 0;
    for (size_t i = 0; i < fmt.size(); ++i) {
      const char c = fmt[i];
      if (inQuote) {
        if (c == '"') inQuote = false;
        continue;
      }
      if (c == '"') {
        inQuote = true;
      } else if (c == '\\') {
        ++i;
      } else if (c == '0' || c == '#') {
        if (hasPoint) {
          ++decPlaces;
        } else {
          if (pendingCommas > 0 && intPlaces > 0) grouping = true;
          pendingCommas = 0;
          if (c == '0' && firstZero < 0) firstZero = intPlaces;
          ++intPlaces;
        }
      } else if (c == '.' && !hasPoint) {
        hasPoint = true;
        scaleCommas = pendingCommas;
        pendingCommas = 0;
      } else if (c == ',' && !hasPoint) {
        ++pendingCommas;
      } else if (c == '%') {
        percent = true;
      }
    }
    if (!hasPoint) scaleCommas = pendingCommas;
  }
  double v = std::fabs(x);
  if (percent) v *= 100;
  for (int k = 0; k < scaleCommas; ++k) v /= 1000;

  std::string intDigits, fracDigits;
  FixedDigits(v, decPlaces, intDigits, fracDigits);
  const bool isZero = intDigits.empty() && fracDigits.find_first_not_of('0') == std::string::npos;
  const size_t minDigits = firstZero >= 0 ? static_cast<size_t>(intPlaces - firstZero) : 0;
  if (intDigits.size() < minDigits) intDigits.insert(0, minDigits - intDigits.size(), '0');
  if (grouping) {
    std::string g;
    for (size_t k = 0; k < intDigits.size(); ++k) {
      if (k > 0 && (intDigits.size() - k) % 3 == 0) g.push_back(',');
      g.push_back(intDigits[k]);
    }
    intDigits = g;
  }
  // Trailing "#" places of the fraction show only significant digits.
  size_t fracShown = fracDigits.size();
  {
    std::string places;
    bool afterPoint = false, inQuote = false;
    for (size_t i = 0; i < fmt.size(); ++i) {
      const char c = fmt[i];
      if (inQuote) {
        if (c == '"') inQuote = false;
        continue;
      }
      if (c == '"') inQuote = true;
      else if (c == '\\') ++i;
      else if (c == '.' && !afterPoint) afterPoint = true;
      else if (afterPoint && (c == '0' || c == '#')) places.push_back(c);
    }
    while (fracShown > 0 && places[fracShown - 1] == '#' && fracDigits[fracShown - 1] == '0') --fracShown;
  }

  std::string out;
  if (withSign && x < 0 && !isZero) out.push_back('-');
  // Pass 2: emit, placing integer digits right-aligned on the integer placeholders.
  const long extra = static_cast<long>(intDigits.size()) - (grouping ? 0 : intPlaces);
  int intSeen = 0;
  size_t fracSeen = 0;
  bool afterPoint = false, inQuote = false;
  for (size_t i = 0; i < fmt.size(); ++i) {
    const char c = fmt[i];
    if (inQuote) {
      if (c == '"') inQuote = false;
      else out.push_back(c);
      continue;
    }
    if (c == '"') {
      inQuote = true;
    } else if (c == '\\') {
      if (i + 1 < fmt.size()) out.push_back(fmt[++i]);
    } else if ((c == '0' || c == '#') && !afterPoint) {
      if (grouping) {
        if (intSeen == 0) out += intDigits;
      } else {
        if (intSeen == 0 && extra > 0) out.append(intDigits, 0, static_cast<size_t>(extra));
        const long idx = static_cast<long>(intDigits.size()) - intPlaces + intSeen;
        if (idx >= 0) out.push_back(intDigits[static_cast<size_t>(idx)]);
      }
      ++intSeen;
    } else if ((c == '0' || c == '#') && afterPoint) {
      if (fracSeen < fracShown) out.push_back(fracDigits[fracSeen]);
      ++fracSeen;
    } else if (c == '.' && !afterPoint) {
      if (intPlaces == 0 && !intDigits.empty()) out += intDigits;  // ".00" of 12.5 is "12.50"
      out.push_back('.');
      afterPoint = true;
    } else if (c == ',' && !afterPoint) {
      // grouping and scaling commas are not printed themselves
    } else {
      out.push_back(c);
    }
  }
  return out;
}

// The general form of a number: up to 15 significant digits, no leading "0" before the point,
// exponent form outside 1E-4 .. 1E15.
std::string General(double x) {
  if (std::isnan(x)) return "NaN";
  if (std::isinf(x)) return x < 0 ? "-Inf" : "Inf";
  if (x == 0) return "0";
  std::string digits;
  int e;
  SignificantDigits(x, digits, e);
  std::string out;
  if (x < 0) out.push_back('-');
  if (e >= 15 || e < -4) {
    out.push_back(digits[0]);
    if (digits.size() > 1) {
      out.push_back('.');
      out.append(digits, 1, std::string::npos);
    }
    char buf[16];
    std::snprintf(buf, sizeof buf, "E%c%02d", e < 0 ? '-' : '+', std::abs(e));
    out += buf;
    return out;
  }
  if (e >= 0) {
    const size_t intLen = static_cast<size_t>(e) + 1;
    if (digits.size() <= intLen) {
      out += digits;
      out.append(intLen - digits.size(), '0');
    } else {
      out.append(digits, 0, intLen);
      out.push_back('.');
      out.append(digits, intLen, std::string::npos);
    }
  } else {
    out.push_back('.');
    out.append(static_cast<size_t>(-e - 1), '0');
    out += digits;
  }
  return out;
}

// Splits a pattern at ";" (outside quotes) into at most four sections.
int SplitSections(std::string_view fmt, std::string_view sections[4]) {
  int count = 0;
  size_t start = 0;
  bool inQuote = false;
  for (size_t i = 0; i <= fmt.size(); ++i) {
    if (i < fmt.size()) {
      const char c = fmt[i];
      if (c == '"') inQuote = !inQuote;
      if (c == '\\') {
        ++i;
        continue;
      }
      if (c != ';' || inQuote) continue;
    }
    if (count < 4) sections[count++] = fmt.substr(start, i - start);
    start = i + 1;
  }
  return count;
}

void Write2(char* out, int v) {
  out[0] = static_cast<char>('0' + v / 10);
  out[1] = static_cast<char>('0' + v % 10);
}

}  // namespace

std::string FormatDate(Date d, std::string_view fmt) {
  const DateParts p = Split(d);
  bool twelveHour = false;
  for (size_t i = 0; i < fmt.size(); ++i) {
    if (StartsWithNoCase(fmt, i, "AM/PM") || StartsWithNoCase(fmt, i, "A/P")) twelveHour = true;
  }
  const int hour12 = p.hour % 12 == 0 ? 12 : p.hour % 12;
  const int hour = twelveHour ? hour12 : p.hour;
  std::string out;
  bool lastWasHour = false;
  for (size_t i = 0; i < fmt.size();) {
    const char c = fmt[i];
    const char lc = Lower(c);
    if (c == '"') {
      const size_t close = fmt.find('"', i + 1);
      const size_t end = close == std::string_view::npos ? fmt.size() : close;
      out.append(fmt.substr(i + 1, end - i - 1));
      i = end + 1;
      continue;
    }
    if (c == '\\') {
      if (i + 1 < fmt.size()) out.push_back(fmt[i + 1]);
      i += 2;
      continue;
    }
    if (StartsWithNoCase(fmt, i, "AM/PM")) {
      const bool upper = fmt[i] == 'A';
      out += p.hour < 12 ? (upper ? "AM" : "am") : (upper ? "PM" : "pm");
      i += 5;
      continue;
    }
    if (StartsWithNoCase(fmt, i, "A/P")) {
      const bool upper = fmt[i] == 'A';
      out.push_back(p.hour < 12 ? (upper ? 'A' : 'a') : (upper ? 'P' : 'p'));
      i += 3;
      continue;
    }
    const size_t n = (lc == 'y' || lc == 'm' || lc == 'd' || lc == 'h' || lc == 'n' || lc == 's')
                         ? RunLength(fmt, i, lc)
                         : 0;
    if (n == 0) {
      out.push_back(c);
      ++i;
      continue;
    }
    switch (lc) {
      case 'y':
        if (n >= 3) AppendPadded(out, p.year, 4);
        else if (n == 2) AppendPadded(out, p.year % 100, 2);
        else AppendPadded(out, static_cast<long>(DaysFromCivil(p.year, p.month, p.day) -
                                                 DaysFromCivil(p.year, 1, 1) + 1), 1);
        lastWasHour = false;
        break;
      case 'm':
        if (n <= 2 && (lastWasHour || SecondsFollow(fmt, i + n))) {
          AppendPadded(out, p.minute, static_cast<int>(n));
        } else if (n >= 4) {
          out += kMonthNames[p.month - 1];
        } else if (n == 3) {
          out.append(kMonthNames[p.month - 1], 3);
        } else {
          AppendPadded(out, p.month, static_cast<int>(n));
        }
        lastWasHour = false;
        break;
      case 'd':
        if (n >= 4) {
          out += kDayNames[Weekday(d) - 1];
        } else if (n == 3) {
          out.append(kDayNames[Weekday(d) - 1], 3);
        } else {
          AppendPadded(out, p.day, static_cast<int>(n));
        }
        lastWasHour = false;
        break;
      case 'h':
        AppendPadded(out, hour, n >= 2 ? 2 : 1);
        lastWasHour = true;
        break;
      case 'n':
        AppendPadded(out, p.minute, n >= 2 ? 2 : 1);
        lastWasHour = false;
        break;
      case 's':
        AppendPadded(out, p.second, n >= 2 ? 2 : 1);
        lastWasHour = false;
        break;
    }
    i += n;
  }
  return out;
}

std::string FormatNumber(double x, std::string_view fmt) {
  if (fmt.empty() || StartsWithNoCase(fmt, 0, "General Number")) return General(x);
  if (fmt.size() == 5 && StartsWithNoCase(fmt, 0, "Fixed")) return FormatNumber(x, "0.00");
  if (fmt.size() == 8 && StartsWithNoCase(fmt, 0, "Standard")) return FormatNumber(x, "#,##0.00");
  if (fmt.size() == 7 && StartsWithNoCase(fmt, 0, "Percent")) return FormatNumber(x, "0.00%");
  if (!std::isfinite(x)) return General(x);

  std::string_view sections[4];
  const int count = SplitSections(fmt, sections);
  if (count >= 2) {
    if (x < 0) {
      // The negative section shows the magnitude; its own literals carry any sign.
      if (!sections[1].empty()) return FormatSection(x, sections[1], false);
      return FormatSection(x, sections[0], true);
    }
    if (x == 0 && count >= 3 && !sections[2].empty()) return FormatSection(x, sections[2], false);
    return FormatSection(x, sections[0], false);
  }
  return FormatSection(x, sections[0], true);
}

void FormatTimeTo(Date d, char out[8]) {
  // Every record writer stamps its times here: two-digit pairs from a table, and each part taken
  // off the seconds once.
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "4041424344454647484950515253545556575859";
  const uint32_t s = static_cast<uint32_t>(SecondOfDay(d));  // 0..86399
  const uint32_t h = s / 3600, rest = s - h * 3600, m = rest / 60, sec = rest - m * 60;
  std::memcpy(out, kPairs + 2 * h, 2);
  out[2] = ':';
  std::memcpy(out + 3, kPairs + 2 * m, 2);
  out[5] = ':';
  std::memcpy(out + 6, kPairs + 2 * sec, 2);
}

void FormatYmdTo(Date d, char out[8]) {
  const DateParts p = Split(d);
  int y = p.year;
  for (int k = 3; k >= 0; --k) {
    out[k] = static_cast<char>('0' + y % 10);
    y /= 10;
  }
  Write2(out + 4, p.month);
  Write2(out + 6, p.day);
}

void FormatZeroPadTo(long v, int width, char* out) {
  // The full text is the digits padded with zeros to `width`, with "-" in front of a negative
  // value; a field of `width` chars keeps its first `width` chars, as a fixed-width field does.
  char digits[24];
  int nd = 0;
  unsigned long u = v < 0 ? 0ul - static_cast<unsigned long>(v) : static_cast<unsigned long>(v);
  do {
    digits[nd++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  const int padded = nd < width ? width : nd;
  int pos = 0;
  auto put = [&](char c) {
    if (pos < width) out[pos] = c;
    ++pos;
  };
  if (v < 0) put('-');
  for (int k = 0; k < padded - nd; ++k) put('0');
  for (int k = nd - 1; k >= 0; --k) put(digits[k]);
}

std::string Str(double x) {
  std::string g = General(x);
  if (!(x < 0) && !std::isnan(x)) g.insert(g.begin(), ' ');
  return g;
}

std::string CStr(double x) { return General(x); }

}  // namespace vb
