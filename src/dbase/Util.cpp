// Helpers of the table engine: names, files, little-endian integers and civil dates.
#include "dbase/Util.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace dbase {

std::string UpperAscii(std::string_view s) {
  std::string r(s);
  for (char& c : r)
    if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
  return r;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = char(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = char(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

std::string FindFileNoCase(const std::string& folder, std::string_view name) {
  if (folder.empty() || name.empty()) return {};
  DIR* d = opendir(folder.c_str());
  if (!d) return {};
  std::string found;
  while (dirent* e = readdir(d)) {
    std::string_view n(e->d_name);
    if (n == name) {
      found = std::string(n);
      break;
    }
    if (found.empty() && EqualsNoCase(n, name)) found = std::string(n);
  }
  closedir(d);
  return found.empty() ? std::string() : folder + found;
}

bool WriteFileAtomic(const std::string& path, std::string_view bytes) {
  std::string tmp = path + ".tmp";
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  size_t done = 0;
  bool ok = true;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0) {
      ok = false;
      break;
    }
    done += size_t(n);
  }
  if (::close(fd) != 0) ok = false;
  if (ok && std::rename(tmp.c_str(), path.c_str()) != 0) ok = false;
  if (!ok) ::unlink(tmp.c_str());
  return ok;
}

// Days since 1970-01-01 of a civil date, the well-known era-based computation.
static int64_t DaysFrom1970(int y, int m, int d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

static constexpr int64_t kDays1899To1970 = 25569;  // 1899-12-30 .. 1970-01-01

int64_t DayCount(int year, int month, int day) {
  return DaysFrom1970(year, month, day) + kDays1899To1970;
}

void CivilDate(int64_t days, int& year, int& month, int& day) {
  int64_t z = days - kDays1899To1970 + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = int(doy - (153 * mp + 2) / 5 + 1);
  month = int(mp < 10 ? mp + 3 : mp - 9);
  year = int(yoe + era * 400 + (month <= 2));
}

void HeaderDate::Resolve(int& y, int& m, int& d) const {
  if (year == 0) {
    TodayUtc(y, m, d);
  } else {
    y = year;
    m = month;
    d = day;
  }
}

void TodayUtc(int& year, int& month, int& day) {
  using namespace std::chrono;
  int64_t secs = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
  int64_t d = secs / 86400 - (secs % 86400 < 0 ? 1 : 0);
  CivilDate(d + kDays1899To1970, year, month, day);
}

}  // namespace dbase
