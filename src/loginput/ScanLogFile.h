// The reading of one log file of one site, from its first byte to its end: the format preset by
// the site's TYPE, the two reading modes, the "#Fields:" and "#Date:" directives, and the hand-over
// of every data line to the hit processing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "loginput/LogInputState.h"
#include "loginput/ScanHooks.h"
#include "startup/LogLayout.h"

namespace platform {
class Frontend;
}
namespace startup {
struct World;
}

namespace loginput {

// Lines read between two progress steps (and yields to the window).
inline constexpr int kLinesPerProgressStep = 500;
// This many empty lines in a row end the reading of a file.
inline constexpr int kBlankRunLimit = 50;
// The reader pauses for the resolver when more requests than this are outstanding.
inline constexpr int kDnsBacklogLimit = 95;

// The message shown for a file that never defined its fields.
std::string NoFieldsMessage(std::string_view siteName);

// Prepares the site's reading state from its TYPE: separator, fields-known and no-spider-check
// flags, and for TYPE 1..4 the run's field map `map` (preset maps A..D); 5 a TAB separator;
// others a blank. TYPE 0 and 5 leave `map` as the files before built it.
void PrepareFormat(startup::LogLayout layout, SiteReadState& state, FieldMap& map);

// Reads the file named by the site's LASTLOGFILE from its first byte: a site with UNIX set has
// lines ending in LF, any other lines ending in CR or CR LF (see LineReader). Applies LASTFIELDS
// when set, clears the hit fields, then for each line but the last: counts it, applies "#Fields:"
// and "#Date:" directives (recognised in any case), and hands every other line to
// hooks.ProcessHit while the site's fields are known; every 500 lines calls
// hooks.UpdateFileProgress and yields to the window; pauses for the resolver when it is behind.
// 50 empty lines in a row end the file. The last line read is handed to ProcessHit whatever it
// holds. Afterwards patches the run's current log date, writes the day summary, closes the file,
// and shows the "no #Field definition lines" message when the site's fields are still unknown.
// A file that cannot be opened reads as empty. A Cancel confirmed during a yield sets
// run.cancelled and returns at once. REQUIRES: 1 <= siteIndex <= world.siteCount.
// Returns true. Never throws.
bool ScanLogFile(startup::World& world, platform::Frontend& ui, LogInputState& run,
                 ScanHooks& hooks, int siteIndex);

}  // namespace loginput
