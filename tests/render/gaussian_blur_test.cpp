// Gaussian blur against a true Gaussian (direct convolution in double with an
// untruncated kernel and clamped edges), for the direct and recursive ranges.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

#include "render/gaussian_blur.h"
#include "render/parallel.h"

namespace vg {
namespace {

// The true blur of channel c at output pixel (x, y): separable, clamped edges.
double trueBlur(const Image& src, double sigma, int x, int y, int c) {
  const Rect b = src.bounds();
  const int R = int(std::ceil(8 * sigma)) + 1;
  double sum = 0, wsum = 0;
  for (int dy = -R; dy <= R; ++dy) {
    double wy = std::exp(-dy * dy / (2 * sigma * sigma));
    int sy = std::clamp(y + dy, b.y, b.bottom() - 1);
    for (int dx = -R; dx <= R; ++dx) {
      double w = wy * std::exp(-dx * dx / (2 * sigma * sigma));
      int sx = std::clamp(x + dx, b.x, b.right() - 1);
      sum += w * src.at(sx, sy)[c];
      wsum += w;
    }
  }
  return sum / wsum;
}

Image randomImage(Rect r, uint32_t seed) {
  Image img(r);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(0, 1);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x)
      for (int c = 0; c < 4; ++c) img.at(x, y)[c] = c == 3 ? 1.0f : u(rng);
  return img;
}

const float kSigmas[] = {0.4f, 1.0f, 1.6f, 2.4f, 2.99f, 3.0f, 4.5f, 6.0f, 8.0f, 12.0f, 25.0f};

TEST(GaussianBlur, ImpulseResponseIsWithinOnePercentOfTheTrueGaussian) {
  for (float sigma : kSigmas) {
    SCOPED_TRACE(sigma);
    const int half = int(std::ceil(8 * sigma)) + 4;
    Image img(Rect{-half, 100, 2 * half + 1, 1});  // one row: the horizontal pass alone
    img.at(0, 100)[0] = 1.0f;
    Image out = gaussianBlur(img, sigma);
    double l1 = 0, worst = 0, norm = 0;
    for (int x = -half; x <= half; ++x) norm += std::exp(-double(x) * x / (2.0 * sigma * sigma));
    for (int x = -half; x <= half; ++x) {
      double g = std::exp(-double(x) * x / (2.0 * sigma * sigma)) / norm;
      double e = std::fabs(out.at(x, 100)[0] - g);
      l1 += e;
      worst = std::max(worst, e);
    }

    EXPECT_LT(l1, 0.01);
    EXPECT_LT(worst, 0.01 / norm);  // below 1 % of the peak
  }
}

TEST(GaussianBlur, MatchesTheTrueBlurWithClampedEdgesAroundTheSource) {
  for (float sigma : {1.6f, 2.4f, 6.0f}) {
    SCOPED_TRACE(sigma);
    Image src = randomImage(Rect{10, -5, 37, 29}, 3);
    Rect out = src.bounds().grown(int(std::ceil(3 * sigma)));
    Image blurred = gaussianBlur(src, sigma, out);
    ASSERT_EQ(blurred.bounds(), out);
    double worst = 0;
    for (int y = out.y; y < out.bottom(); y += 3)
      for (int x = out.x; x < out.right(); x += 2)
        for (int c = 0; c < 4; ++c) worst = std::max(worst, std::fabs(blurred.at(x, y)[c] - trueBlur(src, sigma, x, y, c)));
    EXPECT_LT(worst, 0.01);
  }
}

TEST(GaussianBlur, ConstantStaysConstantEvenFarOutside) {
  for (float sigma : {0.7f, 2.0f, 5.0f, 40.0f}) {
    Image src(Rect{0, 0, 20, 13});
    for (int y = 0; y < 13; ++y)
      for (int x = 0; x < 20; ++x)
        for (int c = 0; c < 4; ++c) src.at(x, y)[c] = 0.25f * float(c + 1);
    Image out = gaussianBlur(src, sigma, Rect{-30, -7, 90, 40});
    for (int y = -7; y < 33; ++y)
      for (int x = -30; x < 60; ++x)
        for (int c = 0; c < 4; ++c) ASSERT_NEAR(out.at(x, y)[c], 0.25f * float(c + 1), 2e-6f) << sigma;
  }
}

TEST(GaussianBlur, ATileEqualsTheSameCropOfTheWholeBlur) {
  Image src = randomImage(Rect{0, 0, 300, 200}, 9);
  for (float sigma : {2.0f, 8.0f, 9.0f}) {
    Image whole = gaussianBlur(src, sigma);
    Rect tile{150, 90, 40, 30};
    Image part = gaussianBlur(src, sigma, tile);
    for (int y = tile.y; y < tile.bottom(); ++y)
      for (int x = tile.x; x < tile.right(); ++x)
        for (int c = 0; c < 4; ++c) ASSERT_NEAR(part.at(x, y)[c], whole.at(x, y)[c], 1e-5f) << sigma;
  }
}

TEST(GaussianBlur, ThreadCountDoesNotChangeBits) {
  Image src = randomImage(Rect{-4, 3, 101, 77}, 5);
  for (float sigma : {1.2f, 6.0f}) {
    Image many = gaussianBlur(src, sigma);
    Image one = [&] {
      ScopedThreadLimit limit(1);
      return gaussianBlur(src, sigma);
    }();
    for (int y = 3; y < 80; ++y) ASSERT_EQ(0, std::memcmp(one.row(y), many.row(y), 101 * 16)) << sigma;
  }
}

TEST(GaussianBlur, StreamedRowsMayReplaceTheirSourceInPlace) {
  // Tall enough that the rows are split into many bands, whose edge rows
  // must be read before the neighbouring band overwrites them.
  Image src = randomImage(Rect{3, -20, 37, 900}, 13);
  for (float sigma : {0.7f, 1.6f, 2.9f, 4.0f}) {
    Image expected = gaussianBlur(src, sigma);
    Image inPlace = src.clone();
    gaussianBlurRows(inPlace, sigma, inPlace.bounds(), [&](int y, const float* row) {
      std::memcpy(inPlace.row(y), row, 37 * 16);
    });
    for (int y = -20; y < 880; ++y) ASSERT_EQ(0, std::memcmp(inPlace.row(y), expected.row(y), 37 * 16)) << sigma << " " << y;
  }
}

TEST(GaussianBlur, GreyRowsEqualOneChannelOfTheColourBlur) {
  const Rect r{-7, 4, 53, 140};
  Image colour = randomImage(r, 21);
  GreyImage grey(r);
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x) grey.at(x, y) = colour.at(x, y)[1];
  for (float sigma : {0.0f, 0.8f, 2.5f}) {
    for (Rect out : {r, Rect{-10, 0, 60, 150}, Rect{10, 50, 20, 20}}) {
      Image expected = gaussianBlur(colour, sigma, out);
      gaussianBlurGreyRows(GreyRows::of(grey), sigma, out, [&](int y, const float* row) {
        for (int x = out.x; x < out.right(); ++x) ASSERT_EQ(row[x - out.x], expected.at(x, y)[1]) << sigma << " " << x << "," << y;
      });
    }
  }
  EXPECT_THROW(gaussianBlurGreyRows(GreyRows::of(grey), 9.0f, r, [](int, const float*) {}), std::invalid_argument);
}

constexpr size_t kChainWidth = 53;

// A pass of the chain: its blur, then a kernel that reads the row and the
// blur (an unsharp-like mix, different per pass, also using y).
BlurPass chainPass(float sigma, float amount) {
  return {sigma, [amount](float* row, const float* blurred, int y) {
            const float k = amount + 0.001f * float(y % 7);
            for (size_t i = 0; i < kChainWidth * 4; ++i) row[i] = row[i] + (row[i] - blurred[i]) * k;
          }};
}

TEST(GaussianBlur, AChainOfPassesEqualsThePassesOneAfterAnother) {
  const std::vector<BlurPass> passes = {chainPass(1.6f, 0.4f), chainPass(2.4f, -0.3f), chainPass(0.7f, 0.8f),
                                        chainPass(2.2f, 0.2f)};
  for (int height : {5, 60, 700}) {
    SCOPED_TRACE(height);
    const Rect r{-3, 11, int(kChainWidth), height};
    const Image src = randomImage(r, uint32_t(height));
    Image expected = src.clone();
    for (const BlurPass& p : passes) {
      gaussianBlurRows(expected, p.sigma, r, [&](int y, const float* blurred) { p.apply(expected.row(y), blurred, y); });
    }
    for (int threads : {1, 2, 3}) {
      ScopedThreadLimit limit(threads);
      Image inPlace = src.clone();
      gaussianBlurChain(inPlace, inPlace, passes);
      Image fromSource = Image::uninitialized(r);
      gaussianBlurChain(src, fromSource, passes);
      for (int y = r.y; y < r.bottom(); ++y) {
        ASSERT_EQ(0, std::memcmp(inPlace.row(y), expected.row(y), kChainWidth * 16)) << threads << " threads, row " << y;
        ASSERT_EQ(0, std::memcmp(fromSource.row(y), expected.row(y), kChainWidth * 16)) << threads << " threads, row " << y;
      }
    }
  }
  Image img = randomImage(Rect{0, 0, int(kChainWidth), 10}, 1);
  EXPECT_THROW(gaussianBlurChain(img, img, {chainPass(9.0f, 0.1f)}), std::invalid_argument);
}

TEST(GaussianBlur, NoSigmaCopiesAndEmptySourceIsTransparent) {
  Image src = randomImage(Rect{0, 0, 5, 4}, 1);
  for (float sigma : {0.0f, -1.0f, NAN}) {
    Image out = gaussianBlur(src, sigma, Rect{-2, 0, 9, 4});
    EXPECT_EQ(out.at(-2, 1)[0], src.at(0, 1)[0]);
    EXPECT_EQ(out.at(3, 2)[2], src.at(3, 2)[2]);
    EXPECT_EQ(out.at(6, 3)[1], src.at(4, 3)[1]);
  }
  Image none = gaussianBlur(Image(), 2.0f, Rect{0, 0, 3, 3});
  EXPECT_EQ(none.at(1, 1)[3], 0.0f);
}

TEST(UnsharpMask, SharpensEdgesAndKeepsFlatAreasAndAlpha) {
  Image src(Rect{0, 0, 40, 3});
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 40; ++x) {
      float v = x < 20 ? 0.2f : 0.8f;
      src.at(x, y)[0] = src.at(x, y)[1] = src.at(x, y)[2] = v;
      src.at(x, y)[3] = 1.0f;
    }
  Image out = unsharpMask(src, 2.0f, 1.0f);
  EXPECT_NEAR(out.at(2, 1)[0], 0.2f, 1e-5f);
  EXPECT_NEAR(out.at(37, 1)[0], 0.8f, 1e-5f);
  EXPECT_LT(out.at(19, 1)[0], 0.2f);  // undershoot on the dark side
  EXPECT_GT(out.at(20, 1)[0], 0.8f);  // overshoot on the bright side
  EXPECT_EQ(out.at(19, 1)[3], 1.0f);
}

}  // namespace
}  // namespace vg
