#include "app/display_transform.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "render/color_profiles.h"
#include "render/srgb.h"

namespace vg::app {
namespace {

constexpr const char* kSRGBName = "sRGB IEC61966-2.1";

inline uint32_t to8(uint32_t v16) { return (v16 * 255u + 32767u) / 65535u; }
inline float clip01(float v) { return v > 0.f ? (v < 1.f ? v : 1.f) : 0.f; }  // NaN -> 0

std::string profileDescription(cmsHPROFILE profile) {
  char text[256] = {};
  cmsGetProfileInfoASCII(profile, cmsInfoDescription, "en", "US", text, sizeof text);
  std::string name(text);
  while (!name.empty() && (name.back() == ' ' || name.back() == '\0')) name.pop_back();
  return name.empty() ? std::string("ICC") : name;
}

// The curve table's index of a linear value in 0...1: the exponent above
// 2^-20 and the top 8 bits of the mantissa (anything smaller is entry 0).
inline uint32_t curveIndex(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  const int32_t e = int32_t(bits >> 23) - (127 - DisplayTransform::kOctaves);
  if (e < 0) return 0;
  return std::min<uint32_t>(uint32_t(e) * 256u + ((bits >> 15) & 255u), DisplayTransform::kCurveSize - 1);
}

// Entry i holds f at the middle of the values it stands for (entry 0: f(0)).
void fillCurve(std::array<uint16_t, DisplayTransform::kCurveSize>& curve, const std::function<double(double)>& f) {
  curve[0] = uint16_t(std::lround(std::clamp(f(0.0), 0.0, 1.0) * 65535.0));
  for (int i = 1; i < DisplayTransform::kCurveSize; ++i) {
    const int e = i / 256, m = i % 256;
    const double v = std::ldexp(1.0 + (m + 0.5) / 256.0, e - DisplayTransform::kOctaves);
    curve[size_t(i)] = uint16_t(std::lround(std::clamp(f(std::min(v, 1.0)), 0.0, 1.0) * 65535.0));
  }
}

// Columns: the XYZ (D50, as the profile states them) of the red, green and
// blue colorants.
bool colorants(cmsHPROFILE p, double m[9]) {
  const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
  for (int c = 0; c < 3; ++c) {
    const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(p, tags[c]));
    if (!xyz) return false;
    m[0 + c] = xyz->X, m[3 + c] = xyz->Y, m[6 + c] = xyz->Z;
  }
  return true;
}

bool invert3(const double m[9], double out[9]) {
  const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                     m[2] * (m[3] * m[7] - m[4] * m[6]);
  if (!(std::abs(det) > 1e-12)) return false;
  out[0] = (m[4] * m[8] - m[5] * m[7]) / det, out[1] = (m[2] * m[7] - m[1] * m[8]) / det;
  out[2] = (m[1] * m[5] - m[2] * m[4]) / det, out[3] = (m[5] * m[6] - m[3] * m[8]) / det;
  out[4] = (m[0] * m[8] - m[2] * m[6]) / det, out[5] = (m[2] * m[3] - m[0] * m[5]) / det;
  out[6] = (m[3] * m[7] - m[4] * m[6]) / det, out[7] = (m[1] * m[6] - m[0] * m[7]) / det;
  out[8] = (m[0] * m[4] - m[1] * m[3]) / det;
  return true;
}

}  // namespace

std::shared_ptr<const DisplayTransform> DisplayTransform::sRGB() {
  static const std::shared_ptr<const DisplayTransform> shared = [] {
    std::shared_ptr<DisplayTransform> t(new DisplayTransform);
    t->name_ = kSRGBName;
    t->srgb_ = true;
    for (auto& curve : t->curves_) fillCurve(curve, [](double v) { return srgb::encode(float(v)); });
    return t;
  }();
  return shared;
}

std::shared_ptr<const DisplayTransform> DisplayTransform::create(std::span<const uint8_t> icc, Method method) {
  if (icc.empty()) return nullptr;
  cmsHPROFILE display = cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
  if (!display) return nullptr;
  const cmsProfileClassSignature cls = cmsGetDeviceClass(display);
  const bool usable = cmsGetColorSpace(display) == cmsSigRgbData &&
                      (cls == cmsSigDisplayClass || cls == cmsSigOutputClass || cls == cmsSigColorSpaceClass);
  std::shared_ptr<DisplayTransform> t;
  cmsHPROFILE srgbProfile = cmsCreate_sRGBProfile();
  double src[9], dst[9], dstInv[9];
  if (usable && method == Method::automatic && cmsIsMatrixShaper(display) && colorants(srgbProfile, src) &&
      colorants(display, dst) && invert3(dst, dstInv)) {
    t.reset(new DisplayTransform);
    t->name_ = profileDescription(display);
    double m[9] = {};
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c)
        for (int k = 0; k < 3; ++k) m[r * 3 + c] += dstInv[r * 3 + k] * src[k * 3 + c];
    for (int i = 0; i < 9; ++i) {
      t->matrix_[size_t(i)] = float(m[i]);
      if (std::abs(m[i] - (i % 4 == 0 ? 1.0 : 0.0)) > 1e-4) t->identityMatrix_ = false;
    }
    const cmsTagSignature trcs[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    for (int c = 0; c < 3; ++c) {
      const auto* trc = static_cast<const cmsToneCurve*>(cmsReadTag(display, trcs[c]));
      cmsToneCurve* inverse = trc ? cmsReverseToneCurve(trc) : nullptr;
      if (!inverse) {
        t.reset();
        break;
      }
      fillCurve(t->curves_[size_t(c)], [inverse](double v) { return cmsEvalToneCurveFloat(inverse, float(v)); });
      cmsFreeToneCurve(inverse);
    }
  }
  if (!t && usable) {
    cmsHTRANSFORM xform = cmsCreateTransform(srgbProfile, TYPE_RGB_16, display, TYPE_RGB_16, INTENT_PERCEPTUAL,
                                             cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOCACHE);
    if (xform) {
      t.reset(new DisplayTransform);
      t->name_ = profileDescription(display);
      for (auto& curve : t->curves_) fillCurve(curve, [](double v) { return srgb::encode(float(v)); });
      // The grid in (r, g, b) order with blue varying fastest.
      std::vector<uint16_t> in;
      in.reserve(size_t(kGrid) * kGrid * kGrid * 3);
      for (int r = 0; r < kGrid; ++r)
        for (int g = 0; g < kGrid; ++g)
          for (int b = 0; b < kGrid; ++b)
            for (int c : {r, g, b}) in.push_back(uint16_t(std::lround(c * 65535.0 / (kGrid - 1))));
      t->grid_.resize(in.size());
      cmsDoTransform(xform, in.data(), t->grid_.data(), cmsUInt32Number(in.size() / 3));
      cmsDeleteTransform(xform);
    }
  }
  cmsCloseProfile(srgbProfile);
  cmsCloseProfile(display);
  return t;
}

void DisplayTransform::encode(const float rgb[3], uint32_t e[3]) const {
  float v[3] = {rgb[0], rgb[1], rgb[2]};
  if (!identityMatrix_) {
    const float* m = matrix_.data();
    const float r = v[0], g = v[1], b = v[2];
    v[0] = m[0] * r + m[1] * g + m[2] * b;
    v[1] = m[3] * r + m[4] * g + m[5] * b;
    v[2] = m[6] * r + m[7] * g + m[8] * b;
  }
  for (int c = 0; c < 3; ++c) e[c] = curves_[size_t(c)][curveIndex(clip01(v[c]))];
  if (grid_.empty()) return;

  // Tetrahedral interpolation in the grid cube that holds (r, g, b).
  constexpr float kStep = float(kGrid - 1) / 65535.f;
  int base[3];
  float f[3];
  for (int c = 0; c < 3; ++c) {
    const float p = float(e[c]) * kStep;
    base[c] = std::min(int(p), kGrid - 2);
    f[c] = p - float(base[c]);
  }
  auto node = [&](int dr, int dg, int db) {
    return grid_.data() + ((size_t(base[0] + dr) * kGrid + size_t(base[1] + dg)) * kGrid + size_t(base[2] + db)) * 3;
  };
  const uint16_t* c000 = node(0, 0, 0);
  const uint16_t* c111 = node(1, 1, 1);
  const uint16_t *c1, *c2;
  float w0, w1, w2, w3;  // weights of c000, c1, c2, c111
  const float fr = f[0], fg = f[1], fb = f[2];
  if (fr >= fg && fg >= fb) {
    c1 = node(1, 0, 0), c2 = node(1, 1, 0), w0 = 1 - fr, w1 = fr - fg, w2 = fg - fb, w3 = fb;
  } else if (fr >= fb && fb >= fg) {
    c1 = node(1, 0, 0), c2 = node(1, 0, 1), w0 = 1 - fr, w1 = fr - fb, w2 = fb - fg, w3 = fg;
  } else if (fb >= fr && fr >= fg) {
    c1 = node(0, 0, 1), c2 = node(1, 0, 1), w0 = 1 - fb, w1 = fb - fr, w2 = fr - fg, w3 = fg;
  } else if (fg >= fr && fr >= fb) {
    c1 = node(0, 1, 0), c2 = node(1, 1, 0), w0 = 1 - fg, w1 = fg - fr, w2 = fr - fb, w3 = fb;
  } else if (fg >= fb && fb >= fr) {
    c1 = node(0, 1, 0), c2 = node(0, 1, 1), w0 = 1 - fg, w1 = fg - fb, w2 = fb - fr, w3 = fr;
  } else {
    c1 = node(0, 0, 1), c2 = node(0, 1, 1), w0 = 1 - fb, w1 = fb - fg, w2 = fg - fr, w3 = fr;
  }
  for (int c = 0; c < 3; ++c)
    e[c] = uint32_t(std::clamp(w0 * c000[c] + w1 * c1[c] + w2 * c2[c] + w3 * c111[c] + 0.5f, 0.f, 65535.f));
}

void DisplayTransform::convertRow(const float* src, int count, uint8_t* dst, int x, int y) const {
  if (srgb_) {
    encodeRow8(OutputEncoding::get(OutputColorSpace::sRGB), src, count, OutputChannels::rgba, x, y, true, dst);
    return;
  }
  for (int i = 0; i < count; ++i, src += 4, dst += 4) {
    const float a = clip01(src[3]);
    if (a <= 0.f) {
      std::memset(dst, 0, 4);
      continue;
    }
    const float inv = a < 1.f ? 1.f / a : 1.f;
    const float rgb[3] = {clip01(src[0] * inv), clip01(src[1] * inv), clip01(src[2] * inv)};
    uint32_t e[3];
    encode(rgb, e);
    for (int c = 0; c < 3; ++c) dst[c] = uint8_t(to8(e[c]));
    dst[3] = uint8_t(a * 255.f + 0.5f);
  }
}

}  // namespace vg::app
