#include "model/curve_function.h"

#include <algorithm>
#include <cmath>

namespace vg {

CurveFunction::CurveFunction(const ToneCurve& curve) {
  std::vector<CurvePoint> pts;
  pts.reserve(curve.points.size() + 2);
  for (const auto& p : curve.points) {
    if (!std::isnan(p.x) && p.x >= 0 && p.x <= 1) pts.push_back(p);
  }
  // Stable, so that of equal x the first in stored order survives.
  std::stable_sort(pts.begin(), pts.end(),
                   [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });
  pts.erase(std::unique(pts.begin(), pts.end(),
                        [](const CurvePoint& a, const CurvePoint& b) { return a.x == b.x; }),
            pts.end());
  if (pts.size() < 2) pts = {{0, 0}, {1, 1}};
  if (pts.front().x > 0) pts.insert(pts.begin(), CurvePoint{0, pts.front().y});
  if (pts.back().x < 1) pts.push_back(CurvePoint{1, pts.back().y});

  const std::size_t n = pts.size();
  xs_.resize(n);
  ys_.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    xs_[i] = pts[i].x;
    ys_[i] = pts[i].y;
  }

  std::vector<double> secant(n - 1);
  for (std::size_t k = 0; k + 1 < n; ++k) {
    const double h = xs_[k + 1] - xs_[k];
    secant[k] = h > 1e-9 ? (ys_[k + 1] - ys_[k]) / h : 0;
  }
  slopes_.assign(n, 0);
  slopes_[0] = secant[0];
  slopes_[n - 1] = secant[n - 2];
  for (std::size_t k = 1; k + 1 < n; ++k) {
    const double d0 = secant[k - 1], d1 = secant[k];
    if (d0 * d1 <= 0) continue;  // extremum or flat stretch: stays flat
    const double h0 = xs_[k] - xs_[k - 1], h1 = xs_[k + 1] - xs_[k];
    const double w1 = 2 * h1 + h0, w2 = h1 + 2 * h0;
    slopes_[k] = (w1 + w2) / (w1 / d0 + w2 / d1);
  }
  // Limit overshoot: keep (a, b) = slopes / secant inside the circle of radius 3.
  for (std::size_t k = 0; k + 1 < n; ++k) {
    if (!(xs_[k + 1] - xs_[k] > 1e-9) || secant[k] == 0) continue;
    const double a = slopes_[k] / secant[k], b = slopes_[k + 1] / secant[k];
    const double r2 = a * a + b * b;
    if (r2 > 9) {
      const double tau = 3 / std::sqrt(r2);
      slopes_[k] = tau * a * secant[k];
      slopes_[k + 1] = tau * b * secant[k];
    }
  }
}

double CurveFunction::operator()(double x) const {
  x = std::clamp(std::isnan(x) ? 0.0 : x, 0.0, 1.0);
  double y;
  if (x <= xs_.front()) {
    y = ys_.front();
  } else if (x >= xs_.back()) {
    y = ys_.back();
  } else {
    // Last knot with xs <= x.
    const std::size_t k = std::size_t(std::upper_bound(xs_.begin(), xs_.end(), x) - xs_.begin()) - 1;
    const double h = xs_[k + 1] - xs_[k];
    const double t = (x - xs_[k]) / h, t2 = t * t, t3 = t2 * t;
    y = (2 * t3 - 3 * t2 + 1) * ys_[k] + h * (t3 - 2 * t2 + t) * slopes_[k] +
        (3 * t2 - 2 * t3) * ys_[k + 1] + h * (t3 - t2) * slopes_[k + 1];
  }
  return std::isnan(y) ? 0.0 : std::clamp(y, 0.0, 1.0);
}

}  // namespace vg
