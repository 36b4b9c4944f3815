// Refusing a second copy of the program: an exclusive, non-blocking lock on a lock file named after
// the program. The lock belongs to the open file, so it is held exactly as long as the
// `SingleInstance` object lives and goes with the process if it ends abnormally: a crashed run
// never leaves a stale lock behind.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

class SingleInstance {
 public:
  // Tries to become the one running copy of `programName`, using the lock file
  // `folder`/`programName`.lock (created when missing; `folder` empty = the system temp folder).
  // Returns the held lock, or nullptr when another holder has the lock. When the lock file cannot
  // be created or locked for any other reason (read-only folder, ...) the test cannot be made, and
  // the program is let through: a lock object that holds nothing is returned.
  static std::unique_ptr<SingleInstance> Acquire(std::string_view programName,
                                                 const std::filesystem::path& folder = {});

  ~SingleInstance();
  SingleInstance(const SingleInstance&) = delete;
  SingleInstance& operator=(const SingleInstance&) = delete;

  // True when this object holds the lock (false when the lock file could not be used).
  bool Holds() const { return fd_ >= 0; }
  const std::filesystem::path& LockFile() const { return path_; }

 private:
  SingleInstance(int fd, std::filesystem::path path) : fd_(fd), path_(std::move(path)) {}
  int fd_;
  std::filesystem::path path_;
};

}  // namespace platform
