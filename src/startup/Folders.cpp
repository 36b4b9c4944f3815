// Folders written the product's way (backslashes, drive letters, any case) as folders here.
#include "startup/Folders.h"

#include "platform/Files.h"
#include "platform/Registry.h"
#include "vb/Strings.h"

namespace startup {

namespace {

bool IsDriveLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

DriveMap ReadDriveMap(const platform::Registry& registry) {
  DriveMap map;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    const std::string name{letter, ':'};
    map.folders[static_cast<size_t>(letter - 'A')] =
        std::string(vb::Trim(registry.ReadString(platform::kDrivesKey, name)));
  }
  map.location = registry.Location();
  return map;
}

ResolvedFolder ResolveProductFolder(std::string_view written, const std::string& appFolder,
                                    const DriveMap& drives) {
  ResolvedFolder out;
  std::string path(vb::Trim(written));
  if (path.empty()) return out;
  // 1. A backslash separates folders, as "/" does.
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
  // 2. A drive letter becomes the folder the map gives for it; the rest of the path is inside it.
  if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == ':') {
    const char letter = Upper(path[0]);
    const std::string& mapped = drives.folders[static_cast<size_t>(letter - 'A')];
    if (mapped.empty()) {
      out.unmappedDrive = std::string{letter, ':'};
      return out;
    }
    std::string rest = path.substr(2);
    while (!rest.empty() && rest.front() == '/') rest.erase(0, 1);
    path = platform::JoinPath(mapped, rest);
  } else if (path.front() != '/') {
    // 3. A relative folder is inside the application folder.
    path = platform::JoinPath(appFolder, path);
  }
  // 4. Each level found in whatever case it has on disk; always a closing "/".
  out.folder = platform::WithTrailingSlash(platform::FindFolderCI(path));
  return out;
}

std::string UnmappedDriveMessage(std::string_view what, std::string_view written,
                                 std::string_view drive, const DriveMap& drives) {
  std::string text = "The folder of ";
  text += what;
  text += ", ";
  text += vb::Trim(written);
  text += ", is on drive ";
  text += drive;
  text += ", which has no mapping on this machine: add a line \"";
  text += drive;
  text += "=<folder>\" to the [";
  text += platform::kDrivesKey;
  text += "] section of ";
  text += drives.location;
  text += ".";
  return text;
}

}  // namespace startup
