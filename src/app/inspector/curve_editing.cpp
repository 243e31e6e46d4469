#include "app/inspector/curve_editing.h"

#include <algorithm>
#include <cmath>

#include "model/curve_function.h"

namespace vg::app {

ToneCurve tidyCurve(const ToneCurve& curve) {
  std::vector<CurvePoint> points;
  for (const CurvePoint& p : curve.points)
    if (std::isfinite(p.x) && std::isfinite(p.y)) points.push_back({std::clamp(p.x, 0.0, 1.0), std::clamp(p.y, 0.0, 1.0)});
  std::stable_sort(points.begin(), points.end(), [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });
  ToneCurve out;
  out.points.clear();
  for (const CurvePoint& p : points)
    if (out.points.empty() || p.x - out.points.back().x >= kMinGap) out.points.push_back(p);
  if (out.points.size() < 2) return ToneCurve::identity();
  return out;
}

std::optional<size_t> pointAt(const ToneCurve& curve, double x, double y, double radius) {
  std::optional<size_t> best;
  double bestDistance = radius;
  for (size_t i = 0; i < curve.points.size(); ++i) {
    const double d = std::hypot(curve.points[i].x - x, curve.points[i].y - y);
    if (d <= bestDistance) {
      bestDistance = d;
      best = i;
    }
  }
  return best;
}

std::optional<size_t> addPoint(ToneCurve& curve, double x, std::optional<double> y) {
  x = std::clamp(x, 0.0, 1.0);
  for (const CurvePoint& p : curve.points)
    if (std::abs(p.x - x) < kMinGap) return std::nullopt;
  const double value = std::clamp(y ? *y : CurveFunction(curve)(x), 0.0, 1.0);
  auto at = std::find_if(curve.points.begin(), curve.points.end(), [x](const CurvePoint& p) { return p.x > x; });
  at = curve.points.insert(at, CurvePoint{x, value});
  return size_t(at - curve.points.begin());
}

void movePoint(ToneCurve& curve, size_t i, double x, double y) {
  if (i >= curve.points.size()) return;
  const double lo = i == 0 ? 0.0 : curve.points[i - 1].x + kMinGap;
  const double hi = i + 1 == curve.points.size() ? 1.0 : curve.points[i + 1].x - kMinGap;
  curve.points[i] = {std::clamp(x, lo, std::max(lo, hi)), std::clamp(y, 0.0, 1.0)};
}

bool removePoint(ToneCurve& curve, size_t i) {
  if (i == 0 || i + 1 >= curve.points.size()) return false;
  curve.points.erase(curve.points.begin() + std::ptrdiff_t(i));
  return true;
}

}  // namespace vg::app
