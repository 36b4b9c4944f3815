// The text rules of the record fields (see RecordText.h).
#include "database/RecordText.h"

#include <cmath>
#include <cstring>
#include <iterator>

#include "vb/Convert.h"
#include "vb/Failure.h"
#include "vb/Strings.h"

namespace database {

namespace {

// "00" to "99": the digits of a number go two at a time.
constexpr char kDigitPairs[] =
    "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243444546"
    "4748495051525354555657585960616263646566676869707172737475767778798081828384858687888990919293"
    "949596979899";

}  // namespace

std::string_view ZeroPadded(int64_t value, int width, char (&buf)[24]) {
  // The digits are written from the end of buf backwards (at most 20 digits and a sign fit),
  // so no second pass turns them round; the text starts where the writing stopped.
  char* const end = buf + sizeof buf;
  char* p = end;
  const bool negative = value < 0;
  uint64_t v = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  while (v >= 100) {
    p -= 2;
    std::memcpy(p, kDigitPairs + 2 * (v % 100), 2);
    v /= 100;
  }
  if (v >= 10) {
    p -= 2;
    std::memcpy(p, kDigitPairs + 2 * v, 2);
  } else {
    *--p = static_cast<char>('0' + v);
  }
  while (end - p < width) *--p = '0';
  if (negative) *--p = '-';
  return {p, static_cast<size_t>(end - p)};
}

void PutZeroPadded(char* out, int width, int64_t value) {
  static constexpr int64_t kFits[] = {1, 10, 100, 1000, 10000, 100000, 1000000};
  if (value >= 0 && width < static_cast<int>(std::size(kFits)) && value < kFits[width]) {
    uint64_t v = static_cast<uint64_t>(value);
    int at = width;
    while (at >= 2) {
      at -= 2;
      std::memcpy(out + at, kDigitPairs + 2 * (v % 100), 2);
      v /= 100;
    }
    if (at == 1) out[0] = static_cast<char>('0' + v);
    return;
  }
  char buf[24];
  PadInto(out, width, ZeroPadded(value, width, buf));
}

std::string_view ShortenReferrer(std::string_view referrer) {
  std::string_view r = vb::Trim(referrer);
  if (r.empty()) return r;
  if (r.back() == '/') r.remove_suffix(1);
  // Look for "/" from the 8th character on (1-based), past "scheme://".
  if (r.size() >= 8) {
    const size_t p = r.find('/', 7);  // 0-based index 7 is the 8th character
    if (p != std::string_view::npos && p + 1 > 8) r = r.substr(0, p);
  }
  return r;
}

std::string_view DownloadName(std::string_view page) {
  const size_t slash = page.rfind('/');
  if (slash != std::string_view::npos) page.remove_prefix(slash + 1);
  const size_t backslash = page.rfind('\\');
  if (backslash != std::string_view::npos) page.remove_prefix(backslash + 1);
  return page;
}

std::string_view MinsOnText(int64_t seconds, char (&buf)[24]) {
  int64_t m = 0;
  int64_t s = seconds;
  // The split only starts above 60 seconds: exactly 60 stays "0:60", as the product shows it.
  if (s > 60) {
    m = s / 60;
    s = s % 60;
  }
  char minutes[24];
  const std::string_view mt = ZeroPadded(m, 1, minutes);
  char secs[24];
  const std::string_view st = ZeroPadded(s, 2, secs);
  size_t len = 0;
  std::memcpy(buf, mt.data(), mt.size());
  len += mt.size();
  buf[len++] = ':';
  std::memcpy(buf + len, st.data(), st.size());
  len += st.size();
  return {buf, len};
}

int64_t WholeSeconds(vb::Date d) { return std::llround(d * 86400.0); }

vb::Date CombineDateTime(vb::Date date, std::string_view timeText) {
  const std::string_view t = vb::Trim(timeText);
  if (t.empty()) return date;
  vb::Date time = 0;
  if (!vb::ParseTimeOfDay(t, time)) return date;
  return date + time;
}

std::string_view CountryKey(std::string_view ip, char (&buf)[48]) {
  size_t len = 0;
  std::string_view rest = ip;
  for (int part = 0; part < 4; ++part) {
    const size_t dot = rest.find('.');
    if (dot == std::string_view::npos && part < 3) vb::Raise(vb::kSubscript);
    const std::string_view text = rest.substr(0, dot);
    const int16_t value = vb::CInt(text);
    char digits[24];
    const std::string_view d = ZeroPadded(value, 3, digits);
    std::memcpy(buf + len, d.data(), d.size());
    len += d.size();
    if (dot != std::string_view::npos) rest.remove_prefix(dot + 1);
  }
  return {buf, len};
}

}  // namespace database
