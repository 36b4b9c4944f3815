// Writing a production .MDX in one go: every tag's B-tree is built bottom up from its entries
// in index order, leaves filled evenly (as full as the count allows), then each level of
// branches over the one below, until one root is left. The file is written sequentially to a
// temporary file and renamed over the old one, so a reader sees the old or the new index,
// never half of one. Layout: header and tag table (pages 0-3), the tag headers, then each
// tag's nodes, leaves first and the root last.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "dbase/Today.h"

namespace dbase {

// One tag to write: its description and its entries in index order.
struct MdxTagSource {
  std::string name;        // upper case, at most 10 characters
  std::string expression;  // as stored
  int keyLength = 0;
  bool unique = false;
  bool descending = false;
  size_t count = 0;  // entries that `next` will deliver
  // Delivers the next entry: writes keyLength key bytes to key and the record number; false
  // when it cannot (its source could not be read: the file is then not written). Called
  // exactly `count` times, tag after tag.
  std::function<bool(char* key, uint32_t& recno)> next;
};

// Told, on the thread that writes, how many entries went into the file since it was last told:
// after every kMdxProgressEntries entries of a tag and after each tag's last entry, so a few
// times a second at most on a large table. It should only count (a close adds these up for its
// progress display).
using MdxProgress = std::function<void(uint64_t entries)>;
constexpr uint64_t kMdxProgressEntries = 65536;

// Writes the .MDX of the table `dataName` (file stem, written upper-cased) at `path`, its header
// dated `date`; `progress`, when given, follows the entries as they are written.
// REQUIRES: 1..47 tags with distinct names, key lengths 1..100. Returns kOk, kIoError or
// kCannotCreate (the old file, if any, is then unchanged).
int WriteMdx(const std::string& path, const std::string& dataName,
             std::vector<MdxTagSource>& tags, const HeaderDate& date,
             const MdxProgress& progress = nullptr);

// The size in bytes of the .MDX that WriteMdx writes for tags of key lengths keyLengths[i]
// holding counts[i] entries: the header pages, a block per tag header and a block per node of
// each tag's tree. It grows with every count. REQUIRES: both vectors of the same size, key
// lengths 1..100.
uint64_t MdxFileBytes(const std::vector<int>& keyLengths, const std::vector<uint64_t>& counts);

}  // namespace dbase
