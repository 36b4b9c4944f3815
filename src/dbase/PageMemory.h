// Large blocks of memory for the table engine's big working buffers (record write buffers,
// batch-sort arrays) and the chunks its index trees carve their nodes from, either from the heap
// or, on request, mapped and backed by huge pages. A 4 KB page costs a fault on its first touch
// and huge pages (2 MB) cut the faults 512-fold; but a huge page the system takes fresh is
// cleared at once, and on the machines measured that costs more than the faults it saves, while
// heap memory given back is taken again without being cleared. So the heap is the default: the
// savings come from keeping buffers and chunks for reuse (PageBuffer, NodePool).
#pragma once

#include <cstddef>
#include <cstdint>

namespace dbase {

// Below this size a block comes from the ordinary heap: a huge page would hold mostly unused
// memory, and the heap reuses small blocks without new faults.
constexpr size_t kHugePageBytes = size_t(2) << 20;

// Returns at least `bytes` bytes (not zero-filled), aligned to 64 bytes; throws std::bad_alloc
// when there is no memory. A block of kHugePageBytes or more starts on a huge-page boundary and
// is advised to be backed by huge pages (Linux; elsewhere it is an ordinary heap block).
// REQUIRES: bytes > 0. Give it back with FreePages(p, bytes) and the same `bytes`.
// huge = false: an ordinary heap block whatever its size.
void* AllocatePages(size_t bytes, bool huge = false);
// Gives back a block of AllocatePages (same bytes and huge). Null does nothing.
void FreePages(void* p, size_t bytes, bool huge = false);
// The bytes a block of `bytes` bytes really has room for (whole huge pages when it has them).
size_t PagesRoomFor(size_t bytes, bool huge = false);

// A block of `bytes` bytes (REQUIRES: > 0) mapped on its own, outside the heap (Linux; elsewhere
// a heap block): its pages become memory only when first written, and FreeMapped gives them back
// to the system at once, where freed heap space would stay with the process. Null when there is
// no memory. Give it back with FreeMapped(p, bytes) and the same `bytes`; null does nothing.
char* AllocateMapped(size_t bytes);
void FreeMapped(char* p, size_t bytes);

// A reusable buffer of plain bytes in AllocatePages memory. It grows on demand and keeps its
// memory until Release or destruction, so a buffer used batch after batch faults its pages in
// once. Its content is not kept across a growth.
class PageBuffer {
 public:
  // huge: whether a large buffer is backed by huge pages (see AllocatePages).
  explicit PageBuffer(bool huge = false) : huge_(huge) {}
  ~PageBuffer() { Release(); }
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;

  // Returns room for at least `bytes` bytes (contents undefined after a growth, kept
  // otherwise); the capacity is `bytes` rounded up to whole huge pages when that large. Throws std::bad_alloc when there is no memory.
  char* Reserve(size_t bytes);
  // Like Reserve, but the first `keep` bytes (<= the current capacity) survive a growth.
  char* Grow(size_t bytes, size_t keep);
  char* Data() const { return data_; }
  size_t Capacity() const { return capacity_; }
  // Gives the memory back.
  void Release();

 private:
  bool huge_;
  char* data_ = nullptr;
  size_t capacity_ = 0;
};

}  // namespace dbase
