// Small helpers of the table engine: case-insensitive file lookup in a folder, ASCII upper
// case, little-endian integers, whole-file writes that never leave a half-written file, and
// civil-date conversion (day counts from 1899-12-30, no C library local time).
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace dbase {

// ASCII upper case of s (other bytes unchanged).
std::string UpperAscii(std::string_view s);
// Case-insensitive ASCII equality.
bool EqualsNoCase(std::string_view a, std::string_view b);
// s without leading and trailing blanks.
std::string_view TrimBlanks(std::string_view s);

// The path of the entry of `folder` whose name equals `name` ignoring ASCII case, "" when there
// is none (or the folder cannot be read). An exact match is preferred. REQUIRES: folder ends
// with "/".
std::string FindFileNoCase(const std::string& folder, std::string_view name);

// Writes `bytes` to `path` through a temporary file in the same folder renamed over it, so the
// path holds either the old or the complete new content. Returns false on any failure (the
// temporary file is removed).
bool WriteFileAtomic(const std::string& path, std::string_view bytes);

inline uint16_t GetU16(const unsigned char* p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t GetU32(const unsigned char* p) {
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void PutU16(unsigned char* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline void PutU32(unsigned char* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}

// Days from 1899-12-30 of a proleptic Gregorian date (month 1..12, day 1..31 assumed).
int64_t DayCount(int year, int month, int day);
// Inverse of DayCount.
void CivilDate(int64_t days, int& year, int& month, int& day);
// Today's date in UTC (file header dates; no local-time functions).
void TodayUtc(int& year, int& month, int& day);

// The date written into the headers of a table's files (the .DBF's last-update date, the .MDX's
// dates): a fixed date, so that two runs over the same input write the same bytes, or, when
// none is set (year 0), today's date in UTC.
struct HeaderDate {
  int year = 0;
  int month = 0;
  int day = 0;
  // The date to write: this one when set, else today (TodayUtc).
  void Resolve(int& y, int& m, int& d) const;
};

}  // namespace dbase
