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

std::span<const HSLBandName> hslBandNames() {
  static constexpr HSLBandName kNames[] = {
      {HSLBandKind::red, "red", "红色"},       {HSLBandKind::orange, "orange", "橙色"},
      {HSLBandKind::yellow, "yellow", "黄色"}, {HSLBandKind::green, "green", "绿色"},
      {HSLBandKind::aqua, "aqua", "浅绿色"},   {HSLBandKind::blue, "blue", "蓝色"},
      {HSLBandKind::purple, "purple", "紫色"}, {HSLBandKind::magenta, "magenta", "洋红色"}};
  return kNames;
}

std::string_view hslBandKey(HSLBandKind k) {
  return hslBandNames()[static_cast<std::size_t>(k)].key;
}

// ---- Field tables ------------------------------------------------------------------

namespace {

constexpr double kSigned = 100;  // most sliders run -100...100
constexpr double kUnit = 1;      // and step by one

}  // namespace

const FieldTable<GlobalAdjustments>& adjustmentFields() {
  using G = GlobalAdjustments;
  // Row order matters: it is the order of decoding, interpolation and change
  // naming. Fields sharing a label are one group; their titles name them in it.
  static const FieldTable<G> table(
      {
          {"exposure", &G::exposure, -5, 5, 0, 0.01, "曝光", "曝光"},
          {"contrast", &G::contrast, -kSigned, kSigned, 0, kUnit, "对比度", "对比度"},
          {"highlights", &G::highlights, -kSigned, kSigned, 0, kUnit, "高光", "高光"},
          {"shadows", &G::shadows, -kSigned, kSigned, 0, kUnit, "阴影", "阴影"},
          {"whites", &G::whites, -kSigned, kSigned, 0, kUnit, "白色", "白色"},
          {"blacks", &G::blacks, -kSigned, kSigned, 0, kUnit, "黑色", "黑色"},
          {"temperature", &G::temperature, -kSigned, kSigned, 0, kUnit, "色温", "色温"},
          {"tint", &G::tint, -kSigned, kSigned, 0, kUnit, "色调", "色调"},
          {"saturation", &G::saturation, -kSigned, kSigned, 0, kUnit, "饱和度", "饱和度"},
          {"vibrance", &G::vibrance, -kSigned, kSigned, 0, kUnit, "自然饱和度", "自然饱和度"},
          {"monochromeRed", &G::monochromeRed, 0, 100, 30, kUnit, "红色", "黑白混合"},
          {"monochromeGreen", &G::monochromeGreen, 0, 100, 59, kUnit, "绿色", "黑白混合"},
          {"monochromeBlue", &G::monochromeBlue, 0, 100, 11, kUnit, "蓝色", "黑白混合"},
          {"texture", &G::texture, -kSigned, kSigned, 0, kUnit, "纹理", "纹理"},
          {"clarity", &G::clarity, -kSigned, kSigned, 0, kUnit, "清晰度", "清晰度"},
          {"dehaze", &G::dehaze, -kSigned, kSigned, 0, kUnit, "去朦胧", "去朦胧"},
          {"sharpen", &G::sharpen, 0, 100, 0, kUnit, "数量", "锐化"},
          {"sharpenRadius", &G::sharpenRadius, 0.5, 5, 1.5, 0.1, "半径", "锐化"},
          {"sharpenDetail", &G::sharpenDetail, 0, 100, 50, kUnit, "细节", "锐化"},
          {"sharpenMasking", &G::sharpenMasking, 0, 100, 0, kUnit, "蒙版", "锐化"},
          {"denoise", &G::denoise, 0, 100, 0, kUnit, "明度降噪", "明度降噪"},
          {"colorDenoise", &G::colorDenoise, 0, 100, 0, kUnit, "色度降噪", "色度降噪"},
          {"defringe", &G::defringe, 0, 100, 0, kUnit, "去紫边", "去紫边"},
          {"vignetteAmount", &G::vignetteAmount, -kSigned, kSigned, 0, kUnit, "暗角", "暗角"},
          {"grainAmount", &G::grainAmount, 0, 100, 0, kUnit, "颗粒", "颗粒"},
          // Unlabelled: the vignette shape and the grain size name no group.
          {"vignetteMidpoint", &G::vignetteMidpoint, 0, 100, 50, kUnit, "暗角中点", {}},
          {"vignetteFeather", &G::vignetteFeather, 0, 100, 50, kUnit, "暗角羽化", {}},
          {"grainSize", &G::grainSize, 0, 100, 25, kUnit, "颗粒大小", {}},
      },
      {{"monochrome", &G::monochrome, false, "黑白", {}}});
  return table;
}

std::span<const ScalarField> scalarFields() { return adjustmentFields().numbers(); }

std::span<const ScalarField> labelledFields() {
  return scalarFields().first(kLabelledFieldCount);
}

std::span<const ScalarField> unlabelledFields() {
  return scalarFields().subspan(kLabelledFieldCount, kUnlabelledFieldCount);
}

const ScalarField* findScalarField(std::string_view key) {
  return adjustmentFields().findNumber(key);
}

std::optional<std::string_view> labelForKey(std::string_view key) {
  const ScalarField* f = findScalarField(key);
  if (!f || !f->labelled()) return std::nullopt;
  return f->label;
}

const FieldTable<HSLBand>& hslBandFields() {
  using B = HSLBand;
  static const FieldTable<B> table({
      {"hue", &B::hue, -kSigned, kSigned, 0, kUnit, "色相", "HSL"},
      {"saturation", &B::saturation, -kSigned, kSigned, 0, kUnit, "饱和度", "HSL"},
      {"luminance", &B::luminance, -kSigned, kSigned, 0, kUnit, "明亮度", "HSL"},
  });
  return table;
}

const FieldTable<SplitToning>& splitToningFields() {
  using S = SplitToning;
  static const FieldTable<S> table({
      {"highlightHue", &S::highlightHue, 0, 360, 0, kUnit, "高光色相", "分离色调", /*hue=*/true},
      {"highlightSaturation", &S::highlightSaturation, 0, 100, 0, kUnit, "高光饱和度", "分离色调"},
      {"shadowHue", &S::shadowHue, 0, 360, 0, kUnit, "阴影色相", "分离色调", /*hue=*/true},
      {"shadowSaturation", &S::shadowSaturation, 0, 100, 0, kUnit, "阴影饱和度", "分离色调"},
      {"balance", &S::balance, -kSigned, kSigned, 0, kUnit, "平衡", "分离色调"},
  });
  return table;
}

const FieldTable<RAWDevelopSettings>& rawDevelopFields() {
  using R = RAWDevelopSettings;
  static const FieldTable<R> table(
      {
          {"exposure", &R::exposure, -2, 2, 0, 0.01, "曝光", "RAW 显影"},
          {"shadowBoost", &R::shadowBoost, 0, 100, 0, kUnit, "阴影提升", "RAW 显影"},
          {"noiseReduction", &R::noiseReduction, 0, 100, 100, kUnit, "降噪", "RAW 显影"},
      },
      {{"gamutMapping", &R::gamutMapping, true, "色域映射", "RAW 显影"}},
      {{"decoderVersion", &R::decoderVersion, "解码器版本", "RAW 显影"}});
  return table;
}

const FieldTable<LensCorrectionSettings>& lensCorrectionFields() {
  using L = LensCorrectionSettings;
  static const FieldTable<L> table({
      {"distortion", &L::distortion, -kSigned, kSigned, 0, kUnit, "畸变", "镜头校正"},
      {"vignette", &L::vignette, 0, 100, 0, kUnit, "暗角", "镜头校正"},
      {"vignetteMidpoint", &L::vignetteMidpoint, 0, 100, 50, kUnit, "暗角中点", "镜头校正"},
      {"vignetteFeather", &L::vignetteFeather, 0, 100, 50, kUnit, "暗角羽化", "镜头校正"},
  });
  return table;
}

const FieldTable<CropSettings>& cropFields() {
  using C = CropSettings;
  static const FieldTable<C> table(
      {{"angle", &C::angle, -45, 45, 0, 0.1, "角度", "裁剪"}},
      {{"flipHorizontal", &C::flipHorizontal, false, "水平翻转", "裁剪"},
       {"flipVertical", &C::flipVertical, false, "垂直翻转", "裁剪"}});
  return table;
}

const FieldTable<AppliedLUT>& appliedLUTFields() {
  using A = AppliedLUT;
  static const FieldTable<A> table(
      {{"strength", &A::strength, 0, 100, 100, kUnit, "强度", "LUT"}}, {},
      {{"filename", &A::filename, "文件", "LUT"}, {"name", &A::name, "名称", "LUT"}});
  return table;
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

void hashAppend(Hasher& h, const HSLBand& v) { hashFields(h, hslBandFields(), v); }

void hashAppend(Hasher& h, const HSLAdjustments& v) { hashAppend(h, v.bands); }

void hashAppend(Hasher& h, const SplitToning& v) { hashFields(h, splitToningFields(), v); }

void hashAppend(Hasher& h, const GlobalAdjustments& v) {
  hashFields(h, adjustmentFields(), v);  // the sliders and the monochrome switch
  hashAppend(h, v.curves);
  hashAppend(h, v.hsl);
  hashAppend(h, v.splitToning);
}

void hashAppend(Hasher& h, const RAWDevelopSettings& v) { hashFields(h, rawDevelopFields(), v); }

void hashAppend(Hasher& h, const LensCorrectionSettings& v) {
  hashFields(h, lensCorrectionFields(), v);
}

void hashAppend(Hasher& h, const NormalizedRect& v) {
  h.addDouble(v.x);
  h.addDouble(v.y);
  h.addDouble(v.width);
  h.addDouble(v.height);
}

void hashAppend(Hasher& h, const CropSettings& v) {
  hashFields(h, cropFields(), v);  // angle and the flips
  h.addInt(v.quarterTurn);
  hashAppend(h, v.aspectLock);
  hashAppend(h, v.rect);
}

void hashAppend(Hasher& h, const AppliedLUT& v) { hashFields(h, appliedLUTFields(), v); }

}  // namespace vg
