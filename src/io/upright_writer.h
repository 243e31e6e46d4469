// UprightWriter: turns decoded rows of a stored raster into the upright
// working image, converting colour on the way (one pass, no intermediate
// float copy).
//
// The output Image is allocated once, already in its upright size (width and
// height swapped for orientations 5-8), and not cleared: every pixel is
// written exactly once. Each stored row is converted by
// InputColor and placed where its orientation sends it: for orientation 1
// straight into the output row; mirrored and turned rows through a small
// per-call buffer that is scattered with a constant step; for orientations
// 5-8 (stored rows become upright columns) in tiles of 64 stored columns, so
// that each upright row receives a run of neighbouring pixels at once.
//
// write() may run on several threads at once for disjoint row ranges; rows
// are grouped in blocks of kBlockRows so that rotated writes from different
// threads rarely share a cache line.
//
// opaque(): when the samples carry alpha, each converted run is checked for
// an alpha below 1 while it is still in cache, so the caller learns whether
// the picture has any transparency without a second pass over the image.
// Without an alpha sample the picture is opaque by construction.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "io/input_color.h"
#include "render/image.h"

namespace vg {

class UprightWriter {
 public:
  static constexpr int kBlockRows = 16;

  // Throws std::bad_alloc when the output cannot be allocated.
  UprightWriter(int storedWidth, int storedHeight, int orientation, const InputColor& color);

  // Converts stored rows [y0, y0 + count); row y0 starts at `rows`, the next
  // `pitch` bytes later.
  void write(const uint8_t* rows, size_t pitch, int y0, int count);

  // Converts a whole stored raster, rows split over the thread pool.
  void writeAll(const uint8_t* rows, size_t pitch);

  int storedWidth() const { return width_; }
  int storedHeight() const { return height_; }
  Image take() { return std::move(image_); }
  // True when no pixel written so far has an alpha below 1 (NaN counts as
  // transparent). Read it after the last write() has returned.
  bool opaque() const { return !transparent_.load(std::memory_order_relaxed); }

 private:
  void writeTransposed(const uint8_t* rows, size_t pitch, int y0, int count);
  // Notes transparency among `count` converted RGBA pixels.
  void noteAlpha(const float* rgba, size_t count);

  int width_;
  int height_;
  int orientation_;
  const InputColor& color_;
  Image image_;
  std::atomic<bool> transparent_{false};
};

}  // namespace vg
