// Reading and writing multi-byte values in a byte order chosen at run time.
//
// Values are assembled from single bytes with shifts, so the code neither
// depends on the host's byte order nor reads through misaligned pointers
// (archive members sit on 2-byte boundaries only).
#pragma once

#include <cstdint>

// (Not BYTE_ORDER: the C library defines that name as a macro.)
enum class BYTE_ORDERING : uint8_t { LITTLE, BIG };

// An unsigned value of `width` bytes (1 to 8).
inline uint64_t read_uint(const uint8_t *p, unsigned width, BYTE_ORDERING order) {
  uint64_t v = 0;
  for (unsigned i = 0; i < width; i++) {
    unsigned shift = order == BYTE_ORDERING::LITTLE ? 8 * i : 8 * (width - 1 - i);
    v |= static_cast<uint64_t>(p[i]) << shift;
  }
  return v;
}

inline void write_uint(uint8_t *p, uint64_t v, unsigned width, BYTE_ORDERING order) {
  for (unsigned i = 0; i < width; i++) {
    unsigned shift = order == BYTE_ORDERING::LITTLE ? 8 * i : 8 * (width - 1 - i);
    p[i] = static_cast<uint8_t>(v >> shift);
  }
}

inline uint16_t read_u16(const uint8_t *p, BYTE_ORDERING order) {
  return static_cast<uint16_t>(read_uint(p, 2, order));
}
inline uint32_t read_u32(const uint8_t *p, BYTE_ORDERING order) {
  return static_cast<uint32_t>(read_uint(p, 4, order));
}
inline void write_u16(uint8_t *p, uint16_t v, BYTE_ORDERING order) { write_uint(p, v, 2, order); }
inline void write_u32(uint8_t *p, uint32_t v, BYTE_ORDERING order) { write_uint(p, v, 4, order); }
