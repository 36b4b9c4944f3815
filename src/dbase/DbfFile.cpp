// Reading and writing the .DBF data file.
#include "dbase/DbfFile.h"
#include "dbase/LittleEndian.h"
#include "dbase/Today.h"
#include "vb/Strings.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>


namespace dbase {

namespace {

// The write buffer. When it is full the older half goes to the file and the newer half stays:
// records that are read back and replaced soon after their append (a visit's record when the
// visit ends, a visitor's when the visitor returns) are then mostly still in memory, where a
// replace costs a copy instead of a write fault on the file's mapping. 16 MB holds a busy day's
// visits.
constexpr size_t kBufferBytes = 16 << 20;
// The buffer starts this large: a small table never needs more, and the full buffer's memory
// is taken only by a table that fills this.
constexpr size_t kFirstBufferBytes = 256 << 10;

bool PreadAll(int fd, void* buf, size_t n, uint64_t off) {
  char* p = static_cast<char*>(buf);
  while (n > 0) {
    ssize_t r = ::pread(fd, p, n, off_t(off));
    if (r <= 0) return false;
    p += r;
    n -= size_t(r);
    off += uint64_t(r);
  }
  return true;
}

// Records reach the file in writes of at most this size. The file's pages in the system's cache
// are then held in blocks no larger, and a record read or replaced through the mapping brings
// only its own block into the process, not megabytes of the file around it.
constexpr size_t kWriteBytes = size_t(64) << 10;

bool PwriteAll(int fd, const void* buf, size_t n, uint64_t off) {
  const char* p = static_cast<const char*>(buf);
  while (n > 0) {
    ssize_t r = ::pwrite(fd, p, std::min(n, kWriteBytes), off_t(off));
    if (r <= 0) return false;
    p += r;
    n -= size_t(r);
    off += uint64_t(r);
  }
  return true;
}

}  // namespace

int ParseDbfHeader(const unsigned char* d, size_t size, DbfHeader& out, std::string* why) {
  auto fail = [&](const std::string& w) {
    if (why) *why = w;
    return int(kCorruptDbf);
  };
  if (size < size_t(dbf::kHeaderSize + 1)) return fail("file too short for a table header");
  DbfHeader h;
  h.version = d[dbf::kVersionOffset];
  if ((h.version & 0x07) != 3) return fail("not a dBASE table (version byte " +
                                           std::to_string(h.version) + ")");
  h.year = 1900 + d[1];
  h.month = d[2];
  h.day = d[3];
  h.recordCount = GetU32(d + dbf::kRecordCountOffset);
  h.headerLength = GetU16(d + dbf::kHeaderLengthOffset);
  h.recordLength = GetU16(d + dbf::kRecordLengthOffset);
  h.productionMdx = d[dbf::kMdxFlagOffset] != 0;
  h.languageDriver = d[dbf::kLanguageDriverOffset];
  if (h.headerLength < dbf::kHeaderSize + dbf::kDescriptorSize + 1)
    return fail("header length " + std::to_string(h.headerLength) + " too small");
  if (size_t(h.headerLength) > size) return fail("file shorter than its header");
  int offset = 1;
  size_t pos = dbf::kHeaderSize;
  while (pos < size_t(h.headerLength) && d[pos] != dbf::kTerminator) {
    if (pos + dbf::kDescriptorSize > size_t(h.headerLength))
      return fail("field descriptors run past the header length");
    const unsigned char* f = d + pos;
    FieldInfo fi;
    size_t len = 0;
    while (len < size_t(dbf::kFieldNameSize) && f[len] != 0) ++len;
    fi.name = vb::UCase(std::string_view(reinterpret_cast<const char*>(f), len));
    fi.type = char(f[dbf::kFieldTypeOffset]);
    fi.width = f[dbf::kFieldWidthOffset];
    fi.decimals = f[dbf::kFieldDecimalsOffset];
    fi.offset = offset;
    if (fi.name.empty() || fi.width == 0)
      return fail("field " + std::to_string(h.fields.size() + 1) + " has no name or no width");
    if (fi.type == 'D' && fi.width != 8) return fail("date field " + fi.name + " not 8 wide");
    offset += fi.width;
    h.fields.push_back(fi);
    pos += dbf::kDescriptorSize;
  }
  if (h.fields.empty()) return fail("no fields");
  if (pos >= size_t(h.headerLength)) return fail("field descriptors not terminated by 0x0D");
  if (offset != h.recordLength)
    return fail("record length " + std::to_string(h.recordLength) + " but fields add up to " +
                std::to_string(offset));
  out = std::move(h);
  return kOk;
}

std::string BuildDbfHeader(const HeaderDate& date, const std::vector<FieldInfo>& fields,
                           uint32_t recordCount,
                           bool productionMdx, const std::vector<bool>& fieldMdxFlags) {
  size_t headerLength = dbf::kHeaderSize + dbf::kDescriptorSize * fields.size() + 1;
  std::string out(headerLength, '\0');
  auto* d = reinterpret_cast<unsigned char*>(out.data());
  int y, m, day;
  date.Resolve(y, m, day);
  d[dbf::kVersionOffset] = dbf::kVersion;
  d[1] = uint8_t(y - 1900);
  d[2] = uint8_t(m);
  d[3] = uint8_t(day);
  PutU32(d + dbf::kRecordCountOffset, recordCount);
  PutU16(d + dbf::kHeaderLengthOffset, uint32_t(headerLength));
  int recordLength = 1;
  for (const FieldInfo& f : fields) recordLength += f.width;
  PutU16(d + dbf::kRecordLengthOffset, uint32_t(recordLength));
  d[dbf::kMdxFlagOffset] = productionMdx ? 1 : 0;
  d[dbf::kLanguageDriverOffset] = dbf::kLanguageDriverAnsi;
  for (size_t i = 0; i < fields.size(); ++i) {
    unsigned char* f = d + dbf::kHeaderSize + dbf::kDescriptorSize * i;
    std::memcpy(f, fields[i].name.data(), std::min<size_t>(fields[i].name.size(), 10));
    f[dbf::kFieldTypeOffset] = uint8_t(fields[i].type);
    f[dbf::kFieldWidthOffset] = uint8_t(fields[i].width);
    f[dbf::kFieldDecimalsOffset] = uint8_t(fields[i].decimals);
    f[dbf::kFieldMdxFlagOffset] = (i < fieldMdxFlags.size() && fieldMdxFlags[i]) ? 1 : 0;
  }
  d[headerLength - 1] = dbf::kTerminator;
  return out;
}

DbfFile::~DbfFile() { Close(); }

void DbfFile::Close() {
  if (map_) ::munmap(map_, mapLen_);
  map_ = nullptr;
  mapLen_ = 0;
  if (fd_ >= 0 && writeFailed_ && !readOnly_) {
    // Back to what the header on disk says (the mapping is gone, so nothing reads past the cut).
    const unsigned char eof = dbf::kEofMark;
    const uint64_t end = Offset(header_.recordCount + 1);
    if (PwriteAll(fd_, &eof, 1, end)) {
      [[maybe_unused]] const int cut = ::ftruncate(fd_, off_t(end + 1));
    }
  }
  writeFailed_ = false;
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  buffer_.Release();
  count_ = onDisk_ = 0;
}

int DbfFile::Open(const std::string& path, bool readOnly, std::string* why, std::string* notice) {
  Close();
  int fd = ::open(path.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  if (fd < 0) {
    if (why) *why = "cannot open " + path + ": " + std::strerror(errno);
    return errno == ENOENT ? kFileMissing : kIoError;
  }
  struct stat st{};
  if (::fstat(fd, &st) != 0) {
    ::close(fd);
    return kIoError;
  }
  uint64_t size = uint64_t(st.st_size);
  // The header length is at most 65535 bytes; read what is there of it.
  std::vector<unsigned char> head(size_t(std::min<uint64_t>(size, 65536)));
  if (!head.empty() && !PreadAll(fd, head.data(), head.size(), 0)) {
    ::close(fd);
    return kIoError;
  }
  DbfHeader h;
  int s = ParseDbfHeader(head.data(), head.size(), h, why);
  if (s != kOk) {
    ::close(fd);
    return s;
  }
  uint64_t dataBytes = size - uint64_t(h.headerLength);
  uint64_t whole = dataBytes / uint64_t(h.recordLength);
  uint32_t count = h.recordCount;
  if (whole < h.recordCount) {
    std::string w = "the header counts " + std::to_string(h.recordCount) +
                    " records but the file holds " + std::to_string(whole);
    if (!readOnly) {
      if (why) *why = w;
      ::close(fd);
      return kCorruptDbf;
    }
    if (notice) *notice = w + "; using " + std::to_string(whole);
    count = uint32_t(whole);
  }
  fd_ = fd;
  readOnly_ = readOnly;
  path_ = path;
  header_ = std::move(h);
  count_ = onDisk_ = count;
  headerDirty_ = false;
  Remap();
  return kOk;
}

// Keeps the mapping over every record on disk. The mapping may reach past the end of the
// file (it is made larger than needed so that it is rarely renewed); only bytes of records
// on disk are ever read through it.
void DbfFile::Remap() {
  size_t need = size_t(Offset(onDisk_ + 1));
  if (map_ && need <= mapLen_) return;
  if (map_) ::munmap(map_, mapLen_);
  map_ = nullptr;
  mapLen_ = 0;
  size_t len = std::max<size_t>(need * 2, size_t(16) << 20);
  len = (len + 65535) & ~size_t(65535);
  // Writable for a table open for writing: a record on disk is then replaced by a copy into the
  // mapping instead of a system call (the shared mapping is the file's own page cache, so reads
  // of every kind see the change at once).
  const int prot = readOnly_ ? PROT_READ : PROT_READ | PROT_WRITE;
  void* p = ::mmap(nullptr, len, prot, MAP_SHARED, fd_, 0);
  if (p == MAP_FAILED) return;  // reads fall back to pread
  map_ = static_cast<char*>(p);
  mapLen_ = len;
}

int DbfFile::FlushBuffer(uint32_t keep) {
  const uint32_t inBuffer = count_ - onDisk_;
  keep = std::min(keep, inBuffer);
  const size_t rl = size_t(header_.recordLength);
  const size_t out = size_t(inBuffer - keep) * rl;
  if (out == 0) return kOk;
  if (!PwriteAll(fd_, buffer_.Data(), out, Offset(onDisk_ + 1))) {
    writeFailed_ = true;
    return kIoError;
  }
  onDisk_ += inBuffer - keep;
  std::memmove(buffer_.Data(), buffer_.Data() + out, size_t(keep) * rl);
  Remap();
  return kOk;
}

int DbfFile::Append(const char* record) {
  if (fd_ < 0) return kNotOpen;
  if (readOnly_) return kReadOnly;
  if (count_ == 0xFFFFFFFEu ||
      Offset(count_ + 1) + uint64_t(header_.recordLength) > (uint64_t(1) << 40))
    return kTooLarge;
  size_t rl = size_t(header_.recordLength);
  const size_t used = BufferedBytes();
  if (used + rl > buffer_.Capacity()) {
    const size_t full = std::max(kBufferBytes, rl);
    if (buffer_.Capacity() < full) {
      buffer_.Grow(used == 0 ? std::max(kFirstBufferBytes, rl) : full, used);
    } else {
      int s = FlushBuffer(uint32_t(full / 2 / rl));
      if (s != kOk) return s;
    }
  }
  std::memcpy(buffer_.Data() + BufferedBytes(), record, rl);
  ++count_;
  headerDirty_ = true;
  return kOk;
}

int DbfFile::Read(uint32_t recno, char* out) const { return ReadRange(recno, 1, out); }

void DbfFile::Prefetch(uint32_t recno) const {
  if (fd_ < 0 || recno < 1 || recno > count_) return;
  const size_t rl = size_t(header_.recordLength);
  const char* p = nullptr;
  if (recno > onDisk_)
    p = buffer_.Data() + size_t(recno - onDisk_ - 1) * rl;
  else if (map_ && Offset(recno + 1) <= mapLen_)
    p = map_ + Offset(recno);
  if (!p) return;
  for (size_t at = 0; at < rl; at += 64) __builtin_prefetch(p + at);
  __builtin_prefetch(p + rl - 1);
}

int DbfFile::ReadRange(uint32_t first, uint32_t n, char* out) const {
  if (fd_ < 0) return kNotOpen;
  if (first < 1 || n == 0 || uint64_t(first) + n - 1 > count_) return kEof;
  size_t rl = size_t(header_.recordLength);
  uint32_t last = first + n - 1;
  // Part on disk.
  if (first <= onDisk_) {
    uint32_t upto = std::min(last, onDisk_);
    size_t bytes = size_t(upto - first + 1) * rl;
    if (map_ && upto - first < 16 && Offset(upto + 1) <= mapLen_)
      std::memcpy(out, map_ + Offset(first), bytes);
    else if (!PreadAll(fd_, out, bytes, Offset(first)))
      return kIoError;
    out += size_t(upto - first + 1) * rl;
    first = upto + 1;
  }
  // Part still in the write buffer.
  if (first <= last)
    std::memcpy(out, buffer_.Data() + size_t(first - onDisk_ - 1) * rl, size_t(last - first + 1) * rl);
  return kOk;
}

int DbfFile::Write(uint32_t recno, const char* record) {
  if (fd_ < 0) return kNotOpen;
  if (readOnly_) return kReadOnly;
  if (recno < 1 || recno > count_) return kEof;
  size_t rl = size_t(header_.recordLength);
  headerDirty_ = true;  // the update date
  if (recno > onDisk_) {
    std::memcpy(buffer_.Data() + size_t(recno - onDisk_ - 1) * rl, record, rl);
    return kOk;
  }
  // Records on disk lie inside the file, so the mapping covers them wherever it reaches.
  if (map_ && Offset(recno + 1) <= mapLen_) {
    std::memcpy(map_ + Offset(recno), record, rl);
    return kOk;
  }
  return PwriteAll(fd_, record, rl, Offset(recno)) ? int(kOk) : int(kIoError);
}

int DbfFile::Flush(bool productionMdx, const std::vector<bool>& fieldMdxFlags) {
  if (fd_ < 0) return kNotOpen;
  // An unchanged table is left exactly as it is (its update date included).
  if (readOnly_ || (!headerDirty_ && productionMdx == header_.productionMdx)) return kOk;
  int s = FlushBuffer();
  if (s != kOk) return s;
  unsigned char eof = dbf::kEofMark;
  uint64_t end = Offset(count_ + 1);
  writeFailed_ = true;  // until the header is written
  if (!PwriteAll(fd_, &eof, 1, end)) return kIoError;
  // Anything after the end-of-file byte (a longer file from before) goes.
  struct stat st{};
  if (::fstat(fd_, &st) == 0 && uint64_t(st.st_size) > end + 1 && ::ftruncate(fd_, off_t(end + 1)) != 0)
    return kIoError;
  std::string head =
      BuildDbfHeader(headerDate_, header_.fields, count_, productionMdx, fieldMdxFlags);
  // Keep a foreign header's own length and language driver: rewrite only the fixed 32 bytes
  // and the descriptors' index flags when the layout is not ours.
  if (int(head.size()) == header_.headerLength) {
    head[dbf::kLanguageDriverOffset] = char(header_.languageDriver);
    head[dbf::kVersionOffset] = char(header_.version);
    if (!PwriteAll(fd_, head.data(), head.size(), 0)) return kIoError;
  } else {
    head[dbf::kLanguageDriverOffset] = char(header_.languageDriver);
    head[dbf::kVersionOffset] = char(header_.version);
    if (!PwriteAll(fd_, head.data(), dbf::kHeaderSize, 0)) return kIoError;
  }
  header_.recordCount = count_;
  header_.productionMdx = productionMdx;
  headerDirty_ = false;
  writeFailed_ = false;
  return kOk;
}

}  // namespace dbase
