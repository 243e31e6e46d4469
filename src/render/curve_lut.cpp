#include "render/curve_lut.h"

namespace vg {

std::vector<double> sampleCurve(const ToneCurve& curve, int count) {
  std::vector<double> out;
  if (count <= 0) return out;
  const CurveInterpolator f(curve);
  out.reserve(size_t(count));
  if (count == 1) {
    out.push_back(f(0.0));
    return out;
  }
  for (int i = 0; i < count; ++i) out.push_back(f(double(i) / double(count - 1)));
  return out;
}

Image buildCurveLookupImage(const CurveSet& curves) {
  Image lut(Rect{0, 0, kCurveLutWidth, 2});
  const CurveInterpolator master(curves.rgb), red(curves.red), green(curves.green), blue(curves.blue);
  float* row0 = lut.row(0);
  float* row1 = lut.row(1);
  for (int i = 0; i < kCurveLutWidth; ++i) {
    const double x = double(i) / double(kCurveLutMax);
    float* t0 = row0 + size_t(i) * 4;
    float* t1 = row1 + size_t(i) * 4;
    t0[0] = float(master(x));
    t0[1] = float(red(x));
    t0[2] = float(green(x));
    t0[3] = 1.0f;
    t1[0] = float(blue(x));
    t1[1] = 0.0f;
    t1[2] = 0.0f;
    t1[3] = 1.0f;
  }
  return lut;
}

kernels::CurvesParams curvesKernelParams(const Image& lookup) {
  return kernels::CurvesParams{lookup.row(0), lookup.row(1), kCurveLutMax};
}

}  // namespace vg
