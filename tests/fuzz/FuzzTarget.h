// What the fuzz targets share: a scratch folder of their own for the files an input becomes.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fuzz {

// A folder under the temp folder, made at the first call and kept for the process's life.
inline const std::string& Scratch() {
  static const std::string folder = [] {
    std::string templ = (std::filesystem::temp_directory_path() / "tyfuzz-XXXXXX").string();
    if (!mkdtemp(templ.data())) std::abort();
    return templ + "/";
  }();
  return folder;
}

inline void Write(const std::string& path, const uint8_t* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace fuzz
