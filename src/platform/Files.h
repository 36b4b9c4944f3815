// File-name lookups with the rules of the file system the product was written for: names are
// found case-insensitively (an exact match is preferred), and directory listings take
// wildcard masks ("*" any run of characters, "?" any one character, case-insensitive).
//
// Folders are given as text ending with "/" (or not; both work); names are file names without a
// folder. Only regular files (or links to them) are found: a folder named like the file does not
// count, just as a directory listing of a file mask does not list folders.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vb/Dates.h"

namespace platform {

// The file `name` in `folder`: the exact name when such a regular file exists, else the first
// regular file (by case-insensitive name order) whose name equals `name` case-insensitively.
// Returns nullopt when there is none or the folder cannot be read. Never throws.
std::optional<std::filesystem::path> FindFileCI(const std::string& folder, std::string_view name);

// FindFileCI(folder, name).has_value().
bool FileExistsCI(const std::string& folder, std::string_view name);

// `folder` + the file `name`, found case-insensitively when it exists; when no such file exists,
// `folder` + `name` as written (so a file can be created under that name).
std::filesystem::path ResolveCI(const std::string& folder, std::string_view name);

// True when `name` matches the wildcard `mask` ("*" any run, possibly empty; "?" exactly one
// character), compared case-insensitively (ASCII letters). "*.*" matches every name, also names
// without a dot, as on the original system.
bool MatchesMask(std::string_view name, std::string_view mask);

struct DirEntry {
  std::string name;        // file name without folder
  uint64_t size = 0;       // bytes
  vb::Date modified = 0;   // last modification, local time, to the second
};

// The regular files in `folder` whose names match `mask` (see MatchesMask), sorted ascending by
// name compared case-insensitively (ties by the exact bytes). A missing or unreadable folder gives
// an empty list; entries that vanish or cannot be examined while listing are left out. Never
// throws. Modification times are converted with the system's zone rules (LocalFromUnixSeconds).
std::vector<DirEntry> ListFiles(const std::string& folder, std::string_view mask);

// Makes sure the text of a folder ends with "/": "" stays "", "a/b" becomes "a/b/".
std::string WithTrailingSlash(std::string folder);

// The file `name` in `folder`, joined with exactly one "/" between them whether or not `folder`
// ends with one ("" + name is name). Paths are always joined so, never pasted together.
std::string JoinPath(std::string_view folder, std::string_view name);

// `path` with each folder level found case-insensitively, as the product's file system finds
// it: a level that exists as written is kept; one that does not is replaced by the first folder
// (in case-insensitive name order) of the same name in another case; from the first level found
// neither way on, the rest stays as written. "." and ".." levels and repeated "/" are kept as
// they are. Never throws.
std::string FindFolderCI(std::string_view path);

}  // namespace platform
