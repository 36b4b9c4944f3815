// Fixed-size blocks carved from large chunks.
#include "dbase/NodePool.h"

#include <algorithm>
#include <cstdint>

#include "dbase/PageMemory.h"

namespace dbase {

// Each chunk starts with this header; its blocks follow.
struct NodePool::Chunk {
  Chunk* next;
  size_t bytes;
};

namespace {
constexpr size_t kHeader = 64;  // the chunk header, rounded so that blocks stay aligned
// Chunks start small (a tag of a small table needs a node or two) and double up to a few MB.
constexpr size_t kFirstChunk = 32 << 10;
constexpr size_t kMaxChunk = 4 << 20;
}  // namespace

NodePool::NodePool(size_t blockBytes)
    : block_((std::max(blockBytes, sizeof(void*)) + 15) & ~size_t(15)),
      nextChunk_(std::max(kFirstChunk, kHeader + 4 * block_)) {}

void NodePool::NewChunk(size_t bytes) {
  Chunk* c;
  if (spare_) {  // a chunk kept by Clear, whatever its size
    c = spare_;
    spare_ = c->next;
  } else {
    c = static_cast<Chunk*>(AllocatePages(bytes));
    c->bytes = bytes;
    chunkBytes_ += bytes;
  }
  c->next = chunks_;
  chunks_ = c;
  next_ = reinterpret_cast<char*>(c) + kHeader;
  end_ = reinterpret_cast<char*>(c) + c->bytes;
}

void* NodePool::Allocate() {
  if (free_) {
    void* p = free_;
    free_ = *static_cast<void**>(p);
    return p;
  }
  if (size_t(end_ - next_) < block_) {
    // The rest of the current chunk (less than a block) is left unused.
    NewChunk(nextChunk_);
    nextChunk_ = std::min(nextChunk_ * 2, std::max(kMaxChunk, nextChunk_));
  }
  void* p = next_;
  next_ += block_;
  return p;
}

void NodePool::Free(void* p) {
  *static_cast<void**>(p) = free_;
  free_ = p;
}

void NodePool::Reserve(size_t blocks) {
  const size_t need = blocks * block_;
  if (size_t(end_ - next_) >= need || spare_) return;
  // A request no bigger than the usual next chunk takes that chunk; a larger one gets a chunk
  // of its own size, rounded to whole huge pages when it is that large (and takes them).
  size_t bytes = kHeader + need;
  if (bytes <= nextChunk_) return;
  if (bytes >= kHugePageBytes) bytes = (bytes + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
  NewChunk(bytes);
}

void NodePool::Clear() {
  while (chunks_) {
    Chunk* c = chunks_;
    chunks_ = c->next;
    c->next = spare_;
    spare_ = c;
  }
  next_ = end_ = nullptr;
  free_ = nullptr;
}

void NodePool::Release() {
  Clear();
  while (spare_) {
    Chunk* c = spare_;
    spare_ = c->next;
    FreePages(c, c->bytes);
  }
  chunkBytes_ = 0;
}

}  // namespace dbase
