// JSON decoding and encoding of GlobalAdjustments and the records beside it.
#include <algorithm>
#include <cmath>
#include <utility>

#include "model/json.h"
#include "model/json_fields.h"

namespace vg {

using namespace jsonfields;
using OJson = nlohmann::ordered_json;

// ---- Curves ---------------------------------------------------------------------

std::optional<CurvePoint> decodeCurvePoint(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  return CurvePoint{readClamped(v, "x", 0, 1, 0), readClamped(v, "y", 0, 1, 0)};
}

std::optional<ToneCurve> decodeToneCurve(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  ToneCurve curve;
  curve.points.clear();  // absent or bad points give an empty list
  if (const Json* points = member(v, "points"); points && points->is_array()) {
    for (const Json& p : *points) {
      if (auto point = decodeCurvePoint(p)) curve.points.push_back(*point);
    }
  }
  return curve;
}

std::optional<CurveSet> decodeCurveSet(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  CurveSet set;
  for (CurveChannel c : kCurveChannels) {
    const std::string key(curveChannelKey(c));
    if (const Json* m = member(v, key.c_str())) {
      if (auto curve = decodeToneCurve(*m)) set[c] = std::move(*curve);
    }
  }
  return set;
}

// ---- HSL and split toning ----------------------------------------------------

std::optional<HSLBand> decodeHSLBand(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  return HSLBand{readClamped(v, "hue", -100, 100, 0), readClamped(v, "saturation", -100, 100, 0),
                 readClamped(v, "luminance", -100, 100, 0)};
}

std::optional<HSLAdjustments> decodeHSLAdjustments(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  HSLAdjustments hsl;
  if (const Json* bands = member(v, "bands"); bands && bands->is_array()) {
    hsl.bands.clear();
    for (const Json& b : *bands) {
      if (hsl.bands.size() == kHSLBandCount) break;
      // A malformed entry still occupies its band's slot, so the bands after
      // it keep their colours.
      hsl.bands.push_back(decodeHSLBand(b).value_or(HSLBand{}));
    }
    hsl.normalize();
  }
  return hsl;
}

std::optional<SplitToning> decodeSplitToning(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  SplitToning s;
  s.highlightHue = readClamped(v, "highlightHue", 0, 360, 0);
  s.highlightSaturation = readClamped(v, "highlightSaturation", 0, 100, 0);
  s.shadowHue = readClamped(v, "shadowHue", 0, 360, 0);
  s.shadowSaturation = readClamped(v, "shadowSaturation", 0, 100, 0);
  s.balance = readClamped(v, "balance", -100, 100, 0);
  return s;
}

// ---- Global adjustments -----------------------------------------------------------

std::optional<GlobalAdjustments> decodeGlobalAdjustments(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  GlobalAdjustments a;
  // Both tables in order: store what decodes as a number, then bring every
  // value into its range (non-finite values back to their defaults).
  for (const ScalarField& f : scalarFields()) {
    const std::string key(f.key);
    if (auto n = readNumber(v, key.c_str())) a.*f.member = *n;
  }
  for (const ScalarField& f : scalarFields()) {
    a.*f.member = clampField(a.*f.member, f.min, f.max, f.defaultValue);
  }
  a.monochrome = readBool(v, "monochrome").value_or(false);
  if (const Json* m = member(v, "curves")) a.curves = decodeCurveSet(*m).value_or(CurveSet{});
  if (const Json* m = member(v, "hsl")) a.hsl = decodeHSLAdjustments(*m).value_or(HSLAdjustments{});
  if (const Json* m = member(v, "splitToning")) {
    a.splitToning = decodeSplitToning(*m).value_or(SplitToning{});
  }
  return a;
}

// ---- RAW, lens, crop, LUT ------------------------------------------------------------

std::optional<RAWDevelopSettings> decodeRAWDevelopSettings(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  RAWDevelopSettings r;
  r.exposure = readClamped(v, "exposure", -2, 2, 0);
  r.shadowBoost = readClamped(v, "shadowBoost", 0, 100, 0);
  r.noiseReduction = readClamped(v, "noiseReduction", 0, 100, 100);
  r.decoderVersion = readString(v, "decoderVersion").value_or("");
  r.gamutMapping = readBool(v, "gamutMapping").value_or(true);
  return r;
}

std::optional<LensCorrectionSettings> decodeLensCorrectionSettings(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  LensCorrectionSettings l;
  l.distortion = readClamped(v, "distortion", -100, 100, 0);
  l.vignette = readClamped(v, "vignette", 0, 100, 0);
  l.vignetteMidpoint = readClamped(v, "vignetteMidpoint", 0, 100, 50);
  l.vignetteFeather = readClamped(v, "vignetteFeather", 0, 100, 50);
  return l;
}

namespace {

// [[x, y], [width, height]] with four numbers, or nullopt.
std::optional<NormalizedRect> readRect(const Json& v) {
  if (!v.is_array() || v.size() < 2) return std::nullopt;
  const auto origin = decodePoint(v[0]);
  const auto size = decodePoint(v[1]);
  if (!origin || !size) return std::nullopt;
  return NormalizedRect{origin->x, origin->y, size->x, size->y};
}

// One axis of a rectangle clipped to 0...1: (origin, length), or nullopt when
// nothing or only an edge is left. A negative length extends the other way
// from the origin. A span already inside is returned untouched, and a clipped
// span clips to itself again, so decoding an encoded rectangle is exact.
std::optional<std::pair<double, double>> clipSpan(double origin, double length) {
  if (length < 0) {
    origin += length;
    length = -length;
  }
  const double end = origin + length;
  if (origin >= 0 && end <= 1) {
    if (!(length > 0)) return std::nullopt;
    return std::pair{origin, length};
  }
  const double lo = std::max(origin, 0.0), hi = std::min(end, 1.0);
  if (!(hi > lo)) return std::nullopt;
  return std::pair{lo, hi - lo};
}

// The part of r inside the unit square; nullopt when it is empty or r holds a
// non-finite number.
std::optional<NormalizedRect> clipToUnitSquare(const NormalizedRect& r) {
  if (!std::isfinite(r.x) || !std::isfinite(r.y) || !std::isfinite(r.width) ||
      !std::isfinite(r.height)) {
    return std::nullopt;
  }
  const auto h = clipSpan(r.x, r.width);
  const auto v = clipSpan(r.y, r.height);
  if (!h || !v) return std::nullopt;
  return NormalizedRect{h->first, v->first, h->second, v->second};
}

}  // namespace

std::optional<CropSettings> decodeCropSettings(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  CropSettings c;
  c.angle = readClamped(v, "angle", -45, 45, 0);
  // Two lowest bits: -1 turn is 3 turns, 5 turns is 1.
  c.quarterTurn = static_cast<int>(readInteger(v, "quarterTurn").value_or(0) & 3);
  if (auto lock = readNumber(v, "aspectLock");
      lock && std::isfinite(*lock) && *lock >= 0.001 && *lock <= 1000) {
    c.aspectLock = *lock;
  }
  if (const Json* m = member(v, "rect")) {
    if (auto r = readRect(*m)) c.rect = clipToUnitSquare(*r);
  }
  c.flipHorizontal = readBool(v, "flipHorizontal").value_or(false);
  c.flipVertical = readBool(v, "flipVertical").value_or(false);
  return c;
}

std::string bareLUTFileName(std::string_view stored) {
  while (!stored.empty() && stored.back() == '/') stored.remove_suffix(1);
  const auto slash = stored.rfind('/');
  std::string_view last = slash == std::string_view::npos ? stored : stored.substr(slash + 1);
  if (last == "." || last == "..") return {};
  return std::string(last);
}

std::optional<AppliedLUT> decodeAppliedLUT(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  AppliedLUT lut;
  lut.filename = bareLUTFileName(readString(v, "filename").value_or(""));
  lut.name = readString(v, "name").value_or("");
  lut.strength = readClamped(v, "strength", 0, 100, 100);
  return lut;
}

// ---- Encoding ------------------------------------------------------------------------

OJson toJson(const CurvePoint& v) { return OJson{{"x", v.x}, {"y", v.y}}; }

OJson toJson(const ToneCurve& v) {
  OJson points = OJson::array();
  for (const auto& p : v.points) points.push_back(toJson(p));
  OJson o = OJson::object();
  o["points"] = std::move(points);
  return o;
}

OJson toJson(const CurveSet& v) {
  OJson o = OJson::object();
  for (CurveChannel c : kCurveChannels) o[std::string(curveChannelKey(c))] = toJson(v[c]);
  return o;
}

OJson toJson(const HSLBand& v) {
  return OJson{{"hue", v.hue}, {"saturation", v.saturation}, {"luminance", v.luminance}};
}

OJson toJson(const HSLAdjustments& v) {
  OJson bands = OJson::array();
  for (const auto& b : v.bands) bands.push_back(toJson(b));
  OJson o = OJson::object();
  o["bands"] = std::move(bands);
  return o;
}

OJson toJson(const SplitToning& v) {
  return OJson{{"highlightHue", v.highlightHue},
               {"highlightSaturation", v.highlightSaturation},
               {"shadowHue", v.shadowHue},
               {"shadowSaturation", v.shadowSaturation},
               {"balance", v.balance}};
}

OJson toJson(const GlobalAdjustments& v) {
  // Declaration order, which differs from the table order; the scalar values
  // still come through the table.
  static constexpr std::string_view kOrder[] = {
      "exposure",      "contrast",       "highlights",      "shadows",         "whites",
      "blacks",        "temperature",    "tint",            "saturation",      "vibrance",
      "monochrome",    "monochromeRed",  "monochromeGreen", "monochromeBlue",  "texture",
      "clarity",       "dehaze",         "sharpen",         "denoise",         "colorDenoise",
      "defringe",      "sharpenRadius",  "sharpenDetail",   "sharpenMasking",  "vignetteAmount",
      "vignetteMidpoint", "vignetteFeather", "grainAmount", "grainSize"};
  OJson o = OJson::object();
  for (std::string_view key : kOrder) {
    if (key == "monochrome") {
      o["monochrome"] = v.monochrome;
    } else {
      o[std::string(key)] = v.*findScalarField(key)->member;
    }
  }
  o["curves"] = toJson(v.curves);
  o["hsl"] = toJson(v.hsl);
  o["splitToning"] = toJson(v.splitToning);
  return o;
}

OJson toJson(const RAWDevelopSettings& v) {
  return OJson{{"exposure", v.exposure},
               {"shadowBoost", v.shadowBoost},
               {"noiseReduction", v.noiseReduction},
               {"decoderVersion", v.decoderVersion},
               {"gamutMapping", v.gamutMapping}};
}

OJson toJson(const LensCorrectionSettings& v) {
  return OJson{{"distortion", v.distortion},
               {"vignette", v.vignette},
               {"vignetteMidpoint", v.vignetteMidpoint},
               {"vignetteFeather", v.vignetteFeather}};
}

OJson toJson(const CropSettings& v) {
  OJson o = OJson::object();
  o["angle"] = v.angle;
  o["quarterTurn"] = v.quarterTurn;
  if (v.aspectLock) o["aspectLock"] = *v.aspectLock;
  if (v.rect) {
    o["rect"] = OJson::array({OJson::array({v.rect->x, v.rect->y}),
                              OJson::array({v.rect->width, v.rect->height})});
  }
  o["flipHorizontal"] = v.flipHorizontal;
  o["flipVertical"] = v.flipVertical;
  return o;
}

OJson toJson(const AppliedLUT& v) {
  return OJson{{"filename", v.filename}, {"name", v.name}, {"strength", v.strength}};
}

}  // namespace vg
