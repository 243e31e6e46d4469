#include "render/color_profiles.h"

#include <lcms2.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "render/color_profiles_simd.h"
#include "render/srgb.h"

namespace vg {
namespace {

struct Primaries {
  double rx, ry, gx, gy, bx, by;
};
constexpr double kD65x = 0.3127, kD65y = 0.3290;
constexpr double kAdobeGamma = 563.0 / 256.0;

Primaries primariesOf(OutputColorSpace space) {
  switch (space) {
    case OutputColorSpace::sRGB: return {0.640, 0.330, 0.300, 0.600, 0.150, 0.060};
    case OutputColorSpace::displayP3: return {0.680, 0.320, 0.265, 0.690, 0.150, 0.060};
    case OutputColorSpace::adobeRGB1998: return {0.640, 0.330, 0.210, 0.710, 0.150, 0.060};
  }
  return {0.640, 0.330, 0.300, 0.600, 0.150, 0.060};
}

constexpr Primaries kWorkingPrimaries{0.640, 0.330, 0.300, 0.600, 0.150, 0.060};

// Exact transfer curves, double precision.
double curveExact(OutputColorSpace space, double v) {
  if (space == OutputColorSpace::adobeRGB1998) return v <= 0 ? 0.0 : std::pow(v, 1.0 / kAdobeGamma);
  return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

using ProfilePtr = std::unique_ptr<void, decltype(&cmsCloseProfile)>;

// An RGB profile with the given primaries, D65 white and the space's curve
// (or a linear curve when `linear`).
ProfilePtr makeProfile(const Primaries& p, OutputColorSpace curveOf, bool linear, const char* description) {
  cmsCIExyY white{kD65x, kD65y, 1.0};
  cmsCIExyYTRIPLE prim{{p.rx, p.ry, 1.0}, {p.gx, p.gy, 1.0}, {p.bx, p.by, 1.0}};
  cmsToneCurve* curve = nullptr;
  if (linear) {
    curve = cmsBuildGamma(nullptr, 1.0);
  } else if (curveOf == OutputColorSpace::adobeRGB1998) {
    curve = cmsBuildGamma(nullptr, kAdobeGamma);
  } else {
    // IEC 61966-2-1: Y = (aX + b)^g for X >= d, Y = cX below.
    const double params[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    curve = cmsBuildParametricToneCurve(nullptr, 4, params);
  }
  if (!curve) throw std::runtime_error("cannot build tone curve");
  cmsToneCurve* curves[3] = {curve, curve, curve};
  cmsHPROFILE h = cmsCreateRGBProfile(&white, &prim, curves);
  cmsFreeToneCurve(curve);
  if (!h) throw std::runtime_error("cannot build RGB profile");
  ProfilePtr profile(h, &cmsCloseProfile);
  cmsSetProfileVersion(h, 2.1);
  cmsSetDeviceClass(h, cmsSigDisplayClass);
  cmsMLU* desc = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(desc, "en", "US", description);
  cmsWriteTag(h, cmsSigProfileDescriptionTag, desc);
  cmsMLUfree(desc);
  cmsMLU* copyright = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(copyright, "en", "US", "No copyright, use freely");
  cmsWriteTag(h, cmsSigCopyrightTag, copyright);
  cmsMLUfree(copyright);
  return profile;
}

// Colorant matrix (columns = XYZ of the primaries, D50-adapted as stored).
std::array<double, 9> colorants(cmsHPROFILE h) {
  auto* r = static_cast<cmsCIEXYZ*>(cmsReadTag(h, cmsSigRedColorantTag));
  auto* g = static_cast<cmsCIEXYZ*>(cmsReadTag(h, cmsSigGreenColorantTag));
  auto* b = static_cast<cmsCIEXYZ*>(cmsReadTag(h, cmsSigBlueColorantTag));
  if (!r || !g || !b) throw std::runtime_error("profile without colorants");
  return {r->X, g->X, b->X, r->Y, g->Y, b->Y, r->Z, g->Z, b->Z};
}

std::array<double, 9> multiply(const std::array<double, 9>& a, const std::array<double, 9>& b) {
  std::array<double, 9> m{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) m[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
  return m;
}

std::array<double, 9> inverse(const std::array<double, 9>& m) {
  double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5], g = m[6], h = m[7], i = m[8];
  double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
  return {(e * i - f * h) / det, (c * h - b * i) / det, (b * f - c * e) / det,
          (f * g - d * i) / det, (a * i - c * g) / det, (c * d - a * f) / det,
          (d * h - e * g) / det, (b * g - a * h) / det, (a * e - b * d) / det};
}

// Plain derivation of RGB -> XYZ from chromaticities (for the reference path).
std::array<double, 9> rgbToXyz(const Primaries& p) {
  auto col = [](double x, double y) { return std::array<double, 3>{x / y, 1.0, (1 - x - y) / y}; };
  auto r = col(p.rx, p.ry), g = col(p.gx, p.gy), b = col(p.bx, p.by), w = col(kD65x, kD65y);
  std::array<double, 9> m{r[0], g[0], b[0], r[1], g[1], b[1], r[2], g[2], b[2]};
  auto inv = inverse(m);
  double s[3];
  for (int i = 0; i < 3; ++i) s[i] = inv[i * 3] * w[0] + inv[i * 3 + 1] * w[1] + inv[i * 3 + 2] * w[2];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m[i * 3 + j] *= s[j];
  return m;
}

const std::array<double, 9>& referenceMatrix(OutputColorSpace space) {
  static const std::array<std::array<double, 9>, 3> matrices = [] {
    std::array<std::array<double, 9>, 3> out{};
    auto working = rgbToXyz(kWorkingPrimaries);
    for (int s = 0; s < 3; ++s)
      out[s] = multiply(inverse(rgbToXyz(primariesOf(OutputColorSpace(s)))), working);
    return out;
  }();
  return matrices[int(space)];
}

using output_simd::kBaseBits;
using output_simd::kFracBits;
using output_simd::kFracScale;
using output_simd::kSegments;

// 64x64 interleaved-gradient noise in [0, 1): an ordered pattern without the
// visible cross-hatch of a Bayer matrix. Each row is stored twice over (128
// values) so that a vector load may start anywhere in its first 64.
struct DitherTable {
  float v[64 * 128];
  DitherTable() {
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 128; ++x) {
        double f = 0.06711056 * (x & 63) + 0.00583715 * y;
        f -= std::floor(f);
        double n = 52.9829189 * f;
        v[y * 128 + x] = float(n - std::floor(n));
      }
  }
};
const DitherTable& ditherTable() {
  static const DitherTable table;
  return table;
}

// Working values are first limited to the half-float range the bitmap of an
// export holds (infinities become its largest value, NaN becomes 0), so that
// a matrix with zero entries never meets 0 x infinity.
constexpr float kHalfMax = 65504.0f;
inline float finite(float v) {
  if (!(v == v)) return 0.0f;
  return v > -kHalfMax ? (v < kHalfMax ? v : kHalfMax) : -kHalfMax;
}

inline float clip01(float v) {
  v = v > 0.0f ? v : 0.0f;  // NaN fails the test and becomes 0
  return v < 1.0f ? v : 1.0f;
}

// Steps 1-3 for one pixel: encoded rgb in 0...1 and alpha.
inline void encodePixel(const OutputEncoding& enc, const float* m, const float* s, bool keepAlpha,
                        float out[4]) {
  float r = finite(s[0]), g = finite(s[1]), b = finite(s[2]), a = clip01(s[3]);
  if (keepAlpha) {
    const float cover = s[3] > 1.0f ? s[3] : a;  // an overshoot above 1 still divides out
    float inv = a > 0.0f ? 1.0f / cover : 0.0f;
    r *= inv;
    g *= inv;
    b *= inv;
  }
  out[0] = enc.encodeCurve(clip01(m[0] * r + m[1] * g + m[2] * b));
  out[1] = enc.encodeCurve(clip01(m[3] * r + m[4] * g + m[5] * b));
  out[2] = enc.encodeCurve(clip01(m[6] * r + m[7] * g + m[8] * b));
  out[3] = a;
}

}  // namespace

std::string_view outputProfileDescription(OutputColorSpace space) {
  switch (space) {
    case OutputColorSpace::sRGB: return "sRGB IEC61966-2.1";
    case OutputColorSpace::displayP3: return "Display P3";
    case OutputColorSpace::adobeRGB1998: return "Adobe RGB (1998)";
  }
  return "sRGB IEC61966-2.1";
}

const std::vector<uint8_t>& outputIccProfile(OutputColorSpace space) {
  static const std::array<std::vector<uint8_t>, 3> profiles = [] {
    std::array<std::vector<uint8_t>, 3> out;
    for (int s = 0; s < 3; ++s) {
      auto space = OutputColorSpace(s);
      std::string desc(outputProfileDescription(space));
      ProfilePtr p = makeProfile(primariesOf(space), space, false, desc.c_str());
      cmsUInt32Number size = 0;
      if (!cmsSaveProfileToMem(p.get(), nullptr, &size)) throw std::runtime_error("cannot size ICC profile");
      out[s].resize(size);
      if (!cmsSaveProfileToMem(p.get(), out[s].data(), &size)) throw std::runtime_error("cannot save ICC profile");
      out[s].resize(size);
    }
    return out;
  }();
  return profiles[int(space)];
}

const OutputEncoding& OutputEncoding::get(OutputColorSpace space) {
  static const std::array<OutputEncoding, 3> encodings{OutputEncoding(OutputColorSpace::sRGB),
                                                       OutputEncoding(OutputColorSpace::displayP3),
                                                       OutputEncoding(OutputColorSpace::adobeRGB1998)};
  return encodings[int(space)];
}

OutputEncoding::OutputEncoding(OutputColorSpace space) : space_(space) {
  // Matrix: output colorants^-1 x working colorants, both as lcms stores them
  // (D50-adapted from D65 the same way, so the adaptation cancels).
  ProfilePtr working = makeProfile(kWorkingPrimaries, OutputColorSpace::sRGB, true, "working");
  ProfilePtr output = makeProfile(primariesOf(space), space, true, "output");
  auto m = multiply(inverse(colorants(output.get())), colorants(working.get()));
  for (int i = 0; i < 9; ++i) matrix_[i] = std::fabs(m[i]) < 1e-7 ? 0.0f : float(m[i]);
  if (space == OutputColorSpace::sRGB) matrix_ = {1, 0, 0, 0, 1, 0, 0, 0, 1};

  table_.resize(kSegments + 1);
  for (int i = 0; i <= kSegments; ++i) {
    float x = std::bit_cast<float>(kBaseBits + (uint32_t(i) << kFracBits));
    table_[i] = float(curveExact(space, double(x)));
  }
}

float OutputEncoding::encodeCurve(float v) const {
  uint32_t bits = std::bit_cast<uint32_t>(v);
  if (bits < kBaseBits) return space_ == OutputColorSpace::adobeRGB1998 ? 0.0f : v * 12.92f;
  if (v >= 1.0f) return 1.0f;
  uint32_t d = bits - kBaseBits;
  uint32_t i = d >> kFracBits;
  float t = float(d & ((1u << kFracBits) - 1)) * kFracScale;
  float a = table_[i], b = table_[i + 1];
  return a + (b - a) * t;
}

void encodeRow8(const OutputEncoding& enc, const float* src, int count, OutputChannels channels, int x, int y,
                bool dither, uint8_t* dst) {
  const float* m = enc.matrix().data();
  const bool alpha = channels == OutputChannels::rgba;
  const int step = alpha ? 4 : 3;
  const float* noise = ditherTable().v + (y & 63) * 128;
  output_simd::RowJob job{m, enc.table_.data(), enc.space() != OutputColorSpace::adobeRGB1998, alpha, src, count};
  int i = output_simd::encode8(job, x, noise, dither, dst);
  src += size_t(i) * 4;
  dst += size_t(i) * step;
  for (; i < count; ++i, src += 4, dst += step) {
    float e[4];
    encodePixel(enc, m, src, alpha, e);
    float d = dither ? noise[(x + i) & 63] : 0.5f;
    for (int c = 0; c < 3; ++c) {
      float q = e[c] * 255.0f + d;
      dst[c] = uint8_t(q < 255.0f ? q : 255.0f);
    }
    if (alpha) dst[3] = uint8_t(e[3] * 255.0f + 0.5f);
  }
}

void encodeRow16(const OutputEncoding& enc, const float* src, int count, OutputChannels channels,
                 uint16_t maxCode, uint16_t* dst) {
  const float* m = enc.matrix().data();
  const bool alpha = channels == OutputChannels::rgba;
  const int step = alpha ? 4 : 3;
  const float scale = float(maxCode);
  output_simd::RowJob job{m, enc.table_.data(), enc.space() != OutputColorSpace::adobeRGB1998, alpha, src, count};
  int i = output_simd::encode16(job, scale, dst);
  src += size_t(i) * 4;
  dst += size_t(i) * step;
  for (; i < count; ++i, src += 4, dst += step) {
    float e[4];
    encodePixel(enc, m, src, alpha, e);
    for (int c = 0; c < 3; ++c) dst[c] = uint16_t(e[c] * scale + 0.5f);
    if (alpha) dst[3] = uint16_t(e[3] * scale + 0.5f);
  }
}

std::array<double, 4> encodeReference(OutputColorSpace space, const float rgba[4], OutputChannels channels) {
  auto clip = [](double v) { return std::isnan(v) ? 0.0 : std::min(1.0, std::max(0.0, v)); };
  double a = clip(rgba[3]);
  auto finite = [](double v) { return std::isnan(v) ? 0.0 : std::clamp(v, -65504.0, 65504.0); };
  double c[3] = {finite(rgba[0]), finite(rgba[1]), finite(rgba[2])};
  if (channels == OutputChannels::rgba)
    for (double& v : c) v = a > 0 ? v / std::max(a, double(rgba[3])) : 0.0;
  const auto& m = referenceMatrix(space);
  std::array<double, 4> out{};
  for (int i = 0; i < 3; ++i)
    out[i] = curveExact(space, clip(m[i * 3] * c[0] + m[i * 3 + 1] * c[1] + m[i * 3 + 2] * c[2]));
  out[3] = a;
  return out;
}

}  // namespace vg
