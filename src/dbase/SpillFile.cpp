// The temporary file of a tag's spilled runs: making it without a lasting name, writing and
// reading runs at their offsets.
#include "dbase/SpillFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace dbase {

SpillFile::~SpillFile() {
  if (fd_ >= 0) ::close(fd_);
}

int SpillFile::Open(const std::string& folder, const std::string& name) {
  if (fd_ >= 0) return 0;
  end_ = 0;
  const std::string path = folder + name;
  // The name of a file left by a process killed before it removed it: nobody uses it.
  ::unlink(path.c_str());
#ifdef O_TMPFILE
  fd_ = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd_ >= 0) return 0;
  // A folder that is missing or cannot be written is not helped by a named file either.
  if (errno == ENOENT || errno == EACCES || errno == EROFS || errno == ENOSPC || errno == EDQUOT)
    return errno;
#endif
  fd_ = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
  if (fd_ < 0) return errno;
  if (::unlink(path.c_str()) != 0) {
    const int error = errno;
    ::close(fd_);
    fd_ = -1;
    return error;
  }
  return 0;
}

int SpillFile::Write(const char* p, size_t n, uint64_t offset) const {
  while (n > 0) {
    const ssize_t w = ::pwrite(fd_, p, n, off_t(offset));
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return w < 0 ? errno : ENOSPC;
    p += w;
    n -= size_t(w);
    offset += uint64_t(w);
  }
  return 0;
}

int SpillFile::Read(char* p, size_t n, uint64_t offset) const {
  while (n > 0) {
    const ssize_t r = ::pread(fd_, p, n, off_t(offset));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return r < 0 ? errno : EIO;  // the file is shorter than what was written to it
    p += r;
    n -= size_t(r);
    offset += uint64_t(r);
  }
  return 0;
}

void SpillFile::Clear() {
  if (fd_ >= 0 && end_ > 0 && ::ftruncate(fd_, 0) != 0) {
    // The room stays taken until the file is closed; the file itself is still right.
  }
  end_ = 0;
}

}  // namespace dbase
