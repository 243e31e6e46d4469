// The two neighbourhood steps of an export, as band sources that pull only
// the rows they need from the source before them:
//
// LanczosResizeSource: separable Lanczos-3 resampling to an integral target
//   size. Scales sx = targetW / sourceW and sy = targetH / sourceH, so the
//   result is exactly the target rectangle at the origin. An output pixel
//   centre o + 0.5 maps to the source position (o + 0.5) / s; when shrinking,
//   the kernel is stretched by 1 / s (support 3 / s source pixels) so it also
//   low-pass filters. Taps outside the image repeat the edge pixel. Weights are
//   normalised to sum 1. Works on premultiplied values, so a cut-out's edge
//   keeps its colour instead of taking in the black of its transparent
//   surroundings; the negative lobes may overshoot 0...1 slightly at hard
//   edges (the output conversion clips, and divides colour by an alpha above
//   1). A picture that is not opaque has the colour of its fully transparent
//   pixels (which stages before may have lifted: grain, blacks) taken as 0
//   before filtering: they carry no light into their neighbours.
//
// UnsharpMaskSource: c + (c - gauss(c, sigma = radius)) x intensity on the
//   colour channels, alpha passed through when the picture is opaque; the
//   blur is the engine's clamped-edge Gaussian (gaussian_blur.h), so a band
//   equals the same rows of a whole-image unsharp mask. A picture that is not
//   opaque is sharpened on all four premultiplied channels: colour and alpha
//   move together, so the straight colour of a cut-out's edge is kept and
//   its transparent surroundings do not sharpen into a halo.
//
// Both render a band by asking their input for the band plus the rows their
// kernel reaches, and split the work over rows with the shared thread pool.
#pragma once

#include <vector>

#include "render/band_source.h"

namespace vg {

class LanczosResizeSource final : public BandSource {
 public:
  LanczosResizeSource(BandSource& input, int targetWidth, int targetHeight);
  int width() const override { return width_; }
  int height() const override { return height_; }
  bool opaque() const override { return input_.opaque(); }
  Image renderBand(const Rect& rect) override;
  // The input's halo in output rows, plus the Lanczos taps.
  int haloRows() const override;

  // One output pixel's taps along an axis: input indices (edge-clamped) and
  // normalised weights.
  struct Taps {
    std::vector<int> first;   // per output index: offset into index/weight
    std::vector<int> count;   // per output index: number of taps
    std::vector<int> index;
    std::vector<float> weight;
  };
  static Taps makeTaps(int inSize, int outSize);

 private:
  BandSource& input_;
  int width_, height_;
  Taps xTaps_, yTaps_;
};

class UnsharpMaskSource final : public BandSource {
 public:
  UnsharpMaskSource(BandSource& input, double radius, double intensity);
  int width() const override { return input_.width(); }
  int height() const override { return input_.height(); }
  bool opaque() const override { return input_.opaque(); }
  Image renderBand(const Rect& rect) override;
  int haloRows() const override { return input_.haloRows() + reach_; }

 private:
  BandSource& input_;
  float sigma_;
  float intensity_;
  int reach_;
};

}  // namespace vg
