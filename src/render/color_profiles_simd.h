// Internal to color_profiles.cpp: the vectorised body of encodeRow8/16
// (Highway, compiled per instruction set, chosen at the first call). It
// handles the longest prefix of a row that fills whole vectors and returns its
// length; the caller finishes the tail with the scalar loop, which performs
// the same operations in the same order.
#pragma once

#include <cstdint>

namespace vg::output_simd {

// The curve table layout shared with the scalar path: knots at the floats
// 2^-24 (1 + i/256) per octave, i.e. bit patterns kBaseBits + (i << kFracBits).
inline constexpr int kOctaves = 24;
inline constexpr int kSegmentBits = 8;
inline constexpr int kSegments = kOctaves << kSegmentBits;
inline constexpr uint32_t kBaseBits = uint32_t(127 - kOctaves) << 23;
inline constexpr int kFracBits = 23 - kSegmentBits;
inline constexpr float kFracScale = 1.0f / float(1 << kFracBits);
inline constexpr float kHalfMax = 65504.0f;

struct RowJob {
  const float* matrix;  // 9, row-major
  const float* table;   // kSegments + 1 knots
  bool linearToe;       // below 2^-24: v * 12.92 (sRGB curve) instead of 0
  bool keepAlpha;
  const float* src;
  int count;
};

// noise: at least 64 + 16 values, noise[i + 64] == noise[i].
int encode8(const RowJob& job, int x, const float* noise, bool dither, uint8_t* dst);
int encode16(const RowJob& job, float scale, uint16_t* dst);

}  // namespace vg::output_simd
