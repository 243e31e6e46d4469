#include "model/adjustments.h"

#include <algorithm>

namespace vg {

bool ToneCurve::isIdentity() const {
  return points.size() == 2 && points[0] == CurvePoint{0, 0} && points[1] == CurvePoint{1, 1};
}

std::string_view curveChannelKey(CurveChannel c) {
  switch (c) {
    case CurveChannel::rgb: return "rgb";
    case CurveChannel::red: return "red";
    case CurveChannel::green: return "green";
    case CurveChannel::blue: return "blue";
  }
  return "rgb";
}

ToneCurve& CurveSet::operator[](CurveChannel c) {
  switch (c) {
    case CurveChannel::red: return red;
    case CurveChannel::green: return green;
    case CurveChannel::blue: return blue;
    case CurveChannel::rgb: break;
  }
  return rgb;
}

const ToneCurve& CurveSet::operator[](CurveChannel c) const {
  return const_cast<CurveSet&>(*this)[c];
}

bool CurveSet::isIdentity() const {
  return rgb.isIdentity() && red.isIdentity() && green.isIdentity() && blue.isIdentity();
}

std::string_view hslBandKey(HSLBandKind k) {
  static constexpr std::string_view kKeys[] = {"red",  "orange", "yellow", "green",
                                               "aqua", "blue",   "purple", "magenta"};
  return kKeys[static_cast<std::size_t>(k)];
}

// ---- The scalar field table --------------------------------------------------

namespace {

using G = GlobalAdjustments;

std::vector<ScalarField> buildScalarFields() {
  constexpr double kSigned = 100;  // most sliders run -100...100
  // Order matters: it is the order of decoding, interpolation and change naming.
  std::vector<ScalarField> f = {
      {"exposure", &G::exposure, -5, 5, 0, "曝光"},
      {"contrast", &G::contrast, -kSigned, kSigned, 0, "对比度"},
      {"highlights", &G::highlights, -kSigned, kSigned, 0, "高光"},
      {"shadows", &G::shadows, -kSigned, kSigned, 0, "阴影"},
      {"whites", &G::whites, -kSigned, kSigned, 0, "白色"},
      {"blacks", &G::blacks, -kSigned, kSigned, 0, "黑色"},
      {"temperature", &G::temperature, -kSigned, kSigned, 0, "色温"},
      {"tint", &G::tint, -kSigned, kSigned, 0, "色调"},
      {"saturation", &G::saturation, -kSigned, kSigned, 0, "饱和度"},
      {"vibrance", &G::vibrance, -kSigned, kSigned, 0, "自然饱和度"},
      {"monochromeRed", &G::monochromeRed, 0, 100, 30, "黑白混合"},
      {"monochromeGreen", &G::monochromeGreen, 0, 100, 59, "黑白混合"},
      {"monochromeBlue", &G::monochromeBlue, 0, 100, 11, "黑白混合"},
      {"texture", &G::texture, -kSigned, kSigned, 0, "纹理"},
      {"clarity", &G::clarity, -kSigned, kSigned, 0, "清晰度"},
      {"dehaze", &G::dehaze, -kSigned, kSigned, 0, "去朦胧"},
      {"sharpen", &G::sharpen, 0, 100, 0, "锐化"},
      {"sharpenRadius", &G::sharpenRadius, 0.5, 5, 1.5, "锐化"},
      {"sharpenDetail", &G::sharpenDetail, 0, 100, 50, "锐化"},
      {"sharpenMasking", &G::sharpenMasking, 0, 100, 0, "锐化"},
      {"denoise", &G::denoise, 0, 100, 0, "明度降噪"},
      {"colorDenoise", &G::colorDenoise, 0, 100, 0, "色度降噪"},
      {"defringe", &G::defringe, 0, 100, 0, "去紫边"},
      {"vignetteAmount", &G::vignetteAmount, -kSigned, kSigned, 0, "暗角"},
      {"grainAmount", &G::grainAmount, 0, 100, 0, "颗粒"},
      // Unlabelled: the vignette shape and grain size have no group label.
      {"vignetteMidpoint", &G::vignetteMidpoint, 0, 100, 50, {}},
      {"vignetteFeather", &G::vignetteFeather, 0, 100, 50, {}},
      {"grainSize", &G::grainSize, 0, 100, 25, {}},
  };
  return f;
}

const std::vector<ScalarField>& table() {
  static const std::vector<ScalarField> fields = buildScalarFields();
  return fields;
}

}  // namespace

std::span<const ScalarField> scalarFields() { return table(); }

std::span<const ScalarField> labelledFields() {
  return scalarFields().first(kLabelledFieldCount);
}

std::span<const ScalarField> unlabelledFields() {
  return scalarFields().subspan(kLabelledFieldCount, kUnlabelledFieldCount);
}

const ScalarField* findScalarField(std::string_view key) {
  const auto fields = scalarFields();
  auto it = std::find_if(fields.begin(), fields.end(),
                         [&](const ScalarField& f) { return f.key == key; });
  return it == fields.end() ? nullptr : &*it;
}

std::optional<std::string_view> labelForKey(std::string_view key) {
  const ScalarField* f = findScalarField(key);
  if (!f || !f->labelled()) return std::nullopt;
  return f->label;
}

// ---- Hashing --------------------------------------------------------------------

void hashAppend(Hasher& h, const CurvePoint& v) {
  h.addDouble(v.x);
  h.addDouble(v.y);
}

void hashAppend(Hasher& h, const ToneCurve& v) { hashAppend(h, v.points); }

void hashAppend(Hasher& h, const CurveSet& v) {
  hashAppend(h, v.rgb);
  hashAppend(h, v.red);
  hashAppend(h, v.green);
  hashAppend(h, v.blue);
}

void hashAppend(Hasher& h, const HSLBand& v) {
  h.addDouble(v.hue);
  h.addDouble(v.saturation);
  h.addDouble(v.luminance);
}

void hashAppend(Hasher& h, const HSLAdjustments& v) { hashAppend(h, v.bands); }

void hashAppend(Hasher& h, const SplitToning& v) {
  h.addDouble(v.highlightHue);
  h.addDouble(v.highlightSaturation);
  h.addDouble(v.shadowHue);
  h.addDouble(v.shadowSaturation);
  h.addDouble(v.balance);
}

void hashAppend(Hasher& h, const GlobalAdjustments& v) {
  // Declaration order: the ten tone and colour sliders, the monochrome flag,
  // then the remaining sliders (all of them doubles), then the nested records.
  h.addDouble(v.exposure);
  h.addDouble(v.contrast);
  h.addDouble(v.highlights);
  h.addDouble(v.shadows);
  h.addDouble(v.whites);
  h.addDouble(v.blacks);
  h.addDouble(v.temperature);
  h.addDouble(v.tint);
  h.addDouble(v.saturation);
  h.addDouble(v.vibrance);
  h.addBool(v.monochrome);
  h.addDouble(v.monochromeRed);
  h.addDouble(v.monochromeGreen);
  h.addDouble(v.monochromeBlue);
  h.addDouble(v.texture);
  h.addDouble(v.clarity);
  h.addDouble(v.dehaze);
  h.addDouble(v.sharpen);
  h.addDouble(v.denoise);
  h.addDouble(v.colorDenoise);
  h.addDouble(v.defringe);
  h.addDouble(v.sharpenRadius);
  h.addDouble(v.sharpenDetail);
  h.addDouble(v.sharpenMasking);
  h.addDouble(v.vignetteAmount);
  h.addDouble(v.vignetteMidpoint);
  h.addDouble(v.vignetteFeather);
  h.addDouble(v.grainAmount);
  h.addDouble(v.grainSize);
  hashAppend(h, v.curves);
  hashAppend(h, v.hsl);
  hashAppend(h, v.splitToning);
}

void hashAppend(Hasher& h, const RAWDevelopSettings& v) {
  h.addDouble(v.exposure);
  h.addDouble(v.shadowBoost);
  h.addDouble(v.noiseReduction);
  h.addString(v.decoderVersion);
  h.addBool(v.gamutMapping);
}

void hashAppend(Hasher& h, const LensCorrectionSettings& v) {
  h.addDouble(v.distortion);
  h.addDouble(v.vignette);
  h.addDouble(v.vignetteMidpoint);
  h.addDouble(v.vignetteFeather);
}

void hashAppend(Hasher& h, const NormalizedRect& v) {
  h.addDouble(v.x);
  h.addDouble(v.y);
  h.addDouble(v.width);
  h.addDouble(v.height);
}

void hashAppend(Hasher& h, const CropSettings& v) {
  h.addDouble(v.angle);
  h.addInt(v.quarterTurn);
  hashAppend(h, v.aspectLock);
  hashAppend(h, v.rect);
  h.addBool(v.flipHorizontal);
  h.addBool(v.flipVertical);
}

void hashAppend(Hasher& h, const AppliedLUT& v) {
  h.addString(v.filename);
  h.addString(v.name);
  h.addDouble(v.strength);
}

}  // namespace vg
