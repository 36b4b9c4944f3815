// Archive unpacking and clean-up for a site's log folder.
#include "loginput/Archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "platform/Files.h"
#include "platform/Frontend.h"
#include "platform/Zip.h"
#include "startup/StartupSequence.h"
#include "startup/World.h"

namespace loginput {
namespace {

constexpr std::string_view kUnzipCaption = "Moving Files Out Of The Archive:";
constexpr std::string_view kUnzipWhere = "ModFiles.UnZipArchive";
constexpr std::string_view kDeleteWhere = "ModFiles.DeleteArchive";

// A member name as errors.log shows it: control characters (a crafted name may hold line ends)
// become "?", so one report stays one line.
std::string Printable(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (static_cast<unsigned char>(c) < 32 || c == 127) c = '?';
  }
  return out;
}

// Appends one line to the list of unpacked files (open at `fd`). Nothing stops the unpacking
// when the list cannot be written: the files are still removed by DeleteArchive.
void Note(int fd, std::string_view kind, const std::string& path) {
  if (fd < 0) return;
  std::string line(kind);
  line += ' ';
  line += path;
  line += '\n';
  [[maybe_unused]] const auto n = ::write(fd, line.data(), line.size());
}

bool IsRegularFile(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::string UnpackedListPath(const std::string& dataFolder) {
  return platform::WithTrailingSlash(dataFolder) + "Temp/unpacked-files.lst";
}

int RemoveLeftoverUnpackedFiles(startup::World& world) {
  int removed = 0;
  try {
    const std::string list = UnpackedListPath(world.app.dataFolder);
    std::ifstream in(list, std::ios::binary);
    if (!in) return 0;
    std::string folder;
    std::string line;
    const auto remove = [&](const std::string& path) {
      if (!IsRegularFile(path)) return;
      if (::unlink(path.c_str()) == 0) {
        ++removed;
        world.errors.LogError(kUnzipWhere, "Removed " + Printable(path) +
                                               ", left by an unpacking that did not finish");
      }
    };
    while (std::getline(in, line)) {
      if (line.rfind("folder ", 0) == 0) {
        folder = platform::WithTrailingSlash(line.substr(7));
        // The unpacking's partial files carry a name of their own.
        std::error_code ec;
        for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
             it.increment(ec)) {
          const std::string name = it->path().filename().string();
          if (platform::IsUnpackingTempName(name)) remove(it->path().string());
        }
      } else if (line.rfind("file ", 0) == 0 && !folder.empty()) {
        // Only a file directly in the folder the list names.
        const std::string path = line.substr(5);
        if (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
            path.find('/', folder.size()) == std::string::npos)
          remove(path);
      }
    }
    in.close();
    ::unlink(list.c_str());
  } catch (const std::exception& e) {
    world.errors.LogError(kUnzipWhere, e);
  }
  return removed;
}

void UnZipArchive(startup::World& world, platform::Frontend& ui, LogInputState& run, int siteIndex,
                  const platform::ZipArchive::Limits& limits) {
  // 1.
  ui.SetCaption(platform::Label::Prog2, kUnzipCaption);
  platform::ProgressBar& bar = ui.Progress();
  bar.SetVisible(true);
  bar.SetMax(100);
  bar.SetMin(0);
  bar.SetValue(0);
  ui.ProgressChanged();
  // 2.
  run.extractedCount = 0;
  run.extracted.assign(1, std::string());
  try {
    const startup::Site& site = world.site(siteIndex);
    // 3. The archive in the site's folder, whatever the case of its name.
    const std::string folder = platform::WithTrailingSlash(site.folder);
    platform::ZipArchive zip;
    const auto path = platform::FindFileCI(folder, kArchiveName);
    int result = path ? zip.Open(path->string()) : platform::ZipArchive::kNotOpen;
    if (result == platform::ZipArchive::kOk) {
      // 4.
      run.extracted.reserve(static_cast<size_t>(zip.Count()) + 1);
      // 5. Unpack everything into the site's folder.
      // Every file is noted before it is written, so that a run killed while it unpacks or
      // scans leaves nothing the next run cannot find and remove.
      const std::string list = UnpackedListPath(world.app.dataFolder);
      startup::EnsureFolder(platform::WithTrailingSlash(world.app.dataFolder) + "Temp/");
      const int listFd = ::open(list.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
      Note(listFd, "folder", platform::WithTrailingSlash(folder));
      platform::ZipArchive::Events events;
      auto yield = [&] {
        if (!ui.Yield()) {
          run.cancelled = true;
          zip.Abort();
        }
      };
      events.onFile = [&](const std::string& file) {
        Note(listFd, "file", file);
        ++run.extractedCount;
        run.extracted.push_back(file);
        ui.SetCaption(platform::Label::Prog2, std::string(kUnzipCaption) + " " + file);
        yield();
      };
      events.onProgress = [&](int percent) {
        bar.SetValue(percent);
        ui.ProgressChanged();
        yield();
      };
      events.onSkipped = [&](std::string_view member, std::string_view why) {
        world.errors.LogError(kUnzipWhere, "Archive member " + Printable(member) +
                                               " not unpacked: " + std::string(why));
      };
      run.unzipping = true;
      run.SetActiveArchive(&zip);
      result = zip.ExtractAll(folder, events, limits);
      if (listFd >= 0) ::close(listFd);
      if (run.extractedCount == 0) ::unlink(list.c_str());
      run.SetActiveArchive(nullptr);
      run.unzipping = false;
    }
    // 6. A failed unpacking keeps what was unpacked; the scan goes on with it.
    if (result != platform::ZipArchive::kOk && result != platform::ZipArchive::kAborted) {
      world.errors.LogError(kUnzipWhere, "Archive " + folder + std::string(kArchiveName) +
                                             " not fully unpacked: " +
                                             Printable(path ? zip.Error() : "not found"));
    }
  } catch (const std::exception& e) {
    world.errors.LogError(kUnzipWhere, e);
  }
  // 7.
  run.SetActiveArchive(nullptr);
  run.unzipping = false;
  ui.SetCaption(platform::Label::Prog2, "");
}

void DeleteArchive(startup::World& world, platform::Frontend& ui, LogInputState& run,
                   int siteIndex) {
  // 1. (The caption's spelling is the window's own.)
  ui.SetCaption(platform::Label::Prog2, "Removing Tempory Files");
  // 2. Only the exact path that was reported, and only a regular file: a name that differs in
  // case, or a link put there since, is someone else's and stays.
  for (int32_t i = 1; i <= run.extractedCount && i < static_cast<int32_t>(run.extracted.size());
       ++i) {
    const std::string& file = run.extracted[static_cast<size_t>(i)];
    struct stat st {};
    if (::lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    if (::unlink(file.c_str()) != 0) {
      world.errors.LogError(kDeleteWhere, file + ": " + std::strerror(errno));
    }
  }
  ::unlink(UnpackedListPath(world.app.dataFolder).c_str());
}

}  // namespace loginput
