// The robot list: pairs of a client address and a robot's user agent that spider detection has
// learnt from "robots.txt" requests, kept across runs in "robots.dat" in the data folder. A line of
// the file holds the address, one blank, and the agent (addresses hold no blank, agents may).
//
// Start-up loads it (`LoadRobotList`); the scan appends entries and sets `changed`; shut-down
// writes the file back (`SaveRobotList`) only when `changed` is set.
//
// "robots.dat": text, one entry per line:
//   PART        | DESCRIPTION
//   address     | the robot's client address (holds no blank)
//   " "         | one blank
//   agent       | the robot's user agent (may hold blanks), up to the line end
//   CR LF       | line end
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace startup {

struct RobotEntry {
  std::string address;  // client address, no blanks
  std::string agent;    // user agent text
};

struct RobotList {
  // Entries 1..count (slot 0 unused).
  std::vector<RobotEntry> entries{RobotEntry{}};
  int32_t count = 0;
  bool changed = false;

  // Appends an entry (count + 1) and sets `changed`.
  void Append(std::string address, std::string agent);
};

// Empties the list, then reads "robots.dat" from `dataFolder` (found case-insensitively) with the
// item input: each non-empty item is trimmed and split at its first blank into address and agent;
// an item without a blank is skipped. A missing file is an empty list; any error ends the reading
// silently with what was read. `changed` is cleared. Never throws.
void LoadRobotList(RobotList& list, const std::string& dataFolder);

// Writes entries 1..count of `list` to "robots.dat" in `dataFolder`, replacing the file, but only
// when `list.changed` is set: an unchanged list leaves the file untouched (not even rewritten).
// The new file is written beside the old one and then renamed over it, so a failure never leaves
// a half-written list; a file of the same name in another case is replaced too. Returns true when
// the list is on disk as it stands (written now, or unchanged); false when writing failed (the
// old file then stays as it was). Clears `changed` after a successful write. Never throws.
bool SaveRobotList(RobotList& list, const std::string& dataFolder);

}  // namespace startup
