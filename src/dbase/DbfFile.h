// The .DBF data file: header, field descriptors and fixed-length records.
//
// File header (32 bytes at offset 0):
//   OFFSET | SIZE | DESCRIPTION
//   0      | 1    | version: 0x03 (a table without memo file)
//   1      | 3    | date of last update: year - 1900, month, day
//   4      | 4    | uint32 number of records, deleted ones included
//   8      | 2    | uint16 header length = 32 + 32 x fields + 1
//   10     | 2    | uint16 record length = 1 + sum of field widths
//   12     | 2    | reserved, 0
//   14     | 1    | incomplete-transaction flag, 0
//   15     | 1    | encryption flag, 0
//   16     | 12   | reserved for multi-user use, 0
//   28     | 1    | production index flag: 1 = <table>.MDX belongs to the table
//   29     | 1    | language driver (code page of the text)
//   30     | 2    | reserved, 0
//
// Field descriptor (32 bytes each, from offset 32; the byte after the last one is 0x0D):
//   OFFSET | SIZE | DESCRIPTION
//   0      | 11   | field name, upper case, NUL-filled
//   11     | 1    | type letter 'C', 'N', 'D'
//   12     | 4    | reserved, 0
//   16     | 1    | width in bytes
//   17     | 1    | decimal places ('N')
//   18     | 2    | reserved, 0
//   20     | 1    | work-area id, 0
//   21     | 2    | reserved, 0
//   23     | 1    | SET FIELDS flag, 0
//   24     | 7    | reserved, 0
//   31     | 1    | production index field flag: 1 when a tag's key is this field alone
//
// Records start at the header length; record n (1-based) at header + (n - 1) x record length.
// Each is a flag byte (' ' active, '*' deleted) and the fields in order, no separators: C
// blank-padded text, N right-aligned digits, D "yyyymmdd" or eight blanks. One 0x1A byte
// follows the last record.
//
// Appends go through a write buffer and reach the file in large writes; the header (record
// count, date) and the end-of-file byte are written by Flush. Single records are read through
// a mapping of the file (no system call per record); large runs with pread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dbase/PageMemory.h"
#include "dbase/Status.h"
#include "dbase/TableInfo.h"
#include "dbase/Today.h"

namespace dbase {

namespace dbf {
constexpr int kHeaderSize = 32;
constexpr int kDescriptorSize = 32;
constexpr int kVersionOffset = 0;
constexpr int kUpdateDateOffset = 1;
constexpr int kRecordCountOffset = 4;
constexpr int kHeaderLengthOffset = 8;
constexpr int kRecordLengthOffset = 10;
constexpr int kMdxFlagOffset = 28;
constexpr int kLanguageDriverOffset = 29;
constexpr int kFieldNameSize = 11;
constexpr int kFieldTypeOffset = 11;
constexpr int kFieldWidthOffset = 16;
constexpr int kFieldDecimalsOffset = 17;
constexpr int kFieldMdxFlagOffset = 31;
constexpr unsigned char kVersion = 0x03;
// Windows ANSI (code page 1252): the product's text is Windows text.
constexpr unsigned char kLanguageDriverAnsi = 0x03;
constexpr unsigned char kTerminator = 0x0D;
constexpr unsigned char kEofMark = 0x1A;
constexpr char kActive = ' ';
constexpr char kDeletedFlag = '*';
constexpr int kMaxFields = 255;
}  // namespace dbf

// The header facts of a .DBF.
struct DbfHeader {
  int version = dbf::kVersion;
  int year = 0, month = 0, day = 0;  // full year
  uint32_t recordCount = 0;
  int headerLength = 0;
  int recordLength = 0;
  bool productionMdx = false;
  int languageDriver = 0;
  std::vector<FieldInfo> fields;  // with offsets (flag byte at 0)
};

// Parses a .DBF header and its field descriptors from the first bytes of a file.
// Returns kOk or kCorruptDbf with the reason in *why.
int ParseDbfHeader(const unsigned char* data, size_t size, DbfHeader& out, std::string* why);

// The header bytes (header length bytes, terminator included) of a table, dated `date`.
// REQUIRES: fields with widths set; offsets are not read.
std::string BuildDbfHeader(const HeaderDate& date, const std::vector<FieldInfo>& fields,
                           uint32_t recordCount,
                           bool productionMdx, const std::vector<bool>& fieldMdxFlags);

class DbfFile {
 public:
  DbfFile() = default;
  ~DbfFile();  // closes without flushing (call Flush first)
  DbfFile(const DbfFile&) = delete;
  DbfFile& operator=(const DbfFile&) = delete;

  // Opens an existing table. readOnly: no write of any kind. A record count that disagrees
  // with the file size is refused (kCorruptDbf) read-write; read-only, the whole records
  // that are there are used and *notice says so. Returns kOk, kFileMissing, kIoError,
  // kCorruptDbf (reason in *why).
  int Open(const std::string& path, bool readOnly, std::string* why, std::string* notice);
  bool IsOpen() const { return fd_ >= 0; }
  // Closes without flushing. After a failed write of records or of the header (a full disk),
  // the file is first cut back to the records its header on disk counts, with its end-of-file
  // mark: the records that did not all fit are lost either way, and the table stays whole and
  // agrees with the index last written for it.
  void Close();

  const DbfHeader& Header() const { return header_; }
  const std::vector<FieldInfo>& Fields() const { return header_.fields; }
  int RecordLength() const { return header_.recordLength; }
  uint32_t RecordCount() const { return count_; }
  const std::string& Path() const { return path_; }

  // Appends one record (RecordLength bytes). Returns kOk, kIoError, kTooLarge.
  int Append(const char* record);
  // Reads record recno (1-based) into out. Returns kOk, kEof (out of range), kIoError.
  int Read(uint32_t recno, char* out) const;
  // Asks the processor to fetch record recno into its cache when it is in the write buffer or
  // the mapping; does nothing otherwise.
  void Prefetch(uint32_t recno) const;
  // Reads n records from first on into out (n x RecordLength bytes). Same statuses.
  int ReadRange(uint32_t first, uint32_t n, char* out) const;
  // Overwrites record recno. Returns kOk, kEof, kIoError.
  int Write(uint32_t recno, const char* record);
  // Writes buffered records, the end-of-file byte and the header (count, today's date,
  // production index flag). Does nothing when no record changed and the flag is as it was.
  // Returns kOk or kIoError.
  int Flush(bool productionMdx, const std::vector<bool>& fieldMdxFlags);
  // The last-update date that Flush writes (default: today).
  void SetHeaderDate(const HeaderDate& date) { headerDate_ = date; }

 private:
  // Writes the buffered records to the file except the newest `keep` ones.
  int FlushBuffer(uint32_t keep = 0);
  void Remap();
  uint64_t Offset(uint32_t recno) const {
    return uint64_t(header_.headerLength) + uint64_t(recno - 1) * uint64_t(header_.recordLength);
  }

  int fd_ = -1;
  bool readOnly_ = false;
  std::string path_;
  DbfHeader header_;
  uint32_t count_ = 0;      // records in the table (file + buffer)
  HeaderDate headerDate_;   // the last-update date written by Flush
  uint32_t onDisk_ = 0;     // records written to the file
  // Records onDisk_+1 .. count_, from the start of the buffer.
  PageBuffer buffer_;
  size_t BufferedBytes() const { return size_t(count_ - onDisk_) * size_t(header_.recordLength); }
  bool headerDirty_ = false;
  bool writeFailed_ = false;  // a write of records or of the header failed since the open
  // Shared mapping of the file's first mapLen_ bytes (writable unless the table is read-only),
  // or null. Only bytes of records on disk are read or written through it.
  char* map_ = nullptr;
  size_t mapLen_ = 0;
};

}  // namespace dbase
