#include "render/builtin_filters.h"

#include <algorithm>
#include <cmath>

#include "render/kernel_math.h"
#include "render/row_clones.h"


namespace vg::filters {

namespace {

using Mat3 = std::array<std::array<double, 3>, 3>;
using Vec3 = std::array<double, 3>;

Mat3 multiply(const Mat3& a, const Mat3& b) {
  Mat3 m{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) m[i][j] += a[i][k] * b[k][j];
  return m;
}

Vec3 apply(const Mat3& a, const Vec3& v) {
  Vec3 r{};
  for (int i = 0; i < 3; ++i) r[i] = a[i][0] * v[0] + a[i][1] * v[1] + a[i][2] * v[2];
  return r;
}

Mat3 inverse(const Mat3& m) {
  double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
               m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  Mat3 r;
  r[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det;
  r[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
  r[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
  r[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) / det;
  r[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
  r[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
  r[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) / det;
  r[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
  r[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
  return r;
}

// Linear Rec.709 / sRGB primaries with the D65 white (IEC 61966-2-1).
constexpr Mat3 kRgbToXyz = {{{0.4124564, 0.3575761, 0.1804375},
                             {0.2126729, 0.7151522, 0.0721750},
                             {0.0193339, 0.1191920, 0.9503041}}};
// Bradford cone response.
constexpr Mat3 kBradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};

constexpr double kMinKelvin = 1000, kMaxKelvin = 25000;

// The Planckian locus in CIE 1960 uv (Krystek 1985 rational approximation,
// within 1e-5 of the exact locus between 1000 K and 15000 K and still smooth
// beyond, where the locus flattens out).
void planckianUv(double t, double& u, double& v) {
  u = (0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) / (1 + 8.42420235e-4 * t + 7.08145163e-7 * t * t);
  v = (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) / (1 - 2.89741816e-5 * t + 1.61456053e-7 * t * t);
}

// The white of a neutral as XYZ with Y = 1.
Vec3 neutralWhite(Neutral n) {
  double t = std::isfinite(n.temperature) ? std::clamp(n.temperature, kMinKelvin, kMaxKelvin) : 6500.0;
  double tint = std::isfinite(n.tint) ? n.tint : 0.0;
  double u, v, u1, v1;
  planckianUv(t, u, v);
  planckianUv(t + 1.0, u1, v1);
  // Unit normal to the locus, pointing to larger v (towards green).
  double du = u1 - u, dv = v1 - v, len = std::hypot(du, dv);
  double nu = -dv / len, nv = du / len;
  if (nv < 0) {
    nu = -nu;
    nv = -nv;
  }
  u += nu * tint / 3000.0;
  v += nv * tint / 3000.0;
  double den = 2 * u - 8 * v + 4;
  double x = 3 * u / den, y = 2 * v / den;
  return {x / y, 1.0, (1 - x - y) / y};
}

}  // namespace

float exposureGain(float ev) { return std::exp2(ev); }

VG_ROW_CLONES void exposure(float gain, const KernelRow& row) {
  // Alpha is multiplied by 1, which leaves it as it is: blocks of four
  // pixels times a fixed pattern vectorise.
  float by[16];
  for (int k = 0; k < 16; ++k) by[k] = k % 4 == 3 ? 1.0f : gain;
  float* p = row.rgba;
  const size_t n = size_t(std::max(row.n, 0)) * 4;
  size_t i = 0;
  for (; i + 16 <= n; i += 16)
    for (size_t k = 0; k < 16; ++k) p[i + k] *= by[k];
  for (; i < n; ++i) p[i] *= by[i % 4];
}

VG_ROW_CLONES void exposure(float gain, const PlanarRow& row) {
  const int n = kernels::planarPadded(row.n);
  for (int i = 0; i < n; ++i) {
    row.r[i] *= gain;
    row.g[i] *= gain;
    row.b[i] *= gain;
  }
}

// saturation and colorMatrix: builtin_filters_simd.cpp.

bool ColorMatrix::isIdentity() const { return *this == ColorMatrix{}; }

ColorMatrix temperatureAndTint(Neutral neutral, Neutral target) {
  Vec3 from = neutralWhite(neutral), to = neutralWhite(target);
  if (from == to) return ColorMatrix{};
  Vec3 coneFrom = apply(kBradford, from), coneTo = apply(kBradford, to);
  Mat3 scale{};
  for (int i = 0; i < 3; ++i) scale[i][i] = coneTo[i] / coneFrom[i];
  Mat3 xyz = multiply(inverse(kBradford), multiply(scale, kBradford));
  Mat3 rgb = multiply(inverse(kRgbToXyz), multiply(xyz, kRgbToXyz));
  ColorMatrix m;
  for (int j = 0; j < 3; ++j) {
    m.r[size_t(j)] = float(rgb[0][j]);
    m.g[size_t(j)] = float(rgb[1][j]);
    m.b[size_t(j)] = float(rgb[2][j]);
  }
  return m;
}

VG_ROW_CLONES void minimumComponent(const KernelRow& row) {
  float* p = row.rgba;
  for (int i = 0; i < row.n; ++i, p += 4) p[0] = p[1] = p[2] = std::min(std::min(p[0], p[1]), p[2]);
}

VG_ROW_CLONES void blendWithMask(const KernelRow& row, const float* mask) {
  float* p = row.rgba;
  const float* bg = row.aux;
  for (int i = 0; i < row.n; ++i, p += 4, bg += 4) {
    float m = mask[size_t(i) * 4];
    for (int k = 0; k < 4; ++k) p[k] = kmath::mix(bg[k], p[k], m);
  }
}

VG_ROW_CLONES void dissolve(float amount, const KernelRow& row) {
  float* p = row.rgba;
  const float* bg = row.aux;
  for (int i = 0; i < row.n * 4; ++i) p[i] = kmath::mix(bg[i], p[i], amount);
}

}  // namespace vg::filters
