// Large blocks from the system with huge pages where available.
#include "dbase/PageMemory.h"

#include <cstdlib>
#include <cstring>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace dbase {

namespace {
size_t RoundUp(size_t n, size_t to) { return (n + to - 1) / to * to; }
}  // namespace

size_t PagesRoomFor(size_t bytes, bool huge) {
#ifdef __linux__
  if (huge && bytes >= kHugePageBytes) return RoundUp(bytes, kHugePageBytes);
#endif
  return RoundUp(bytes, 64);
}

void* AllocatePages(size_t bytes, bool huge) {
#ifdef __linux__
  if (huge && bytes >= kHugePageBytes) {
    // Map one huge page more than needed and cut the ends off, so that the block starts on a
    // huge-page boundary: only whole aligned 2 MB ranges can be backed by huge pages.
    const size_t len = RoundUp(bytes, kHugePageBytes);
    void* m = ::mmap(nullptr, len + kHugePageBytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) throw std::bad_alloc();
    char* raw = static_cast<char*>(m);
    char* start = reinterpret_cast<char*>(
        RoundUp(reinterpret_cast<uintptr_t>(raw), kHugePageBytes));
    if (start > raw) ::munmap(raw, size_t(start - raw));
    const size_t tail = size_t(raw + len + kHugePageBytes - (start + len));
    if (tail > 0) ::munmap(start + len, tail);
    // Advice only: without huge pages the block simply has ordinary pages.
    ::madvise(start, len, MADV_HUGEPAGE);
    return start;
  }
#endif
  void* p = std::aligned_alloc(64, RoundUp(bytes, 64));
  if (!p) throw std::bad_alloc();
  return p;
}

void FreePages(void* p, size_t bytes, bool huge) {
  if (!p) return;
#ifdef __linux__
  if (huge && bytes >= kHugePageBytes) {
    ::munmap(p, RoundUp(bytes, kHugePageBytes));
    return;
  }
#endif
  std::free(p);
}

char* AllocateMapped(size_t bytes) {
#ifdef __linux__
  void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : static_cast<char*>(p);
#else
  return static_cast<char*>(std::malloc(bytes));
#endif
}

void FreeMapped(char* p, size_t bytes) {
  if (!p) return;
#ifdef __linux__
  ::munmap(p, bytes);
#else
  (void)bytes;
  std::free(p);
#endif
}

char* PageBuffer::Reserve(size_t bytes) {
  if (bytes <= capacity_) return data_;
  Release();
  const size_t want = PagesRoomFor(bytes, huge_);
  data_ = static_cast<char*>(AllocatePages(want, huge_));
  capacity_ = want;
  return data_;
}

char* PageBuffer::Grow(size_t bytes, size_t keep) {
  if (bytes <= capacity_) return data_;
  const size_t want = PagesRoomFor(bytes, huge_);
  char* p = static_cast<char*>(AllocatePages(want, huge_));
  if (keep > 0) std::memcpy(p, data_, keep);
  Release();
  data_ = p;
  capacity_ = want;
  return data_;
}

void PageBuffer::Release() {
  FreePages(data_, capacity_, huge_);
  data_ = nullptr;
  capacity_ = 0;
}

}  // namespace dbase
