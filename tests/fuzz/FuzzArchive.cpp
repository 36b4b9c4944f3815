// Fuzz target: ARCHIVE.ZIP unpacked into a log folder. The input is the archive; every member is
// unpacked under the rules of the unpacking (nothing outside the folder, nothing replaced,
// bounded sizes), then the folder is emptied again. Nothing may crash, and nothing may be written
// outside the folder.
#include <cstdint>
#include <filesystem>

#include "FuzzTarget.h"
#include "platform/Zip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& scratch = fuzz::Scratch();
  const std::string folder = scratch + "logs/";
  std::error_code ec;
  std::filesystem::remove_all(folder, ec);
  std::filesystem::create_directories(folder);
  fuzz::Write(scratch + "ARCHIVE.ZIP", data, size);
  platform::ZipArchive zip;
  if (zip.Open(scratch + "ARCHIVE.ZIP") == platform::ZipArchive::kOk) {
    platform::ZipArchive::Limits limits;
    limits.maxTotalBytes = 64 << 20;
    limits.freeSpaceMargin = 0;
    limits.ratioCheckFrom = 1 << 20;
    (void)zip.ExtractAll(folder, platform::ZipArchive::Events{}, limits);
  }
  // Only the folder and the archive may exist in the scratch folder.
  for (const auto& e : std::filesystem::directory_iterator(scratch)) {
    const std::string name = e.path().filename().string();
    if (name != "logs" && name != "ARCHIVE.ZIP") __builtin_trap();
  }
  return 0;
}
