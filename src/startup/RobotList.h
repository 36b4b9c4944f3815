// The robot list: pairs of a client address and a robot's user agent that spider detection has
// learnt from "robots.txt" requests, kept across runs in "robots.dat" in the data folder. A line of
// the file holds the address, one blank, and the agent (addresses hold no blank, agents may).
//
// Start-up loads it (`LoadRobotList`); the scan appends entries and sets `changed`; shut-down
// writes the file back only when `changed` is set (see the scan's shut-down code).
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

}  // namespace startup
