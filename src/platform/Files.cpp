// Case-insensitive file lookup and wildcard directory listings.
#include "platform/Files.h"

#include <sys/stat.h>

#include <algorithm>

#include "platform/Clock.h"
#include "vb/Strings.h"

namespace platform {

namespace {

namespace fs = std::filesystem;

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Case-insensitive order, ties broken by the exact bytes so the order is total.
bool LessNoCase(std::string_view a, std::string_view b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const auto ca = static_cast<unsigned char>(Lower(a[i]));
    const auto cb = static_cast<unsigned char>(Lower(b[i]));
    if (ca != cb) return ca < cb;
  }
  if (a.size() != b.size()) return a.size() < b.size();
  return a < b;
}

// Glob match with "*" and "?", case-insensitive; iterative with one back-track point, so it is
// linear-ish and never recurses deeply on long names.
bool Glob(std::string_view name, std::string_view mask) {
  size_t n = 0, m = 0;
  size_t starM = std::string_view::npos, starN = 0;
  while (n < name.size()) {
    if (m < mask.size() && (mask[m] == '?' || Lower(mask[m]) == Lower(name[n]))) {
      ++n;
      ++m;
    } else if (m < mask.size() && mask[m] == '*') {
      starM = m++;
      starN = n;
    } else if (starM != std::string_view::npos) {
      m = starM + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (m < mask.size() && mask[m] == '*') ++m;
  return m == mask.size();
}

bool IsRegularFile(const fs::path& p) {
  struct stat st {};
  return ::stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

fs::path FolderPath(const std::string& folder) { return folder.empty() ? fs::path(".") : fs::path(folder); }

}  // namespace

bool MatchesMask(std::string_view name, std::string_view mask) {
  if (Glob(name, mask)) return true;
  // A mask ending ".*" also matches a name without any extension ("*.*" lists every file, "a.*"
  // finds "a"), as the original system's listings do.
  if (mask.size() >= 2 && mask.substr(mask.size() - 2) == ".*" &&
      name.find('.') == std::string_view::npos) {
    return Glob(name, mask.substr(0, mask.size() - 2));
  }
  return false;
}

std::optional<fs::path> FindFileCI(const std::string& folder, std::string_view name) {
  try {
    if (name.empty() || name.find('/') != std::string_view::npos) return std::nullopt;
    const fs::path dir = FolderPath(folder);
    const fs::path exact = dir / std::string(name);
    if (IsRegularFile(exact)) return exact;
    std::optional<std::string> best;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      const std::string candidate = it->path().filename().string();
      if (!vb::EqualsNoCase(candidate, name)) continue;
      if (!IsRegularFile(it->path())) continue;
      if (!best || LessNoCase(candidate, *best)) best = candidate;
    }
    if (!best) return std::nullopt;
    return dir / *best;
  } catch (...) {
    return std::nullopt;
  }
}

bool FileExistsCI(const std::string& folder, std::string_view name) {
  return FindFileCI(folder, name).has_value();
}

fs::path ResolveCI(const std::string& folder, std::string_view name) {
  if (auto found = FindFileCI(folder, name)) return *found;
  return FolderPath(folder) / std::string(name);
}

std::vector<DirEntry> ListFiles(const std::string& folder, std::string_view mask) {
  std::vector<DirEntry> out;
  try {
    const fs::path dir = FolderPath(folder);
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      std::string name = it->path().filename().string();
      if (!MatchesMask(name, mask)) continue;
      struct stat st {};
      if (::stat(it->path().c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
      DirEntry e;
      e.name = std::move(name);
      e.size = static_cast<uint64_t>(st.st_size);
      e.modified = LocalFromUnixSeconds(st.st_mtim.tv_sec);
      out.push_back(std::move(e));
    }
  } catch (...) {
    // A listing that breaks half-way keeps what it found.
  }
  std::sort(out.begin(), out.end(),
            [](const DirEntry& a, const DirEntry& b) { return LessNoCase(a.name, b.name); });
  return out;
}

std::string WithTrailingSlash(std::string folder) {
  if (!folder.empty() && folder.back() != '/') folder += '/';
  return folder;
}

std::string JoinPath(std::string_view folder, std::string_view name) {
  std::string out(folder);
  if (!out.empty() && out.back() != '/') out += '/';
  out += name;
  return out;
}

std::string FindFolderCI(std::string_view path) {
  std::string out;
  size_t pos = 0;
  if (!path.empty() && path.front() == '/') {
    out.assign(1, '/');
    pos = 1;
  }
  bool searching = true;
  while (pos <= path.size()) {
    size_t end = path.find('/', pos);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view level = path.substr(pos, end - pos);
    std::string chosen(level);
    if (searching && !level.empty() && level != "." && level != "..") {
      const std::string here = out.empty() ? std::string(".") : out;
      std::error_code ec;
      if (!fs::is_directory(fs::path(here) / chosen, ec)) {
        // Another case of the same name; the lowest in case-insensitive order wins.
        std::string best;
        try {
          for (const auto& e : fs::directory_iterator(here, ec)) {
            const std::string n = e.path().filename().string();
            std::error_code dirEc;
            if (!vb::EqualsNoCase(n, level) || !e.is_directory(dirEc)) continue;
            if (best.empty() || LessNoCase(n, best)) best = n;
          }
        } catch (...) {
          best.clear();
        }
        if (best.empty()) searching = false;
        else chosen = best;
      }
    }
    out += chosen;
    if (end < path.size()) out += '/';
    pos = end + 1;
  }
  return out;
}

}  // namespace platform
