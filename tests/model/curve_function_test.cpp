#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "model/curve_function.h"

namespace vg {
namespace {

ToneCurve curve(std::vector<CurvePoint> points) {
  ToneCurve c;
  c.points = std::move(points);
  return c;
}

TEST(CurveFunction, FewerThanTwoValidPointsIsTheIdentity) {
  for (const auto& c : {curve({}), curve({{0.4, 0.9}}), curve({{1.2, 0.1}, {0.5, 0.2}}),
                        curve({{std::nan(""), 0.1}, {0.5, 0.7}}), curve({{0.5, 0.1}, {0.5, 0.9}})}) {
    const CurveFunction f(c);
    for (double x : {0.0, 0.1, 0.5, 0.77, 1.0}) EXPECT_DOUBLE_EQ(f(x), x);
  }
}

TEST(CurveFunction, FlatOutsideTheOutermostPoints) {
  const CurveFunction f(curve({{0.2, 0.3}, {0.8, 0.9}}));
  EXPECT_EQ(f(0), 0.3);
  EXPECT_EQ(f(0.1), 0.3);
  EXPECT_EQ(f(0.2), 0.3);
  EXPECT_EQ(f(0.8), 0.9);
  EXPECT_EQ(f(0.95), 0.9);
  EXPECT_EQ(f(-3), 0.3);
  EXPECT_EQ(f(7), 0.9);
  EXPECT_NEAR(f(0.5), 0.6, 1e-12);  // a straight secant between the two points
}

TEST(CurveFunction, FirstOfEqualXWinsAndOrderDoesNotMatter) {
  const CurveFunction a(curve({{0.5, 0.2}, {0, 0}, {1, 1}, {0.5, 0.8}}));
  EXPECT_NEAR(a(0.5), 0.2, 1e-12);
  const CurveFunction b(curve({{1, 1}, {0.5, 0.2}, {0, 0}}));
  for (double x = 0; x <= 1; x += 0.05) EXPECT_DOUBLE_EQ(a(x), b(x));
}

TEST(CurveFunction, MonotonePointsGiveAMonotoneCurveWithoutOvershoot) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> u(0, 1);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<double> xs(2 + trial % 6), ys(xs.size());
    for (auto& v : xs) v = u(rng);
    for (auto& v : ys) v = u(rng);
    std::sort(xs.begin(), xs.end());
    std::sort(ys.begin(), ys.end());
    std::vector<CurvePoint> pts;
    for (size_t i = 0; i < xs.size(); ++i) pts.push_back({xs[i], ys[i]});
    const CurveFunction f(curve(pts));
    double previous = f(0);
    for (int i = 1; i <= 400; ++i) {
      const double x = i / 400.0;
      const double y = f(x);
      EXPECT_GE(y, previous - 1e-12) << "trial " << trial << " x " << x;
      previous = y;
      // Between neighbouring knots the value stays between their values.
      const auto& kx = f.xs();
      const size_t k = std::upper_bound(kx.begin(), kx.end(), x) - kx.begin();
      if (k > 0 && k < kx.size()) {
        EXPECT_GE(y, std::min(f.ys()[k - 1], f.ys()[k]) - 1e-12);
        EXPECT_LE(y, std::max(f.ys()[k - 1], f.ys()[k]) + 1e-12);
      }
    }
  }
}

TEST(CurveFunction, OutputStaysInsideZeroToOne) {
  const CurveFunction f(curve({{0, 0}, {0.1, 1}, {0.2, 0}, {0.3, 1}, {1, 1}}));
  for (int i = 0; i <= 1000; ++i) {
    const double y = f(i / 1000.0);
    EXPECT_GE(y, 0);
    EXPECT_LE(y, 1);
  }
  const CurveFunction steep(curve({{0, -2}, {0.5, 3}, {1, 0.5}}));
  EXPECT_EQ(steep(0), 0);
  EXPECT_EQ(steep(0.5), 1);
}

}  // namespace
}  // namespace vg
