// The application state: program version, folders, branding texts, the site limit, the start date
// and the local time-zone offset. Filled once by `Main`; afterwards only the settings loader
// changes it (a DDFPATH key in SETTINGS.INI replaces the data folder).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "startup/Folders.h"
#include "vb/Dates.h"

namespace startup {

// The maker's web host, used in the branding defaults below.
inline constexpr std::string_view kMakerHost = "www.fenwright.com";
// The product word. The default e-mail subject keeps it even when the branding renames the title.
inline constexpr std::string_view kProductWord = "Tallyo";
// Our own version, as the version block reports it: major "." minor "." revision.
inline constexpr std::string_view kProgramVersion = "1.0.0";
// The memory the index keys gathered during a scan keep by default before full runs of them
// go to temporary files beside the new tables (see AppState::keyMemoryBytes).
inline constexpr uint64_t kDefaultKeyMemoryMB = 32;

struct AppState {
  // major "." minor "." revision, each a plain decimal number.
  std::string programVersion{kProgramVersion};
  // The registry application name, always "tallyo".
  std::string registryAppName = "tallyo";
  // Where SETTINGS.INI, EXTYPES.INI and the sites file live. Always ends with "/" after start-up.
  std::string appFolder;
  // Branding; each may be replaced by the branding key of the registry.
  std::string appTitle{kProductWord};
  std::string appDomain{kMakerHost};
  std::string appOrderPage = std::string(kMakerHost) + "/order.htm";
  std::string appSupportPage = std::string(kMakerHost) + "/support/supemail.asp";
  // The data folder: tables, reference texts, errors.log, robots.dat. Ends with "/" after
  // start-up (a DDFPATH key of SETTINGS.INI is taken as written, though).
  std::string dataFolder;
  // The data folder as the registry's DDFPath (or the DDFPATH setting) writes it; the default
  // when neither gives one.
  std::string dataFolderAsWritten;
  // The registry's drive map, read at start-up before any folder is worked out (see Folders.h).
  DriveMap drives;
  // Set by the settings loader when DDFPATH names a drive without a mapping: the report to give.
  // The data folder then stays as it was, and start-up ends with this failure.
  std::string dataFolderProblem;
  // The most sites the sites file may define.
  int16_t maxSites = 150;
  // Today's date (whole days) as start-up last recorded it.
  vb::Date startDate = 0;
  // Minutes to add to UTC to obtain local time, taken once at start-up.
  int32_t timeZoneOffset = 0;
  // The largest size in bytes of the files of a table the scan writes, by table name ("Pages"):
  // the table takes no record that would pass it. A table not named may grow to the largest
  // file a dBASE reader opens (2,147,483,647 bytes). Set by tests, and by the batch front-end's
  // hidden --table-size-limit, so that a full table can be tried without writing 2 GB.
  std::map<std::string, uint64_t, std::less<>> tableSizeLimits;
  // The memory, in bytes, that the index keys gathered during a scan may keep (the new tables'
  // runs of sorted keys); beyond it full runs go to temporary files beside the new tables and
  // come back at the close. Not a setting of SETTINGS.INI: the command line sets it.
  uint64_t keyMemoryBytes = kDefaultKeyMemoryMB << 20;
};

}  // namespace startup
