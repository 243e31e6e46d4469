#include "io/input_color.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>

#include "model/log.h"
#include "render/srgb.h"

namespace vg {

struct InputColor::Lcms {
  cmsHTRANSFORM transform = nullptr;
  ~Lcms() {
    if (transform) cmsDeleteTransform(transform);
  }
};

namespace {

constexpr int kFloatTableSize = 4096;  // intervals of the float-input curve tables
// Larger tone-curve values than this only come from damaged profiles.
constexpr float kMaxCurveValue = 1e6f;

using Mat3 = std::array<double, 9>;  // row-major

Mat3 multiply(const Mat3& a, const Mat3& b) {
  Mat3 r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
  return r;
}

bool invert(const Mat3& m, Mat3& out) {
  double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
               m[2] * (m[3] * m[7] - m[4] * m[6]);
  if (!std::isfinite(det) || std::fabs(det) < 1e-12) return false;
  double d = 1.0 / det;
  out = {(m[4] * m[8] - m[5] * m[7]) * d, (m[2] * m[7] - m[1] * m[8]) * d,
         (m[1] * m[5] - m[2] * m[4]) * d, (m[5] * m[6] - m[3] * m[8]) * d,
         (m[0] * m[8] - m[2] * m[6]) * d, (m[2] * m[3] - m[0] * m[5]) * d,
         (m[3] * m[7] - m[4] * m[6]) * d, (m[1] * m[6] - m[0] * m[7]) * d,
         (m[0] * m[4] - m[1] * m[3]) * d};
  return true;
}

// Columns = the XYZ of the red, green and blue colourants of an RGB profile.
bool colorantMatrix(cmsHPROFILE h, Mat3& out) {
  const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                   cmsSigBlueColorantTag};
  for (int c = 0; c < 3; ++c) {
    auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(h, tags[c]));
    if (!xyz) return false;
    out[0 + c] = xyz->X;
    out[3 + c] = xyz->Y;
    out[6 + c] = xyz->Z;
  }
  return true;
}

// XYZ (D50 connection space) -> linear sRGB, from the colourants of the sRGB
// profile Little CMS builds (Bradford-adapted to D50, as ICC profiles store them).
const Mat3& xyzD50ToLinearSrgb() {
  static const Mat3 m = [] {
    Mat3 colorants{}, inv{};
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    colorantMatrix(srgb, colorants);
    cmsCloseProfile(srgb);
    invert(colorants, inv);
    return inv;
  }();
  return m;
}

// Primaries given by chromaticities -> XYZ with their own white (Y = 1).
Mat3 rgbToXyz(const InputColor::Primaries& p) {
  auto col = [](double x, double y) { return std::array<double, 3>{x / y, 1.0, (1 - x - y) / y}; };
  auto r = col(p.redX, p.redY), g = col(p.greenX, p.greenY), b = col(p.blueX, p.blueY);
  auto w = col(p.whiteX, p.whiteY);
  Mat3 m = {r[0], g[0], b[0], r[1], g[1], b[1], r[2], g[2], b[2]};
  Mat3 inv{};
  if (!invert(m, inv)) return {1, 0, 0, 0, 1, 0, 0, 0, 1};
  double s[3];
  for (int i = 0; i < 3; ++i) s[i] = inv[i * 3] * w[0] + inv[i * 3 + 1] * w[1] + inv[i * 3 + 2] * w[2];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m[i * 3 + j] *= s[j];
  return m;
}

// Bradford chromatic adaptation from white (x, y) to D65.
Mat3 adaptToD65(double wx, double wy) {
  const Mat3 bradford = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
  Mat3 inverse{};
  invert(bradford, inverse);
  auto lms = [&](double x, double y) {
    double X = x / y, Y = 1, Z = (1 - x - y) / y;
    return std::array<double, 3>{bradford[0] * X + bradford[1] * Y + bradford[2] * Z,
                                 bradford[3] * X + bradford[4] * Y + bradford[5] * Z,
                                 bradford[6] * X + bradford[7] * Y + bradford[8] * Z};
  };
  auto src = lms(wx, wy), dst = lms(0.3127, 0.3290);
  Mat3 scale = {dst[0] / src[0], 0, 0, 0, dst[1] / src[1], 0, 0, 0, dst[2] / src[2]};
  return multiply(inverse, multiply(scale, bradford));
}

const Mat3 kXyzD65ToLinearSrgb = {3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                                  0.0415560, 0.0556434, -0.2040259, 1.0572252};

bool nearIdentity(const Mat3& m) {
  for (int i = 0; i < 9; ++i) {
    double expected = (i % 4 == 0) ? 1.0 : 0.0;
    if (std::fabs(m[i] - expected) > 2e-3) return false;
  }
  return true;
}

std::string utf8FromWide(const wchar_t* text) {
  std::string out;
  for (; *text; ++text) {
    auto c = uint32_t(*text);
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6));
      out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += char(0xE0 | (c >> 12));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    } else if (c < 0x110000) {
      out += char(0xF0 | (c >> 18));
      out += char(0x80 | ((c >> 12) & 0x3F));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    }
  }
  while (!out.empty() && (out.back() == ' ' || out.back() == '\n')) out.pop_back();
  return out;
}

std::string describe(cmsHPROFILE h) {
  wchar_t buffer[256];
  for (auto [lang, country] : {std::pair{"en", "US"}, std::pair{cmsNoLanguage, cmsNoCountry}}) {
    cmsUInt32Number n = cmsGetProfileInfo(h, cmsInfoDescription, lang, country, buffer, 256);
    if (n > 0) {
      buffer[255] = 0;
      std::string text = utf8FromWide(buffer);
      if (!text.empty()) return text;
    }
  }
  return {};
}

cmsColorSpaceSignature signatureFor(ColorModel model) {
  switch (model) {
    case ColorModel::gray: return cmsSigGrayData;
    case ColorModel::rgb: return cmsSigRgbData;
    case ColorModel::cmyk: return cmsSigCmykData;
  }
  return cmsSigRgbData;
}

float halfToFloat(uint16_t h) {
  uint32_t sign = uint32_t(h & 0x8000) << 16, exp = (h >> 10) & 0x1F, mant = h & 0x3FF;
  uint32_t bits;
  if (exp == 0) {
    if (mant == 0) {
      bits = sign;
    } else {  // subnormal
      exp = 127 - 15 + 1;
      while (!(mant & 0x400)) {
        mant <<= 1;
        --exp;
      }
      bits = sign | (exp << 23) | ((mant & 0x3FF) << 13);
    }
  } else if (exp == 31) {
    bits = sign | 0x7F800000 | (mant << 13);
  } else {
    bits = sign | ((exp + 127 - 15) << 23) | (mant << 13);
  }
  float f;
  std::memcpy(&f, &bits, 4);
  return f;
}

struct ProfileCloser {
  void operator()(void* h) const { cmsCloseProfile(h); }
};
using ProfilePtr = std::unique_ptr<void, ProfileCloser>;

cmsHPROFILE linearSrgbProfile() {
  cmsCIExyY white = {0.3127, 0.3290, 1.0};
  cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
  cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
  cmsToneCurve* curves[3] = {linear, linear, linear};
  cmsHPROFILE p = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(linear);
  return p;
}

// HDR reference white (BT.2408): the luminance that becomes 1.0.
constexpr double kHdrReferenceWhite = 203.0;
// HLG reference display (BT.2100): nominal peak luminance and system gamma.
constexpr double kHlgPeak = 1000.0;
constexpr double kHlgSystemGamma = 1.2;

// SMPTE ST 2084 EOTF: signal 0...1 -> cd/m², 0...10000.
double pqToNits(double e) {
  constexpr double m1 = 2610.0 / 16384.0, m2 = 2523.0 / 4096.0 * 128.0;
  constexpr double c1 = 3424.0 / 4096.0, c2 = 2413.0 / 4096.0 * 32.0, c3 = 2392.0 / 4096.0 * 32.0;
  double p = std::pow(std::clamp(e, 0.0, 1.0), 1.0 / m2);
  return 10000.0 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1.0 / m1);
}

// BT.2100 HLG inverse OETF: signal 0...1 -> scene light 0...1.
double hlgToScene(double e) {
  constexpr double a = 0.17883277, b = 0.28466892, c = 0.55991073;  // b = 1 - 4a, c = 0.5 - a ln(4a)
  e = std::clamp(e, 0.0, 1.0);
  return e <= 0.5 ? e * e / 3.0 : (std::exp((e - c) / a) + b) / 12.0;
}

float transferToLinear(InputColor::Transfer t, float v) {
  switch (t) {
    case InputColor::Transfer::pq: return float(pqToNits(v) / kHdrReferenceWhite);
    case InputColor::Transfer::hlg: return float(hlgToScene(v));
    case InputColor::Transfer::srgb: return srgb::decode(v);
    case InputColor::Transfer::bt709: {
      float a = std::fabs(v);
      float r = a < 0.081f ? a / 4.5f : std::pow((a + 0.099f) / 1.099f, 1.0f / 0.45f);
      return std::copysign(r, v);
    }
    case InputColor::Transfer::gamma22: return std::copysign(std::pow(std::fabs(v), 2.2f), v);
    case InputColor::Transfer::linear: return v;
  }
  return v;
}

}  // namespace

bool InputColor::buildTables(const std::array<const void*, 3>& curves) {
  // A damaged curve can evaluate to NaN, infinity or absurd magnitudes; one
  // such value would poison every pixel that looks it up, so the caller
  // drops the profile instead.
  bool sane = true;
  auto eval = [&](int c, float v) {
    if (!curves[c]) return srgb::decode(v);
    float r = cmsEvalToneCurveFloat(static_cast<const cmsToneCurve*>(curves[c]), v);
    if (!(std::fabs(r) <= kMaxCurveValue)) sane = false;
    return r;
  };
  int channels = format_.model == ColorModel::gray ? 1 : 3;
  if (!format_.isFloat()) {
    size_t size = size_t(1) << format_.bitDepth;
    float maxValue = float(size - 1);
    for (int c = 0; c < channels; ++c) {
      tables_[c].resize(size);
      for (size_t i = 0; i < size; ++i) tables_[c][i] = eval(c, float(i) / maxValue);
    }
  }
  bool allSrgb = std::all_of(curves.begin(), curves.begin() + channels, [](auto p) { return !p; });
  floatCurve_ = allSrgb ? FloatCurve::srgb : FloatCurve::table;
  // Only float samples and associated alpha take the curve on normalised
  // floats; other integer samples look their values up in tables_.
  if (floatCurve_ == FloatCurve::table && (format_.isFloat() || format_.alphaAssociated)) {
    for (int c = 0; c < channels; ++c) {
      floatTables_[c].resize(kFloatTableSize + 1);
      for (int i = 0; i <= kFloatTableSize; ++i) floatTables_[c][i] = eval(c, float(i) / kFloatTableSize);
    }
  }
  return sane;
}

float InputColor::curveFloat(int c, float v) const {
  switch (floatCurve_) {
    case FloatCurve::identity: return v;
    case FloatCurve::srgb: return srgb::decode(v);
    case FloatCurve::table: break;
  }
  const auto& t = floatTables_[c];
  if (!(v == v)) return v;  // NaN stays NaN
  float a = std::fabs(v);
  float r;
  if (a >= 1.0f) {
    float slope = (t[kFloatTableSize] - t[kFloatTableSize - 1]) * kFloatTableSize;
    r = t[kFloatTableSize] + (a - 1.0f) * slope;
  } else {
    float p = a * kFloatTableSize;
    int i = int(p);
    float f = p - float(i);
    r = t[i] + (t[i + 1] - t[i]) * f;
  }
  return std::copysign(r, v);
}

InputColor InputColor::workingSpace(const SourceFormat& format) {
  InputColor c;
  c.format_ = format;
  c.floatCurve_ = FloatCurve::identity;
  if (!format.isFloat()) {
    // Integer samples taken as linear fractions of full scale.
    size_t size = size_t(1) << format.bitDepth;
    for (int ch = 0; ch < 3; ++ch) {
      c.tables_[ch].resize(size);
      for (size_t i = 0; i < size; ++i) c.tables_[ch][i] = float(i) / float(size - 1);
    }
  }
  return finished(std::move(c));
}

InputColor InputColor::fromPrimaries(const Primaries& p, Transfer transfer, const SourceFormat& format) {
  InputColor c;
  c.format_ = format;
  Mat3 m = multiply(kXyzD65ToLinearSrgb, multiply(adaptToD65(p.whiteX, p.whiteY), rgbToXyz(p)));
  if (!nearIdentity(m)) {
    c.hasMatrix_ = true;
    for (int i = 0; i < 9; ++i) c.matrix_[i] = float(m[i]);
  }
  if (transfer == Transfer::hlg) {
    Mat3 toXyz = rgbToXyz(p);
    c.hlgOotf_ = true;
    for (int i = 0; i < 3; ++i) c.hlgLuma_[size_t(i)] = float(toXyz[3 + i]);
  }
  if (transfer == Transfer::srgb) {
    c.buildTables({nullptr, nullptr, nullptr});
    return finished(std::move(c));
  }
  c.floatCurve_ = FloatCurve::table;
  int channels = format.model == ColorModel::gray ? 1 : 3;
  if (!format.isFloat()) {
    size_t size = size_t(1) << format.bitDepth;
    for (int ch = 0; ch < channels; ++ch) {
      c.tables_[ch].resize(size);
      for (size_t i = 0; i < size; ++i) c.tables_[ch][i] = transferToLinear(transfer, float(i) / float(size - 1));
    }
  }
  for (int ch = 0; ch < channels; ++ch) {
    c.floatTables_[ch].resize(kFloatTableSize + 1);
    for (int i = 0; i <= kFloatTableSize; ++i)
      c.floatTables_[ch][i] = transferToLinear(transfer, float(i) / kFloatTableSize);
  }
  return finished(std::move(c));
}

InputColor InputColor::fromIcc(std::span<const uint8_t> icc, const SourceFormat& format) {
  InputColor c;
  c.format_ = format;
  ProfilePtr profile;
  if (!icc.empty()) {
    profile.reset(cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size())));
    if (!profile) logLine("image loader: ignoring an unreadable ICC profile");
  }
  cmsHPROFILE h = profile.get();
  // The file's colour space is named after its embedded profile, whatever
  // the colour model, even when the profile cannot drive the conversion
  // (a grey image carrying an RGB profile, a profile Little CMS cannot use).
  if (h) c.description_ = describe(h);
  if (h && cmsGetColorSpace(h) != signatureFor(format.model)) {
    logLine("image loader: ignoring an ICC profile that does not match the image's colour model");
    h = nullptr;
  }
  if (!h) {
    if (format.model == ColorModel::cmyk) {
      c.mode_ = Mode::cmykNaive;
      c.floatCurve_ = FloatCurve::srgb;
    } else {
      c.buildTables({nullptr, nullptr, nullptr});
    }
    return finished(std::move(c));
  }

  bool damagedCurves = false;
  if (format.model == ColorModel::gray && cmsIsTag(h, cmsSigGrayTRCTag)) {
    auto* curve = cmsReadTag(h, cmsSigGrayTRCTag);
    if (curve) {
      if (c.buildTables({curve, nullptr, nullptr})) {
        c.usesProfile_ = true;
        return finished(std::move(c));
      }
      damagedCurves = true;
    }
  }
  Mat3 colorants{};
  if (format.model == ColorModel::rgb && cmsIsMatrixShaper(h) && colorantMatrix(h, colorants)) {
    auto* r = cmsReadTag(h, cmsSigRedTRCTag);
    auto* g = cmsReadTag(h, cmsSigGreenTRCTag);
    auto* b = cmsReadTag(h, cmsSigBlueTRCTag);
    if (r && g && b) {
      Mat3 m = multiply(xyzD50ToLinearSrgb(), colorants);
      bool finite = std::all_of(m.begin(), m.end(), [](double v) { return std::isfinite(v); });
      if (finite && c.buildTables({r, g, b})) {
        if (!nearIdentity(m)) {
          c.hasMatrix_ = true;
          for (int i = 0; i < 9; ++i) c.matrix_[i] = float(m[i]);
        }
        c.usesProfile_ = true;
        return finished(std::move(c));
      }
      damagedCurves = damagedCurves || finite;
    }
  }
  if (damagedCurves) {
    logLine("image loader: ignoring an ICC profile whose tone curves are damaged");
    c.buildTables({nullptr, nullptr, nullptr});
    return finished(std::move(c));
  }

  // Exotic profile: Little CMS converts normalised float samples.
  cmsUInt32Number inFormat = format.model == ColorModel::gray ? TYPE_GRAY_FLT
                             : format.model == ColorModel::rgb ? TYPE_RGB_FLT
                                                               : TYPE_CMYK_FLT;
  cmsHPROFILE out = linearSrgbProfile();
  cmsHTRANSFORM t = cmsCreateTransform(h, inFormat, out, TYPE_RGB_FLT, INTENT_PERCEPTUAL,
                                       cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE);
  cmsCloseProfile(out);
  if (!t) {
    logLine("image loader: ICC profile cannot be used, taking the image as sRGB");
    if (format.model == ColorModel::cmyk) {
      c.mode_ = Mode::cmykNaive;
    } else {
      c.buildTables({nullptr, nullptr, nullptr});
    }
    return finished(std::move(c));
  }
  auto lcms = std::make_shared<Lcms>();
  lcms->transform = t;
  c.lcms_ = std::move(lcms);
  c.mode_ = Mode::lcms;
  c.floatCurve_ = FloatCurve::identity;
  c.usesProfile_ = true;
  return finished(std::move(c));
}

void InputColor::toWorkingSpace(float& r, float& g, float& b) const {
  if (hlgOotf_) applyHlgSystemGamma(r, g, b);
  if (hasMatrix_) {
    const auto& m = matrix_;
    const float R = m[0] * r + m[1] * g + m[2] * b;
    const float G = m[3] * r + m[4] * g + m[5] * b;
    const float B = m[6] * r + m[7] * g + m[8] * b;
    r = R, g = G, b = B;
  }
}

void InputColor::applyHlgSystemGamma(float& r, float& g, float& b) const {
  // Fd = peak × Ys^(gamma - 1) × Fs, in units of reference white.
  float ys = hlgLuma_[0] * r + hlgLuma_[1] * g + hlgLuma_[2] * b;
  float gain = ys > 0.0f ? float(kHlgPeak / kHdrReferenceWhite) * std::pow(ys, float(kHlgSystemGamma - 1.0)) : 0.0f;
  r *= gain;
  g *= gain;
  b *= gain;
}

InputColor InputColor::finished(InputColor c) {
  const SourceFormat& f = c.format_;
  const bool bytes = f.type == SampleType::u8 && f.bitDepth == 8;
  if (c.mode_ != Mode::tables || !bytes || f.alphaAssociated || f.model == ColorModel::cmyk || c.hlgOotf_) {
    return c;
  }
  // One table per colour channel whose entries are that channel's share of
  // the final pixel: matrix column × tone curve, alpha lane 1 on the first.
  // The lanes are computed with the same float operations, in the same
  // order, as the per-sample path, so both give identical pixels.
  const int colors = f.colorChannels();
  const bool invertGray = f.inverted && f.model == ColorModel::gray;
  const auto& m = c.matrix_;
  c.pixelTables_.resize(size_t(colors) * 256);
  for (int ch = 0; ch < colors; ++ch) {
    const float* t = c.tables_[size_t(ch)].data();
    for (int v = 0; v < 256; ++v) {
      PixelEntry& e = c.pixelTables_[size_t(ch) * 256 + size_t(v)];
      float x = t[invertGray ? 255 - v : v];
      for (int lane = 0; lane < 3; ++lane) {
        if (colors == 1) {
          e.lanes[lane] = c.hasMatrix_ ? m[lane * 3] * x + m[lane * 3 + 1] * x + m[lane * 3 + 2] * x : x;
        } else {
          e.lanes[lane] = c.hasMatrix_ ? m[lane * 3 + ch] * x : (lane == ch ? x : 0.0f);
        }
      }
      e.lanes[3] = ch == 0 ? 1.0f : 0.0f;
    }
  }
  return c;
}

namespace {
using Lanes4 = float __attribute__((vector_size(16)));

template <int Colors, bool Alpha>
void convertBytesWith(const uint8_t* src, int count, float* dst, const Lanes4* tables) {
  constexpr int kChannels = Colors + (Alpha ? 1 : 0);
  for (int i = 0; i < count; ++i, src += kChannels, dst += 4) {
    Lanes4 p = tables[src[0]];
    if constexpr (Colors == 3) p = p + tables[256 + src[1]] + tables[512 + src[2]];
    if constexpr (Alpha) p = p * (float(src[Colors]) * (1.0f / 255.0f));
    std::memcpy(dst, &p, sizeof p);
  }
}
}  // namespace

void InputColor::convertBytes(const uint8_t* src, int count, float* dst) const {
  auto* tables = reinterpret_cast<const Lanes4*>(pixelTables_.data());
  const bool alpha = format_.hasAlpha;
  if (format_.model == ColorModel::gray) {
    alpha ? convertBytesWith<1, true>(src, count, dst, tables) : convertBytesWith<1, false>(src, count, dst, tables);
  } else {
    alpha ? convertBytesWith<3, true>(src, count, dst, tables) : convertBytesWith<3, false>(src, count, dst, tables);
  }
}

void InputColor::convert(const uint8_t* src, int count, float* dst) const {
  const SourceFormat& f = format_;
  const int channels = f.channels();
  const int colors = f.colorChannels();
  const bool fastIntegers = mode_ == Mode::tables && !f.isFloat() && !f.alphaAssociated &&
                            f.model != ColorModel::cmyk;

  if (!pixelTables_.empty()) {
    convertBytes(src, count, dst);
    return;
  }
  if (fastIntegers) {
    const float* t0 = tables_[0].data();
    const float* t1 = colors == 3 ? tables_[1].data() : t0;
    const float* t2 = colors == 3 ? tables_[2].data() : t0;
    const uint32_t maxIndex = (uint32_t(1) << f.bitDepth) - 1;
    const float alphaScale = 1.0f / float(maxIndex);
    const bool invertGray = f.inverted && f.model == ColorModel::gray;
    auto sample = [&](int i, int c) -> uint32_t {
      uint32_t v = f.type == SampleType::u8 ? src[size_t(i) * channels + c]
                                            : reinterpret_cast<const uint16_t*>(src)[size_t(i) * channels + c];
      return std::min(v, maxIndex);
    };
    for (int i = 0; i < count; ++i) {
      float r, g, b;
      if (colors == 1) {
        uint32_t v = sample(i, 0);
        r = g = b = t0[invertGray ? maxIndex - v : v];
      } else {
        r = t0[sample(i, 0)];
        g = t1[sample(i, 1)];
        b = t2[sample(i, 2)];
      }
      toWorkingSpace(r, g, b);
      float a = 1.0f;
      if (f.hasAlpha) a = float(sample(i, colors)) * alphaScale;
      float* d = dst + size_t(i) * 4;
      d[0] = r * a;
      d[1] = g * a;
      d[2] = b * a;
      d[3] = a;
    }
    return;
  }

  // General path: normalised floats, then curve, matrix or Little CMS.
  const float intScale = f.isFloat() ? 1.0f : 1.0f / float((uint32_t(1) << f.bitDepth) - 1);
  auto normalised = [&](int i, int c) -> float {
    size_t k = size_t(i) * channels + c;
    switch (f.type) {
      case SampleType::u8: return float(src[k]) * intScale;
      case SampleType::u16: return float(reinterpret_cast<const uint16_t*>(src)[k]) * intScale;
      case SampleType::f16: {
        uint16_t h;
        std::memcpy(&h, src + k * 2, 2);
        return halfToFloat(h);
      }
      case SampleType::f32: {
        float v;
        std::memcpy(&v, src + k * 4, 4);
        return v;
      }
      case SampleType::f64: {
        double v;
        std::memcpy(&v, src + k * 8, 8);
        return float(v);
      }
    }
    return 0.0f;
  };

  float in[4];
  std::vector<float> lcmsIn, lcmsOut;
  if (mode_ == Mode::lcms) {
    lcmsIn.resize(size_t(count) * colors);
    lcmsOut.resize(size_t(count) * 3);
  }
  for (int i = 0; i < count; ++i) {
    float a = f.hasAlpha ? normalised(i, colors) : 1.0f;
    if (!(a == a)) a = 0.0f;
    for (int c = 0; c < colors; ++c) {
      float v = normalised(i, c);
      if (f.inverted) v = 1.0f - v;
      if (f.alphaAssociated) v = a > 0.0f ? v / a : 0.0f;
      in[c] = v;
    }
    float* d = dst + size_t(i) * 4;
    d[3] = a;
    if (mode_ == Mode::lcms) {
      for (int c = 0; c < colors; ++c) {
        lcmsIn[size_t(i) * colors + c] = f.model == ColorModel::cmyk ? in[c] * 100.0f : in[c];
      }
      continue;
    }
    float r, g, b;
    if (mode_ == Mode::cmykNaive) {
      float k = 1.0f - in[3];
      r = srgb::decode((1.0f - in[0]) * k);
      g = srgb::decode((1.0f - in[1]) * k);
      b = srgb::decode((1.0f - in[2]) * k);
    } else if (colors == 1) {
      r = g = b = curveFloat(0, in[0]);
    } else {
      r = curveFloat(0, in[0]);
      g = curveFloat(1, in[1]);
      b = curveFloat(2, in[2]);
    }
    toWorkingSpace(r, g, b);
    d[0] = r * a;
    d[1] = g * a;
    d[2] = b * a;
  }
  if (mode_ == Mode::lcms) {
    cmsDoTransform(lcms_->transform, lcmsIn.data(), lcmsOut.data(), cmsUInt32Number(count));
    for (int i = 0; i < count; ++i) {
      float* d = dst + size_t(i) * 4;
      // A damaged LUT profile may give NaN or infinity; such samples become black.
      for (int c = 0; c < 3; ++c) {
        const float v = lcmsOut[size_t(i) * 3 + c];
        d[c] = std::isfinite(v) ? v * d[3] : 0.0f;
      }
    }
  }
}

}  // namespace vg
