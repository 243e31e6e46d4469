// The smooth function a ToneCurve's control points describe, as the render
// pipeline draws it: a monotone-preserving cubic Hermite spline.
//
// Building: sort the points by x; drop points whose x is NaN or outside 0...1;
// of points with equal x keep the first; fewer than two points left give the
// identity (0, 0), (1, 1); the curve is flat before the first and after the
// last point. Knot slopes are the weighted harmonic mean of the neighbouring
// secants (0 at a local extremum), the end slopes the end secants, and an
// overshoot limiter scales slope pairs whose ratios to the secant exceed a
// radius of 3.
//
// Evaluating clamps x into 0...1 and the result into 0...1.
// The model layer needs it to blend two curves of different point lists; the
// render layer samples curves with the same rules.
#pragma once

#include <vector>

#include "model/adjustments.h"

namespace vg {

class CurveFunction {
 public:
  explicit CurveFunction(const ToneCurve& curve);

  double operator()(double x) const;

  // The knots after sorting, filtering and the flat-end extension.
  const std::vector<double>& xs() const { return xs_; }
  const std::vector<double>& ys() const { return ys_; }

 private:
  std::vector<double> xs_, ys_, slopes_;
};

}  // namespace vg
