// The banded resize and sharpening stages: a band must equal the same rows of
// the whole image, whatever the band height, and the filters must do what
// their maths says on images whose answer is known.
#include <gtest/gtest.h>

#include <cmath>

#include "io/export_stages.h"
#include "render/gaussian_blur.h"

namespace vg {
namespace {

Image pattern(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = float((x * 37 + y * 11) % 17) / 16.0f;
      p[1] = float(x) / float(w);
      p[2] = ((x / 3 + y / 5) % 2) ? 0.9f : 0.1f;
      p[3] = 0.5f + 0.5f * float(y % 2);
    }
  return img;
}

// Renders `source` in bands of `rows` and stitches them.
Image stitched(BandSource& source, int rows) {
  Image out(source.width(), source.height());
  for (int y0 = 0; y0 < source.height(); y0 += rows) {
    int n = std::min(rows, source.height() - y0);
    Image band = source.renderBand(Rect{0, y0, source.width(), n});
    EXPECT_EQ(band.bounds(), (Rect{0, y0, source.width(), n}));
    for (int y = y0; y < y0 + n; ++y)
      std::copy(band.row(y), band.row(y) + size_t(source.width()) * 4, out.row(y));
  }
  return out;
}

float maxDifference(const Image& a, const Image& b) {
  float worst = 0;
  for (int y = 0; y < a.height(); ++y)
    for (int i = 0; i < a.width() * 4; ++i) worst = std::max(worst, std::fabs(a.row(y)[i] - b.row(y)[i]));
  return worst;
}

TEST(ExportStages, BandsEqualTheWholeImageForEveryBandHeight) {
  Image src = pattern(83, 71);
  ImageBandSource base(src);
  LanczosResizeSource down(base, 40, 23);
  UnsharpMaskSource sharp(down, 1.6, 0.7);
  Image whole = stitched(sharp, 23);
  for (int rows : {1, 2, 5, 7, 22}) EXPECT_EQ(maxDifference(whole, stitched(sharp, rows)), 0.0f) << rows;

  // And the sharpened band equals the engine's whole-image unsharp mask on
  // the colour; the pattern is partly transparent, so alpha is sharpened
  // with it (same formula, same blur).
  Image resized = stitched(down, 23);
  Image reference = unsharpMask(resized, 1.6f, 0.7f);
  Image blurred = gaussianBlur(resized, 1.6f, resized.bounds());
  for (int y = 0; y < resized.height(); ++y)
    for (int x = 0; x < resized.width(); ++x) {
      const float a = resized.at(x, y)[3];
      reference.at(x, y)[3] = a + (a - blurred.at(x, y)[3]) * 0.7f;
    }
  EXPECT_LT(maxDifference(whole, reference), 1e-5f);

  // An opaque picture's alpha passes through the sharpening untouched.
  Image solid = pattern(83, 71);
  for (int y = 0; y < 71; ++y)
    for (int x = 0; x < 83; ++x) solid.at(x, y)[3] = 1.0f;
  ImageBandSource solidBase(solid);
  LanczosResizeSource solidDown(solidBase, 40, 23);
  UnsharpMaskSource solidSharp(solidDown, 1.6, 0.7);
  Image sharpened = stitched(solidSharp, 23), plain = stitched(solidDown, 23);
  for (int y = 0; y < 23; ++y)
    for (int x = 0; x < 40; ++x) ASSERT_EQ(sharpened.at(x, y)[3], plain.at(x, y)[3]);
}

TEST(ExportStages, LanczosKeepsFlatImagesFlatAndLowPassesWhenShrinking) {
  Image flat(50, 30);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 50; ++x) {
      float* p = flat.at(x, y);
      p[0] = 0.3f, p[1] = 0.6f, p[2] = 0.9f, p[3] = 1.0f;
    }
  ImageBandSource flatSource(flat);
  for (auto [w, h] : {std::pair{17, 11}, std::pair{50, 30}, std::pair{1, 1}}) {
    LanczosResizeSource r(flatSource, w, h);
    Image out = r.renderBand(Rect{0, 0, w, h});
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        EXPECT_NEAR(out.at(x, y)[0], 0.3f, 1e-5f);
        EXPECT_NEAR(out.at(x, y)[2], 0.9f, 1e-5f);
        EXPECT_NEAR(out.at(x, y)[3], 1.0f, 1e-5f);
      }
  }

  // A one-pixel checkerboard halved becomes uniform grey (no aliasing).
  Image checker(64, 64);
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      float v = (x + y) % 2 ? 1.0f : 0.0f;
      float* p = checker.at(x, y);
      p[0] = p[1] = p[2] = v, p[3] = 1;
    }
  ImageBandSource checkerSource(checker);
  LanczosResizeSource half(checkerSource, 32, 32);
  Image out = half.renderBand(Rect{0, 0, 32, 32});
  for (int y = 4; y < 28; ++y)
    for (int x = 4; x < 28; ++x) EXPECT_NEAR(out.at(x, y)[0], 0.5f, 0.02f) << x << "," << y;
}

TEST(ExportStages, LanczosTapsAreNormalisedAndCentred) {
  auto taps = LanczosResizeSource::makeTaps(6000, 2048);
  ASSERT_EQ(taps.first.size(), 2048u);
  for (int o : {0, 1, 1024, 2047}) {
    double sum = 0, centre = 0;
    for (int k = 0; k < taps.count[o]; ++k) {
      sum += taps.weight[taps.first[o] + k];
      centre += taps.weight[taps.first[o] + k] * (taps.index[taps.first[o] + k] + 0.5);
    }
    EXPECT_NEAR(sum, 1.0, 1e-5) << o;
    if (o == 1024) EXPECT_NEAR(centre, (o + 0.5) * 6000.0 / 2048.0, 1e-3);
    for (int k = 0; k < taps.count[o]; ++k) {
      EXPECT_GE(taps.index[taps.first[o] + k], 0);
      EXPECT_LT(taps.index[taps.first[o] + k], 6000);
    }
  }
}

}  // namespace
}  // namespace vg
