// Sky, magic wand and box softening. See region_masks.h.
#include "session/region_masks.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vg {
namespace {

// Truncating division by one of the window counts of a box pass, as a
// multiply and shift: with m = ceil(2^32 / d), (n m) >> 32 equals n / d for
// every n < 2^32 / d, which holds for window sums of bytes (n <= 255 d)
// while d < 4104. Wider windows divide plainly.
class Divider {
 public:
  static constexpr std::uint32_t kMaxExact = 4096;
  explicit Divider(std::uint32_t d) : d_(d), m_(((std::uint64_t(1) << 32) + d - 1) / d) {}
  std::uint32_t operator()(std::uint32_t n) const {
    return d_ < kMaxExact ? std::uint32_t((std::uint64_t(n) * m_) >> 32) : n / d_;
  }

 private:
  std::uint32_t d_;
  std::uint64_t m_;
};

// The dividers for every count a window of radius r can have on an axis of
// n pixels: count c at index c.
std::vector<Divider> dividers(int n, int r) {
  std::vector<Divider> out;
  int most = std::min(n, 2 * r + 1);
  out.reserve(std::size_t(most) + 1);
  out.emplace_back(1);  // index 0 is never used
  for (int c = 1; c <= most; ++c) out.emplace_back(std::uint32_t(c));
  return out;
}

int windowCount(int i, int n, int r) { return std::min(i + r, n - 1) - std::max(i - r, 0) + 1; }

// One box pass along a row of n bytes (src and dst distinct).
void boxRow(const std::uint8_t* src, std::uint8_t* dst, int n, int r, const std::vector<Divider>& div) {
  std::uint32_t sum = 0;
  for (int i = 0, end = std::min(r, n - 1); i <= end; ++i) sum += src[i];
  for (int x = 0; x < n; ++x) {
    dst[x] = std::uint8_t(div[std::size_t(windowCount(x, n, r))](sum));
    if (x + r + 1 < n) sum += src[x + r + 1];
    if (x - r >= 0) sum -= src[x - r];
  }
}

// One box pass down every column: column sums slide over whole rows, so the
// memory is walked row by row.
void boxColumns(const std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, int w, int h, int r,
                const std::vector<Divider>& div, std::vector<std::uint32_t>& sums) {
  const std::size_t W = std::size_t(w);
  sums.assign(W, 0);
  for (int y = 0, end = std::min(r, h - 1); y <= end; ++y) {
    const std::uint8_t* s = src.data() + std::size_t(y) * W;
    for (std::size_t x = 0; x < W; ++x) sums[x] += s[x];
  }
  for (int y = 0; y < h; ++y) {
    const Divider d = div[std::size_t(windowCount(y, h, r))];
    std::uint8_t* out = dst.data() + std::size_t(y) * W;
    for (std::size_t x = 0; x < W; ++x) out[x] = std::uint8_t(d(sums[x]));
    if (y + r + 1 < h) {
      const std::uint8_t* add = src.data() + std::size_t(y + r + 1) * W;
      for (std::size_t x = 0; x < W; ++x) sums[x] += add[x];
    }
    if (y - r >= 0) {
      const std::uint8_t* drop = src.data() + std::size_t(y - r) * W;
      for (std::size_t x = 0; x < W; ++x) sums[x] -= drop[x];
    }
  }
}

struct Rgb {
  double r = 0, g = 0, b = 0;
};

double distance(const std::uint8_t* p, const Rgb& ref) {
  double dr = p[0] - ref.r, dg = p[1] - ref.g, db = p[2] - ref.b;
  return std::sqrt(dr * dr + dg * dg + db * db);
}

}  // namespace

void boxSoften(MaskRaster& raster, int radius) {
  const int w = raster.width, h = raster.height;
  if (radius <= 0 || w <= 0 || h <= 0) return;
  const std::vector<Divider> rowDiv = dividers(w, radius), colDiv = dividers(h, radius);
  std::vector<std::uint8_t> across(raster.values.size());
  std::vector<std::uint32_t> sums;
  for (int pass = 0; pass < 3; ++pass) {
    for (int y = 0; y < h; ++y) {
      const std::size_t offset = std::size_t(y) * std::size_t(w);
      boxRow(raster.values.data() + offset, across.data() + offset, w, radius, rowDiv);
    }
    boxColumns(across, raster.values, w, h, radius, colDiv, sums);
  }
}

void boxSoftenReference(MaskRaster& raster, int radius) {
  const int w = raster.width, h = raster.height;
  if (radius <= 0 || w <= 0 || h <= 0) return;
  MaskRaster tmp(w, h);
  for (int pass = 0; pass < 3; ++pass) {
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        unsigned sum = 0, count = 0;
        for (int i = std::max(0, x - radius); i <= std::min(w - 1, x + radius); ++i, ++count) sum += raster.at(i, y);
        tmp.at(x, y) = std::uint8_t(sum / count);
      }
    }
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        unsigned sum = 0, count = 0;
        for (int i = std::max(0, y - radius); i <= std::min(h - 1, y + radius); ++i, ++count) sum += tmp.at(x, i);
        raster.at(x, y) = std::uint8_t(sum / count);
      }
    }
  }
}

MaskRaster skyRaster(const Rgba8Bitmap& bitmap) {
  const int w = bitmap.width, h = bitmap.height;
  MaskRaster grown(std::max(0, w), std::max(0, h));
  if (w <= 0 || h <= 0) return grown;

  // Reference colours from the top rows, per third of the width.
  const int sampleRows = h < 20 ? std::min(4, h) : h / 4;
  Rgb bandSum[3], allSum;
  long bandCount[3] = {0, 0, 0}, allCount = 0;
  for (int b = 0; b < 3; ++b) {
    const int x0 = int(std::int64_t(b) * w / 3), x1 = int(std::int64_t(b + 1) * w / 3);
    for (int y = 0; y < sampleRows; ++y) {
      for (int x = x0; x < x1; ++x) {
        const std::uint8_t* p = bitmap.at(x, y);
        if (p[0] + p[1] + p[2] <= 180) continue;  // mean of the three <= 60: not bright
        bandSum[b].r += p[0];
        bandSum[b].g += p[1];
        bandSum[b].b += p[2];
        ++bandCount[b];
      }
    }
    allSum.r += bandSum[b].r;
    allSum.g += bandSum[b].g;
    allSum.b += bandSum[b].b;
    allCount += bandCount[b];
  }
  if (allCount == 0) return grown;  // a dark top: no sky, and no failure either
  const Rgb global{allSum.r / double(allCount), allSum.g / double(allCount), allSum.b / double(allCount)};
  Rgb reference[3];
  for (int b = 0; b < 3; ++b) {
    reference[b] = bandCount[b] > 15 ? Rgb{bandSum[b].r / double(bandCount[b]), bandSum[b].g / double(bandCount[b]),
                                           bandSum[b].b / double(bandCount[b])}
                                     : global;
  }

  // Growing from the top edge, the tolerance shrinking towards the bottom.
  std::vector<std::uint8_t> bandOf(static_cast<std::size_t>(w));
  for (int x = 0; x < w; ++x) bandOf[std::size_t(x)] = std::uint8_t(std::min<std::int64_t>(std::int64_t(3) * x / w, 2));
  for (int y = 0; y < h; ++y) {
    const double T = 90.0 * (1.0 - 0.6 * double(y) / double(h));
    std::uint8_t* out = &grown.at(0, y);
    const std::uint8_t* above = y > 0 ? &grown.at(0, y - 1) : nullptr;
    for (int x = 0; x < w; ++x) {
      const double d = distance(bitmap.at(x, y), reference[bandOf[std::size_t(x)]]);
      if (d >= T) continue;
      if (y == 0 || above[x] != 0 || (x > 0 && out[x - 1] != 0)) {
        out[x] = std::uint8_t(std::clamp(int((1.0 - d / T) * 255.0), 0, 255));
      }
    }
  }

  // Edges soften outwards without weakening the selection.
  MaskRaster soft = grown;
  boxSoften(soft, std::min(6, std::min(w, h) / 2));
  for (std::size_t i = 0; i < grown.values.size(); ++i) grown.values[i] = std::max(grown.values[i], soft.values[i]);
  return grown;
}

MaskRaster magicWandRaster(const Rgba8Bitmap& bitmap, Point point, double tolerance, int feather) {
  const int w = bitmap.width, h = bitmap.height;
  MaskRaster mask(std::max(0, w), std::max(0, h));
  if (w <= 0 || h <= 0) return mask;
  if (bitmap.pixelCount() > 0xFFFFFFFFu) throw std::length_error("magic wand: bitmap too large");

  auto seedCoordinate = [](double v, int n) {
    double s = std::isfinite(v) ? std::round(v * n) : 0.0;
    return int(std::clamp(s, 0.0, double(n - 1)));
  };
  const int sx = seedCoordinate(point.x, w), sy = seedCoordinate(point.y, h);
  const std::uint8_t* seed = bitmap.at(sx, sy);

  // Squared distances are integers: the largest one within D decides.
  const double t = std::isnan(tolerance) ? 0.0 : std::clamp(tolerance, 0.0, 100.0);
  const double D = t / 100.0 * kMagicWandMaxDistance;
  int maxSquared = int(D * D);
  while (maxSquared >= 0 && std::sqrt(double(maxSquared)) > D) --maxSquared;
  while (std::sqrt(double(maxSquared + 1)) <= D) ++maxSquared;

  // 0 not yet seen, 1 seen and too far, 255 selected. A pixel's fate does not
  // depend on the path that reached it, so a rejected pixel is not examined
  // again.
  std::vector<std::uint8_t>& state = mask.values;
  std::vector<std::uint32_t> stack;
  stack.reserve(1024);
  stack.push_back(std::uint32_t(std::size_t(sy) * std::size_t(w) + std::size_t(sx)));
  while (!stack.empty()) {
    const std::uint32_t i = stack.back();
    stack.pop_back();
    if (state[i] != 0) continue;
    const int x = int(i % std::uint32_t(w)), y = int(i / std::uint32_t(w));
    const std::uint8_t* p = bitmap.at(x, y);
    const int dr = p[0] - seed[0], dg = p[1] - seed[1], db = p[2] - seed[2];
    if (dr * dr + dg * dg + db * db > maxSquared) {
      state[i] = 1;
      continue;
    }
    state[i] = 255;
    if (x > 0 && state[i - 1] == 0) stack.push_back(i - 1);
    if (x + 1 < w && state[i + 1] == 0) stack.push_back(i + 1);
    if (y > 0 && state[i - std::uint32_t(w)] == 0) stack.push_back(i - std::uint32_t(w));
    if (y + 1 < h && state[i + std::uint32_t(w)] == 0) stack.push_back(i + std::uint32_t(w));
  }
  for (std::uint8_t& v : state) v = v == 255 ? 255 : 0;

  if (feather >= 1) boxSoften(mask, std::min(feather, std::min(w, h) / 2));
  return mask;
}

}  // namespace vg
