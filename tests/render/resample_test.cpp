#include <gtest/gtest.h>

#include <cmath>

#include "render/resample.h"

namespace vg {
namespace {

Image pattern(int w, int h, float (*f)(int x, int y, int c)) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 4; ++c) img.at(x, y)[c] = f(x, y, c);
  return img;
}

double lanczos(double x) {
  x = std::fabs(x);
  if (x < 1e-12) return 1;
  if (x >= 3) return 0;
  return 3 * std::sin(M_PI * x) * std::sin(M_PI * x / 3) / (M_PI * M_PI * x * x);
}

// Direct two-dimensional evaluation, in double, of the documented formula.
double reference(const Image& src, int outW, int outH, int ox, int oy, int c) {
  auto axis = [](int in, int out, int o, std::vector<std::pair<int, double>>& taps) {
    double ratio = double(out) / in, stretch = std::max(1.0, 1 / ratio);
    double centre = (o + 0.5) / ratio - 0.5, sum = 0;
    for (int j = int(std::floor(centre - 3 * stretch)) - 1; j <= int(std::ceil(centre + 3 * stretch)) + 1; ++j) {
      double w = lanczos((j - centre) / stretch);
      if (w == 0) continue;
      taps.push_back({std::clamp(j, 0, in - 1), w});
      sum += w;
    }
    for (auto& t : taps) t.second /= sum;
  };
  std::vector<std::pair<int, double>> tx, ty;
  axis(src.width(), outW, ox, tx);
  axis(src.height(), outH, oy, ty);
  double acc = 0;
  for (auto [y, wy] : ty)
    for (auto [x, wx] : tx) acc += wy * wx * src.at(x, y)[c];
  return acc;
}

TEST(Resample, MatchesTheDirectFormula) {
  Image src = pattern(53, 37, [](int x, int y, int c) { return float(std::sin(x * 0.7 + c) * std::cos(y * 0.3) + 0.5); });
  for (auto [w, h] : {std::pair{17, 11}, std::pair{53, 37}, std::pair{80, 20}, std::pair{5, 90}}) {
    Image out = lanczosResize(src, w, h);
    ASSERT_EQ(out.width(), w);
    ASSERT_EQ(out.height(), h);
    for (int y = 0; y < h; y += 3)
      for (int x = 0; x < w; x += 2)
        for (int c = 0; c < 4; ++c) EXPECT_NEAR(out.at(x, y)[c], reference(src, w, h, x, y, c), 2e-5) << w << "x" << h;
  }
}

TEST(Resample, ConstantStaysConstantUpToTheEdges) {
  Image src = pattern(101, 67, [](int, int, int c) { return c == 3 ? 1.0f : 0.3f + 0.1f * c; });
  for (double s : {0.5, 0.13, 1.0, 2.7}) {
    Image out = lanczosScale(src, s, 1.0);
    for (int y = 0; y < out.height(); ++y)
      for (int x = 0; x < out.width(); ++x)
        for (int c = 0; c < 4; ++c) ASSERT_NEAR(out.at(x, y)[c], c == 3 ? 1.0f : 0.3f + 0.1f * c, 1e-5) << s;
  }
}

TEST(Resample, UnitScaleIsTheIdentity) {
  Image src = pattern(19, 23, [](int x, int y, int c) { return float((x * 31 + y * 17 + c * 7) % 13) / 13.0f; });
  Image out = lanczosScale(src, 1.0, 1.0);
  for (int y = 0; y < 23; ++y)
    for (int x = 0; x < 19; ++x)
      for (int c = 0; c < 4; ++c) EXPECT_NEAR(out.at(x, y)[c], src.at(x, y)[c], 1e-6);
}

TEST(Resample, ShrinkingFiltersInsteadOfAliasing) {
  // One-pixel stripes: a scaler that samples without widening its kernel
  // would return stripes or a solid colour; a filtering one returns grey.
  Image stripes = pattern(400, 8, [](int x, int, int c) { return c == 3 ? 1.0f : float(x % 2); });
  Image out = lanczosScale(stripes, 0.13, 1.0);
  // (The outermost pixels see the repeated edge stripe and are excluded.)
  for (int x = 1; x + 1 < out.width(); ++x) EXPECT_NEAR(out.at(x, 0)[0], 0.5f, 0.02f) << x;
}

TEST(Resample, MirrorSymmetricAndAspectRatio) {
  Image src = pattern(64, 40, [](int x, int y, int c) { return float(x > 20 && y < 30) + 0.1f * c; });
  Image mirrored = pattern(64, 40, [](int x, int y, int c) { return float((63 - x) > 20 && y < 30) + 0.1f * c; });
  Image a = lanczosScale(src, 0.37, 1.5);
  Image b = lanczosScale(mirrored, 0.37, 1.5);
  EXPECT_EQ(a.width(), int(std::round(64 * 0.37 * 1.5)));
  EXPECT_EQ(a.height(), int(std::round(40 * 0.37)));
  for (int y = 0; y < a.height(); ++y)
    for (int x = 0; x < a.width(); ++x) EXPECT_NEAR(a.at(x, y)[0], b.at(a.width() - 1 - x, y)[0], 1e-5);
  EXPECT_TRUE(lanczosScale(src, 0, 1).empty());
  EXPECT_TRUE(lanczosScale(src, NAN, 1).empty());
  EXPECT_TRUE(lanczosScale(src, 1, -1).empty());
  EXPECT_EQ(lanczosScale(src, 0.001, 1).width(), 1);  // never below one pixel
}

TEST(Resample, ImagesWithAnOriginAwayFromZero) {
  Image src = pattern(30, 20, [](int x, int y, int c) { return float(x + y + c); });
  Image moved = src.clone();
  moved.setOrigin(-7, 12);
  Image a = lanczosResize(src, 11, 9);
  Image b = lanczosResize(moved, 11, 9);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 11; ++x) EXPECT_EQ(a.at(x, y)[1], b.at(x, y)[1]);
}

}  // namespace
}  // namespace vg
