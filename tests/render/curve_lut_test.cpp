// Tone curves: the interpolator's rules on awkward point lists, shape
// guarantees (monotone, no overshoot, 0...1), and the look-up image as the
// curves kernel reads it.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "render/curve_lut.h"
#include "render/kernels.h"

namespace vg {
namespace {

ToneCurve curve(std::vector<CurvePoint> points) { return ToneCurve{std::move(points)}; }

TEST(CurveInterpolator, DegenerateListsAreTheIdentity) {
  for (auto points : std::vector<std::vector<CurvePoint>>{{}, {{0.4, 0.9}}, {{1.2, 0.5}, {0.3, 0.1}}}) {
    CurveInterpolator f(curve(points));
    for (double x : {0.0, 0.25, 0.7, 1.0}) EXPECT_DOUBLE_EQ(f(x), x);
  }
}

TEST(CurveInterpolator, FlatBeyondTheOutermostPoints) {
  CurveInterpolator f(curve({{0.8, 0.9}, {0.2, 0.3}}));  // unsorted on purpose
  for (double x : {0.0, 0.1, 0.2}) EXPECT_NEAR(f(x), 0.3, 1e-12) << x;
  for (double x : {0.8, 0.95, 1.0}) EXPECT_NEAR(f(x), 0.9, 1e-12) << x;
  EXPECT_NEAR(f(0.5), 0.6, 1e-12);  // a straight segment between them
  EXPECT_NEAR(f(-3.0), 0.3, 1e-12);  // x is clamped
  EXPECT_NEAR(f(std::numeric_limits<double>::quiet_NaN()), 0.3, 1e-12);
}

TEST(CurveInterpolator, BadAndRepeatedXAreDropped) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  CurveInterpolator withJunk(curve({{0, 0}, {1.2, 0.0}, {nan, 1.0}, {0.5, 0.8}, {0.5, 0.1}, {1, 1}}));
  CurveInterpolator clean(curve({{0, 0}, {0.5, 0.8}, {1, 1}}));
  for (double x = 0; x <= 1.0; x += 0.05) EXPECT_DOUBLE_EQ(withJunk(x), clean(x)) << x;
  EXPECT_DOUBLE_EQ(withJunk(0.5), 0.8);  // the first of the two points at 0.5
}

TEST(CurveInterpolator, MonotonePointsGiveAMonotoneCurveWithoutOvershoot) {
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> u(0, 1);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<double> xs, ys;
    int n = 2 + trial % 7;
    for (int i = 0; i < n; ++i) xs.push_back(u(rng)), ys.push_back(u(rng));
    std::sort(xs.begin(), xs.end());
    std::sort(ys.begin(), ys.end());
    if (trial % 3 == 0) ys[size_t(n / 2)] = ys[size_t(n / 2) - 1];  // a flat step
    std::vector<CurvePoint> pts;
    for (int i = 0; i < n; ++i) pts.push_back({xs[size_t(i)], ys[size_t(i)]});
    CurveInterpolator f(curve(pts));
    double prev = -1;
    for (int i = 0; i <= 2000; ++i) {
      double x = i / 2000.0, y = f(x);
      ASSERT_GE(y, prev - 1e-12) << "trial " << trial << " x " << x;
      prev = y;
      // Between neighbouring knots the curve stays within their values.
      const auto& kx = f.xs();
      const auto& ky = f.ys();
      size_t k = size_t(std::upper_bound(kx.begin(), kx.end(), x) - kx.begin());
      if (k > 0 && k < kx.size()) {
        ASSERT_GE(y, std::min(ky[k - 1], ky[k]) - 1e-12);
        ASSERT_LE(y, std::max(ky[k - 1], ky[k]) + 1e-12);
      }
    }
  }
}

TEST(CurveInterpolator, PassesThroughKnotsAndStaysInsideZeroOne) {
  CurveInterpolator s(curve({{0, 0}, {0.25, 0.15}, {0.75, 0.85}, {1, 1}}));
  EXPECT_DOUBLE_EQ(s(0.25), 0.15);
  EXPECT_DOUBLE_EQ(s(0.75), 0.85);
  EXPECT_LT(s(0.1), 0.1);  // an S-curve darkens shadows
  // y outside 0...1 (possible in memory) never leaves the output range.
  CurveInterpolator wild(curve({{0, -0.5}, {0.3, 1.7}, {0.6, -2.0}, {1, 3.0}}));
  for (int i = 0; i <= 1000; ++i) {
    double y = wild(i / 1000.0);
    ASSERT_GE(y, 0.0);
    ASSERT_LE(y, 1.0);
  }
}

TEST(CurveLookupImage, LayoutAndSamples) {
  CurveSet set;
  set.rgb = curve({{0, 0.1}, {1, 0.9}});
  set.red = curve({{0, 1}, {1, 0}});
  set.green = curve({{0.5, 0.5}});
  set.blue = curve({{0, 0}, {0.5, 0.25}, {1, 1}});
  Image lut = buildCurveLookupImage(set);
  ASSERT_EQ(lut.bounds(), (Rect{0, 0, 1024, 2}));
  const CurveInterpolator blue(set.blue);
  for (int i : {0, 1, 511, 1022, 1023}) {
    const double x = i / 1023.0;
    EXPECT_FLOAT_EQ(lut.at(i, 0)[0], float(0.1 + 0.8 * x));
    EXPECT_FLOAT_EQ(lut.at(i, 0)[1], float(1 - x));
    EXPECT_FLOAT_EQ(lut.at(i, 0)[2], float(x));
    EXPECT_EQ(lut.at(i, 0)[3], 1.0f);
    EXPECT_FLOAT_EQ(lut.at(i, 1)[0], float(blue(x)));
    EXPECT_EQ(lut.at(i, 1)[1], 0.0f);
    EXPECT_EQ(lut.at(i, 1)[2], 0.0f);
    EXPECT_EQ(lut.at(i, 1)[3], 1.0f);
  }
}

TEST(CurveLookupImage, CurvesKernelFollowsTheCurves) {
  CurveSet set;
  set.rgb = curve({{0, 0}, {0.3, 0.45}, {1, 1}});
  set.green = curve({{0, 0.2}, {1, 0.8}});
  Image lut = buildCurveLookupImage(set);
  auto p = kernels::prepare(curvesKernelParams(lut));
  const CurveInterpolator master(set.rgb), green(set.green);
  for (float v : {0.0f, 0.013f, 0.3f, 0.5f, 0.77f, 1.0f}) {
    float px[4] = {v, v, v, 0.8f};
    kernels::curves(p, kernels::KernelRow{px, nullptr, 1, 0, 0});
    EXPECT_NEAR(px[0], master(v), 2e-4) << v;  // linear between texels
    EXPECT_NEAR(px[1], green(master(v)), 2e-4) << v;
    EXPECT_EQ(px[3], 0.8f);
  }
  // The identity set samples to the identity.
  Image id = buildCurveLookupImage(CurveSet{});
  auto pid = kernels::prepare(curvesKernelParams(id));
  float px[4] = {0.123f, 0.5f, 0.999f, 1};
  kernels::curves(pid, kernels::KernelRow{px, nullptr, 1, 0, 0});
  EXPECT_NEAR(px[0], 0.123f, 1e-6f);
  EXPECT_NEAR(px[2], 0.999f, 1e-6f);
}

TEST(CurveSamples, CountAndEnds) {
  auto s = sampleCurve(curve({{0, 1}, {1, 0}}));
  ASSERT_EQ(s.size(), 1024u);
  EXPECT_EQ(s.front(), 1.0);
  EXPECT_EQ(s.back(), 0.0);
  EXPECT_NEAR(s[341], 1 - 341 / 1023.0, 1e-12);
}

}  // namespace
}  // namespace vg
