// One run per data folder: flock on the folder itself.
#include "platform/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

std::unique_ptr<FolderLock> FolderLock::Acquire(const std::string& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return std::unique_ptr<FolderLock>(new FolderLock(-1, folder));
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int err = errno;
    ::close(fd);
    if (err == EWOULDBLOCK) return nullptr;
    return std::unique_ptr<FolderLock>(new FolderLock(-1, folder));
  }
  return std::unique_ptr<FolderLock>(new FolderLock(fd, folder));
}

FolderLock::~FolderLock() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace platform
