// Fuzz target: the unpacking of a site's ARCHIVE.ZIP through
// platform::ZipArchive.
//
// The input is the archive. It is unpacked into an empty "logs" folder inside a
// scratch folder that also holds a "keep.log" file the archive must not replace
// and a "logs/old.log" that must stay as it was. Afterwards the scratch folder
// must hold nothing but those files, "logs" and whatever was unpacked into
// "logs" itself (no sub-folder, no temporary file): a file written anywhere
// else, or a changed file, aborts the run as a fault, as a crash or a sanitizer
// report does. The size bounds are small so that an archive bomb is stopped
// quickly.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "FuzzTarget.h"
#include "platform/Zip.h"

namespace {

void Fail(const std::string& what) {
  std::fprintf(stderr, "archive fault: %s\n", what.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace fs = std::filesystem;
  tytest::TempDir& dir = fuzz::Scratch();
  fuzz::Empty(dir.path());
  const fs::path logs = dir.path() / "logs";
  fs::create_directory(logs);
  fs::create_directory(dir.path() / "zip");
  tytest::WriteFile(dir.path() / "keep.log", "kept");
  tytest::WriteFile(logs / "old.log", "old");
  const fs::path archive = dir.path() / "zip" / "ARCHIVE.ZIP";
  tytest::WriteFile(archive, std::string(reinterpret_cast<const char*>(data), size));

  std::set<std::string> reported{"old.log"};
  platform::ZipArchive zip;
  if (zip.Open(archive.string()) == platform::ZipArchive::kOk) {
    platform::ZipArchive::Limits limits;
    limits.maxTotalBytes = uint64_t{8} << 20;
    limits.freeSpaceMargin = 0;
    limits.ratioCheckFrom = uint64_t{1} << 20;
    platform::ZipArchive::Events events;
    events.onFile = [&](const std::string& path) {
      if (fs::path(path).parent_path() != logs) Fail("member written to " + path);
      reported.insert(fs::path(path).filename().string());
    };
    zip.ExtractAll(logs.string() + "/", events, limits);
    zip.Close();
  }

  // Nothing outside "logs" but the files put there, and nothing but plain files
  // inside it.
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir.path(), ec)) {
    const std::string name = e.path().filename().string();
    if (name != "logs" && name != "zip" && name != "keep.log") Fail("left outside: " + name);
  }
  for (const auto& e : fs::directory_iterator(dir.path() / "zip", ec)) {
    if (e.path() != archive) Fail("left beside the archive: " + e.path().string());
  }
  for (const auto& e : fs::directory_iterator(logs, ec)) {
    if (!e.is_regular_file() || e.is_symlink()) Fail("not a plain file: " + e.path().string());
    const std::string name = e.path().filename().string();
    if (!reported.count(name)) Fail("a file that no member reported: " + name);
  }
  if (tytest::ReadFile(dir.path() / "keep.log") != "kept") Fail("keep.log changed");
  if (tytest::ReadFile(logs / "old.log") != "old") Fail("old.log changed");
  return 0;
}
