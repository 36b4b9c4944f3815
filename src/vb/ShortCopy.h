// Copying of short texts without a library call, for the per-line paths that set fixed-width
// fields: the log reader's hit fields, the database form's record fields and the table engine's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

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

// Writes `s` left-aligned into out[0..width-1], cut or blank-padded; nothing beyond. Fields
// are short (record fields are at most 50 bytes on the per-hit path), so the blanks and the text
// are laid with a few 16-byte moves rather than two library calls; a field wider than 64 bytes
// takes the library calls.
inline void PadField(char* out, size_t width, std::string_view s) {
  const size_t n = s.size() < width ? s.size() : width;
  if (width < 16) {
    char padded[16];
    std::memset(padded, ' ', sizeof padded);
    CopyShort(padded, s.data(), n);
    CopyShort(out, padded, width);
    return;
  }
  if (width > 64) {
    std::memcpy(out, s.data(), n);
    std::memset(out + n, ' ', width - n);
    return;
  }
  // The blanks over the whole field, then the text over them.
  for (size_t i = 0; i + 16 < width; i += 16) std::memset(out + i, ' ', 16);
  std::memset(out + width - 16, ' ', 16);
  if (n < 16) {
    CopyShort(out, s.data(), n);
    return;
  }
  for (size_t i = 0; i + 16 < n; i += 16) std::memcpy(out + i, s.data() + i, 16);
  std::memcpy(out + n - 16, s.data() + n - 16, 16);
}

}  // namespace vb
