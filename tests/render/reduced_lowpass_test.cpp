// The reduced-grid low-pass against the full-size blur it stands for, and
// at the edges of its grid.
#include "render/reduced_lowpass.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <stdexcept>
#include <thread>

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

// min(R, G, B) of src, in R.
Image darkChannel(const Image& src) {
  const Rect r = src.bounds();
  Image dark(r);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) {
      const float* p = src.at(x, y);
      dark.at(x, y)[0] = std::min(p[0], std::min(p[1], p[2]));
    }
  return dark;
}

// The aux rows apply() hands its kernel, as an image (a grey aux in R).
Image enlarged(const ReducedLowpass& low, const Rect& bounds, bool grey = false) {
  Image image(bounds), aux(bounds);
  low.apply(
      image,
      [&](const kernels::KernelRow& r, ReducedLowpass::Rows& rows) {
        const float* a = rows(r.y);
        for (int i = 0; i < r.n; ++i) {
          if (grey) {
            aux.at(r.x + i, r.y)[0] = a[i];
          } else {
            std::copy_n(a + size_t(i) * 4, 4, aux.at(r.x + i, r.y));
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
  const Image full = gaussianBlur(darkChannel(src), 6.0f);
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

TEST(ReducedLowpass, RowsFedInAnyOrderGiveTheSameBits) {
  // As a pass hands them on: from several threads, each with its rows in
  // order, or in any order at all. Cells whose rows come from two threads,
  // and rows on a fractional cell edge, sum in the same order every time.
  // The rectangle is not anchored at the output's origin.
  const Rect output{0, 0, 203, 157};
  const Rect r{5, 3, 190, 141};
  const Image src = smoothImage(r);
  for (auto source : {ReducedLowpass::Source::Colour, ReducedLowpass::Source::DarkChannel}) {
    const bool grey = source == ReducedLowpass::Source::DarkChannel;
    for (double scale : {0.12, 0.5}) {
      SCOPED_TRACE(scale);
      const Image whole = enlarged(ReducedLowpass(src, output, scale, source, 2.0), r, grey);
      std::vector<int> order(size_t(r.height));
      std::iota(order.begin(), order.end(), r.y);
      std::vector<std::vector<int>> orders;
      orders.push_back({order.rbegin(), order.rend()});
      std::shuffle(order.begin(), order.end(), std::mt19937(7));
      orders.push_back(order);
      for (const std::vector<int>& rows : orders) {
        ReducedLowpass fed(r, output, scale, source, 2.0);
        for (int y : rows) fed.add(y, src.row(y));
        fed.finish();
        const Image aux = enlarged(fed, r, grey);
        for (int y = r.y; y < r.bottom(); ++y)
          ASSERT_EQ(std::memcmp(aux.row(y), whole.row(y), size_t(r.width) * 16), 0) << "row " << y;
      }
      // Two threads: even rows going down, odd rows coming up.
      ReducedLowpass fed(r, output, scale, source, 2.0);
      std::thread down([&] {
        for (int y = r.y; y < r.bottom(); y += 2) fed.add(y, src.row(y));
      });
      std::thread up([&] {
        for (int y = r.bottom() - 1; y >= r.y; --y)
          if ((y - r.y) % 2 == 1) fed.add(y, src.row(y));
      });
      down.join();
      up.join();
      fed.finish();
      const Image aux = enlarged(fed, r, grey);
      for (int y = r.y; y < r.bottom(); ++y)
        ASSERT_EQ(std::memcmp(aux.row(y), whole.row(y), size_t(r.width) * 16), 0) << "row " << y;
    }
  }
}

TEST(ReducedLowpass, ScaleOneIsTheFullSizeBlur) {
  // Cells of one pixel, counted from an output origin that is not the
  // image's: the dark channel's blur at full size, exactly.
  const Rect output{-7, -2, 80, 60};
  const Rect r{5, 3, 60, 40};
  const Image src = smoothImage(r);
  const Image expected = gaussianBlur(darkChannel(src), 2.0f);
  const Image aux = enlarged(ReducedLowpass(src, output, 1.0, ReducedLowpass::Source::DarkChannel, 2.0), r, true);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) ASSERT_EQ(aux.at(x, y)[0], expected.at(x, y)[0]) << x << "," << y;
}

TEST(ReducedLowpass, AMissingRowIsAnErrorNotAGrid) {
  const Rect r{0, 0, 40, 30};
  const Image src = smoothImage(r);
  ReducedLowpass low(r, r, 0.25, ReducedLowpass::Source::Colour, 2.0);
  for (int y = r.y; y < r.bottom(); ++y)
    if (y != 17) low.add(y, src.row(y));
  Image out(r);
  EXPECT_THROW(low.apply(out, [](const kernels::KernelRow&, ReducedLowpass::Rows&) {}, {}), std::logic_error);
  EXPECT_THROW(low.finish(), std::logic_error);
}

}  // namespace
}  // namespace vg
