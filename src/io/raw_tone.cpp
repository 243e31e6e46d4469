#include "io/raw_tone.h"

#include <algorithm>

#include "io/raw_developer.h"

namespace vg {

double RawTone::base(double x) {
  if (!(x > 0)) return 0;
  const double gc = std::pow(double(kPivot), double(kContrast));
  const double xc = std::pow(x, double(kContrast));
  return (1 + gc) * xc / (xc + gc);
}

RawTone::RawTone(double gain, double boostAmount)
    : gain_(gain), boost_(boostAmount), white_(gain > 1 ? base(gain) : 1.0) {
  table_.resize(kSegments + 2);
  for (int i = 0; i <= kSegments; ++i) {
    const double s = double(i) / kSegments;
    table_[size_t(i)] = exact(float(double(kTableEnd) * s * s));
  }
  table_[kSegments + 1] = table_[kSegments];  // the end knot's right neighbour, for s == kSegments
}

float RawTone::exact(float x) const {
  const double a = std::fabs(double(x)) * gain_;
  const double lifted = shadowLift(float(a), float(boost_), kShadowKnee);
  const double v = base(lifted) / white_;
  return float(x < 0 ? -v : v);
}

}  // namespace vg
