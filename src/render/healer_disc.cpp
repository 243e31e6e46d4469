// Healer: the disc heal (ring samples, candidates, scoring, colour match,
// feathered copy) and the flat fill. The rules are stated in healer.h.
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "render/healer.h"

namespace vg {

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

// True when the patch of half-size p around (x, y) does not fit the bitmap.
bool patchLeaves(double x, double y, int p, int width, int height) {
  return x <= p || y <= p || x >= width - p || y >= height - p;
}

uint8_t toByte(double v) {
  v = std::clamp(v, 0.0, 255.0);
  return uint8_t(std::floor(v + 0.5));
}

// Bounding rows/columns of the pixels whose centres may lie within r of c.
struct DiscBox {
  int x0, y0, x1, y1;
};

DiscBox discBox(int width, int height, double cx, double cy, double r) {
  return {std::max(0, int(std::floor(cx - r - 0.5))), std::max(0, int(std::floor(cy - r - 0.5))),
          std::min(width - 1, int(std::ceil(cx + r))), std::min(height - 1, int(std::ceil(cy + r)))};
}

int64_t scoreOne(const Healer::Bitmap& bitmap, const Healer::ForbiddenMask& forbidden, const Healer::Dab& dab,
                 std::span<const Healer::RingSample> samples, Healer::Candidate candidate, int patch) {
  if (patchLeaves(dab.cx + candidate.dx, dab.cy + candidate.dy, patch, bitmap.width, bitmap.height)) return -1;
  const bool checkForbidden = forbidden.pixelCount == bitmap.pixelCount();
  int64_t score = 0;
  for (const Healer::RingSample& s : samples) {
    int sx = s.x + candidate.dx, sy = s.y + candidate.dy;
    if (!bitmap.contains(sx, sy)) return -1;
    if (checkForbidden && forbidden.test(size_t(sy) * size_t(bitmap.width) + size_t(sx))) return -1;
    const uint8_t* a = bitmap.at(s.x, s.y);
    const uint8_t* b = bitmap.at(sx, sy);
    int dr = int(a[0]) - b[0], dg = int(a[1]) - b[1], db = int(a[2]) - b[2];
    score += dr * dr + dg * dg + db * db;
  }
  return score;
}

struct PixelWrite {
  size_t offset;
  uint8_t value[4];
};

}  // namespace

int Healer::patchHalfSize(double radius) { return int(std::floor(1.6 * radius)) + 1; }

std::vector<Healer::RingSample> Healer::ringSamples(int width, int height, double cx, double cy, double radius) {
  std::vector<RingSample> samples;
  const double whole = std::floor(radius);
  const double step =
      whole * 2.2 <= 10.0 ? kTwoPi / 10.0 : std::max(kTwoPi / (whole * 2.2), std::numbers::pi / 24.0);
  for (int i = 0;; ++i) {
    double theta = i * step;
    if (theta >= kTwoPi) break;
    double c = std::cos(theta), s = std::sin(theta);
    for (double k : {1.25, 1.5}) {
      double x = std::round(cx + k * radius * c), y = std::round(cy + k * radius * s);
      if (x >= 0 && y >= 0 && x < width && y < height) samples.push_back({int(x), int(y)});
    }
  }
  return samples;
}

std::array<Healer::Candidate, Healer::kCandidateCount> Healer::candidates(double radius) {
  std::array<Candidate, kCandidateCount> out{};
  const double rings[3] = {2.2, 3.0, 3.8};
  int n = 0;
  for (double ring : rings) {
    for (int i = 0; i < 16; ++i) {
      double phi = i * kTwoPi / 16.0;
      out[n++] = {int(std::round(ring * radius * std::cos(phi))), int(std::round(ring * radius * std::sin(phi)))};
    }
  }
  return out;
}

std::array<int64_t, Healer::kCandidateCount> Healer::scoreCandidates(const Bitmap& bitmap,
                                                                    const ForbiddenMask& forbidden, const Dab& dab,
                                                                    std::span<const RingSample> samples,
                                                                    Scoring scoring) {
  std::array<int64_t, kCandidateCount> scores;
  scores.fill(-1);
  const std::array<Candidate, kCandidateCount> cands = candidates(dab.radius);
  const int patch = patchHalfSize(dab.radius);
  if (scoring == Scoring::automatic) {
    scoring = bitmap.pixelCount() >= kParallelMinPixels && samples.size() >= kParallelMinSamples ? Scoring::parallel
                                                                                                  : Scoring::serial;
  }
  if (scoring == Scoring::parallel) {
    // Each iteration writes only its own slot; the pick below is the same
    // scan as in the serial case, so both paths choose the same candidate.
    tbb::parallel_for(0, kCandidateCount,
                      [&](int i) { scores[i] = scoreOne(bitmap, forbidden, dab, samples, cands[i], patch); });
  } else {
    for (int i = 0; i < kCandidateCount; ++i) scores[i] = scoreOne(bitmap, forbidden, dab, samples, cands[i], patch);
  }
  return scores;
}

int Healer::pickCandidate(const std::array<int64_t, kCandidateCount>& scores) {
  int best = -1;
  for (int i = 0; i < kCandidateCount; ++i) {
    if (scores[i] < 0) continue;
    if (best < 0 || scores[i] < scores[best]) best = i;
  }
  return best;
}

void Healer::flatFill(Bitmap& bitmap, std::span<const RingSample> samples, const Dab& dab) {
  if (samples.empty()) return;
  double sum[4] = {0, 0, 0, 0};
  for (const RingSample& s : samples) {
    const uint8_t* p = bitmap.at(s.x, s.y);
    for (int c = 0; c < 4; ++c) sum[c] += p[c];
  }
  double mean[4];
  for (int c = 0; c < 4; ++c) mean[c] = std::round(sum[c] / double(samples.size()));

  const double r = dab.radius, half = 0.5 * r;
  const DiscBox box = discBox(bitmap.width, bitmap.height, dab.cx, dab.cy, r);
  for (int y = box.y0; y <= box.y1; ++y) {
    double dy = y + 0.5 - dab.cy;
    for (int x = box.x0; x <= box.x1; ++x) {
      double dx = x + 0.5 - dab.cx;
      double d = std::sqrt(dx * dx + dy * dy);
      if (d > r) continue;
      double w = d <= half ? 1.0 : (r - d) / half;
      uint8_t* p = bitmap.at(x, y);
      for (int c = 0; c < 4; ++c) p[c] = toByte(p[c] + w * (mean[c] - p[c]));
    }
  }
}

Healer::DiscOutcome Healer::healDisc(Bitmap& bitmap, const ForbiddenMask& forbidden, const Dab& dab,
                                     Options options) {
  const double r = dab.radius;
  if (!(r > 0) || !std::isfinite(r) || !std::isfinite(dab.cx) || !std::isfinite(dab.cy)) {
    return DiscOutcome::untouched;
  }
  const std::vector<RingSample> samples = ringSamples(bitmap.width, bitmap.height, dab.cx, dab.cy, r);
  if (samples.empty()) return DiscOutcome::untouched;
  const int patch = patchHalfSize(r);
  if (samples.size() < 7 || patchLeaves(dab.cx, dab.cy, patch, bitmap.width, bitmap.height)) {
    flatFill(bitmap, samples, dab);
    return DiscOutcome::flatFilled;
  }

  const std::array<int64_t, kCandidateCount> scores =
      scoreCandidates(bitmap, forbidden, dab, samples, options.scoring);
  const int best = pickCandidate(scores);
  if (best < 0) {
    flatFill(bitmap, samples, dab);
    return DiscOutcome::flatFilled;
  }
  const Candidate source = candidates(r)[best];

  // Colour match: the difference of the two rings' means, limited.
  double sumDest[4] = {0, 0, 0, 0}, sumSource[4] = {0, 0, 0, 0};
  for (const RingSample& s : samples) {
    const uint8_t* a = bitmap.at(s.x, s.y);
    const uint8_t* b = bitmap.at(s.x + source.dx, s.y + source.dy);
    for (int c = 0; c < 4; ++c) {
      sumDest[c] += a[c];
      sumSource[c] += b[c];
    }
  }
  double offset[4];
  const double limit = kColourMatchLimit;
  for (int c = 0; c < 4; ++c) {
    offset[c] = std::clamp((sumDest[c] - sumSource[c]) / double(samples.size()), -limit, limit);
  }

  // Feathered copy. New values are gathered first and written afterwards, so
  // no source pixel is read after it was overwritten.
  std::vector<PixelWrite> writes;
  const DiscBox box = discBox(bitmap.width, bitmap.height, dab.cx, dab.cy, r);
  writes.reserve(size_t(box.x1 - box.x0 + 1) * size_t(std::max(0, box.y1 - box.y0 + 1)));
  const double inner = 0.7 * r, ramp = 0.3 * r;
  for (int y = box.y0; y <= box.y1; ++y) {
    double dy = y + 0.5 - dab.cy;
    for (int x = box.x0; x <= box.x1; ++x) {
      double dx = x + 0.5 - dab.cx;
      double d = std::sqrt(dx * dx + dy * dy);
      if (d > r) continue;
      double w = d <= inner ? 1.0 : (r - d) / ramp;
      if (w <= 0.01) continue;
      int sx = x + source.dx, sy = y + source.dy;
      if (!bitmap.contains(sx, sy)) continue;
      const uint8_t* dest = bitmap.at(x, y);
      const uint8_t* src = bitmap.at(sx, sy);
      PixelWrite write{size_t(dest - bitmap.pixels.data()), {}};
      for (int c = 0; c < 4; ++c) write.value[c] = toByte(dest[c] + w * (src[c] + offset[c] - dest[c]));
      writes.push_back(write);
    }
  }
  for (const PixelWrite& write : writes) std::copy_n(write.value, 4, bitmap.pixels.data() + write.offset);
  return DiscOutcome::textureFilled;
}

}  // namespace vg
