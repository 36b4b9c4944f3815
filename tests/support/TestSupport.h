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

// Copies the bundled demo application folder (configuration, logs, reference files) into `to`,
// leaving out what a run of the demo in the source tree leaves behind (the Quick start runs it
// before the tests): tables, errors.log, robots.dat and the data folder's Temp/.
inline void CopyDemo(const std::filesystem::path& to) {
  namespace fs = std::filesystem;
  const fs::path from = SourceDir() / "examples" / "demo";
  fs::create_directories(to);
  for (auto it = fs::recursive_directory_iterator(from); it != fs::recursive_directory_iterator();
       ++it) {
    const fs::path rel = fs::relative(it->path(), from);
    std::string ext = it->path().extension().string();
    for (char& c : ext) c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    const std::string name = it->path().filename().string();
    if (it->is_directory()) {
      if (rel == fs::path("Data") / "Temp") {
        it.disable_recursion_pending();
        continue;
      }
      fs::create_directories(to / rel);
    } else if (ext != ".DBF" && ext != ".MDX" && name != "errors.log" && name != "robots.dat") {
      fs::copy_file(it->path(), to / rel);
    }
  }
}

// A copy of the bundled demo (configuration and logs, no tables) in a temp folder of its own.
struct DemoCopy {
  TempDir dir;
  DemoCopy() { CopyDemo(dir.path()); }
  std::string App() const { return dir.str(); }            // the application folder
  std::string Data() const { return dir.str() + "Data/"; }  // its data folder
};

}  // namespace tytest
