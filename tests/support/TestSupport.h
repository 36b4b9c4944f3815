// Shared helpers for the tests: a fresh temp folder per test, and whole-file read and write.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace tytest {

// A folder of its own under the system temp folder, removed again when the object goes.
class TempDir {
 public:
  TempDir() {
    std::random_device rd;
    for (;;) {
      path_ = std::filesystem::temp_directory_path() /
              ("tydb-test-" + std::to_string(rd()) + std::to_string(rd()));
      if (std::filesystem::create_directory(path_)) break;
    }
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // The folder as the system writes folders: with a trailing "/".
  std::string str() const { return path_.string() + "/"; }

 private:
  std::filesystem::path path_;
};

inline void WriteFile(const std::filesystem::path& p, const std::string& bytes) {
  std::filesystem::create_directories(p.parent_path());
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  f << bytes;
}

inline std::string ReadFile(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

// The project's source folder, for test data under testdata/ and examples/.
inline std::filesystem::path SourceDir() { return TY_SOURCE_DIR; }

}  // namespace tytest
