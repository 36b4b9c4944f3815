// The field values of the record buffer: C text as stored, N numbers read and written as dBASE
// writes them (right-aligned, rounded to the field's decimals), D dates as "yyyymmdd".
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "dbase/TableState.h"
#include "vb/Dates.h"
#include "vb/ShortCopy.h"
#include "vb/TrimBlanksAndTabs.h"

namespace dbase {

std::string_view Table::GetText(int field) const {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return {};
  impl_->EnsureLoaded();
  return std::string_view(impl_->buf.data() + f->offset, size_t(f->width));
}

void Table::SetText(int field, std::string_view v) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  impl_->EnsureLoaded();
  vb::PadField(impl_->buf.data() + f->offset, size_t(f->width), v);
}

double Table::GetNumber(int field) const {
  std::string_view t = vb::TrimBlanksAndTabs(GetText(field));
  if (t.empty()) return 0;
  if (t.front() == '+') t.remove_prefix(1);
  // Whole numbers, nearly every counter, are read digit by digit: up to 15 digits the value is
  // exact, as the general reading below would give it.
  const size_t sign = t.front() == '-' ? 1 : 0;
  if (t.size() > sign && t.size() - sign <= 15) {
    uint64_t u = 0;
    size_t i = sign;
    for (; i < t.size() && unsigned(t[i] - '0') < 10; ++i) u = u * 10 + unsigned(t[i] - '0');
    if (i == t.size()) return sign ? -double(u) : double(u);
  }
  double v = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  return r.ec == std::errc() ? v : 0;
}

// A value too wide for its field is stored as the nearest value that fits: dBASE itself
// would show asterisks, which no reader takes for a number, and a counter that stops at its
// largest value is the lesser harm.
void Table::SetNumber(int field, double v) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  if (!std::isfinite(v)) v = 0;
  const int d = f->decimals;
  const int intDigits = f->width - (d > 0 ? d + 1 : 0);
  char text[64];
  if (d == 0 && f->width <= 18) {
    // Whole numbers, the usual case: rounded half away from zero, digits written by hand
    // straight into the field. A value that is whole already (nearly every counter) needs no
    // rounding.
    static constexpr std::array<int64_t, 19> kPowersOf10 = [] {
      std::array<int64_t, 19> p{};
      for (size_t i = 0; i < p.size(); ++i) p[i] = i == 0 ? 1 : p[i - 1] * 10;
      return p;
    }();
    const int64_t maxV = kPowersOf10[size_t(intDigits)] - 1;
    const int64_t minV = -(maxV / 10);
    int64_t iv;
    if (v >= double(maxV)) {
      iv = maxV;
    } else if (v <= double(minV)) {
      iv = minV;
    } else {
      iv = int64_t(v);
      if (double(iv) != v) {
        const double r = std::round(v);
        iv = r >= double(maxV) ? maxV : r <= double(minV) ? minV : int64_t(r);
      }
    }
    const bool neg = iv < 0;
    uint64_t u = neg ? uint64_t(-iv) : uint64_t(iv);
    impl_->EnsureLoaded();
    char* const out = impl_->buf.data() + f->offset;
    int at = f->width;
    do {
      out[--at] = char('0' + u % 10);
      u /= 10;
    } while (u);
    if (neg) out[--at] = '-';
    while (at > 0) out[--at] = ' ';
    return;
  }
  const double step = std::pow(10.0, -d);
  const double maxV = std::pow(10.0, intDigits) - step;
  const double minV = intDigits > 1 ? -(std::pow(10.0, intDigits - 1) - step) : 0.0;
  double scale = std::pow(10.0, d);
  v = std::round(v * scale) / scale;
  v = std::clamp(v, minV, maxV);
  if (v == 0) v = 0;  // no "-0"
  int n = std::snprintf(text, sizeof text, "%*.*f", f->width, d, v);
  if (n != f->width) return;  // cannot happen after clamping; leave the field as it was
  impl_->EnsureLoaded();
  std::memcpy(impl_->buf.data() + f->offset, text, size_t(n));
}

static bool ParseYmd(std::string_view t, int& y, int& m, int& d) {
  if (t.size() != 8) return false;
  for (char c : t)
    if (c < '0' || c > '9') return false;
  y = (t[0] - '0') * 1000 + (t[1] - '0') * 100 + (t[2] - '0') * 10 + (t[3] - '0');
  m = (t[4] - '0') * 10 + (t[5] - '0');
  d = (t[6] - '0') * 10 + (t[7] - '0');
  if (m < 1 || m > 12 || d < 1) return false;
  // The days of the month in the Gregorian calendar, carried back before its start.
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return d <= kDays[m - 1] + (m == 2 && leap ? 1 : 0);
}

vb::Date Table::GetDate(int field) const {
  const std::string_view text = GetText(field);
  const Impl& m = *impl_;
  if (text.size() == 8)
    for (int i = 0; i < 2; ++i)
      if (m.getKnown[i] && std::memcmp(text.data(), m.getText[i], 8) == 0) return m.getDate[i];
  int y, mo, d;
  const vb::Date date = ParseYmd(text, y, mo, d) ? vb::Date(vb::DaysFromCivil(y, mo, d)) : 0;
  if (text.size() == 8) {
    const int i = m.getNext;
    m.getNext = 1 - i;
    std::memcpy(m.getText[i], text.data(), 8);
    m.getDate[i] = date;
    m.getKnown[i] = true;
  }
  return date;
}

bool Table::DateIsBlank(int field) const {
  int y, m, d;
  return !ParseYmd(GetText(field), y, m, d);
}

// Date 0 is the run-time's empty date, so it is stored as a blank date.
void Table::SetDate(int field, vb::Date date) {
  const FieldInfo* f = impl_->Field(field);
  if (!f) return;
  if (!std::isfinite(date) || date == 0 || std::fabs(date) > 3e6) {
    SetDateBlank(field);
    return;
  }
  const int64_t day = int64_t(std::trunc(date));
  Impl& im = *impl_;
  if (day != im.setDay) {
    int y, m, d;
    vb::CivilFromDays(day, y, m, d);
    if (y < 1 || y > 9999) {
      SetDateBlank(field);
      return;
    }
    const char text[8] = {char('0' + y / 1000), char('0' + y / 100 % 10), char('0' + y / 10 % 10),
                          char('0' + y % 10),     char('0' + m / 10),       char('0' + m % 10),
                          char('0' + d / 10),     char('0' + d % 10)};
    std::memcpy(im.setText, text, 8);
    im.setDay = day;
  }
  SetText(field, std::string_view(im.setText, 8));
}

void Table::SetDateBlank(int field) { SetText(field, ""); }

std::string_view Table::GetText(std::string_view name) const { return GetText(impl_->IndexOf(name)); }
double Table::GetNumber(std::string_view name) const { return GetNumber(impl_->IndexOf(name)); }
vb::Date Table::GetDate(std::string_view name) const { return GetDate(impl_->IndexOf(name)); }
bool Table::DateIsBlank(std::string_view name) const { return DateIsBlank(impl_->IndexOf(name)); }

int Table::SetText(std::string_view name, std::string_view v) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetText(i, v);
  return kOk;
}
int Table::SetNumber(std::string_view name, double v) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetNumber(i, v);
  return kOk;
}
int Table::SetDate(std::string_view name, vb::Date d) {
  int i = FieldIndex(name);
  if (i < 0) return kNoSuchField;
  SetDate(i, d);
  return kOk;
}


}  // namespace dbase
