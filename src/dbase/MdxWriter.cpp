// Bulk writer of the production .MDX.
#include "dbase/MdxWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "dbase/LittleEndian.h"
#include "dbase/MdxFormat.h"
#include "dbase/Status.h"
#include "dbase/Today.h"
#include "vb/Strings.h"

namespace dbase {

namespace {

// Sequential writer with a large buffer.
class BlockSink {
 public:
  explicit BlockSink(int fd) : fd_(fd) { buf_.reserve(1 << 20); }
  bool Put(const unsigned char* p, size_t n) {
    if (buf_.size() + n > buf_.capacity() && !Drain()) return false;
    buf_.insert(buf_.end(), p, p + n);
    return true;
  }
  bool Drain() {
    size_t done = 0;
    while (done < buf_.size()) {
      ssize_t w = ::write(fd_, buf_.data() + done, buf_.size() - done);
      if (w <= 0) return false;
      done += size_t(w);
    }
    buf_.clear();
    return true;
  }

 private:
  int fd_;
  std::vector<unsigned char> buf_;
};

// Sizes of n items shared out over g groups as evenly as possible.
inline size_t GroupSize(size_t n, size_t g, size_t i) { return n / g + (i < n % g ? 1 : 0); }

struct TagPlan {
  uint32_t headerPage = 0;
  std::vector<size_t> levelNodes;  // nodes per level, leaves first
  uint32_t firstNodePage = 0;
  uint32_t nodeCount = 0;
};

}  // namespace

uint64_t MdxFileBytes(const std::vector<int>& keyLengths, const std::vector<uint64_t>& counts) {
  using namespace mdx;
  // The same plan as step 1 of WriteMdx: leaves filled evenly, then levels of branches of up to
  // cap + 1 children each, until one root.
  uint64_t pages = kHeaderPages + uint64_t(kPagesPerBlock) * keyLengths.size();
  for (size_t t = 0; t < keyLengths.size(); ++t) {
    const uint64_t cap = uint64_t(MaxKeys(keyLengths[t]));
    uint64_t nodes = std::max<uint64_t>(1, (counts[t] + cap - 1) / cap);
    uint64_t all = nodes;
    while (nodes > 1) {
      nodes = (nodes + cap) / (cap + 1);
      all += nodes;
    }
    pages += all * kPagesPerBlock;
  }
  return pages * kPageSize;
}

int WriteMdx(const std::string& path, const std::string& dataName, std::vector<MdxTagSource>& tags,
             const HeaderDate& date, const MdxProgress& progress) {
  using namespace mdx;
  int y, m, d;
  date.Resolve(y, m, d);

  // 1. Plan the pages: tag headers after the header pages, then each tag's nodes.
  std::vector<TagPlan> plans(tags.size());
  uint32_t page = kHeaderPages;
  for (TagPlan& p : plans) {
    p.headerPage = page;
    page += kPagesPerBlock;
  }
  for (size_t t = 0; t < tags.size(); ++t) {
    TagPlan& p = plans[t];
    size_t cap = size_t(MaxKeys(tags[t].keyLength));
    size_t nodes = std::max<size_t>(1, (tags[t].count + cap - 1) / cap);
    p.levelNodes.push_back(nodes);
    while (nodes > 1) {
      nodes = (nodes + cap) / (cap + 1);  // ceil(nodes / (cap + 1))
      p.levelNodes.push_back(nodes);
    }
    p.firstNodePage = page;
    for (size_t n : p.levelNodes) p.nodeCount += uint32_t(n);
    page += p.nodeCount * kPagesPerBlock;
  }
  const uint32_t pageCount = page;

  std::string tmp = path + ".tmp";
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return errno == ENOENT || errno == EACCES || errno == EROFS ? kCannotCreate : kIoError;
  BlockSink sink(fd);
  bool ok = true;

  // 2. File header and tag table.
  std::vector<unsigned char> head(size_t(kHeaderPages) * kPageSize, 0);
  head[kVersionOffset] = kVersion;
  head[kCreatedOffset] = uint8_t(y - 1900);
  head[kCreatedOffset + 1] = uint8_t(m);
  head[kCreatedOffset + 2] = uint8_t(d);
  std::string upper = vb::UCase(dataName);
  std::memcpy(&head[kDataNameOffset], upper.data(), std::min<size_t>(upper.size(), kDataNameSize));
  PutU16(&head[kPagesPerBlockOffset], kPagesPerBlock);
  PutU16(&head[kBlockSizeOffset], kBlockSize);
  head[kProductionOffset] = 1;
  head[kSlotCountOffset] = kTagSlots;
  head[kSlotSizeOffset] = kSlotSize;
  PutU16(&head[kTagsInUseOffset], uint32_t(tags.size()));
  head[kTagsPlusOneOffset] = uint8_t(tags.size() + 1);
  head[kHeaderByte31Offset] = kByte31;
  PutU32(&head[kPageCountOffset], pageCount);
  head[kUpdatedOffset] = uint8_t(y - 1900);
  head[kUpdatedOffset + 1] = uint8_t(m);
  head[kUpdatedOffset + 2] = uint8_t(d);
  head[kTagTableOffset + kSlotRight] = 1;  // slot 0: the name tree's root is slot 1
  std::vector<std::string> names;
  for (size_t t = 0; t < tags.size(); ++t) {
    unsigned char* slot = &head[kTagTableOffset + kSlotSize * (t + 1)];
    PutU32(slot + kSlotHeaderPage, plans[t].headerPage);
    std::string name = vb::UCase(tags[t].name);
    name.resize(kSlotNameSize, '\0');
    std::memcpy(slot + kSlotName, name.data(), kSlotNameSize);
    slot[kSlotKeyFormat] = kSlotKeyFormatValue;
    slot[kSlotByte19] = kSlotByte19Value;
    slot[kSlotKeyType] = 'C';
    // Hang the tag into the name tree, walking down from slot 1.
    if (t > 0) {
      size_t at = 1;
      for (;;) {
        unsigned char* node = &head[kTagTableOffset + kSlotSize * at];
        bool left = std::memcmp(name.data(), names[at - 1].data(), kSlotNameSize) < 0;
        int link = left ? kSlotLeft : kSlotRight;
        if (node[link] == 0) {
          node[link] = uint8_t(t + 1);
          slot[kSlotParent] = uint8_t(at);
          break;
        }
        at = node[link];
      }
    }
    names.push_back(name);
  }
  ok = sink.Put(head.data(), head.size());

  // 3. Tag headers.
  for (size_t t = 0; t < tags.size() && ok; ++t) {
    const MdxTagSource& s = tags[t];
    const TagPlan& p = plans[t];
    std::vector<unsigned char> b(kBlockSize, 0);
    uint32_t leaves = uint32_t(p.levelNodes[0]);
    uint32_t rootPage = p.firstNodePage + (p.nodeCount - 1) * kPagesPerBlock;
    PutU32(&b[kTagRootPage], rootPage);
    PutU32(&b[kTagPagesUsed], p.nodeCount * kPagesPerBlock);
    b[kTagKeyFormat] = uint8_t(kFormatBase | (s.descending ? kFormatDescending : 0) |
                               (s.unique ? kFormatUnique : 0));
    b[kTagKeyType] = 'C';
    b[kTagByte11] = kByte31;
    PutU16(&b[kTagKeyLength], uint32_t(s.keyLength));
    PutU16(&b[kTagMaxKeys], uint32_t(MaxKeys(s.keyLength)));
    PutU16(&b[kTagItemLength], uint32_t(ItemLength(s.keyLength)));
    b[kTagCounter] = 1;
    b[kTagUniqueFlag + 1] = s.unique ? kUniqueByte23 : 0;
    std::memcpy(&b[kTagExpression], s.expression.data(),
                std::min<size_t>(s.expression.size(), kTagExpressionSize - 1));
    b[kTagHasKeys] = s.count > 0 ? 1 : 0;
    PutU32(&b[kTagFirstLeaf], p.firstNodePage);
    PutU32(&b[kTagLastLeaf], p.firstNodePage + (leaves - 1) * kPagesPerBlock);
    b[kTagCreated] = uint8_t(y - 1900);
    b[kTagCreated + 1] = uint8_t(m);
    b[kTagCreated + 2] = uint8_t(d);
    ok = sink.Put(b.data(), b.size());
  }

  // 4. Nodes, tag by tag: the leaves, then each level of branches.
  for (size_t t = 0; t < tags.size() && ok; ++t) {
    MdxTagSource& s = tags[t];
    const TagPlan& p = plans[t];
    const size_t k = size_t(s.keyLength), item = size_t(ItemLength(s.keyLength));
    // Last key and page of every node of the level just written.
    std::vector<char> lastKeys;
    std::vector<uint32_t> pages;
    uint32_t nextPage = p.firstNodePage;
    std::vector<unsigned char> b(kBlockSize);
    size_t leaves = p.levelNodes[0];
    lastKeys.resize(leaves * k);
    pages.resize(leaves);
    // Entries taken from the source and not yet told to `progress`.
    uint64_t untold = 0;
    for (size_t i = 0; i < leaves && ok; ++i) {
      std::fill(b.begin(), b.end(), 0);
      size_t n = GroupSize(s.count, leaves, i);
      PutU32(&b[kNodeCount], uint32_t(n));
      for (size_t e = 0; e < n && ok; ++e) {
        unsigned char* at = &b[kNodeEntries + e * item];
        uint32_t recno = 0;
        ok = s.next(reinterpret_cast<char*>(at + 4), recno);
        PutU32(at, recno);
        if (e + 1 == n) std::memcpy(&lastKeys[i * k], at + 4, k);
      }
      pages[i] = nextPage;
      nextPage += kPagesPerBlock;
      ok = ok && sink.Put(b.data(), b.size());
      untold += n;
      if (progress && untold >= kMdxProgressEntries) {
        progress(untold);
        untold = 0;
      }
    }
    if (progress && untold > 0) progress(untold);
    for (size_t level = 1; level < p.levelNodes.size() && ok; ++level) {
      size_t groups = p.levelNodes[level];
      size_t below = pages.size();
      std::vector<char> upKeys(groups * k);
      std::vector<uint32_t> upPages(groups);
      size_t child = 0;
      for (size_t g = 0; g < groups && ok; ++g) {
        std::fill(b.begin(), b.end(), 0);
        size_t nChildren = GroupSize(below, groups, g);
        size_t n = nChildren - 1;
        PutU32(&b[kNodeCount], uint32_t(n));
        for (size_t e = 0; e < n; ++e) {
          unsigned char* at = &b[kNodeEntries + e * item];
          PutU32(at, pages[child + e]);
          std::memcpy(at + 4, &lastKeys[(child + e) * k], k);
        }
        PutU32(&b[kNodeEntries + n * item], pages[child + n]);
        std::memcpy(&upKeys[g * k], &lastKeys[(child + n) * k], k);
        upPages[g] = nextPage;
        nextPage += kPagesPerBlock;
        child += nChildren;
        ok = sink.Put(b.data(), b.size());
      }
      lastKeys.swap(upKeys);
      pages.swap(upPages);
    }
  }
  ok = ok && sink.Drain();
  if (::close(fd) != 0) ok = false;
  if (ok && std::rename(tmp.c_str(), path.c_str()) != 0) ok = false;
  if (!ok) {
    ::unlink(tmp.c_str());
    return kIoError;
  }
  return kOk;
}

}  // namespace dbase
