// JSON decoding and encoding of mask layers, their shapes, heal strokes and
// red-eye spots.
#include <cmath>

#include "codec/base64.h"
#include "model/json.h"
#include "model/json_fields.h"

namespace vg {

using namespace jsonfields;
using OJson = nlohmann::ordered_json;

namespace {

constexpr double kMaxStrokeCoordinate = 1'000'000;

// A point field clamped per coordinate; a missing or malformed point, or a
// non-finite coordinate, takes the default.
Point readPoint(const Json& obj, const char* key, Point fallback, double lo, double hi) {
  Point p = fallback;
  if (const Json* m = member(obj, key)) p = decodePoint(*m).value_or(fallback);
  return {clampToRange(p.x, lo, hi, fallback.x), clampToRange(p.y, lo, hi, fallback.y)};
}

// Floating-point remainder by 360, keeping the sign: 370 -> 10, -30 -> -30.
double readAngle(const Json& obj) { return std::fmod(readFinite(obj, "angle", 0), 360.0); }

// Stroke points: entries that are not points, or whose coordinates are not
// finite or lie beyond +-1,000,000, are dropped one by one.
std::vector<Point> readStrokePoints(const Json& obj) {
  std::vector<Point> points;
  const Json* m = member(obj, "points");
  if (!m || !m->is_array()) return points;
  points.reserve(m->size());
  for (const Json& e : *m) {
    auto p = decodePoint(e);
    if (p && std::isfinite(p->x) && std::isfinite(p->y) &&
        std::abs(p->x) <= kMaxStrokeCoordinate && std::abs(p->y) <= kMaxStrokeCoordinate) {
      points.push_back(*p);
    }
  }
  return points;
}

// A UUID field; absent or malformed gives a fresh one.
Uuid readUuid(const Json& obj, const char* key) {
  if (auto text = readString(obj, key)) {
    if (auto id = Uuid::parse(*text)) return *id;
  }
  return Uuid::random();
}

OJson pointJson(const Point& p) { return OJson::array({p.x, p.y}); }

OJson pointsJson(const std::vector<Point>& points) {
  OJson a = OJson::array();
  for (const auto& p : points) a.push_back(pointJson(p));
  return a;
}

}  // namespace

// ---- Geometry ---------------------------------------------------------------------------

std::optional<Point> decodePoint(const Json& v) {
  if (!v.is_array() || v.size() < 2) return std::nullopt;
  auto x = asNumber(v[0]);
  auto y = asNumber(v[1]);
  if (!x || !y) return std::nullopt;
  return Point{*x, *y};
}

std::optional<RadialMaskGeometry> decodeRadialMaskGeometry(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  RadialMaskGeometry g;
  g.center = readPoint(v, "center", {0.5, 0.5}, -4, 4);
  g.radiusX = readClamped(v, "radiusX", 0.001, 4, 0.3);
  g.radiusY = readClamped(v, "radiusY", 0.001, 4, 0.3);
  g.angle = readAngle(v);
  g.feather = readClamped(v, "feather", 0, 100, 50);
  g.invert = readBool(v, "invert").value_or(false);
  return g;
}

std::optional<LinearMaskGeometry> decodeLinearMaskGeometry(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  LinearMaskGeometry g;
  g.center = readPoint(v, "center", {0.5, 0.5}, -4, 4);
  g.angle = readAngle(v);
  g.length = readClamped(v, "length", 0.001, 4, 0.7);
  g.feather = readClamped(v, "feather", 0, 100, 50);
  g.invert = readBool(v, "invert").value_or(false);
  return g;
}

std::optional<LuminanceMaskGeometry> decodeLuminanceMaskGeometry(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  LuminanceMaskGeometry g;
  g.low = readClamped(v, "low", 0, 1, 0);
  // high is first raised to low, then capped at 1.
  double high = readFinite(v, "high", 1);
  if (high < g.low) high = g.low;
  if (high > 1) high = 1;
  g.high = high;
  g.feather = readClamped(v, "feather", 0, 100, 20);
  g.invert = readBool(v, "invert").value_or(false);
  return g;
}

std::optional<ColorRangeGeometry> decodeColorRangeGeometry(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  ColorRangeGeometry g;
  g.red = readClamped(v, "red", 0, 1, 0.5);
  g.green = readClamped(v, "green", 0, 1, 0.5);
  g.blue = readClamped(v, "blue", 0, 1, 0.5);
  g.tolerance = readClamped(v, "tolerance", 0, 1, 0.25);
  g.feather = readClamped(v, "feather", 0, 1, 0.15);
  g.invert = readBool(v, "invert").value_or(false);
  return g;
}

std::optional<BrushStroke> decodeBrushStroke(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  BrushStroke s;
  s.points = readStrokePoints(v);
  s.size = readClamped(v, "size", 0, 4, 0);
  s.hardness = readClamped(v, "hardness", 0, 100, 100);
  s.flow = readClamped(v, "flow", 0, 100, 100);
  s.erase = readBool(v, "erase").value_or(false);
  return s;
}

std::optional<BitmapMaskData> decodeBitmapMaskData(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  BitmapMaskData b;
  if (auto text = readString(v, "compressedData")) {
    b.compressedData = codec::base64Decode(*text).value_or(std::vector<std::uint8_t>{});
  }
  b.width = readInteger(v, "width").value_or(0);
  b.height = readInteger(v, "height").value_or(0);
  if (auto name = readString(v, "source")) {
    b.source = autoMaskSourceFromName(*name).value_or(AutoMaskSource::magicWand);
  }
  b.id = readUuid(v, "id");
  return b;
}

// ---- Mask kind ----------------------------------------------------------------------------

namespace {

std::optional<MaskKind> decodeCase(MaskKindCase c, const Json& carried) {
  switch (c) {
    case MaskKindCase::radial:
      if (auto g = decodeRadialMaskGeometry(carried)) return MaskKind{*g};
      break;
    case MaskKindCase::linear:
      if (auto g = decodeLinearMaskGeometry(carried)) return MaskKind{*g};
      break;
    case MaskKindCase::brush:
      if (auto strokes = decodeList<BrushStroke>(
              carried, [](const Json& e) { return decodeBrushStroke(e); })) {
        return MaskKind{std::move(*strokes)};
      }
      break;
    case MaskKindCase::bitmap:
      if (auto b = decodeBitmapMaskData(carried)) return MaskKind{std::move(*b)};
      break;
    case MaskKindCase::luminosity:
      if (auto g = decodeLuminanceMaskGeometry(carried)) return MaskKind{*g};
      break;
    case MaskKindCase::colorRange:
      if (auto g = decodeColorRangeGeometry(carried)) return MaskKind{*g};
      break;
  }
  return std::nullopt;
}

std::optional<MaskKind> fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
  return std::nullopt;
}

}  // namespace

std::optional<MaskKind> decodeMaskKind(const Json& v, std::string* error) {
  if (!v.is_object()) return fail(error, "A mask shape must be a JSON object.");
  if (v.size() != 1) return fail(error, "Invalid number of keys found, expected one.");
  const std::string& name = v.begin().key();
  const Json& payload = v.begin().value();
  std::optional<MaskKindCase> kindCase;
  for (int i = 0; i < 6; ++i) {
    if (maskKindCaseName(MaskKindCase(i)) == name) kindCase = MaskKindCase(i);
  }
  if (!kindCase) return fail(error, "Unknown mask shape \"" + name + "\".");
  const Json* carried = member(payload, "_0");
  if (!carried) return fail(error, "Mask shape \"" + name + "\" has no \"_0\" value.");
  auto kind = decodeCase(*kindCase, *carried);
  if (!kind) return fail(error, "Mask shape \"" + name + "\" holds a value of the wrong type.");
  return kind;
}

// ---- Mask layer, heal, red eye ---------------------------------------------------------

std::optional<MaskLayer> decodeMaskLayer(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  const Json* kindJson = member(v, "kind");
  if (!kindJson) return std::nullopt;
  auto kind = decodeMaskKind(*kindJson);
  if (!kind) return std::nullopt;

  MaskLayer m;
  m.id = readUuid(v, "id");
  m.name = readString(v, "name").value_or(std::string(kDefaultMaskName));
  m.enabled = readBool(v, "enabled").value_or(true);
  m.kind = std::move(*kind);
  if (const Json* a = member(v, "adjustments")) {
    m.adjustments = decodeGlobalAdjustments(*a).value_or(GlobalAdjustments{});
  }

  // Both lists are decoded as a whole: a subtract shape that does not decode
  // empties the subtracts, an entry that is not a UUID empties the IDs. The
  // repair then pairs them up again.
  m.subtracts = readList<MaskKind>(v, "subtracts", [](const Json& e) { return decodeMaskKind(e); });
  m.subtractIDs = readList<Uuid>(v, "subtractIDs", [](const Json& e) -> std::optional<Uuid> {
    if (!e.is_string()) return std::nullopt;
    return Uuid::parse(e.get_ref<const std::string&>());
  });
  m.repairSubtractIDs();
  return m;
}

std::optional<HealStroke> decodeHealStroke(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  HealStroke s;
  s.points = readStrokePoints(v);
  s.size = readClamped(v, "size", 0, 4, 0);
  return s;
}

std::optional<RedEyeSpot> decodeRedEyeSpot(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  RedEyeSpot r;
  r.id = readUuid(v, "id");
  if (const Json* m = member(v, "center")) {
    const Point p = decodePoint(*m).value_or(Point{});
    r.center = {std::isfinite(p.x) ? p.x : 0, std::isfinite(p.y) ? p.y : 0};
  }
  r.radius = readClamped(v, "radius", 0, 1, 0);
  return r;
}

// ---- Encoding ------------------------------------------------------------------------------

OJson toJson(const Point& v) { return pointJson(v); }

OJson toJson(const RadialMaskGeometry& v) {
  return OJson{{"center", pointJson(v.center)}, {"radiusX", v.radiusX}, {"radiusY", v.radiusY},
               {"angle", v.angle},              {"feather", v.feather}, {"invert", v.invert}};
}

OJson toJson(const LinearMaskGeometry& v) {
  return OJson{{"center", pointJson(v.center)},
               {"angle", v.angle},
               {"length", v.length},
               {"feather", v.feather},
               {"invert", v.invert}};
}

OJson toJson(const LuminanceMaskGeometry& v) {
  return OJson{{"low", v.low}, {"high", v.high}, {"feather", v.feather}, {"invert", v.invert}};
}

OJson toJson(const ColorRangeGeometry& v) {
  return OJson{{"red", v.red},           {"green", v.green},     {"blue", v.blue},
               {"tolerance", v.tolerance}, {"feather", v.feather}, {"invert", v.invert}};
}

OJson toJson(const BrushStroke& v) {
  return OJson{{"points", pointsJson(v.points)},
               {"size", v.size},
               {"hardness", v.hardness},
               {"flow", v.flow},
               {"erase", v.erase}};
}

OJson toJson(const BitmapMaskData& v) {
  return OJson{{"compressedData", codec::base64Encode(v.compressedData)},
               {"width", v.width},
               {"height", v.height},
               {"source", std::string(autoMaskSourceName(v.source))},
               {"id", v.id.toString()}};
}

OJson toJson(const MaskKind& v) {
  OJson carried = std::visit(
      [](const auto& value) -> OJson {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::vector<BrushStroke>>) {
          OJson strokes = OJson::array();
          for (const auto& s : value) strokes.push_back(toJson(s));
          return strokes;
        } else {
          return toJson(value);
        }
      },
      v);
  OJson wrapper = OJson::object();
  wrapper["_0"] = std::move(carried);
  OJson o = OJson::object();
  o[std::string(maskKindCaseName(kindCase(v)))] = std::move(wrapper);
  return o;
}

OJson toJson(const MaskLayer& v) {
  OJson subtracts = OJson::array();
  for (const auto& s : v.subtracts) subtracts.push_back(toJson(s));
  OJson ids = OJson::array();
  for (const auto& id : v.subtractIDs) ids.push_back(id.toString());
  OJson o = OJson::object();
  o["id"] = v.id.toString();
  o["name"] = v.name;
  o["enabled"] = v.enabled;
  o["kind"] = toJson(v.kind);
  o["adjustments"] = toJson(v.adjustments);
  o["subtracts"] = std::move(subtracts);
  o["subtractIDs"] = std::move(ids);
  return o;
}

OJson toJson(const HealStroke& v) {
  return OJson{{"points", pointsJson(v.points)}, {"size", v.size}};
}

OJson toJson(const RedEyeSpot& v) {
  return OJson{{"id", v.id.toString()}, {"center", pointJson(v.center)}, {"radius", v.radius}};
}

}  // namespace vg
