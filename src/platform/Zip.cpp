// Zip extraction on libzip, confined to one destination folder.
#include "platform/Zip.h"
#include "vb/Strings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <vector>

namespace platform {
namespace {

constexpr size_t kChunk = size_t{256} << 10;

// The file name a member is written under, or "" when the member must not be written (the reason
// then goes to `why`). Folder entries give "" with an empty reason: they are passed over quietly.
std::string TargetName(std::string_view member, std::string& why) {
  why.clear();
  std::string name(member);
  for (char& c : name) {
    if (c == '\\') c = '/';
  }
  if (name.empty()) {
    why = "empty member name";
    return {};
  }
  if (name.find('\0') != std::string::npos) {
    why = "member name holds a NUL character";
    return {};
  }
  if (name.front() == '/' || (name.size() >= 2 && name[1] == ':')) {
    why = "absolute member name";
    return {};
  }
  size_t start = 0;
  for (;;) {
    size_t slash = name.find('/', start);
    std::string_view part = std::string_view(name).substr(
        start, slash == std::string::npos ? std::string::npos : slash - start);
    if (part == "..") {
      why = "member name leads out of the folder";
      return {};
    }
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  if (name.back() == '/') return {};  // a folder entry
  std::string base = name.substr(name.rfind('/') + 1);
  if (base == "." || base.empty()) {
    why = "member has no file name";
    return {};
  }
  return base;
}

bool IsSymlinkMember(zip_t* z, zip_uint64_t index) {
  zip_uint8_t opsys = 0;
  zip_uint32_t attributes = 0;
  if (zip_file_get_external_attributes(z, index, 0, &opsys, &attributes) != 0) return false;
  if (opsys != ZIP_OPSYS_UNIX) return false;
  return ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

uint64_t FreeBytes(const std::string& folder) {
  struct statvfs v {};
  if (::statvfs(folder.c_str(), &v) != 0) return UINT64_MAX;
  return static_cast<uint64_t>(v.f_bavail) * v.f_frsize;
}

// Every name in the folder, upper-cased, whatever kind of entry it is (file, folder, link).
std::set<std::string> TakenNames(const std::string& folder) {
  std::set<std::string> names;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
       it.increment(ec)) {
    names.insert(vb::UCase(it->path().filename().string()));
  }
  return names;
}

// Moves the finished temporary file to its name, never replacing anything already there.
bool MoveIntoPlace(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return false;
  // A file system without the no-replace rename: check, then rename.
  struct stat st {};
  if (::lstat(to.c_str(), &st) == 0) {
    errno = EEXIST;
    return false;
  }
  return ::rename(from.c_str(), to.c_str()) == 0;
}

std::string ZipErrorText(zip_error_t* e) { return zip_error_strerror(e); }

}  // namespace

bool IsUnpackingTempName(std::string_view name) {
  constexpr std::string_view kStart = ".tyunzip-", kEnd = ".tmp";
  return name.size() > kStart.size() + kEnd.size() &&
         vb::EqualsNoCase(name.substr(0, kStart.size()), kStart) &&
         vb::EqualsNoCase(name.substr(name.size() - kEnd.size()), kEnd);
}

ZipArchive::~ZipArchive() { Close(); }

void ZipArchive::Close() {
  if (zip_) zip_discard(zip_);
  zip_ = nullptr;
}

int ZipArchive::Open(const std::string& path) {
  Close();
  error_.clear();
  int code = 0;
  zip_ = zip_open(path.c_str(), ZIP_RDONLY, &code);
  if (!zip_) {
    zip_error_t e;
    zip_error_init_with_code(&e, code);
    error_ = ZipErrorText(&e);
    zip_error_fini(&e);
    return kNotOpen;
  }
  return kOk;
}

int64_t ZipArchive::Count() const {
  if (!zip_) return 0;
  zip_int64_t n = zip_get_num_entries(zip_, 0);
  return n < 0 ? 0 : n;
}

int ZipArchive::ExtractAll(const std::string& folderIn, const Events& events,
                           const Limits& limits) {
  abort_ = false;
  error_.clear();
  if (!zip_) {
    error_ = "no archive open";
    return kNotOpen;
  }
  const std::string folder =
      folderIn.empty() || folderIn.back() == '/' ? folderIn : folderIn + "/";
  auto skipped = [&](std::string_view member, std::string_view why) {
    if (events.onSkipped) events.onSkipped(member, why);
  };

  const zip_int64_t count = zip_get_num_entries(zip_, 0);
  // The whole job, for the percentage.
  uint64_t declaredTotal = 0;
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t st;
    if (zip_stat_index(zip_, static_cast<zip_uint64_t>(i), 0, &st) == 0 &&
        (st.valid & ZIP_STAT_SIZE)) {
      declaredTotal += st.size;
    }
  }
  const uint64_t free = FreeBytes(folder);
  const uint64_t room = free > limits.freeSpaceMargin ? free - limits.freeSpaceMargin : 0;
  const uint64_t budget = std::min(limits.maxTotalBytes, room);

  std::set<std::string> taken = TakenNames(folder);
  std::vector<char> chunk(kChunk);
  uint64_t written = 0;
  int lastPercent = -1;
  auto progress = [&] {
    int percent = declaredTotal == 0
                      ? 100
                      : static_cast<int>(std::min<uint64_t>(100, written * 100 / declaredTotal));
    if (percent != lastPercent && events.onProgress) events.onProgress(percent);
    lastPercent = percent;
  };
  progress();

  for (zip_int64_t i = 0; i < count && !abort_; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t st;
    if (zip_stat_index(zip_, index, 0, &st) != 0 || !(st.valid & ZIP_STAT_NAME)) {
      error_ = "member " + std::to_string(i) + ": " + zip_strerror(zip_);
      return kCorrupt;
    }
    const std::string member = st.name;
    std::string why;
    const std::string name = TargetName(member, why);
    if (name.empty()) {
      if (!why.empty()) skipped(member, why);
      continue;
    }
    if (IsSymlinkMember(zip_, index)) {
      skipped(member, "symbolic link member");
      continue;
    }
    if (IsUnpackingTempName(name)) {
      skipped(member, "name kept for the unpacking's temporary files");
      continue;
    }
    const std::string key = vb::UCase(name);
    if (taken.count(key)) {
      skipped(member, "a file of that name is already in the folder");
      continue;
    }
    const uint64_t size = (st.valid & ZIP_STAT_SIZE) ? st.size : 0;
    const uint64_t packed = (st.valid & ZIP_STAT_COMP_SIZE) ? st.comp_size : 0;
    if (size >= limits.ratioCheckFrom &&
        (packed == 0 || static_cast<double>(size) / static_cast<double>(packed) > limits.maxRatio)) {
      error_ = member + ": compression ratio beyond any real log";
      skipped(member, "compression ratio beyond any real log");
      return kLimit;
    }
    if (written + size > budget) {
      error_ = member + ": archive larger than the space allowed for it";
      skipped(member, "archive larger than the space allowed for it");
      return kLimit;
    }

    const std::string target = folder + name;
    taken.insert(key);
    if (events.onFile) events.onFile(target);
    if (abort_) break;

    const std::string temp = folder + ".tyunzip-" + std::to_string(::getpid()) + "-" +
                             std::to_string(i) + ".tmp";
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
      error_ = target + ": " + std::strerror(errno);
      return kWriteFailed;
    }
    zip_file_t* in = zip_fopen_index(zip_, index, 0);
    int result = kOk;
    if (!in) {
      const int code = zip_error_code_zip(zip_get_error(zip_));
      if (code == ZIP_ER_NOPASSWD || code == ZIP_ER_ENCRNOTSUPP || code == ZIP_ER_COMPNOTSUPP) {
        // Readable archive, unreadable member: leave it out and go on.
        ::close(fd);
        ::unlink(temp.c_str());
        skipped(member, zip_strerror(zip_));
        zip_error_clear(zip_);
        continue;
      }
      error_ = member + ": " + zip_strerror(zip_);
      result = kCorrupt;
    }
    uint64_t memberBytes = 0;
    while (result == kOk) {
      if (abort_) {
        result = kAborted;
        break;
      }
      zip_int64_t n = zip_fread(in, chunk.data(), chunk.size());
      if (n < 0) {
        error_ = member + ": " + zip_file_strerror(in);
        result = kCorrupt;
        break;
      }
      if (n == 0) break;
      memberBytes += static_cast<uint64_t>(n);
      if (memberBytes > size) {
        error_ = member + ": more data than its declared size";
        result = kCorrupt;
        break;
      }
      for (zip_int64_t off = 0; off < n;) {
        ssize_t w = ::write(fd, chunk.data() + off, static_cast<size_t>(n - off));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
          error_ = target + ": " + std::strerror(errno);
          result = kWriteFailed;
          break;
        }
        off += w;
      }
      written += static_cast<uint64_t>(n);
      progress();
    }
    if (in && zip_fclose(in) != 0 && result == kOk) {
      error_ = member + ": damaged data";
      result = kCorrupt;
    }
    if (result == kOk && memberBytes != size) {
      error_ = member + ": shorter than its declared size";
      result = kCorrupt;
    }
    // The file keeps the modification time stored in the archive, as unzip tools do: the scan
    // takes a log's date from it when the log has no date lines of its own, so a log unpacked
    // today must not look like today's.
    if (result == kOk && (st.valid & ZIP_STAT_MTIME)) {
      const timespec times[2] = {{st.mtime, 0}, {st.mtime, 0}};
      ::futimens(fd, times);
    }
    if (::close(fd) != 0 && result == kOk) {
      error_ = target + ": " + std::strerror(errno);
      result = kWriteFailed;
    }
    if (result == kOk && !MoveIntoPlace(temp, target)) {
      error_ = target + ": " + std::strerror(errno);
      result = kWriteFailed;
    }
    if (result != kOk) {
      ::unlink(temp.c_str());
      return result;
    }
  }
  if (abort_) {
    if (error_.empty()) error_ = "aborted";
    return kAborted;
  }
  written = declaredTotal;
  progress();
  return kOk;
}

}  // namespace platform
