// Saving the robot list to "robots.dat" in the data folder (start-up loads it).
//
// "robots.dat": text, one entry per line:
//   PART        | DESCRIPTION
//   address     | the robot's client address (holds no blank)
//   " "         | one blank
//   agent       | the robot's user agent (may hold blanks), up to the line end
//   CR LF       | line end
#pragma once

#include <string>

#include "startup/RobotList.h"

namespace analysis {

// Writes entries 1..count of `list` to "robots.dat" in `dataFolder`, replacing the file, but only
// when `list.changed` is set: an unchanged list leaves the file untouched (not even rewritten).
// The new file is written beside the old one and then renamed over it, so a failure never leaves
// a half-written list; a file of the same name in another case is replaced too. Returns true when
// the list is on disk as it stands (written now, or unchanged); false when writing failed (the
// old file then stays as it was). Clears `changed` after a successful write. Never throws.
bool SaveRobotList(startup::RobotList& list, const std::string& dataFolder);

}  // namespace analysis
