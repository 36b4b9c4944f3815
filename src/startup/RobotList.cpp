// Loading the robot list from "robots.dat" and saving it back.
#include "startup/RobotList.h"

#include <filesystem>
#include <fstream>

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

bool SaveRobotList(RobotList& list, const std::string& dataFolder) {
  if (!list.changed) return true;
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path folder(dataFolder);
  const fs::path target = folder / "robots.dat";
  const fs::path temp = folder / "robots.dat.new";
  try {
    {
      std::ofstream out(temp, std::ios::binary | std::ios::trunc);
      if (!out) return false;
      for (int32_t i = 1; i <= list.count && static_cast<size_t>(i) < list.entries.size(); ++i) {
        const RobotEntry& e = list.entries[static_cast<size_t>(i)];
        out << e.address << ' ' << e.agent << "\r\n";
      }
      out.flush();
      if (!out) {
        out.close();
        fs::remove(temp, ec);
        return false;
      }
    }
    // A list under another spelling ("ROBOTS.DAT") goes once the new one is in place, so that
    // only one list remains.
    const auto existing = platform::FindFileCI(dataFolder, "robots.dat");
    fs::rename(temp, target, ec);
    if (ec) {
      fs::remove(temp, ec);
      return false;
    }
    if (existing && existing->filename() != target.filename()) fs::remove(*existing, ec);
  } catch (const std::exception&) {
    fs::remove(temp, ec);
    return false;
  }
  list.changed = false;
  return true;
}

}  // namespace startup
