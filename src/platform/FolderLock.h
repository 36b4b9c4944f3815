// One run per data folder: an exclusive, non-blocking lock on the data folder itself (flock on
// the folder, opened for reading). Two runs that share a data folder but not a temp folder (a
// scheduled job and a shell, a run under sudo) would otherwise both build and replace the same
// tables. The lock belongs to the open folder, so it is held exactly as long as the `FolderLock`
// object lives, and the kernel releases it when the process ends in any way (kill -9 included):
// there is never a stale lock to clear, and no file is left behind.
#pragma once

#include <memory>
#include <string>

namespace platform {

class FolderLock {
 public:
  // Tries to become the one run that uses `folder`. Returns the held lock, or nullptr when
  // another run holds it. When the folder cannot be opened or locked for any other reason
  // (missing, not a folder, a file system without locks) the test cannot be made and the run is
  // let through (a lock that holds nothing is returned): the database's own checks then say what
  // is wrong with the folder.
  static std::unique_ptr<FolderLock> Acquire(const std::string& folder);

  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  // True when this object holds the lock.
  bool Holds() const { return fd_ >= 0; }
  const std::string& Folder() const { return folder_; }

 private:
  FolderLock(int fd, std::string folder) : fd_(fd), folder_(std::move(folder)) {}
  int fd_;
  std::string folder_;
};

}  // namespace platform
