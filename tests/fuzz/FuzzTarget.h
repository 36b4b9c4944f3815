// Shared by the fuzz targets: one scratch folder per fuzzing process, and the
// cutting of one fuzz input into the files a target writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "TestSupport.h"

namespace fuzz {

// The process's scratch folder (removed when the process ends normally).
inline tytest::TempDir& Scratch() {
  static tytest::TempDir dir;
  return dir;
}

// Empties `folder` (keeps the folder itself).
inline void Empty(const std::filesystem::path& folder) {
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(folder, ec)) {
    std::filesystem::remove_all(e.path(), ec);
  }
}

// Cuts `data` at the first occurrence of `mark`: the part before it and the
// rest. Without the mark the whole input is the first part. Lets a seed be
// written by hand as two files joined.
inline std::pair<std::string_view, std::string_view> CutAt(std::string_view data,
                                                           std::string_view mark) {
  const size_t at = data.find(mark);
  if (at == std::string_view::npos) return {data, {}};
  return {data.substr(0, at), data.substr(at + mark.size())};
}

}  // namespace fuzz
