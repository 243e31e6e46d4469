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
  // Absent or bad points, or one point that is not a point, give an empty list.
  ToneCurve curve;
  curve.points = readList<CurvePoint>(v, "points", [](const Json& p) { return decodeCurvePoint(p); });
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
  return readFields(v, hslBandFields());
}

std::optional<HSLAdjustments> decodeHSLAdjustments(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  // A band list that does not decode as a whole gives the 8 zero bands; one
  // that does is cut or padded to 8.
  HSLAdjustments hsl;
  hsl.bands = readList<HSLBand>(v, "bands", [](const Json& b) { return decodeHSLBand(b); },
                                std::move(hsl.bands));
  hsl.normalize();
  return hsl;
}

std::optional<SplitToning> decodeSplitToning(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  return readFields(v, splitToningFields());
}

// ---- Global adjustments -----------------------------------------------------------

std::optional<GlobalAdjustments> decodeGlobalAdjustments(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  // The sliders in row order, each brought into its range, and monochrome.
  GlobalAdjustments a = readFields(v, adjustmentFields());
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
  return readFields(v, rawDevelopFields());
}

std::optional<LensCorrectionSettings> decodeLensCorrectionSettings(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  return readFields(v, lensCorrectionFields());
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
  CropSettings c = readFields(v, cropFields());  // angle and the flips
  // Two lowest bits: -1 turn is 3 turns, 5 turns is 1.
  c.quarterTurn = static_cast<int>(readInteger(v, "quarterTurn").value_or(0) & 3);
  if (auto lock = readNumber(v, "aspectLock");
      lock && std::isfinite(*lock) && *lock >= kMinAspectLock && *lock <= kMaxAspectLock) {
    c.aspectLock = *lock;
  }
  if (const Json* m = member(v, "rect")) {
    if (auto r = readRect(*m)) c.rect = clipToUnitSquare(*r);
  }
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
  AppliedLUT lut = readFields(v, appliedLUTFields());
  lut.filename = bareLUTFileName(lut.filename);
  return lut;
}

// ---- Encoding ------------------------------------------------------------------------

namespace {

template <class Record>
OJson fieldsJson(const FieldTable<Record>& table, const Record& r) {
  OJson o = OJson::object();
  writeFields(o, table, r);
  return o;
}

}  // namespace

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

OJson toJson(const HSLBand& v) { return fieldsJson(hslBandFields(), v); }

OJson toJson(const HSLAdjustments& v) {
  OJson bands = OJson::array();
  for (const auto& b : v.bands) bands.push_back(toJson(b));
  OJson o = OJson::object();
  o["bands"] = std::move(bands);
  return o;
}

OJson toJson(const SplitToning& v) { return fieldsJson(splitToningFields(), v); }

OJson toJson(const GlobalAdjustments& v) {
  OJson o = fieldsJson(adjustmentFields(), v);  // sliders and monochrome, in field order
  o["curves"] = toJson(v.curves);
  o["hsl"] = toJson(v.hsl);
  o["splitToning"] = toJson(v.splitToning);
  return o;
}

OJson toJson(const RAWDevelopSettings& v) { return fieldsJson(rawDevelopFields(), v); }

OJson toJson(const LensCorrectionSettings& v) { return fieldsJson(lensCorrectionFields(), v); }

OJson toJson(const CropSettings& v) {
  // Field order: angle, quarterTurn, aspectLock, rect, then the flips.
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

OJson toJson(const AppliedLUT& v) { return fieldsJson(appliedLUTFields(), v); }

}  // namespace vg
