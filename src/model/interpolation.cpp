// Blending two GlobalAdjustments by a fraction t (a filter preset applied at
// a strength is the blend of the manual adjustments towards the preset's).
#include <algorithm>
#include <cmath>

#include "model/adjustments.h"
#include "model/curve_function.h"

namespace vg {
namespace {

// Fixed sample positions used besides both curves' own knots: fine enough
// that the spline through the blended samples follows the blended shape.
constexpr int kCurveGridIntervals = 16;

// a + t(b - a), except that t = 1 gives exactly b (the formula can miss it by
// a rounding step, and a filter at full strength must equal the preset).
double lerp(double a, double b, double t) { return t == 1 ? b : a + t * (b - a); }

// Along the shorter arc of the colour circle: 350 -> 10 passes through 0.
// The ends are exact: the arithmetic would turn 360 into 0, or a tiny hue
// into 0 on the way through a + 360.
double lerpHue(double a, double b, double t) {
  if (t == 0) return a;
  if (t == 1) return b;
  return std::fmod(a + t * (std::fmod(b - a + 540, 360) - 180) + 360, 360);
}

// Every tabled number of r blended from a towards b: linearly, hues along the
// shorter arc; no clamping afterwards.
template <class Record>
void lerpFields(const FieldTable<Record>& table, const Record& a, const Record& b, double t,
                Record& r) {
  for (const auto& f : table.numbers()) {
    r.*f.member = f.hue ? lerpHue(a.*f.member, b.*f.member, t) : lerp(a.*f.member, b.*f.member, t);
  }
}

}  // namespace

ToneCurve interpolate(const ToneCurve& a, const ToneCurve& b, double t) {
  if (t == 0 || a == b) return a;
  if (t == 1) return b;
  const CurveFunction fa(a), fb(b);
  // Sample both curves where either has a knot and on a regular grid, and
  // blend the outputs. The knots keep each curve's corners where they are.
  std::vector<double> xs;
  xs.reserve(fa.xs().size() + fb.xs().size() + kCurveGridIntervals + 1);
  xs.insert(xs.end(), fa.xs().begin(), fa.xs().end());
  xs.insert(xs.end(), fb.xs().begin(), fb.xs().end());
  for (int i = 0; i <= kCurveGridIntervals; ++i) xs.push_back(double(i) / kCurveGridIntervals);
  std::sort(xs.begin(), xs.end());
  xs.erase(std::unique(xs.begin(), xs.end()), xs.end());

  ToneCurve out;
  out.points.clear();
  out.points.reserve(xs.size());
  for (double x : xs) out.points.push_back({x, std::clamp(lerp(fa(x), fb(x), t), 0.0, 1.0)});
  return out;
}

GlobalAdjustments interpolate(const GlobalAdjustments& a, const GlobalAdjustments& b, double t) {
  GlobalAdjustments r = a;
  lerpFields(adjustmentFields(), a, b, t, r);
  r.monochrome = t < 0.5 ? a.monochrome : b.monochrome;

  for (CurveChannel c : kCurveChannels) r.curves[c] = interpolate(a.curves[c], b.curves[c], t);

  const std::size_t bands = std::min(a.hsl.bands.size(), b.hsl.bands.size());
  r.hsl.bands.resize(bands);
  for (std::size_t i = 0; i < bands; ++i) {
    lerpFields(hslBandFields(), a.hsl.bands[i], b.hsl.bands[i], t, r.hsl.bands[i]);
  }
  r.hsl.normalize();

  lerpFields(splitToningFields(), a.splitToning, b.splitToning, t, r.splitToning);
  return r;
}

}  // namespace vg
