// The line reader of a log file, in the two reading modes a site can ask for.
//
// Text mode: a line ends at a CR, or at a CR LF pair; a bare LF is an ordinary character of the
// line, so a file whose lines end with LF alone reads as one long line. A Ctrl-Z byte (26) ends
// the file, as it ends every text file the system reads line by line.
// Unix mode (the site's UNIX flag): a line ends at an LF; a CR before it stays at the end of the
// line. This is what GetNextLine, reading the file in 256-byte chunks and cutting each chunk at its
// first LF, returns; the reader gets the same lines from large blocks instead of one read per
// line, and the same positions (the byte after each LF).
//
// In both modes the file is a series of lines cut at their line ends, and the text after the
// last line end is one more line: a file whose last line ends with a line end therefore gives a
// final empty line, and an empty file gives one empty line. The reader is at its end once it has
// returned that last line.
//
// The chunk reader blank-fills its buffer before each read, so a final chunk read past the end of
// the file would carry blanks beyond the file's last byte. Those blanks were never in the file
// and, with a blank separator, would read as extra empty fields; the last line is therefore
// returned as exactly the bytes after the last line end.
//
// A line longer than the reader's line limit (64 MiB unless a test sets another) is cut: its
// first `maxLine` bytes are returned and the rest up to its line end is read and dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace loginput {

class LineReader {
 public:
  enum class Mode { kText, kUnix };

  static constexpr char kEndOfText = 26;  // Ctrl-Z
  static constexpr size_t kDefaultMaxLine = size_t{64} << 20;
  static constexpr size_t kDefaultBlock = size_t{256} << 10;  // stays in the core's cache

  // REQUIRES: maxLine >= 1, block >= 1. With `readAhead`, the lines of a file of four blocks or
  // more are read and cut on a helper thread, a few batches ahead of the lines handed out (the
  // reads, the search for line ends and the copies then overlap the work on the lines); the
  // lines, positions and end and failure answers are the same either way. The helper is stopped
  // by Close.
  explicit LineReader(size_t maxLine = kDefaultMaxLine, size_t block = kDefaultBlock,
                      bool readAhead = false);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Opens `path` for reading from its first byte, closing any file open before. Returns false
  // when the file cannot be opened; the reader then acts as an empty file (the first Next() gives
  // "" and ends it), so a caller that does not check still finds the end at once.
  bool Open(const std::string& path, Mode mode);
  // Closes the file; AtEnd() becomes true. Safe to call twice.
  void Close();

  // The next line without its line end. The view stays valid until the next call of Next, Open or
  // Close. After the end it returns "" again.
  std::string_view Next();

  // True once the last line of the file has been returned (or nothing is open).
  bool AtEnd() const { return atEnd_; }
  // The 1-based position of the next byte to read: 1 + the bytes consumed by the lines returned,
  // line ends included.
  int64_t Position() const { return consumed_ + 1; }
  // True when a read failed part way (the file then ends where the failure happened).
  bool ReadFailed() const { return readFailed_; }

 private:
  // Moves or drops consumed bytes and reads one more block. Returns false at the end of data.
  bool Refill();
  // Up to `room` bytes of the file into `to`: the count, 0 at the end, -1 on a read error.
  ssize_t ReadSome(char* to, size_t room);

  class ReadAhead;
  std::string_view Finish(size_t lineEnd, size_t terminatorLength, bool last);

  const size_t maxLine_;
  const size_t block_;
  const bool readAhead_;
  std::unique_ptr<ReadAhead> ahead_;
  int fd_ = -1;
  Mode mode_ = Mode::kText;
  std::unique_ptr<char[]> buf_;
  size_t cap_ = 0;
  size_t begin_ = 0;  // first byte of the current line in buf_
  size_t scan_ = 0;   // where the search for the line end goes on
  size_t end_ = 0;    // end of the valid bytes in buf_
  bool eof_ = true;   // no more bytes will come from the file
  bool atEnd_ = true;
  bool readFailed_ = false;
  int64_t consumed_ = 0;
  // A line longer than maxLine_: its kept head, and how many of its bytes have left the buffer.
  bool cutting_ = false;
  std::string head_;
  int64_t dropped_ = 0;
};

}  // namespace loginput
