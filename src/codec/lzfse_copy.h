// Byte copies of the LZ decoders: literal runs and overlapping matches.
// Internal to src/codec.
//
// The "wide" variants move 16 bytes at a time and may write up to 15 bytes
// past the end of the copy (and read up to 15 past the end of a literal
// source); callers use them only when the output buffer (and the source) has
// that much room, and fall back to the exact variants near the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vg::lzfse {

// Slack a wide copy needs past the end of what it copies.
constexpr size_t kWideSlack = 16;

inline void copyLiteralsWide(uint8_t* dst, const uint8_t* src, size_t n) {
  for (size_t i = 0; i < n; i += 16) std::memcpy(dst + i, src + i, 16);
}

inline void copyLiteralsExact(uint8_t* dst, const uint8_t* src, size_t n) {
  std::memcpy(dst, src, n);
}

// Copies m bytes, each from d bytes before it, in increasing order: when
// d < m the copy repeats the last d bytes (d = 1 repeats one byte). d >= 1
// and dst - d must be inside the output.
inline void copyMatchWide(uint8_t* dst, size_t d, size_t m) {
  const uint8_t* src = dst - d;
  if (d >= 16) {
    for (size_t i = 0; i < m; i += 16) std::memcpy(dst + i, src + i, 16);
    return;
  }
  if (d == 1) {
    std::memset(dst, src[0], m);
    return;
  }
  // Short period: [src, dst + c) repeats with period d, so copying from src
  // at distance d + c never overlaps. Double that distance until it reaches
  // 16, then continue with 16-byte steps at the (fixed) doubled distance.
  size_t c = 0;
  size_t dist = d;
  while (c < m && dist < 16) {
    std::memcpy(dst + c, src, dist);
    c += dist;
    dist = d + c;
  }
  for (; c < m; c += 16) std::memcpy(dst + c, dst + c - dist, 16);
}

inline void copyMatchExact(uint8_t* dst, size_t d, size_t m) {
  const uint8_t* src = dst - d;
  if (d >= m) {
    std::memcpy(dst, src, m);
    return;
  }
  for (size_t i = 0; i < m; ++i) dst[i] = src[i];
}

}  // namespace vg::lzfse
