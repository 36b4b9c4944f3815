// Unpacking of a zip archive into a folder, with the events a progress display needs (the file
// being written, a percentage) and an abort that a handler of those events may call.
//
// Every member is written into the one destination folder; the archive cannot place a file
// anywhere else:
//   - a member name that is absolute ("/x", "\x", "C:x") or has a ".." part is skipped;
//   - a member in a sub-folder ("logs/ex0101.log") is written under its file name alone
//     ("ex0101.log"): the folder is read without sub-folders, so this is what makes its files
//     part of the listing; folder entries themselves are skipped;
//   - a symbolic-link member is skipped, and a file is never written through a link that exists
//     in the folder;
//   - a member whose name (compared case-insensitively) is already taken in the folder, by a file
//     that was there before or by an earlier member, is skipped: the file there is kept as it is;
//   - each file is written under a temporary name (".tyunzip-<process>-<member>.tmp", a name
//     that marks it as this program's) and renamed into place only when complete, so a damaged
//     member never leaves half a file behind; a member that itself carries such a name is
//     skipped (it could take the place of a later member's temporary file, and the next run's
//     clean-up would remove it as a leftover anyway);
//   - each file keeps the modification time stored in the archive.
// Extraction is bounded: a member never yields more than its declared size; the archive stops when
// the bytes to write would pass `Limits::maxTotalBytes` or the free space of the folder less
// `Limits::freeSpaceMargin`, and when a member's declared compression ratio is absurd.
// Skipped members are reported through `Events::onSkipped` and extraction goes on with the next.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct zip;  // libzip's archive handle

namespace platform {

// True for a name of the unpacking's temporary files (".tyunzip-*.tmp", in any case).
bool IsUnpackingTempName(std::string_view name);

class ZipArchive {
 public:
  // Results of Open and ExtractAll. 0 is success; everything else is a failure.
  enum Result : int {
    kOk = 0,
    kNotOpen = 1,      // no archive open, or the file is missing, unreadable or not a zip
    kCorrupt = 2,      // a member could not be read back (bad data, bad checksum)
    kWriteFailed = 3,  // the folder cannot be written
    kAborted = 4,      // Abort() was called
    kLimit = 5,        // a size or ratio bound stopped the extraction
  };

  struct Limits {
    uint64_t maxTotalBytes = uint64_t{20} << 30;     // all members of one archive together
    uint64_t freeSpaceMargin = uint64_t{512} << 20;  // disk space always left free
    double maxRatio = 1000.0;            // declared size : compressed size of one member
    uint64_t ratioCheckFrom = uint64_t{64} << 20;  // members smaller than this are not checked
  };

  struct Events {
    // A member is about to be written; `path` is the full path of the file it becomes.
    std::function<void(const std::string& path)> onFile;
    // Bytes written so far as a percentage (0..100) of all members' declared sizes.
    std::function<void(int percent)> onProgress;
    // A member that is not written, and why (a short English text).
    std::function<void(std::string_view member, std::string_view reason)> onSkipped;
  };

  ZipArchive() = default;
  ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  // Opens the archive at `path` (closing any open before). Returns kOk, or kNotOpen when the file
  // is missing, unreadable or not a zip archive. `Error()` then holds the reason.
  int Open(const std::string& path);
  void Close();
  bool IsOpen() const { return zip_ != nullptr; }

  // Number of members (files and folder entries); 0 when nothing is open.
  int64_t Count() const;

  // Writes every member into `folder` under the rules above, calling the events as it goes.
  // REQUIRES: `folder` exists. Returns kOk when every member was either written or skipped by a
  // rule; otherwise the first failure's code, after which nothing more is written (files already
  // complete stay). `Error()` holds the reason of a failure.
  int ExtractAll(const std::string& folder, const Events& events, const Limits& limits);
  int ExtractAll(const std::string& folder, const Events& events) {
    return ExtractAll(folder, events, Limits{});
  }

  // Asks a running ExtractAll to stop (from inside one of its events); it returns kAborted and
  // removes the file it was writing.
  void Abort() { abort_ = true; }

  const std::string& Error() const { return error_; }

 private:
  ::zip* zip_ = nullptr;
  bool abort_ = false;
  std::string error_;
};

}  // namespace platform
