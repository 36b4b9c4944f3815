// The log layouts that a site's TYPE selects: W3C Extended, whose "#Fields:" lines name the
// columns, and five fixed layouts. The numbers are the TYPE values of the sites file. TYPE may
// hold any other number too: such a site is read like W3C Extended except that its fields lines
// map nothing (see loginput::ApplyFieldsDirective), so code compares against these names and
// lets every other value take the default branch.
#pragma once

#include <cstdint>

namespace startup {

enum class LogLayout : int16_t {
  // Blank separated, columns named by the file's "#Fields:" lines; dates year-month-day.
  W3cExtended = 0,
  // Comma separated, preset columns (address, date, time, status, page); dates month/day/year.
  CommaShort = 1,
  // Blank separated, preset columns of the combined log: "[dd/Mon/yyyy:hh:mm:ss" dates with a
  // zone field after them; a page of "/" is the site's home page.
  Combined = 2,
  // Comma separated, preset columns with user name, agent and byte counts; dates month/day/year;
  // the page carries its query after "?"; no spider check.
  CommaLong = 3,
  // Blank separated, preset columns; its fields lines use firewall-style names (crossed into the
  // agent and byte slots); no spider check.
  FirewallStyle = 4,
  // TAB separated, columns named by fields lines with names of its own; the page's folder is the
  // hit's referrer and the page carries its query; no spider check.
  TabSeparated = 5,
};

}  // namespace startup
