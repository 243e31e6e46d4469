// Healer: removes painted-over objects (passers-by, litter, skin blemishes) by
// filling each painted disc from nearby texture. A pure CPU algorithm on an
// 8-bit RGBA bitmap; the render engine's heal stage feeds it and takes the
// result back into the working space.
//
// Coordinates. Stroke points are normalised to the bitmap ((0, 0) top-left to
// (1, 1) bottom-right); a stroke's size is its diameter relative to the bitmap
// width. Dab centres are in continuous pixel coordinates (x * width,
// y * height): pixel (px, py) covers [px, px + 1) x [py, py + 1) and has its
// centre at (px + 0.5, py + 0.5).
//
// From strokes to dabs (strokeDabs). Radius r = size x width x 0.5, limited to
// at most 0.2 x the shorter side, then to at least 3 pixels; a stroke whose
// radius is not finite is skipped. Along the polyline dabs are spaced
// s = max(0.5 r, 1): the first point gets a dab, and each segment of length d
// adds n = max(floor(d / s), 1) dabs evenly up to and including its end
// point. Dabs whose centre falls outside the image (a point outside 0...1, or
// an interpolated centre between such points) are dropped; the polyline is not
// re-joined across them, so a stroke that leaves the picture and comes back
// does not paint a straight line across it.
//
// Disc heal (healDisc), centre c, radius r, in place:
//   patch half-size p = floor(1.6 r) + 1;
//   ring samples: angular step 2 pi / 10 when floor(r) x 2.2 <= 10, else
//     max(2 pi / (floor(r) x 2.2), pi / 24); for each angle two samples, at
//     1.25 r and 1.5 r, rounded to pixel indices; samples off the bitmap are
//     dropped. No sample: nothing is done. Fewer than 7 samples, or a patch
//     that leaves the bitmap (cx <= p, cy <= p, cx >= W - p, cy >= H - p): flat
//     fill;
//   candidates: 48 displacements, rings 2.2 r, 3.0 r, 3.8 r (ring first) by
//     16 angles i x 2 pi / 16, each rounded to whole pixels so the texture is
//     copied without resampling; a candidate whose patch leaves the bitmap is
//     skipped;
//   score: sum over ring samples of the squared RGB difference between the
//     sample and the pixel at the same offset from the candidate centre; a
//     forbidden pixel rejects the candidate. The smallest score wins, the
//     earlier candidate on ties. Scores go into a 48-slot table (-1 = not
//     valid); on bitmaps of >= 2,000,000 pixels with more than 31 ring samples
//     the slots are filled in parallel, which picks exactly what the serial
//     loop picks;
//   no valid candidate: flat fill;
//   colour match: per channel (R, G, B, A) the mean of the ring samples minus
//     the mean of the candidate's samples, limited to [-48, 48];
//   copy: every pixel whose centre lies within r of c gets weight 1 up to
//     0.7 r and (r - d) / (0.3 r) beyond; weights <= 0.01 leave the pixel
//     alone; dest + w (source + offset - dest), rounded, clamped to 0...255.
//     Source pixels are read before any destination pixel is written.
// Flat fill: target = the rounded mean of R, G, B, A over the ring samples;
//   every pixel within r moves towards it with weight 1 up to r / 2 and
//   (r - d) / (r / 2) beyond, rounded, clamped to 0...255.
//
// Forbidden pixels. Before the dabs of a stroke are healed, every dab of that
// stroke marks the pixels whose centres lie within forbiddenRadius(r) =
// r + max(2, 0.25 r) of its centre; marks accumulate over the strokes healed so
// far. The enlargement covers the soft fringe of a blemish (a shadow, a halo,
// lens blur) that reaches past where the brush edge was drawn, and the half
// pixel by which sample positions are rounded; at a quarter radius it still
// leaves the 3.0 r candidate ring usable next to an isolated dab (its nearest
// samples lie 1.5 r from the dab centre). Areas of strokes that come later in
// the list are not forbidden while an earlier stroke heals: a stroke's result
// depends only on the strokes before it, exactly as the user saw it when the
// stroke was painted, and healing a list in two steps (a healed prefix, then
// the rest) gives the same pixels as healing it in one go.
//
// Cancellation: the token is checked before every dab; once set, the run ends
// without a result. Everything else is deterministic: the same bitmap and
// strokes give the same bytes, with serial or parallel scoring.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "render/cancel_token.h"

namespace vg {

// How the healer scores the 48 candidates of a dab. automatic: in parallel on
// large bitmaps (Healer::kParallelMinPixels), serially otherwise. The other
// two force one path (tests, benchmarks); both pick the same candidate.
enum class HealScoring { automatic, serial, parallel };

struct HealOptions {
  HealScoring scoring = HealScoring::automatic;
};

class Healer {
 public:
  // 8-bit RGBA, 4 bytes per pixel in the order R, G, B, A, rows top to bottom,
  // no padding between rows.
  struct Bitmap {
    std::vector<uint8_t> pixels;
    int width = 0;
    int height = 0;

    Bitmap() = default;
    // Zeroed pixels; negative sizes count as 0.
    Bitmap(int width, int height);

    size_t pixelCount() const { return size_t(width) * size_t(height); }
    bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    uint8_t* at(int x, int y) { return pixels.data() + (size_t(y) * size_t(width) + size_t(x)) * 4; }
    const uint8_t* at(int x, int y) const {
      return pixels.data() + (size_t(y) * size_t(width) + size_t(x)) * 4;
    }

    friend bool operator==(const Bitmap&, const Bitmap&) = default;
  };

  // One bit per pixel in row-major order, bit i % 64 of word i / 64 for pixel
  // i. A set bit marks a pixel that must not be used as a source.
  struct ForbiddenMask {
    std::vector<uint64_t> words;
    size_t pixelCount = 0;

    ForbiddenMask() = default;
    explicit ForbiddenMask(size_t pixelCount);

    bool test(size_t i) const { return (words[i >> 6] >> (i & 63)) & 1u; }
    void set(size_t i) { words[i >> 6] |= uint64_t(1) << (i & 63); }
    // Sets every pixel of a width x height bitmap whose centre lies within
    // radius of (cx, cy).
    void markDisc(int width, int height, double cx, double cy, double radius);
  };

  struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
  };

  // One heal stroke in the bitmap's normalised frame.
  struct Stroke {
    std::vector<Point> points;
    double size = 0;  // diameter relative to the bitmap width
    friend bool operator==(const Stroke&, const Stroke&) = default;
  };

  // One disc to heal, in continuous pixel coordinates.
  struct Dab {
    double cx = 0;
    double cy = 0;
    double radius = 0;
    friend bool operator==(const Dab&, const Dab&) = default;
  };

  struct RingSample {
    int x = 0;
    int y = 0;
  };

  // A candidate source: the whole-pixel displacement from the disc centre.
  struct Candidate {
    int dx = 0;
    int dy = 0;
  };

  using Scoring = HealScoring;
  using Options = HealOptions;
  enum class DiscOutcome { untouched, flatFilled, textureFilled };

  static constexpr int kCandidateCount = 48;
  static constexpr size_t kParallelMinPixels = 2'000'000;
  static constexpr size_t kParallelMinSamples = 32;
  static constexpr int kColourMatchLimit = 48;

  // Stroke radius in pixels, or nothing when the stroke is to be skipped.
  static std::optional<double> strokeRadius(double size, int width, int height);
  // The dabs of one stroke on a width x height bitmap, in painting order.
  static std::vector<Dab> strokeDabs(const Stroke& stroke, int width, int height);
  static double forbiddenRadius(double radius);

  static int patchHalfSize(double radius);
  static std::vector<RingSample> ringSamples(int width, int height, double cx, double cy, double radius);
  static std::array<Candidate, kCandidateCount> candidates(double radius);

  // Scores of the 48 candidates (-1 where skipped or rejected) and the pick
  // among them (-1 when none is valid).
  static std::array<int64_t, kCandidateCount> scoreCandidates(const Bitmap& bitmap, const ForbiddenMask& forbidden,
                                                              const Dab& dab, std::span<const RingSample> samples,
                                                              Scoring scoring);
  static int pickCandidate(const std::array<int64_t, kCandidateCount>& scores);

  // Heals one disc in place.
  static DiscOutcome healDisc(Bitmap& bitmap, const ForbiddenMask& forbidden, const Dab& dab, Options options = {});
  static void flatFill(Bitmap& bitmap, std::span<const RingSample> samples, const Dab& dab);

  // Heals strokes[alreadyApplied...] into the bitmap in place; the first
  // alreadyApplied strokes are taken as healed before (their areas are
  // forbidden but not painted again). Returns false, with the bitmap partly
  // healed, when the token was cancelled before a dab.
  static bool healInPlace(Bitmap& bitmap, std::span<const Stroke> strokes, size_t alreadyApplied,
                          const AsyncCancelToken* token, Options options = {});

  // The healed bitmap, or nothing when cancelled.
  static std::optional<Bitmap> heal(Bitmap bitmap, std::span<const Stroke> strokes,
                                    const AsyncCancelToken* token = nullptr, Options options = {});
};

}  // namespace vg
