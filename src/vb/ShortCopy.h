// Copying of short texts (at most 16 bytes) without a library call, for the per-line paths that
// set fixed-width fields: the log reader's hit fields and the table engine's record fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vb {

// Copies n bytes from `from` to `to` with at most two overlapping moves of the widest size that
// fits. REQUIRES: n <= 16; the ranges do not overlap.
inline void CopyShort(char* to, const char* from, size_t n) {
  if (n >= 8) {
    uint64_t a, b;
    std::memcpy(&a, from, 8);
    std::memcpy(&b, from + n - 8, 8);
    std::memcpy(to, &a, 8);
    std::memcpy(to + n - 8, &b, 8);
  } else if (n >= 4) {
    uint32_t a, b;
    std::memcpy(&a, from, 4);
    std::memcpy(&b, from + n - 4, 4);
    std::memcpy(to, &a, 4);
    std::memcpy(to + n - 4, &b, 4);
  } else {
    for (size_t k = 0; k < n; ++k) to[k] = from[k];
  }
}

}  // namespace vb
