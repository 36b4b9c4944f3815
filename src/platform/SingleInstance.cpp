// The single-instance test: flock on a lock file named after the program.
#include "platform/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

std::unique_ptr<SingleInstance> SingleInstance::Acquire(std::string_view programName,
                                                        const std::filesystem::path& folder) {
  std::filesystem::path dir = folder;
  if (dir.empty()) {
    std::error_code ec;
    dir = std::filesystem::temp_directory_path(ec);
    if (ec) dir = "/tmp";
  }
  std::filesystem::path path = dir / (std::string(programName) + ".lock");
  // Opened read-only: flock needs no write access, so a lock file another user created still
  // serves as the machine-wide test.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    // No lock file, no test: rather run than refuse to run at all.
    return std::unique_ptr<SingleInstance>(new SingleInstance(-1, std::move(path)));
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int err = errno;
    ::close(fd);
    if (err == EWOULDBLOCK) return nullptr;
    return std::unique_ptr<SingleInstance>(new SingleInstance(-1, std::move(path)));
  }
  return std::unique_ptr<SingleInstance>(new SingleInstance(fd, std::move(path)));
}

SingleInstance::~SingleInstance() {
  // Closing the descriptor releases the lock. The file stays: removing it could let a third
  // copy lock a fresh file while a second still waits on the old one.
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace platform
