#include <gtest/gtest.h>

#include <cmath>

#include "model/adjustments.h"
#include "model/curve_function.h"

namespace vg {
namespace {

GlobalAdjustments sample() {
  GlobalAdjustments b;
  for (const auto& f : scalarFields()) b.*f.member = f.max;
  b.monochrome = true;
  b.curves.rgb.points = {{0, 0.1}, {0.4, 0.6}, {1, 0.9}};
  b.curves.green.points = {{0.5, 0.5}};  // one point: draws as identity
  for (auto& band : b.hsl.bands) band = {50, -50, 20};
  b.splitToning = {10, 80, 200, 40, -30};
  return b;
}

TEST(Interpolation, EndsAreExactlyTheInputs) {
  const GlobalAdjustments a;
  const GlobalAdjustments b = sample();
  EXPECT_EQ(interpolate(a, b, 0), a);
  EXPECT_EQ(interpolate(a, b, 1), b);
  EXPECT_EQ(interpolate(b, a, 0), b);
  EXPECT_EQ(interpolate(b, a, 1), a);
}

TEST(Interpolation, EndsAreExactEvenWhereTheArithmeticRounds) {
  GlobalAdjustments a, b;
  a.contrast = 0.1;
  b.contrast = 0.3;  // 0.1 + (0.3 - 0.1) is 0.30000000000000004
  a.hsl.bands[0].hue = 0.1;
  b.hsl.bands[0].hue = 0.3;
  a.splitToning.highlightHue = 360;  // the hue formula would give 0 at t = 0
  b.splitToning.highlightHue = 1e-300;  // and 0 at t = 1
  a.splitToning.shadowSaturation = 0.1;
  b.splitToning.shadowSaturation = 0.3;
  EXPECT_EQ(interpolate(a, b, 0), a);
  EXPECT_EQ(interpolate(a, b, 1), b);
}

TEST(Interpolation, ScalarsAreLinearAndUnclamped) {
  const GlobalAdjustments a;
  const GlobalAdjustments b = sample();
  const auto half = interpolate(a, b, 0.5);
  for (const auto& f : scalarFields()) {
    EXPECT_DOUBLE_EQ(half.*f.member, (f.defaultValue + f.max) / 2) << f.key;
  }
  EXPECT_DOUBLE_EQ(interpolate(a, b, 2).exposure, 10);  // beyond the range: no clamp
  EXPECT_EQ(half.splitToning.highlightSaturation, 40);
  EXPECT_EQ(half.splitToning.balance, -15);
  EXPECT_EQ(half.hsl.bands[0], (HSLBand{25, -25, 10}));
}

TEST(Interpolation, MonochromeSwitchesAtOneHalf) {
  GlobalAdjustments a, b;
  b.monochrome = true;
  EXPECT_FALSE(interpolate(a, b, 0.49).monochrome);
  EXPECT_TRUE(interpolate(a, b, 0.5).monochrome);
  EXPECT_FALSE(interpolate(b, a, 0.5).monochrome);
}

TEST(Interpolation, HuesTakeTheShorterArc) {
  GlobalAdjustments a, b;
  a.splitToning.highlightHue = 350;
  b.splitToning.highlightHue = 10;
  a.splitToning.shadowHue = 10;
  b.splitToning.shadowHue = 350;
  const auto mid = interpolate(a, b, 0.5);
  EXPECT_NEAR(mid.splitToning.highlightHue, 0, 1e-9);
  EXPECT_NEAR(mid.splitToning.shadowHue, 0, 1e-9);
  EXPECT_NEAR(interpolate(a, b, 0.25).splitToning.highlightHue, 355, 1e-9);
  a.splitToning.highlightHue = 90;
  b.splitToning.highlightHue = 180;
  EXPECT_NEAR(interpolate(a, b, 0.5).splitToning.highlightHue, 135, 1e-9);
}

TEST(Interpolation, HSLBlendsTheCommonBandsAndEndsWithEight) {
  GlobalAdjustments a, b;
  a.hsl.bands.assign(3, HSLBand{10, 10, 10});  // built in code, not decoded
  b.hsl.bands.assign(10, HSLBand{30, 30, 30});
  const auto r = interpolate(a, b, 0.5);
  ASSERT_EQ(r.hsl.bands.size(), 8u);
  EXPECT_EQ(r.hsl.bands[2], (HSLBand{20, 20, 20}));
  EXPECT_EQ(r.hsl.bands[3], HSLBand{});
}

TEST(Interpolation, IdenticalCurvesStayAsTheyAre) {
  GlobalAdjustments a, b;
  b.exposure = 1;
  const auto mid = interpolate(a, b, 0.3);
  EXPECT_TRUE(mid.curves.isIdentity());  // no resampling of equal curves
}

TEST(Interpolation, CurvesBlendTheDrawnShapes) {
  ToneCurve lift;
  lift.points = {{0, 0.2}, {0.5, 0.7}, {1, 1}};
  const ToneCurve identity;
  const CurveFunction fl(lift), fi(identity);
  for (double t : {0.25, 0.5, 0.9}) {
    const ToneCurve blended = interpolate(identity, lift, t);
    // Sorted, strictly increasing x inside 0...1, so the evaluator keeps all.
    for (size_t i = 1; i < blended.points.size(); ++i) {
      EXPECT_LT(blended.points[i - 1].x, blended.points[i].x);
    }
    EXPECT_EQ(blended.points.front().x, 0);
    EXPECT_EQ(blended.points.back().x, 1);
    const CurveFunction fb(blended);
    for (int i = 0; i <= 100; ++i) {
      const double x = i / 100.0;
      const double expected = fi(x) + t * (fl(x) - fi(x));
      EXPECT_NEAR(fb(x), expected, 2e-3) << "t " << t << " x " << x;
    }
    // The knots of either curve are sampled exactly.
    EXPECT_NEAR(fb(0.5), 0.5 + t * 0.2, 1e-12);
  }
}

TEST(Interpolation, CurvesWithUnsortedOrInvalidPointsBlendByWhatTheyDraw) {
  ToneCurve messy;
  messy.points = {{1, 0.8}, {0, 0.2}, {std::nan(""), 0.5}, {0, 0.9}};
  ToneCurve flat;
  flat.points = {{0.3, 0.4}};  // one point: identity
  const ToneCurve mid = interpolate(messy, flat, 0.5);
  const CurveFunction fm(messy), ff(flat), fr(mid);
  for (int i = 0; i <= 20; ++i) {
    const double x = i / 20.0;
    EXPECT_NEAR(fr(x), (fm(x) + ff(x)) / 2, 2e-3) << x;
  }
}

}  // namespace
}  // namespace vg
