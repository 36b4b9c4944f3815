// Loading the robot list from "robots.dat".
#include "startup/RobotList.h"

#include "platform/Files.h"
#include "vb/ItemReader.h"
#include "vb/Strings.h"

namespace startup {

void RobotList::Append(std::string address, std::string agent) {
  entries.resize(static_cast<size_t>(count) + 1);
  entries.push_back({std::move(address), std::move(agent)});
  ++count;
  changed = true;
}

void LoadRobotList(RobotList& list, const std::string& dataFolder) {
  // 1. Start with an empty list.
  list.entries.assign(1, RobotEntry{});
  list.count = 0;
  list.changed = false;
  try {
    // 2. No file, no robots.
    const auto path = platform::FindFileCI(dataFolder, "robots.dat");
    if (!path) return;
    auto reader = vb::ItemReader::Open(*path);
    if (!reader) return;
    // 3.-4. Every item (this reader has no last-item rule): "address agent", split at the first
    // blank; items without a blank are skipped.
    while (!reader->Eof()) {
      const std::string item = reader->ReadItem();
      const std::string_view t = vb::Trim(item);
      if (t.empty()) continue;
      const size_t blank = t.find(' ');
      if (blank == std::string_view::npos) continue;
      list.Append(std::string(t.substr(0, blank)), std::string(t.substr(blank + 1)));
    }
  } catch (...) {
    // Errors end the reading; what was read stays.
  }
  list.changed = false;
}

}  // namespace startup
