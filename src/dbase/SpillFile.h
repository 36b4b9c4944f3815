// The temporary file of one index tag's spilled runs of keys (KeyRun.h): runs written one after
// the other, each at the offset claimed for it, read back when the tag's keys are merged.
//
// The file never has a name that outlives its process: it is made without one where the file
// system allows (O_TMPFILE), and otherwise created under "<TABLE>-<TAG>.SPILL" and its name
// removed at once. Either way the system frees its room when the file is closed, whichever way
// the process ends (a close, a cancel, a failure, kill -9). A name left by a process killed
// between the creation and the removal (the second way only) is removed by the next table that
// makes the same tag's file in that folder, and with the staging folder of the new tables by
// the next run's start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace dbase {

class SpillFile {
 public:
  SpillFile() = default;
  ~SpillFile();
  SpillFile(const SpillFile&) = delete;
  SpillFile& operator=(const SpillFile&) = delete;

  // Makes the file in `folder` (ends with "/"); `name` is the name it has while being created
  // when it must have one. 0, or the errno of the failure.
  int Open(const std::string& folder, const std::string& name);
  bool IsOpen() const { return fd_ >= 0; }
  // Room for n more bytes at the end: their offset.
  uint64_t Claim(size_t n) {
    const uint64_t at = end_;
    end_ += n;
    return at;
  }
  // Writes or reads n bytes at `offset`. 0, or the errno of the failure (a short write is
  // ENOSPC). Safe from several threads at once on distinct ranges.
  int Write(const char* p, size_t n, uint64_t offset) const;
  int Read(char* p, size_t n, uint64_t offset) const;
  // Empties the file: its runs were merged, and their room goes back to the disk.
  void Clear();
  uint64_t Size() const { return end_; }

 private:
  int fd_ = -1;
  uint64_t end_ = 0;
};

}  // namespace dbase
