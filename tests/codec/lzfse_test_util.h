// Mask-like rasters and helpers shared by the LZFSE tests. The generators
// follow the recipes of the reference vectors in tests/data/lzfse, so the two
// largest vectors need not be stored raw: a generated raster is checked
// against the decoded reference stream instead.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace vg::test {

using Bytes = std::vector<uint8_t>;

inline Bytes readBytes(const std::string& relative) {
  const std::string s = readFile(dataPath(relative));
  return Bytes(s.begin(), s.end());
}

// 32-bit xorshift, one byte (the top 8 bits) per step.
class XorShift32 {
 public:
  explicit XorShift32(uint32_t seed) : x_(seed) {}
  uint8_t next() {
    x_ ^= x_ << 13;
    x_ ^= x_ >> 17;
    x_ ^= x_ << 5;
    return uint8_t(x_ >> 24);
  }

 private:
  uint32_t x_;
};

inline Bytes noiseBytes(size_t n, uint32_t seed) {
  XorShift32 rng(seed);
  Bytes b(n);
  for (auto& v : b) v = rng.next();
  return b;
}

inline uint8_t q8(double t) { return uint8_t(std::floor(255.0 * std::clamp(t, 0.0, 1.0) + 0.5)); }

// Each row is the same left-to-right ramp 0...255.
inline Bytes gradientMask(int w, int h) {
  Bytes b(size_t(w) * size_t(h));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) b[size_t(y) * size_t(w) + size_t(x)] = uint8_t((x * 255 + (w - 1) / 2) / (w - 1));
  }
  return b;
}

// A soft-edged disc of radius r with an edge `soft` pixels wide.
inline Bytes discMask(int w, int h, double cx, double cy, double r, double soft) {
  Bytes b(size_t(w) * size_t(h));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const double d = std::hypot(x - cx, y - cy);
      b[size_t(y) * size_t(w) + size_t(x)] = q8((r - d) / soft);
    }
  }
  return b;
}

// Random 0/255 pixels.
inline Bytes speckleMask(int w, int h, uint32_t seed) {
  XorShift32 rng(seed);
  Bytes b(size_t(w) * size_t(h));
  for (auto& v : b) v = rng.next() >= 128 ? 255 : 0;
  return b;
}

// The large realistic mask: an ellipse, a rectangle, a soft disc and a ramp
// band, each combined with what is there by taking the larger value.
inline Bytes shapesMask() {
  const int w = 2048;
  const int h = 1536;
  Bytes b(size_t(w) * size_t(h), 0);
  auto put = [&](int x, int y, uint8_t v) {
    uint8_t& p = b[size_t(y) * size_t(w) + size_t(x)];
    p = std::max(p, v);
  };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const double ex = (x - 640.0) / 420.0;
      const double ey = (y - 560.0) / 300.0;
      put(x, y, q8(0.5 + (1.0 - std::sqrt(ex * ex + ey * ey)) * 150.0));
      if (x >= 1200 && x <= 1849 && y >= 200 && y <= 699) put(x, y, 255);
      const double dx = x - 1500.0;
      const double dy = y - 1100.0;
      put(x, y, q8((260.0 - std::sqrt(dx * dx + dy * dy)) / 24.0));
      if (y >= 1400) put(x, y, uint8_t((y - 1400) * 255 / 135));
    }
  }
  return b;
}

}  // namespace vg::test
