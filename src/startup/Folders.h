// Folders as the product's own files and registry values name them, turned into folders of this
// machine: the sites file's FOLDER, the DDFPATH setting and the registry's DDFPath.
//
// The product writes them on Windows: "logs\", "D:\Logs\W3SVC1\", "C:\Tallyo\Data". Here
//   - a backslash is a folder separator (as "/" is);
//   - a drive letter ("D:" at the start, either case) is replaced by the folder that the drive map
//     gives for it (the registry's "Drives" key, e.g. "D:=/srv/logs"); a letter without a mapping
//     is reported, never guessed;
//   - a relative folder is taken inside the application folder;
//   - each folder level is found case-insensitively, as on the product's file system.
// The result always ends with "/", so a folder written with or without its closing separator
// reads the same files. An empty value stays empty.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace platform {
class Registry;
}

namespace startup {

// The registry's drive map, read once at start-up. folders[0] is drive A:, folders[25] Z:; an
// empty entry is a letter without a mapping.
struct DriveMap {
  std::array<std::string, 26> folders;
  // Where the map is kept (the registry file), for the message that says what to add.
  std::string location = "the registry";
};

// The "Drives" values A: to Z: of `registry`.
DriveMap ReadDriveMap(const platform::Registry& registry);

struct ResolvedFolder {
  // The folder of this machine, ending with "/" ("" for an empty value or an unmapped drive).
  std::string folder;
  // Set when the value starts with a drive letter that the map does not give: the drive as
  // written upper-cased with its colon ("D:").
  std::string unmappedDrive;
};

// `written` (blanks around it trimmed) as a folder of this machine; see the file comment.
// `appFolder` ends with "/". Never throws.
ResolvedFolder ResolveProductFolder(std::string_view written, const std::string& appFolder,
                                    const DriveMap& drives);

// The one-line report of a folder on a drive without a mapping, naming what uses the folder
// (`owner`, e.g. "site: Main Site"), the folder as written and the line to add, e.g.
//   The log folder of site: Main Site, D:\Logs\W3SVC1\, is on drive D:, which has no mapping on
//   this machine: add a line "D:=<folder>" to the [Drives] section of /etc/tallyo/registry.ini.
std::string UnmappedDriveMessage(std::string_view what, std::string_view written,
                                 std::string_view drive, const DriveMap& drives);

}  // namespace startup
