// Replacing the database whole or not at all.
//
// A rebuild never writes into the live tables. The new tables are built in a staging folder
// beside them ("Temp/tydbcreate-new/" in the data folder, on the same file system), while the
// previous visitor table is read where it lies. Only a run that completes replaces the live
// tables, in three steps:
//
//   1. every staged file is forced to disk (fsync), then a commit record listing the files to move
//      and to remove ("COMMIT" in the staging folder) is written under another name, forced to
//      disk and renamed into place: from that moment the new database is decided;
//   2. each staged file is renamed over its live namesake (a rename within one file system is
//      atomic: a reader sees the old file or the new one, never a mixture), other-case variants
//      of the name are removed first, then "VISOLD" is removed;
//   3. the commit record goes, then the staging folder.
//
// A run that ends before step 1 (cancel, a write that failed, a crash, kill -9, a power cut)
// leaves the live tables exactly as they were; its staging folder is removed by the next start.
// A run that ends during step 2 or 3 leaves the commit record, and the next start carries out the
// moves still to do (each step can be done twice with the same result). So after any start the
// data folder holds either the whole previous database or the whole new one.
//
// Every operation runs with the data folder's run lock held (platform/FolderLock.h), so that a
// second run never removes the staging folder of the first. Nothing here throws.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace database {

// What Recover found and did.
enum class Recovery {
  Nothing,     // no staging folder: the last run ended cleanly
  RolledBack,  // a run that never committed left its staging folder; removed, live tables kept
  Finished,    // a run that committed was cut short; its replacement was carried out
  Failed,      // leftovers that could not be removed or moved (see the text given back)
};

// The name of the commit record in the staging folder.
inline constexpr const char* kCommitRecord = "COMMIT";

class Replacement {
 public:
  // REQUIRES: `dataFolder` ends with "/".
  explicit Replacement(std::string dataFolder);

  // Finishes or rolls back whatever an earlier run of this data folder left (see the file
  // comment). `what` gets one line for the user when something was done or failed.
  static Recovery Recover(const std::string& dataFolder, std::string* what = nullptr);

  // The staging folder of `dataFolder`: "Temp/tydbcreate-new/" inside it, or
  // ".tydbcreate-new/" directly in it when "Temp" lies on another file system (a rename
  // across file systems is not atomic).
  static std::string StagingFolder(const std::string& dataFolder);

  // Recovers, then makes an empty staging folder. Returns false (with the reason in `why`) when
  // the staging folder cannot be made. Also measures the room on the disk (see below).
  bool Begin(std::string& why);
  bool Begun() const { return begun_; }
  const std::string& Staging() const { return staging_; }

  // The room needed beside the live database: the size of its tables (the best estimate of the
  // new ones'), and the room free on the disk when Begin ran, in bytes.
  uint64_t BytesNeeded() const { return bytesNeeded_; }
  uint64_t BytesFree() const { return bytesFree_; }

  // Steps 1 to 3 for the staged files `names` (file names in the staging folder), removing the
  // live files `remove` (found case-insensitively) as well. Returns false with the reason in
  // `why` when the commit record could not be written: the live tables are then untouched and
  // the staging folder is removed. A failure after the record was written is finished by the
  // next start; true is returned then too, with the reason in `why`.
  bool Commit(const std::vector<std::string>& names, const std::vector<std::string>& remove,
              std::string& why);

  // Throws the staged tables away; the live ones stay as they are.
  void Discard();

 private:
  std::string data_;
  std::string staging_;
  bool begun_ = false;
  uint64_t bytesNeeded_ = 0;
  uint64_t bytesFree_ = 0;
};

// "12.3 MB" (one decimal; "0.1 MB" at least for anything above zero bytes).
std::string Megabytes(uint64_t bytes);

}  // namespace database
