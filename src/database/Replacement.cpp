// Replacing the database whole or not at all: the staging folder, the commit record, the moves,
// and the recovery at the next start.
#include "database/Replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "database/Schema.h"
#include "platform/Files.h"
#include "vb/Strings.h"

namespace fs = std::filesystem;

namespace database {
namespace {

constexpr const char* kStagingInTemp = "Temp/tydbcreate-new/";
constexpr const char* kStagingInData = ".tydbcreate-new/";
constexpr const char* kRecordHeader = "tydbcreate replacement 1";
constexpr const char* kRecordEnd = "end";

// Forces a file's or a folder's contents to disk. False when it cannot be opened or synced.
bool SyncPath(const std::string& path, bool folder) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | (folder ? O_DIRECTORY : 0));
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  ::close(fd);
  return ok;
}

bool IsFolder(const std::string& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

bool IsFile(const std::string& path) {
  std::error_code ec;
  return fs::is_regular_file(path, ec);
}

std::string Reason(const std::error_code& ec) { return ec.message(); }

// Removes every file of `folder` whose name is `name` in another case (the one with exactly
// `name` is left for the rename to replace).
void RemoveOtherCases(const std::string& folder, const std::string& name) {
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string other = it->path().filename().string();
    if (other != name && vb::EqualsNoCase(other, name)) fs::remove(it->path(), ec);
  }
}

// Removes every file of `folder` named `name` in any case.
void RemoveAnyCase(const std::string& folder, const std::string& name) {
  RemoveOtherCases(folder, name);
  std::error_code ec;
  fs::remove(fs::path(folder) / name, ec);
}

struct CommitList {
  std::vector<std::string> moves;
  std::vector<std::string> removes;
};

// Reads a commit record. False when it is not whole (no end line): it was then never renamed
// into place by this program, and is not trusted.
bool ReadRecord(const std::string& path, CommitList& list) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::string line;
  if (!std::getline(in, line) || line != kRecordHeader) return false;
  while (std::getline(in, line)) {
    if (line == kRecordEnd) return true;
    // A name never holds a folder: the record only ever moves files from the staging folder
    // into the data folder itself.
    const auto blank = line.find(' ');
    if (blank == std::string::npos) return false;
    const std::string verb = line.substr(0, blank);
    const std::string name = line.substr(blank + 1);
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
      return false;
    if (verb == "move") {
      list.moves.push_back(name);
    } else if (verb == "remove") {
      list.removes.push_back(name);
    } else {
      return false;
    }
  }
  return false;
}

// Step 2 and 3 of the replacement for the record in `staging`. Each step can be done twice: a
// staged file already moved is simply no longer there.
bool CarryOut(const std::string& data, const std::string& staging, const CommitList& list,
              std::string& why) {
  bool ok = true;
  for (const std::string& name : list.moves) {
    const std::string from = staging + name;
    if (!IsFile(from)) continue;  // moved already
    RemoveOtherCases(data, name);
    std::error_code ec;
    fs::rename(from, fs::path(data) / name, ec);
    if (ec) {
      why = "could not move " + from + " to " + data + name + ": " + Reason(ec);
      ok = false;
    }
  }
  if (!ok) return false;
  for (const std::string& name : list.removes) RemoveAnyCase(data, name);
  SyncPath(data, true);
  std::error_code ec;
  fs::remove(fs::path(staging) / kCommitRecord, ec);
  fs::remove_all(staging, ec);
  if (ec) {
    why = "could not remove " + staging + ": " + Reason(ec);
    return false;
  }
  return true;
}

}  // namespace

std::string Megabytes(uint64_t bytes) {
  const double mb = static_cast<double>(bytes) / (1024.0 * 1024.0);
  char text[64];
  std::snprintf(text, sizeof text, "%.1f MB", bytes > 0 && mb < 0.1 ? 0.1 : mb);
  return text;
}

Replacement::Replacement(std::string dataFolder) : data_(std::move(dataFolder)) {}

std::string Replacement::StagingFolder(const std::string& dataFolder) {
  const std::string temp = dataFolder + "Temp/";
  struct stat a{};
  struct stat b{};
  if (::stat(dataFolder.c_str(), &a) == 0 && ::stat(temp.c_str(), &b) == 0 && a.st_dev != b.st_dev)
    return dataFolder + kStagingInData;
  return dataFolder + kStagingInTemp;
}

Recovery Replacement::Recover(const std::string& dataFolder, std::string* what) {
  Recovery result = Recovery::Nothing;
  for (const char* place : {kStagingInTemp, kStagingInData}) {
    const std::string staging = dataFolder + place;
    if (!IsFolder(staging)) continue;
    CommitList list;
    std::string why;
    if (ReadRecord(staging + kCommitRecord, list)) {
      if (CarryOut(dataFolder, staging, list, why)) {
        result = Recovery::Finished;
        if (what)
          *what = "The replacement of the database in " + dataFolder +
                  " that an earlier run had begun was finished.";
        continue;
      }
    } else {
      std::error_code ec;
      fs::remove_all(staging, ec);
      if (!ec) {
        if (result == Recovery::Nothing) result = Recovery::RolledBack;
        if (what)
          *what = "An earlier run that did not complete left new tables in " + staging +
                  "; they were removed and the database in " + dataFolder + " was kept.";
        continue;
      }
      why = "could not remove " + staging + ": " + Reason(ec);
    }
    if (what) *what = "What an earlier run left in " + staging + " could not be cleared: " + why;
    return Recovery::Failed;
  }
  return result;
}

bool Replacement::Begin(std::string& why) {
  begun_ = false;
  std::string recovered;
  if (Recover(data_, &recovered) == Recovery::Failed) {
    why = recovered;
    return false;
  }
  std::error_code ec;
  fs::create_directory(data_ + "Temp/", ec);  // made by start-up; a test's data folder may lack it
  staging_ = StagingFolder(data_);
  fs::create_directory(staging_, ec);
  if (ec || !IsFolder(staging_)) {
    why = "the folder " + staging_ + " for the new tables could not be made" +
          (ec ? ": " + Reason(ec) : std::string());
    return false;
  }
  // The room needed: about what the current tables take, as they stay until the new ones are
  // complete.
  bytesNeeded_ = 0;
  const std::string_view stems[] = {schema::kVisits, schema::kVisitor, schema::kReferrers,
                                    schema::kExceptions, schema::kPages, schema::kDownloads,
                                    schema::kDaySum};
  for (std::string_view stem : stems) {
    for (const char* ext : {".DBF", ".MDX"}) {
      if (const auto f = platform::FindFileCI(data_, std::string(stem) + ext)) {
        const auto size = fs::file_size(*f, ec);
        if (!ec) bytesNeeded_ += size;
      }
    }
  }
  struct statvfs vfs{};
  bytesFree_ = ::statvfs(staging_.c_str(), &vfs) == 0
                   ? static_cast<uint64_t>(vfs.f_bavail) * static_cast<uint64_t>(vfs.f_frsize)
                   : UINT64_MAX;
  begun_ = true;
  return true;
}

bool Replacement::Commit(const std::vector<std::string>& names,
                         const std::vector<std::string>& remove, std::string& why) {
  if (!begun_) {
    why = "no new tables were built";
    return false;
  }
  // 1. The new tables on disk, then the record that decides.
  for (const std::string& name : names) {
    if (!SyncPath(staging_ + name, false)) {
      why = staging_ + name + " could not be written to disk: " + std::strerror(errno);
      Discard();
      return false;
    }
  }
  SyncPath(staging_, true);
  std::string record = std::string(kRecordHeader) + "\n";
  for (const std::string& name : names) record += "move " + name + "\n";
  for (const std::string& name : remove) record += "remove " + name + "\n";
  record += std::string(kRecordEnd) + "\n";
  const std::string pending = staging_ + kCommitRecord + ".new";
  bool written = false;
  {
    const int fd = ::open(pending.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) {
      written = ::write(fd, record.data(), record.size()) == static_cast<ssize_t>(record.size()) &&
                ::fsync(fd) == 0;
      if (!written) why = "the commit record " + pending + " could not be written: " + std::strerror(errno);
      ::close(fd);
    } else {
      why = "the commit record " + pending + " could not be made: " + std::strerror(errno);
    }
  }
  if (written && ::rename(pending.c_str(), (staging_ + kCommitRecord).c_str()) != 0) {
    why = "the commit record could not be put in place: " + std::string(std::strerror(errno));
    written = false;
  }
  if (!written) {
    Discard();
    return false;
  }
  SyncPath(staging_, true);
  // 2. and 3.
  CommitList list{names, remove};
  begun_ = false;
  if (!CarryOut(data_, staging_, list, why)) {
    why += " (the next start finishes the replacement)";
  }
  return true;
}

void Replacement::Discard() {
  if (staging_.empty()) return;
  std::error_code ec;
  // Only a staging folder without a commit record may go: with one, the new database is decided.
  if (!IsFile(staging_ + kCommitRecord)) fs::remove_all(staging_, ec);
  begun_ = false;
}

}  // namespace database
