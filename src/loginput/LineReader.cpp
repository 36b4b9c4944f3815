// The line reader: large-block reads, line ends found with memchr, lines returned as views into
// the block buffer (no copy, no allocation once the buffer has its size), or, when reading ahead,
// into the batches of the helper thread.
#include "loginput/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace loginput {

// Reads the lines on a helper thread: a plain reader of its own finds the lines there (reads,
// line ends, the Ctrl-Z end, cut long lines) and copies them into batches; the reader hands them
// out in order. The main thread thus neither copies blocks nor searches for line ends; a batch
// keeps each line's Position(), end and read-failure answers as the plain reader gave them after
// that line, so the caller sees exactly what the plain reader would have given. Only the batch
// queues are shared, under one mutex, once per batch.
class LineReader::ReadAhead {
 public:
  // REQUIRES: `inner` is open and reads without a helper of its own.
  explicit ReadAhead(std::unique_ptr<LineReader> inner, size_t batchBytes)
      : inner_(std::move(inner)), batchBytes_(batchBytes) {
    for (auto& b : batches_) free_.push_back(&b);
    thread_ = std::thread([this] { Produce(); });
  }
  ~ReadAhead() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_.store(true, std::memory_order_relaxed);
    }
    freed_.notify_all();
    thread_.join();
  }

  // The next line and what the plain reader said after it; rethrows what the plain reader threw
  // (and goes on rethrowing it).
  std::string_view Next(int64_t& position, bool& last, bool& readFailed) {
    while (current_ == nullptr || taken_ == current_->lines.size()) {
      if (current_ != nullptr) {
        if (current_->failure) std::rethrow_exception(current_->failure);
        {
          std::lock_guard<std::mutex> lock(mutex_);
          free_.push_back(current_);
        }
        freed_.notify_one();
      }
      std::unique_lock<std::mutex> lock(mutex_);
      filled_.wait(lock, [this] { return !ready_.empty(); });
      current_ = ready_.front();
      ready_.pop_front();
      taken_ = 0;
    }
    const Line& l = current_->lines[taken_++];
    position = l.position;
    last = l.last;
    readFailed = l.readFailed;
    return std::string_view(current_->text.data() + l.offset, l.length);
  }

 private:
  struct Line {
    size_t offset, length;  // in the batch's text
    int64_t position;       // the plain reader's Position() after the line
    bool last, readFailed;  // its AtEnd() and ReadFailed() after the line
  };
  struct Batch {
    std::string text;  // the lines' bytes one after the other; the capacity is kept
    std::vector<Line> lines;
    std::exception_ptr failure;  // what the plain reader threw after these lines, if anything
  };
  static constexpr int kBatches = 4;
  static constexpr size_t kLinesPerBatch = 4096;

  void Produce() {
    for (;;) {
      Batch* b;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        freed_.wait(lock, [this] { return stop_.load(std::memory_order_relaxed) || !free_.empty(); });
        if (stop_.load(std::memory_order_relaxed)) return;
        b = free_.back();
        free_.pop_back();
      }
      b->text.clear();
      b->lines.clear();
      b->failure = nullptr;
      bool ended = false;
      try {
        while (b->lines.size() < kLinesPerBatch && b->text.size() < batchBytes_) {
          const std::string_view line = inner_->Next();
          b->lines.push_back(Line{b->text.size(), line.size(), inner_->Position(),
                                  inner_->AtEnd(), inner_->ReadFailed()});
          b->text.append(line);
          if (inner_->AtEnd()) {
            ended = true;
            break;
          }
          if (stop_.load(std::memory_order_relaxed)) break;
        }
      } catch (...) {
        // A line the memory does not hold: the reader gets the failure after the lines before.
        if (!b->lines.empty() && b->text.size() < b->lines.back().offset + b->lines.back().length)
          b->lines.pop_back();
        b->failure = std::current_exception();
        ended = true;
      }
      {
        std::lock_guard<std::mutex> lock(mutex_);
        ready_.push_back(b);
      }
      filled_.notify_one();
      if (ended) return;
    }
  }

  std::unique_ptr<LineReader> inner_;  // used by the helper only
  const size_t batchBytes_;
  Batch batches_[kBatches];
  std::mutex mutex_;
  std::condition_variable filled_, freed_;
  std::deque<Batch*> ready_;
  std::vector<Batch*> free_;
  std::atomic<bool> stop_{false};
  Batch* current_ = nullptr;  // the batch being handed out (reader side only)
  size_t taken_ = 0;          // lines of it already handed out
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
  // Reading ahead pays for its thread only on files of several blocks; a helper that cannot be
  // started leaves the plain reads.
  struct stat st {};
  if (fd_ >= 0 && readAhead_ && ::fstat(fd_, &st) == 0 &&
      static_cast<uint64_t>(st.st_size) >= 4 * static_cast<uint64_t>(block_)) {
    try {
      auto inner = std::make_unique<LineReader>(maxLine_, block_, false);
      if (inner->Open(path, mode)) {
        ahead_ = std::make_unique<ReadAhead>(std::move(inner), block_);
        ::close(fd_);  // the helper's reader has the file open itself
        fd_ = -1;
      }
    } catch (const std::exception&) {
      ahead_.reset();
    }
  }
  return ahead_ != nullptr || fd_ >= 0;
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

ssize_t LineReader::ReadSome(char* to, size_t room) { return ::read(fd_, to, room); }

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
  if (ahead_) {
    int64_t position = 1;
    const std::string_view line = ahead_->Next(position, atEnd_, readFailed_);
    consumed_ = position - 1;
    return line;
  }
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
