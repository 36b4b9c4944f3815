// The listing of a site's log folder: every file that matches the site's mask, with its
// modification time and size, into the run's log-file list and the window's file grid.
#pragma once

#include <cstdint>
#include <string>

#include "loginput/LogInputState.h"

namespace platform {
class Frontend;
}
namespace startup {
struct World;
}

namespace loginput {

// The size column's text: "Unknown" below 0; above 1,000,000 the size in millions formatted
// "###.00" and "Mb"; up to 10,000 the size with its sign blank and "Bytes"; otherwise the size in
// thousands formatted "###" and "K". Units are decimal and the bands are kept as they are:
// 10,000 is " 10000Bytes", 10,001 is "10K", 1,000,001 is "1.00Mb".
std::string SizeText(int32_t size);

// The grid's date column: the date and time as "dd/mm/yyyy hh:mm:ss", the date alone when the time
// is midnight, the time alone when the date is zero.
std::string GeneralDateText(vb::Date d);

// Lists the log files of site `siteIndex` (its FOLDER, taken as it stands, and its MASK) into
// run.logFiles (entries 1..n, in ascending case-insensitive name order) and into the file grid
// (header row plus one row per file: number with its sign blank, modified date, size text, name;
// row data = the entry's index). Shows "Scanning Log File Directory" in the file caption while it
// works. Returns the number of files; a missing or unreadable folder, or a mask that matches
// nothing, gives 0. A file that cannot be opened is listed with size -1 ("Unknown").
// REQUIRES: 1 <= siteIndex <= world.siteCount. Never throws.
int32_t ListLogFiles(startup::World& world, platform::Frontend& ui, LogInputState& run,
                     int siteIndex);

}  // namespace loginput
