// The reduced-grid low-pass against the full-size blur it stands for, and
// at the edges of its grid.
#include "render/reduced_lowpass.h"

#include <gtest/gtest.h>

#include <cmath>

#include "render/gaussian_blur.h"

namespace vg {
namespace {

// A smooth picture: a wide low-pass of it is close to the full-size one.
Image smoothImage(const Rect& r) {
  Image img(r);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) {
      float* p = img.at(x, y);
      p[0] = 0.5f + 0.4f * std::sin(float(x) * 0.02f) * std::cos(float(y) * 0.015f);
      p[1] = 0.3f + 0.5f * float(y - r.y) / float(r.height);
      p[2] = 0.6f - 0.3f * std::sin(float(x + y) * 0.01f);
      p[3] = 1.0f;
    }
  return img;
}

// The aux rows apply() hands its kernel, as an image (a grey aux in R).
Image enlarged(const ReducedLowpass& low, const Rect& bounds, bool grey = false) {
  Image image(bounds), aux(bounds);
  low.apply(
      image,
      [&](const kernels::KernelRow& r) {
        for (int i = 0; i < r.n; ++i) {
          if (grey) {
            aux.at(r.x + i, r.y)[0] = r.aux[i];
          } else {
            std::copy_n(r.aux + size_t(i) * 4, 4, aux.at(r.x + i, r.y));
          }
        }
      },
      {});
  return aux;
}

TEST(ReducedLowpass, ColourIsCloseToTheFullSizeBlurOnSmoothPictures) {
  const Rect r{0, 0, 300, 200};
  const Image src = smoothImage(r);
  const Image full = gaussianBlur(src, 16.0f);
  ReducedLowpass low(src, r, 0.25, ReducedLowpass::Source::Colour, darkChannelSigma(16.0, 4));
  const Image aux = enlarged(low, r);
  // Where the picture's edge clamps, the grid repeats its edge cell (the
  // average of the outer 4 columns), not the edge pixel: within the blur's
  // reach of the edges the two differ more.
  const Rect inner = r.grown(-48);
  float worst = 0, worstEdge = 0;
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x)
      for (int c = 0; c < 3; ++c) {
        const float e = std::fabs(aux.at(x, y)[c] - full.at(x, y)[c]);
        (inner.contains(x, y) ? worst : worstEdge) = std::max(inner.contains(x, y) ? worst : worstEdge, e);
      }
  EXPECT_LT(worst, 1e-3f);
  EXPECT_LT(worstEdge, 2e-2f);
}

TEST(ReducedLowpass, DarkChannelFollowsTheMinimum) {
  const Rect r{-20, 10, 160, 90};
  const Image src = smoothImage(r);
  Image dark(r);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) {
      const float* p = src.at(x, y);
      dark.at(x, y)[0] = std::min(p[0], std::min(p[1], p[2]));
    }
  const Image full = gaussianBlur(dark, 6.0f);
  ReducedLowpass low(src, r, 0.5, ReducedLowpass::Source::DarkChannel, darkChannelSigma(6.0, 2));
  const Image aux = enlarged(low, r, true);
  const Rect inner = r.grown(-4);
  float worst = 0;
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) {
      if (inner.contains(x, y)) worst = std::max(worst, std::fabs(aux.at(x, y)[0] - full.at(x, y)[0]));
    }
  EXPECT_LT(worst, 1e-3f);
}

TEST(ReducedLowpass, ConstantPicturesStayConstantAtEveryGridSize) {
  // Down to grids one cell wide or high, where the enlargement mixes a cell
  // with itself.
  for (Rect r : {Rect{0, 0, 5, 40}, Rect{3, -4, 40, 3}, Rect{0, 0, 2, 2}, Rect{-7, 0, 97, 61}}) {
    SCOPED_TRACE(r);
    Image src(r);
    for (int y = r.y; y < r.bottom(); ++y)
      for (int x = r.x; x < r.right(); ++x) std::copy_n(std::array<float, 4>{0.2f, 0.5f, 0.7f, 1}.data(), 4, src.at(x, y));
    for (auto source : {ReducedLowpass::Source::Colour, ReducedLowpass::Source::DarkChannel}) {
      // Sigma 20 cells does not stream: the dark channel takes the RGBA path.
      for (double sigma : {3.0, 20.0}) {
        ReducedLowpass low(src, r, 0.12, source, sigma);
        const Image aux = enlarged(low, r, source == ReducedLowpass::Source::DarkChannel);
        for (int y = r.y; y < r.bottom(); ++y)
          for (int x = r.x; x < r.right(); ++x) {
            ASSERT_NEAR(aux.at(x, y)[0], 0.2f, 1e-6f);  // R, and min(R, G, B)
            if (source == ReducedLowpass::Source::Colour) ASSERT_NEAR(aux.at(x, y)[2], 0.7f, 1e-6f);
          }
      }
    }
  }
}

TEST(ReducedLowpass, ARegionSeesTheSameCellsAsTheWhole) {
  // Cells are anchored to the output rectangle, so a region's low-pass is the
  // same crop of the whole one, away from where the region's own edges clamp.
  const Rect whole{0, 0, 400, 300};
  const Image src = smoothImage(whole);
  const Rect region{101, 77, 180, 150};
  Image part(region);
  for (int y = region.y; y < region.bottom(); ++y) std::copy_n(src.at(region.x, y), size_t(region.width) * 4, part.row(y));
  const Image a = enlarged(ReducedLowpass(src, whole, 0.12, ReducedLowpass::Source::Colour, 2.0), whole);
  const Image b = enlarged(ReducedLowpass(part, whole, 0.12, ReducedLowpass::Source::Colour, 2.0), region);
  const Rect inner = region.grown(-60);
  for (int y = inner.y; y < inner.bottom(); ++y)
    for (int x = inner.x; x < inner.right(); ++x)
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(b.at(x, y)[c], a.at(x, y)[c], 2e-3f) << x << "," << y;
}

}  // namespace
}  // namespace vg
