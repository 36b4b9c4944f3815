// Little-endian integers in the bytes of the table files (.DBF and .MDX headers and nodes).
#pragma once

#include <cstdint>

namespace dbase {

inline uint16_t GetU16(const unsigned char* p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t GetU32(const unsigned char* p) {
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void PutU16(unsigned char* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline void PutU32(unsigned char* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}

}  // namespace dbase
