// Float image <-> healer bitmap. See heal_bitmap.h.
#include "render/heal_bitmap.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "render/srgb.h"

namespace vg {

namespace {

// Encoding by table instead of a pow() per channel (24 MP x 3 channels would
// take about a second). thresholds[i] is the linear value where code i ends
// and code i + 1 begins: the decoded midpoint between the two codes. A value's
// code is the number of thresholds at or below it. The bits of a positive
// float grow with its value, so its top bits pick a bucket whose first code is
// stored; inside a bucket (a relative width of 2^-8) the code rises by at most
// one step, found by comparing with the next threshold.
struct Srgb8Tables {
  static constexpr int kBucketShift = 15;
  std::array<float, 255> thresholds;
  std::array<float, 256> decoded;
  std::vector<uint8_t> bucketStart;

  Srgb8Tables() {
    for (int i = 0; i < 255; ++i) thresholds[i] = srgb::decode((i + 0.5f) / 255.0f);
    for (int i = 0; i < 256; ++i) decoded[i] = srgb::decode(i / 255.0f);
    const uint32_t lastBucket = std::bit_cast<uint32_t>(1.0f) >> kBucketShift;
    bucketStart.resize(lastBucket + 1);
    for (uint32_t b = 0; b <= lastBucket; ++b) {
      float lowest = std::bit_cast<float>(b << kBucketShift);
      bucketStart[b] = uint8_t(std::upper_bound(thresholds.begin(), thresholds.end(), lowest) - thresholds.begin());
    }
  }

  uint8_t encode(float v) const {
    if (!(v > 0.0f)) return 0;  // also NaN
    if (v >= 1.0f) return 255;
    uint32_t code = bucketStart[std::bit_cast<uint32_t>(v) >> kBucketShift];
    while (code < 255 && v >= thresholds[code]) ++code;
    return uint8_t(code);
  }
};

const Srgb8Tables& tables() {
  static const Srgb8Tables t;
  return t;
}

}  // namespace

uint8_t encodeSrgb8(float linear) { return tables().encode(linear); }

float decodeSrgb8(uint8_t code) { return tables().decoded[code]; }

namespace {

inline void encodePixel(const Srgb8Tables& t, const float* p, uint8_t* out) {
  if (p[3] == 1.0f) {  // opaque: the common case, no division
    for (int c = 0; c < 3; ++c) out[c] = t.encode(p[c]);
    out[3] = 255;
    return;
  }
  float a = p[3] > 0.0f ? std::min(p[3], 1.0f) : 0.0f;  // NaN -> 0
  if (a > 0.0f) {
    float inv = 1.0f / a;
    for (int c = 0; c < 3; ++c) out[c] = t.encode(p[c] * inv);
  } else {
    out[0] = out[1] = out[2] = 0;
  }
  out[3] = uint8_t(a * 255.0f + 0.5f);
}

}  // namespace

void encodeHealPixel(const float* p, uint8_t* out) { encodePixel(tables(), p, out); }

Healer::Bitmap encodeHealBitmap(const Image& image) {
  Healer::Bitmap bitmap(image.width(), image.height());
  const Rect& b = image.bounds();
  const Srgb8Tables& t = tables();
  tbb::parallel_for(tbb::blocked_range<int>(0, b.height, 16), [&](const tbb::blocked_range<int>& rows) {
    for (int y = rows.begin(); y < rows.end(); ++y) {
      const float* src = image.row(b.y + y);
      uint8_t* dst = bitmap.at(0, y);
      for (int x = 0; x < b.width; ++x) encodePixel(t, src + size_t(x) * 4, dst + size_t(x) * 4);
    }
  });
  return bitmap;
}

void writeBackHealed(const Healer::Bitmap& bitmap, Image& image, const Healer::ForbiddenMask& mayHaveChanged) {
  const Rect& b = image.bounds();
  if (bitmap.width != b.width || bitmap.height != b.height || mayHaveChanged.pixelCount != bitmap.pixelCount()) {
    throw std::invalid_argument("writeBackHealed: bitmap, image and mask sizes differ");
  }
  const Srgb8Tables& t = tables();
  const size_t width = size_t(bitmap.width);
  for (size_t w = 0; w < mayHaveChanged.words.size(); ++w) {
    for (uint64_t bits = mayHaveChanged.words[w]; bits != 0; bits &= bits - 1) {
      const size_t i = w * 64 + size_t(std::countr_zero(bits));
      const int x = int(i % width), y = int(i / width);
      float* dst = image.at(b.x + x, b.y + y);
      const uint8_t* healed = bitmap.at(x, y);
      uint8_t current[4];
      encodePixel(t, dst, current);
      if (std::equal(current, current + 4, healed)) continue;
      float a = healed[3] / 255.0f;
      for (int c = 0; c < 3; ++c) dst[c] = t.decoded[healed[c]] * a;
      dst[3] = a;
    }
  }
}

}  // namespace vg
