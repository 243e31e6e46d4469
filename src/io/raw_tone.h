// RawTone: the tone a second-generation RAW development (raw_presets.h)
// gives its linear picture, one colour channel at a time, in linear light:
//
//   1. exposure   x * gain, gain = 2^(baseline exposure + the recipe's RAW
//                 exposure); the baseline is the file's own (DNG
//                 BaselineExposure), 0 when it has none;
//   2. shadows    lift(x) = x (1 + (b - 1)(1 - smoothstep(0, kShadowKnee, x))),
//                 b = shadowBoost / 100 + 1 (1 ... 2): up to x b in the deepest
//                 shadows, nothing from kShadowKnee up, monotonic;
//   3. base curve base(x) = (1 + g^c) x^c / (x^c + g^c), c = 1.6, g = 0.22:
//                 an S-shape in linear light with base(0) = 0, base(1) = 1, a
//                 toe (slope 0 at black) that keeps blacks deep, mid-tones
//                 lifted and highlights rolled off into a shoulder;
//   4. white      divided by base(gain) when gain > 1, so sensor white (1
//                 before the gain) lands exactly on 1: nothing the sensor
//                 recorded is clipped, and the recipe's highlight slider can
//                 still bring it back.
// Negative values (gamut mapping off) are mapped point-symmetrically.
//
// c and g reproduce a camera's own JPEG rendering: fitted to the six grey
// patches of a ColorChecker shot with a Canon PowerShot S40 (raw linear 0.016,
// 0.043, 0.090, 0.166, 0.256, 0.349 against the camera's 0.017, 0.078, 0.207,
// 0.415, 0.616, 0.750), every patch within 2 of 255 sRGB levels.
//
// operator() reads a table of 4096 segments over the square root of [0, 2]
// (linear between knots, within 2e-5 of exact()); inputs beyond take the
// formula. Prepared once per development; immutable and shareable.
#pragma once

#include <cmath>
#include <vector>

namespace vg {

class RawTone {
 public:
  static constexpr float kContrast = 1.6f;    // c
  static constexpr float kPivot = 0.22f;      // g
  static constexpr float kShadowKnee = 0.11f; // half the pivot: the shadows going into the curve

  RawTone(double gain, double boostAmount);

  // The base curve alone (step 3).
  static double base(double x);

  // Steps 1-4 by the formula, and by the table.
  float exact(float x) const;
  float operator()(float x) const {
    const float a = std::fabs(x);
    if (!(a < kTableEnd)) return exact(x);
    const float s = std::sqrt(a * (1.0f / kTableEnd)) * float(kSegments);
    const int i = int(s);
    const float v = table_[size_t(i)] + (table_[size_t(i) + 1] - table_[size_t(i)]) * (s - float(i));
    return x < 0.0f ? -v : v;
  }

 private:
  static constexpr int kSegments = 4096;
  static constexpr float kTableEnd = 2.0f;
  double gain_;
  double boost_;
  double white_;  // base(gain) when gain > 1, else 1
  std::vector<float> table_;
};

}  // namespace vg
