// Tone curves for the render engine: the interpolator of one curve and the
// look-up image that curvesKernel reads (kernels.h, kernels::curves).
//
// CurveInterpolator is the model's CurveFunction (model/curve_function.h):
// sorting by x, dropping NaN and out-of-range x, keeping the first of equal x,
// the identity for fewer than two points, flat ends, harmonic-mean knot slopes,
// the overshoot limiter (radius 3), binary search and clamping of x and y to
// 0...1. One implementation serves the model (blending curves of different
// point lists) and the render engine, so the two can never disagree.
//
// The look-up image: 1024 x 2 float RGBA texels; texel i stands for input
// x = i / 1023.
//   row 0: R = rgb (master) curve, G = red curve, B = green curve, A = 1
//   row 1: R = blue curve, G = 0, B = 0, A = 1
// Its bounds are (0, 0, 1024, 2); it is immutable once built and may be shared.
#pragma once

#include <vector>

#include "model/adjustments.h"
#include "model/curve_function.h"
#include "render/image.h"
#include "render/kernels.h"

namespace vg {

using CurveInterpolator = CurveFunction;

inline constexpr int kCurveLutMax = 1023;
inline constexpr int kCurveLutWidth = kCurveLutMax + 1;

// count samples of the curve at x = i / (count - 1), i = 0 ... count - 1.
std::vector<double> sampleCurve(const ToneCurve& curve, int count = kCurveLutWidth);

Image buildCurveLookupImage(const CurveSet& curves);

// The curves kernel's parameters for a look-up image built above (lutMax 1023).
kernels::CurvesParams curvesKernelParams(const Image& lookup);

}  // namespace vg
