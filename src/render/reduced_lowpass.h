// Wide low-passes on a reduced grid: clarity's blur of the colour, and
// dehaze's blur of the dark channel (the smallest of R, G and B).
//
// A wide Gaussian at full size would cost a pass of many taps per pixel; a
// picture's wide low-pass has no detail a coarser grid cannot hold. So:
// - the image is box-reduced by `scale` onto cells anchored to the output
//   rectangle's origin (every region and band of a render sees the same
//   cells, so a region renders as the same crop of the whole);
// - the grid is blurred (edges clamped) at its own size;
// - the kernel reads it enlarged bilinearly (cell centres at the cells'
//   middles, clamped at the grid's edges), made row by row as the kernel
//   consumes it: no full-size buffer.
// The enlargement goes along the rows of the grid first, into one wide row
// per grid row a band needs, then between the two wide rows around each
// output row.
//
// The reduction can be fed row by row by the pass that makes the rows (no
// read of the whole picture of its own): add() takes each row of the image
// once, from any thread and in any order, and every cell row still sums its
// source rows in ascending order (rows that come early wait as copies), so
// the grid is the same bits however the rows came.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "render/grey_image.h"
#include "render/image.h"
#include "render/kernels.h"

namespace vg {

using RowFn = std::function<void(const kernels::KernelRow&)>;

class ReducedLowpass {
 public:
  enum class Source {
    Colour,       // the RGBA pixels (kernels read R, G and B)
    DarkChannel,  // min(R, G, B), handed on as one float per pixel
  };

  // The reduction of `image` by `scale` (at most 1; at 1 a cell is a pixel
  // and the enlargement gives the grid back), blurred by `sigma` grid cells.
  ReducedLowpass(const Image& image, const Rect& outputRect, double scale, Source source, double sigma);
  // The same for an image of `bounds` whose rows come through add().
  ReducedLowpass(const Rect& bounds, const Rect& outputRect, double scale, Source source, double sigma);
  ~ReducedLowpass();

  // Row y of the image (bounds.width RGBA pixels). Thread-safe.
  void add(int y, const float* rgba);
  // After the last add(): blurs the grid. Throws std::logic_error when a row
  // is missing.
  void finish();
  // Every row of `image` (of the bounds given), in parallel, then finish().
  void addAll(const Image& image);

  // The enlarged low-pass, row by row, for one thread (after finish()): the
  // aux row for row y of the image, valid until the next call. Rows in
  // ascending order cost one interpolation between two wide rows each.
  class Rows {
   public:
    explicit Rows(const ReducedLowpass& low);
    const float* operator()(int y);

   private:
    const float* wideRow(int gridRow);
    const ReducedLowpass& low_;
    std::vector<int> c0_;
    std::vector<float> tx_, aux_, wide_[2];
    int held_[2];
  };

  // Runs `row(r, rows)` over every row r of image, in parallel bands, where
  // rows(y) is the enlarged low-pass as an aux row (RGBA pixels for Colour,
  // one float per pixel for DarkChannel) across the bounds the low-pass was
  // made for, y among their rows; then `after` (if any) on the finished row.
  using RowWithLowpass = std::function<void(const kernels::KernelRow& r, Rows& rows)>;
  void apply(Image& image, const RowWithLowpass& row, const RowFn& after) const;

  const Rect& gridBounds() const { return bounds_; }

 private:
  struct Collector;
  void reduceColumns(int cellRow, const float* acc);

  Source source_;
  Rect outputRect_;
  double scale_;
  Rect image_;      // the image's bounds
  Rect bounds_;     // the grid's cells
  bool pixelCells_ = false;  // scale 1: each cell is the pixel under it
  Image colour_;    // Colour: RGBA cells
  GreyImage dark_;  // DarkChannel: one float per cell
  double sigma_;
  std::unique_ptr<Collector> collector_;  // until finish()
};

// Dehaze's dark channel is blurred with sigma 6 s: below 6 pixels of sigma at
// full size (darkChannelFactor 1), from 6 on a grid reduced by 2 and from 12
// by 4, where the Gaussian gives up the variance the box reduction and the
// bilinear enlargement add (darkChannelSigma).
int darkChannelFactor(double sigma);
double darkChannelSigma(double sigma, int factor);

}  // namespace vg
