// Saving the robot list (see Robots.h).
#include "analysis/Robots.h"

#include <filesystem>
#include <fstream>

#include "platform/Files.h"

namespace analysis {

bool SaveRobotList(startup::RobotList& list, const std::string& dataFolder) {
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
        const startup::RobotEntry& e = list.entries[static_cast<size_t>(i)];
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

}  // namespace analysis
