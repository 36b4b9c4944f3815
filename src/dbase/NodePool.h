// Fixed-size blocks for the nodes of one index tree, carved from large chunks instead of one heap
// block each (see PageMemory.h): one allocation per few hundred nodes, nodes of a tree side by
// side, and a whole tree freed at once. Freed blocks go to a free list and are reused. A cleared
// pool keeps its chunks for the blocks that come next (a tree is mostly cleared to be rebuilt at
// once, often larger: fresh memory would cost its first touches again); they go back to the
// system when the pool is destroyed or released.
#pragma once

#include <cstddef>

namespace dbase {

class NodePool {
 public:
  // REQUIRES: blockBytes >= sizeof(void*).
  explicit NodePool(size_t blockBytes);
  ~NodePool() { Release(); }
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;

  // Size of every block (the requested size rounded up to 16).
  size_t BlockBytes() const { return block_; }
  // A block of BlockBytes() bytes, 16-byte aligned, contents undefined. Throws std::bad_alloc
  // when there is no memory.
  void* Allocate();
  // Returns a block for reuse. REQUIRES: p came from this pool's Allocate since the last Clear
  // and was not freed since.
  void Free(void* p);
  // Makes sure the next `blocks` allocations take no more than one new chunk (a bulk load knows
  // how many nodes it builds and gets them in one piece). Chunks kept by Clear are used first.
  void Reserve(size_t blocks);
  // Frees every block at once; the chunks are kept for the next allocations.
  void Clear();
  // Frees every block at once and gives all chunks back to the system.
  void Release();
  // Bytes of the chunks held (in use or kept).
  size_t ChunkBytes() const { return chunkBytes_; }

 private:
  void NewChunk(size_t bytes);

  struct Chunk;
  size_t block_;
  size_t nextChunk_;             // size of the next chunk: doubles up to a cap
  Chunk* chunks_ = nullptr;      // the chunks blocks are carved from, newest first
  Chunk* spare_ = nullptr;       // chunks kept by Clear, not carved from since
  char* next_ = nullptr;         // the unused rest of the newest chunk: [next_, end_)
  char* end_ = nullptr;
  void* free_ = nullptr;         // freed blocks, each holding the next one's address
  size_t chunkBytes_ = 0;
};

}  // namespace dbase
