// Reader of the production .MDX.
#include "dbase/LittleEndian.h"
#include "dbase/MdxReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "dbase/KeyExpression.h"
#include "dbase/MdxFormat.h"
#include "dbase/Status.h"

namespace dbase {

MdxReader::~MdxReader() {
  if (fd_ >= 0) ::close(fd_);
}

static std::string CString(const unsigned char* p, size_t max) {
  size_t n = 0;
  while (n < max && p[n] != 0) ++n;
  return std::string(reinterpret_cast<const char*>(p), n);
}

int MdxReader::Open(const std::string& path, std::string* why) {
  using namespace mdx;
  auto fail = [&](int status, const std::string& w) {
    if (why) *why = w;
    return status;
  };
  if (fd_ >= 0) ::close(fd_);
  info_ = MdxFileInfo{};
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) return fail(errno == ENOENT ? kFileMissing : kIoError, "cannot open " + path);
  struct stat st{};
  if (::fstat(fd_, &st) != 0) return fail(kIoError, "cannot read " + path);
  info_.fileSize = uint64_t(st.st_size);
  if (info_.fileSize < uint64_t(kHeaderPages) * kPageSize)
    return fail(kCorruptMdx, "file too short for an index header (" +
                                 std::to_string(info_.fileSize) + " bytes)");
  std::vector<unsigned char> h(size_t(kHeaderPages) * kPageSize);
  if (::pread(fd_, h.data(), h.size(), 0) != ssize_t(h.size()))
    return fail(kIoError, "cannot read " + path);
  info_.version = h[kVersionOffset];
  info_.dataName = CString(&h[kDataNameOffset], kDataNameSize);
  info_.pagesPerBlock = GetU16(&h[kPagesPerBlockOffset]);
  info_.blockSize = GetU16(&h[kBlockSizeOffset]);
  info_.production = h[kProductionOffset];
  info_.slots = h[kSlotCountOffset];
  info_.slotSize = h[kSlotSizeOffset];
  info_.tagsInUse = GetU16(&h[kTagsInUseOffset]);
  info_.pageCount = GetU32(&h[kPageCountOffset]);
  info_.firstFree = GetU32(&h[kFirstFreeOffset]);
  info_.blocksAvail = GetU32(&h[kBlocksAvailOffset]);
  if (info_.pagesPerBlock < 1 || info_.pagesPerBlock > 63 ||
      info_.blockSize != info_.pagesPerBlock * kPageSize)
    return fail(kCorruptMdx, "block size " + std::to_string(info_.blockSize) + " with " +
                                 std::to_string(info_.pagesPerBlock) + " pages per block");
  if (info_.slotSize != kSlotSize || info_.slots < 2 || info_.slots > kTagSlots)
    return fail(kCorruptMdx, "tag table of " + std::to_string(info_.slots) + " slots of " +
                                 std::to_string(info_.slotSize) + " bytes");
  if (info_.tagsInUse < 1 || info_.tagsInUse >= info_.slots)
    return fail(kCorruptMdx, std::to_string(info_.tagsInUse) + " tags in use");
  std::vector<unsigned char> b;
  for (int t = 1; t <= info_.tagsInUse; ++t) {
    const unsigned char* s = &h[kTagTableOffset + kSlotSize * t];
    MdxTagHeader tag;
    tag.slot = t;
    tag.headerPage = GetU32(s + kSlotHeaderPage);
    tag.name = CString(s + kSlotName, kSlotNameSize);
    tag.slotKeyFormat = s[kSlotKeyFormat];
    tag.slotLeft = s[kSlotLeft];
    tag.slotRight = s[kSlotRight];
    tag.slotParent = s[kSlotParent];
    tag.slotByte19 = s[kSlotByte19];
    tag.slotKeyType = char(s[kSlotKeyType]);
    if (tag.name.empty()) return fail(kCorruptMdx, "tag slot " + std::to_string(t) + " has no name");
    if (!ReadBlock(tag.headerPage, b))
      return fail(kCorruptMdx, "tag " + tag.name + ": header at page " +
                                   std::to_string(tag.headerPage) + " lies outside the file");
    tag.rootPage = GetU32(&b[kTagRootPage]);
    tag.pagesUsed = GetU32(&b[kTagPagesUsed]);
    tag.keyFormat = b[kTagKeyFormat];
    tag.keyType = char(b[kTagKeyType]);
    tag.keyLength = GetU16(&b[kTagKeyLength]);
    tag.maxKeys = GetU16(&b[kTagMaxKeys]);
    tag.secondaryType = GetU16(&b[kTagSecondaryType]);
    tag.itemLength = GetU16(&b[kTagItemLength]);
    tag.uniqueByte23 = b[kTagUniqueFlag + 1];
    tag.unique = (tag.keyFormat & kFormatUnique) != 0;
    tag.descending = (tag.keyFormat & kFormatDescending) != 0;
    tag.expression = CString(&b[kTagExpression], kTagExpressionSize);
    tag.hasFilter = b[kTagHasFilter] != 0;
    tag.hasKeys = b[kTagHasKeys] != 0;
    tag.firstLeaf = GetU32(&b[kTagFirstLeaf]);
    tag.lastLeaf = GetU32(&b[kTagLastLeaf]);
    if (tag.keyLength < 1 || tag.keyLength > KeyExpression::kMaxKeyLength)
      return fail(kCorruptMdx, "tag " + tag.name + ": key length " + std::to_string(tag.keyLength));
    if (tag.itemLength < tag.keyLength + 4 ||
        tag.itemLength * 1 + kNodeOverhead > info_.blockSize)
      return fail(kCorruptMdx, "tag " + tag.name + ": item length " + std::to_string(tag.itemLength));
    info_.tags.push_back(tag);
  }
  return kOk;
}

bool MdxReader::ReadBlock(uint32_t page, std::vector<unsigned char>& out) const {
  uint64_t off = uint64_t(page) * mdx::kPageSize;
  size_t bs = size_t(info_.blockSize);
  if (page < uint32_t(mdx::kHeaderPages) || off + bs > info_.fileSize) return false;
  out.resize(bs);
  return ::pread(fd_, out.data(), bs, off_t(off)) == ssize_t(bs);
}

bool MdxReader::Walk(size_t t, uint32_t recordCount, bool keepEntries, MdxTagWalk& out,
                     std::vector<std::string>& defects, std::vector<uint8_t>* blockUse) const {
  using namespace mdx;
  const MdxTagHeader& tag = info_.tags[t];
  const size_t before = defects.size();
  const std::string who = "tag " + tag.name + ": ";
  const int k = tag.keyLength;
  const int item = tag.itemLength;
  const int cap = (info_.blockSize - kNodeOverhead) / item;
  out = MdxTagWalk{};
  std::vector<char> prevKey(static_cast<size_t>(k), 0);
  uint32_t prevRecno = 0;
  bool havePrev = false;
  int leafDepth = -1;
  std::vector<unsigned char> block;
  std::vector<std::vector<unsigned char>> levelBlocks(8);
  // Without the caller's map, one of our own: a block reached twice (a damaged pointer
  // making a loop or a shared child) is reported once instead of being walked again.
  std::vector<uint8_t> ownUse;
  if (!blockUse) {
    ownUse.assign(size_t(info_.fileSize / kPageSize) + 1, 0);
    blockUse = &ownUse;
  }

  // Returns false when the node could not be read at all; lastKey gets the subtree's last key.
  std::function<bool(uint32_t, int, std::vector<char>&)> walk =
      [&](uint32_t page, int depth, std::vector<char>& lastKey) -> bool {
    if (defects.size() - before > 50) return false;  // enough said about one tag
    if (depth > 32) {
      defects.push_back(who + "tree deeper than 32 levels (a loop?)");
      return false;
    }
    if ((page - kHeaderPages) % uint32_t(info_.pagesPerBlock) != 0 || page < uint32_t(kHeaderPages)) {
      defects.push_back(who + "node page " + std::to_string(page) + " is not at a block boundary");
      return false;
    }
    if (size_t(depth) >= levelBlocks.size()) levelBlocks.resize(size_t(depth) + 1);
    std::vector<unsigned char>& b = levelBlocks[size_t(depth)];
    if (!ReadBlock(page, b)) {
      defects.push_back(who + "node page " + std::to_string(page) + " lies past the end of the file");
      return false;
    }
    if (blockUse) {
      for (int p = 0; p < info_.pagesPerBlock; ++p) {
        size_t at = size_t(page) + size_t(p);
        if (at < blockUse->size()) {
          if ((*blockUse)[at] && p == 0) {
            defects.push_back(who + "block at page " + std::to_string(page) + " is used twice");
            return false;
          }
          (*blockUse)[at] = 1;
        }
      }
    }
    ++out.nodes;
    uint32_t n = GetU32(&b[kNodeCount]);
    if (n > uint32_t(cap)) {
      defects.push_back(who + "node page " + std::to_string(page) + " claims " + std::to_string(n) +
                        " keys, at most " + std::to_string(cap) + " fit");
      return false;
    }
    uint32_t trailing = GetU32(&b[kNodeEntries + n * uint32_t(item)]);
    if (trailing == 0) {
      // Leaf.
      ++out.leaves;
      if (leafDepth < 0) leafDepth = depth;
      else if (leafDepth != depth)
        defects.push_back(who + "leaf at page " + std::to_string(page) + " at depth " +
                          std::to_string(depth) + ", others at " + std::to_string(leafDepth));
      if (out.firstLeaf == 0) out.firstLeaf = page;
      out.lastLeaf = page;
      if (n == 0 && depth > 0)
        defects.push_back(who + "empty leaf at page " + std::to_string(page));
      for (uint32_t i = 0; i < n; ++i) {
        const unsigned char* e = &b[kNodeEntries + i * uint32_t(item)];
        uint32_t recno = GetU32(e);
        const char* key = reinterpret_cast<const char*>(e + 4);
        if (recno < 1 || recno > recordCount)
          defects.push_back(who + "entry points at record " + std::to_string(recno) + " of " +
                            std::to_string(recordCount));
        if (havePrev) {
          int c = std::memcmp(prevKey.data(), key, size_t(k));
          if (tag.descending) c = -c;
          if (c > 0)
            defects.push_back(who + "key of record " + std::to_string(recno) +
                              " out of order after record " + std::to_string(prevRecno));
          else if (c == 0 && tag.unique)
            defects.push_back(who + "unique tag holds the key of record " + std::to_string(recno) +
                              " twice");
          else if (c == 0 && recno <= prevRecno)
            defects.push_back(who + "equal keys not in record order (" + std::to_string(prevRecno) +
                              ", " + std::to_string(recno) + ")");
        }
        std::memcpy(prevKey.data(), key, size_t(k));
        prevRecno = recno;
        havePrev = true;
        if (keepEntries) {
          out.entries.insert(out.entries.end(), key, key + k);
          char r[4];
          std::memcpy(r, &recno, 4);
          out.entries.insert(out.entries.end(), r, r + 4);
        }
        ++out.count;
      }
      if (n > 0) lastKey.assign(reinterpret_cast<const char*>(&b[kNodeEntries + (n - 1) * uint32_t(item) + 4]),
                                reinterpret_cast<const char*>(&b[kNodeEntries + (n - 1) * uint32_t(item) + 4]) + k);
      else lastKey.clear();
      return true;
    }
    // Branch: n keys, n + 1 children. Copy what is needed; the block buffer is reused below.
    std::vector<uint32_t> children(n + 1);
    std::vector<char> seps(size_t(n) * size_t(k));
    for (uint32_t i = 0; i < n; ++i) {
      const unsigned char* e = &b[kNodeEntries + i * uint32_t(item)];
      children[i] = GetU32(e);
      std::memcpy(&seps[size_t(i) * size_t(k)], e + 4, size_t(k));
    }
    children[n] = trailing;
    std::vector<char> childLast;
    for (uint32_t i = 0; i <= n; ++i) {
      if (!walk(children[i], depth + 1, childLast)) return false;
      if (i < n && (childLast.size() != size_t(k) ||
                    std::memcmp(childLast.data(), &seps[size_t(i) * size_t(k)], size_t(k)) != 0))
        defects.push_back(who + "separator " + std::to_string(i + 1) + " of branch page " +
                          std::to_string(page) + " is not the last key of its child");
    }
    lastKey = childLast;
    return true;
  };
  std::vector<char> last;
  walk(tag.rootPage, 0, last);
  out.levels = leafDepth + 1;
  return defects.size() == before;
}

}  // namespace dbase
