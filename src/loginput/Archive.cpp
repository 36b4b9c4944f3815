// Archive unpacking and clean-up for a site's log folder.
#include "loginput/Archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>

#include "platform/Files.h"
#include "platform/Frontend.h"
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

}  // namespace

void UnZipArchive(startup::World& world, platform::Frontend& ui, RunState& run, int siteIndex,
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
    const std::string folder = site.folder;
    platform::ZipArchive zip;
    const auto path = platform::FindFileCI(folder, kArchiveName);
    int result = path ? zip.Open(path->string()) : platform::ZipArchive::kNotOpen;
    if (result == platform::ZipArchive::kOk) {
      // 4.
      run.extracted.reserve(static_cast<size_t>(zip.Count()) + 1);
      // 5. Unpack everything into the site's folder.
      platform::ZipArchive::Events events;
      auto yield = [&] {
        if (!ui.Yield()) {
          run.cancelled = true;
          zip.Abort();
        }
      };
      events.onFile = [&](const std::string& file) {
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

void DeleteArchive(startup::World& world, platform::Frontend& ui, RunState& run, int siteIndex) {
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
}

}  // namespace loginput
