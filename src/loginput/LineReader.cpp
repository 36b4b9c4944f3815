// The line reader: large-block reads, line ends found with memchr, lines returned as views into
// the block buffer (no copy, no allocation once the buffer has its size).
#include "loginput/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace loginput {

// Reads the file block after block on a helper thread into a few slots; the reader takes the
// bytes out in order. Only the slots and their queue are shared, under one mutex.
class LineReader::ReadAhead {
 public:
  // With `stopAtEndOfText`, a Ctrl-Z byte ends the data (text mode), found here on the helper.
  ReadAhead(int fd, size_t block, bool stopAtEndOfText)
      : fd_(fd), block_(block), stopAtEndOfText_(stopAtEndOfText) {
    for (int i = 0; i < kSlots; ++i) {
      slots_[i] = std::make_unique<char[]>(block_);
      free_.push_back(i);
    }
    thread_ = std::thread([this] { Produce(); });
  }
  ~ReadAhead() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    freed_.notify_all();
    thread_.join();
  }

  ssize_t Take(char* to, size_t room) {
    if (current_ < 0) {
      std::unique_lock<std::mutex> lock(mutex_);
      filled_.wait(lock, [this] { return !ready_.empty(); });
      current_ = ready_.front();
      ready_.pop_front();
      offset_ = 0;
    }
    const ssize_t length = length_[current_];
    if (length < 0) errno = EIO;     // the end, or a failure, stays the answer
    if (length <= 0) return length;
    const size_t n = std::min(room, static_cast<size_t>(length) - offset_);
    std::memcpy(to, slots_[current_].get() + offset_, n);
    offset_ += n;
    if (offset_ == static_cast<size_t>(length)) {
      {
        std::lock_guard<std::mutex> lock(mutex_);
        free_.push_back(current_);
      }
      freed_.notify_one();
      current_ = -1;
    }
    return static_cast<ssize_t>(n);
  }

 private:
  static constexpr int kSlots = 4;

  void Produce() {
    bool ended = false;  // a Ctrl-Z was found: nothing more is read, an empty slot follows
    for (;;) {
      int slot;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        freed_.wait(lock, [this] { return stop_ || !free_.empty(); });
        if (stop_) return;
        slot = free_.back();
        free_.pop_back();
      }
      ssize_t n = 0;
      if (!ended) {
        do {
          n = ::read(fd_, slots_[slot].get(), block_);
        } while (n < 0 && errno == EINTR);
        if (n > 0 && stopAtEndOfText_) {
          if (const void* z = std::memchr(slots_[slot].get(), kEndOfText, static_cast<size_t>(n))) {
            n = static_cast<const char*>(z) - slots_[slot].get();
            ended = true;
          }
        }
      }
      {
        std::lock_guard<std::mutex> lock(mutex_);
        length_[slot] = n;
        ready_.push_back(slot);
      }
      filled_.notify_one();
      if (n <= 0) return;
    }
  }

  const int fd_;
  const size_t block_;
  std::unique_ptr<char[]> slots_[kSlots];
  ssize_t length_[kSlots] = {};
  std::mutex mutex_;
  std::condition_variable filled_, freed_;
  std::deque<int> ready_;
  std::vector<int> free_;
  const bool stopAtEndOfText_;
  bool stop_ = false;
  int current_ = -1;   // the slot being taken from (reader side only)
  size_t offset_ = 0;  // bytes of it already taken
  std::thread thread_;
};

LineReader::LineReader(size_t maxLine, size_t block, bool readAhead)
    : maxLine_(std::max<size_t>(maxLine, 1)),
      block_(std::max<size_t>(block, 1)),
      readAhead_(readAhead) {}

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
  // Reading ahead pays for its thread only on files of several blocks; a thread that cannot be
  // started leaves the plain reads.
  struct stat st {};
  if (fd_ >= 0 && readAhead_ && ::fstat(fd_, &st) == 0 &&
      static_cast<uint64_t>(st.st_size) >= 4 * static_cast<uint64_t>(block_)) {
    try {
      ahead_ = std::make_unique<ReadAhead>(fd_, block_, mode_ == Mode::kText);
    } catch (const std::exception&) {
      ahead_.reset();
    }
  }
  return fd_ >= 0;
}

void LineReader::Close() {
  ahead_.reset();  // stops the helper before its file goes
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
    ssize_t n = ReadSome(base + end_, cap_ - end_);
    if (n > 0) {
      // Text mode: a Ctrl-Z byte marks the end of the file; nothing after it is read. (The
      // read-ahead helper has looked for it already.)
      if (mode_ == Mode::kText && !ahead_) {
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

ssize_t LineReader::ReadSome(char* to, size_t room) {
  if (ahead_) return ahead_->Take(to, room);
  return ::read(fd_, to, room);
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
