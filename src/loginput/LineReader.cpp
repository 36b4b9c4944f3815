// The line reader: large-block reads, line ends found with memchr, lines returned as views into
// the block buffer (no copy, no allocation once the buffer has its size).
#include "loginput/LineReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace loginput {

LineReader::LineReader(size_t maxLine, size_t block)
    : maxLine_(std::max<size_t>(maxLine, 1)), block_(std::max<size_t>(block, 1)) {}

LineReader::~LineReader() { Close(); }

bool LineReader::Open(const std::string& path, Mode mode) {
  Close();
  mode_ = mode;
  if (!buf_) {
    cap_ = block_;
    buf_ = std::make_unique<char[]>(cap_);
  }
  begin_ = scan_ = end_ = 0;
  consumed_ = 0;
  cutting_ = false;
  dropped_ = 0;
  readFailed_ = false;
  atEnd_ = false;
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  eof_ = fd_ < 0;
  if (fd_ >= 0) ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
  return fd_ >= 0;
}

void LineReader::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  eof_ = true;
  atEnd_ = true;
}

bool LineReader::Refill() {
  if (eof_) return false;
  char* base = buf_.get();
  // A line that has passed the limit keeps its head; its later bytes are dropped as they come.
  if (!cutting_ && scan_ - begin_ >= maxLine_) {
    head_.assign(base + begin_, maxLine_);
    dropped_ = 0;
    cutting_ = true;
  }
  if (cutting_) {
    dropped_ += static_cast<int64_t>(scan_ - begin_);
    begin_ = scan_;
  }
  if (begin_ > 0) {
    std::memmove(base, base + begin_, end_ - begin_);
    end_ -= begin_;
    scan_ -= begin_;
    begin_ = 0;
  }
  if (end_ == cap_) {
    // The line does not fit: grow, but never far beyond the line limit.
    size_t newCap = std::min(cap_ * 2, maxLine_ + block_);
    if (newCap <= cap_) newCap = cap_ + block_;
    auto bigger = std::make_unique<char[]>(newCap);
    std::memcpy(bigger.get(), base, end_);
    buf_ = std::move(bigger);
    cap_ = newCap;
    base = buf_.get();
  }
  for (;;) {
    ssize_t n = ::read(fd_, base + end_, cap_ - end_);
    if (n > 0) {
      // Text mode: a Ctrl-Z byte marks the end of the file; nothing after it is read.
      if (mode_ == Mode::kText) {
        if (const void* z = std::memchr(base + end_, kEndOfText, static_cast<size_t>(n))) {
          n = static_cast<const char*>(z) - (base + end_);
          eof_ = true;
        }
      }
      end_ += static_cast<size_t>(n);
      return true;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) readFailed_ = true;
    eof_ = true;
    return false;
  }
}

std::string_view LineReader::Finish(size_t lineEnd, size_t terminatorLength, bool last) {
  const size_t length = lineEnd - begin_;
  std::string_view line;
  if (cutting_) {
    consumed_ += dropped_;
    line = head_;
    cutting_ = false;
    dropped_ = 0;
  } else {
    line = std::string_view(buf_.get() + begin_, std::min(length, maxLine_));
  }
  consumed_ += static_cast<int64_t>(length + terminatorLength);
  begin_ = scan_ = lineEnd + terminatorLength;
  if (last) atEnd_ = true;
  return line;
}

std::string_view LineReader::Next() {
  if (atEnd_) return {};
  for (;;) {
    char* base = buf_.get();
    if (mode_ == Mode::kUnix) {
      const void* p = std::memchr(base + scan_, '\n', end_ - scan_);
      if (p) return Finish(static_cast<size_t>(static_cast<const char*>(p) - base), 1, false);
    } else {
      const void* p = std::memchr(base + scan_, '\r', end_ - scan_);
      if (p) {
        const size_t i = static_cast<size_t>(static_cast<const char*>(p) - base);
        if (i + 1 < end_) return Finish(i, base[i + 1] == '\n' ? 2 : 1, false);
        if (eof_) return Finish(i, 1, false);
        // A CR at the end of the block: the next byte decides whether an LF belongs to it.
        scan_ = i;
        Refill();
        continue;
      }
    }
    scan_ = end_;
    // No line end before the end of the data: the rest of the file is the last line.
    if (eof_ || !Refill()) return Finish(end_, 0, true);
  }
}

}  // namespace loginput
