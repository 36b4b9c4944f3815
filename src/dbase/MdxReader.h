// Reading a production .MDX: the file header, the tag table with its tag headers, and each
// tag's B-tree walked from the root, in index order, with every structural fault named
// (page out of range, block used twice, too many keys, uneven depth, a separator that is not
// the last key of its child, keys out of order, a record number outside the table). The
// table control uses it to load its tags; the checker uses it to find every defect.
// The layout is described in MdxFormat.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dbase {

// One tag as its table slot and tag header describe it.
struct MdxTagHeader {
  int slot = 0;
  std::string name;
  uint32_t headerPage = 0;
  int slotKeyFormat = 0, slotLeft = 0, slotRight = 0, slotParent = 0, slotByte19 = 0;
  char slotKeyType = 0;
  uint32_t rootPage = 0;
  uint32_t pagesUsed = 0;
  int keyFormat = 0;
  char keyType = 0;
  int keyLength = 0;
  int maxKeys = 0;
  int secondaryType = 0;
  int itemLength = 0;
  int uniqueByte23 = 0;
  bool unique = false;      // from the key format byte
  bool descending = false;  // from the key format byte
  std::string expression;
  bool hasFilter = false;
  bool hasKeys = false;
  uint32_t firstLeaf = 0, lastLeaf = 0;
};

struct MdxFileInfo {
  uint64_t fileSize = 0;
  int version = 0;
  std::string dataName;
  int pagesPerBlock = 0, blockSize = 0;
  int production = 0, slots = 0, slotSize = 0;
  int tagsInUse = 0;
  uint32_t pageCount = 0, firstFree = 0, blocksAvail = 0;
  std::vector<MdxTagHeader> tags;
};

// What a walk of one tag found.
struct MdxTagWalk {
  std::vector<char> entries;  // keyLength key bytes + uint32 record number each, in order
  size_t count = 0;
  int levels = 0;
  size_t nodes = 0, leaves = 0;
  uint32_t firstLeaf = 0, lastLeaf = 0;
};

class MdxReader {
 public:
  MdxReader() = default;
  ~MdxReader();
  MdxReader(const MdxReader&) = delete;
  MdxReader& operator=(const MdxReader&) = delete;

  // Opens the file and reads its header, tag table and tag headers. Returns kOk,
  // kFileMissing, kIoError or kCorruptMdx (reason in *why: anything that makes the tags
  // unreadable, such as a bad block size, a tag header outside the file or a key length
  // out of range).
  int Open(const std::string& path, std::string* why);
  const MdxFileInfo& Info() const { return info_; }

  // Walks tag t (0-based) from its root. recordCount bounds the leaf record numbers.
  // keepEntries false: only checks and counts. Every defect found is appended to defects
  // (prefixed with the tag name); returns true when there was none. When blockUse is given
  // (one byte per page of the file), the blocks visited are marked there and a block already
  // marked is a defect ("used twice").
  bool Walk(size_t t, uint32_t recordCount, bool keepEntries, MdxTagWalk& out,
            std::vector<std::string>& defects, std::vector<uint8_t>* blockUse) const;

  // Reads one block (blockSize bytes) at page; false when out of range or unreadable.
  bool ReadBlock(uint32_t page, std::vector<unsigned char>& out) const;

 private:
  int fd_ = -1;
  MdxFileInfo info_;
};

}  // namespace dbase
