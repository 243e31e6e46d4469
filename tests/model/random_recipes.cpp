#include "random_recipes.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/json.h"

namespace vg::test {

using nlohmann::json;

double RecipeGenerator::ranged(double lo, double hi) {
  switch (integer(0, 5)) {
    case 0: return lo;
    case 1: return hi;
    case 2: return std::clamp(std::round(uniform(lo, hi)), lo, hi);
    default: return uniform(lo, hi);
  }
}

Point RecipeGenerator::point(double lo, double hi) { return {ranged(lo, hi), ranged(lo, hi)}; }

std::vector<Point> RecipeGenerator::strokePoints() {
  std::vector<Point> pts(integer(0, 6));
  for (auto& p : pts) p = point(-1e6, 1e6);
  return pts;
}

ToneCurve RecipeGenerator::curve() {
  if (chance(0.5)) return ToneCurve::identity();
  ToneCurve c;
  c.points.resize(integer(0, 6));
  for (auto& p : c.points) p = {ranged(0, 1), ranged(0, 1)};
  return c;
}

GlobalAdjustments RecipeGenerator::adjustments() {
  GlobalAdjustments a;
  if (chance(0.2)) return a;
  for (const auto& f : scalarFields()) {
    if (chance(0.5)) a.*f.member = ranged(f.min, f.max);
  }
  a.monochrome = chance(0.3);
  for (CurveChannel ch : kCurveChannels) a.curves[ch] = curve();
  for (auto& b : a.hsl.bands) {
    if (chance(0.4)) b = {ranged(-100, 100), ranged(-100, 100), ranged(-100, 100)};
  }
  if (chance(0.5)) {
    a.splitToning = {ranged(0, 360), ranged(0, 100), ranged(0, 360), ranged(0, 100),
                     ranged(-100, 100)};
  }
  return a;
}

MaskKind RecipeGenerator::maskKind() {
  switch (integer(0, 5)) {
    case 0:
      return RadialMaskGeometry{point(-4, 4), ranged(0.001, 4), ranged(0.001, 4),
                                std::fmod(ranged(-1000, 1000), 360), ranged(0, 100), chance(0.5)};
    case 1:
      return LinearMaskGeometry{point(-4, 4), std::fmod(ranged(-1000, 1000), 360),
                                ranged(0.001, 4), ranged(0, 100), chance(0.5)};
    case 2: {
      std::vector<BrushStroke> strokes(integer(0, 3));
      for (auto& s : strokes) {
        s = {strokePoints(), ranged(0, 4), ranged(0, 100), ranged(0, 100), chance(0.5)};
      }
      return strokes;
    }
    case 3: {
      BitmapMaskData b;
      b.compressedData.resize(integer(0, 40));
      for (auto& byte : b.compressedData) byte = static_cast<std::uint8_t>(integer(0, 255));
      b.width = integer(-5, 5000);
      b.height = integer(0, 5000);
      b.source = AutoMaskSource(integer(0, 3));
      b.id = Uuid::random();
      return b;
    }
    case 4: {
      const double low = ranged(0, 1);
      return LuminanceMaskGeometry{low, ranged(low, 1), ranged(0, 100), chance(0.5)};
    }
    default:
      return ColorRangeGeometry{ranged(0, 1), ranged(0, 1), ranged(0, 1),
                                ranged(0, 1), ranged(0, 1), chance(0.5)};
  }
}

MaskLayer RecipeGenerator::mask() {
  MaskLayer m;
  m.name = chance(0.5) ? "蒙版 " + std::to_string(integer(1, 9)) : wildString();
  m.enabled = chance(0.8);
  m.kind = maskKind();
  m.adjustments = adjustments();
  m.subtracts.resize(integer(0, 3));
  for (auto& s : m.subtracts) s = maskKind();
  m.repairSubtractIDs();
  return m;
}

EditDocument RecipeGenerator::document() {
  EditDocument d;
  d.adjustments = adjustments();
  d.masks.resize(integer(0, 3));
  for (auto& m : d.masks) m = mask();
  if (chance(0.5)) {
    d.crop.angle = ranged(-45, 45);
    d.crop.quarterTurn = integer(0, 3);
    if (chance(0.5)) d.crop.aspectLock = ranged(0.001, 1000);
    if (chance(0.5)) {
      const double x = uniform(0, 0.9), y = uniform(0, 0.9);
      d.crop.rect = NormalizedRect{x, y, uniform(0.01, 1 - x), uniform(0.01, 1 - y)};
    }
    d.crop.flipHorizontal = chance(0.5);
    d.crop.flipVertical = chance(0.5);
  }
  if (chance(0.5)) {
    d.raw = {ranged(-2, 2), ranged(0, 100), ranged(0, 100), chance(0.5) ? "" : "v6", chance(0.5)};
  }
  if (chance(0.5)) d.lens = {ranged(-100, 100), ranged(0, 100), ranged(0, 100), ranged(0, 100)};
  d.heals.resize(integer(0, 3));
  for (auto& h : d.heals) h = {strokePoints(), ranged(0, 4)};
  d.redEyes.resize(integer(0, 3));
  for (auto& r : d.redEyes) r = {Uuid::random(), point(-2, 2), ranged(0, 1)};
  if (chance(0.3)) d.filterID = wildString();
  d.filterStrength = ranged(0, 100);
  if (chance(0.3)) d.preFilterAdjustments = adjustments();
  if (chance(0.3)) d.coordinateSpace = integer(-3, 3);
  if (chance(0.2)) d.schemaVersion = integer(-2, 4);
  if (chance(0.3)) d.lut = AppliedLUT{chance(0.5) ? "look.cube" : "", wildString(), ranged(0, 100)};
  return d;
}

double RecipeGenerator::wildNumber() {
  static const double specials[] = {0.0,   -0.0,  1,     -1,      0.5,     4,       5,     100,
                                    101,   360,   1000,  1e6,     -1e6,    2e6,     1e-300, 1e300,
                                    -1e300, 0.001, 0.0009, 9.5,   -45,     45.5,    3,     7};
  if (chance(0.5)) return specials[integer(0, std::size(specials) - 1)];
  return uniform(-1e3, 1e3);
}

std::string RecipeGenerator::wildString() {
  static const char* strings[] = {"",       "radial",  "sky",  "../../a.cube", "..",
                                  ".",      "AAEC/w==", "***",  "蒙版",          "_0",
                                  "a/b/",   "brush",    "true", "12"};
  if (chance(0.2)) return Uuid::random().toString();
  return strings[integer(0, std::size(strings) - 1)];
}

namespace {

const std::vector<std::string>& recipeKeys() {
  static const std::vector<std::string> keys = [] {
    std::vector<std::string> k = {
        "adjustments", "masks", "crop", "raw", "lens", "heals", "redEyes", "filterID",
        "filterStrength", "preFilterAdjustments", "coordinateSpace", "schemaVersion", "lut",
        "monochrome", "curves", "hsl", "splitToning", "rgb", "red", "green", "blue", "points",
        "x", "y", "bands", "hue", "saturation", "luminance", "highlightHue",
        "highlightSaturation", "shadowHue", "shadowSaturation", "balance", "exposure",
        "shadowBoost", "noiseReduction", "decoderVersion", "gamutMapping", "distortion",
        "vignette", "vignetteMidpoint", "vignetteFeather", "angle", "quarterTurn", "aspectLock",
        "rect", "flipHorizontal", "flipVertical", "filename", "name", "strength", "id",
        "enabled", "kind", "subtracts", "subtractIDs", "radial", "linear", "brush", "bitmap",
        "luminosity", "colorRange", "_0", "center", "radiusX", "radiusY", "feather", "invert",
        "length", "low", "high", "tolerance", "size", "hardness", "flow", "erase",
        "compressedData", "width", "height", "source", "radius", "unknownKey"};
    for (const auto& f : scalarFields()) k.emplace_back(f.key);
    return k;
  }();
  return keys;
}

}  // namespace

json RecipeGenerator::randomJson(int depth) {
  const int kind = depth <= 0 ? integer(0, 4) : integer(0, 7);
  switch (kind) {
    case 0: return nullptr;
    case 1: return chance(0.5);
    case 2: return integer(-10, 10);
    case 3: return wildNumber();
    case 4: return wildString();
    case 5: {
      json a = json::array();
      for (int n = integer(0, 5); n > 0; --n) a.push_back(randomJson(depth - 1));
      return a;
    }
    default: {
      json o = json::object();
      const auto& keys = recipeKeys();
      for (int n = integer(0, 6); n > 0; --n) {
        o[keys[integer(0, int(keys.size()) - 1)]] = randomJson(depth - 1);
      }
      return o;
    }
  }
}

void RecipeGenerator::mutate(json& node, int budget) {
  if (budget <= 0) return;
  if (chance(0.15)) {
    node = randomJson(integer(0, 3));
    return;
  }
  if (node.is_object() && !node.empty()) {
    auto it = node.begin();
    std::advance(it, integer(0, int(node.size()) - 1));
    if (chance(0.1)) {
      node.erase(it);
    } else {
      mutate(*it, budget - 1);
    }
    if (chance(0.05)) node[recipeKeys()[integer(0, int(recipeKeys().size()) - 1)]] = randomJson(2);
  } else if (node.is_array() && !node.empty()) {
    mutate(node[integer(0, int(node.size()) - 1)], budget - 1);
    if (chance(0.05)) node.push_back(randomJson(2));
  } else if (chance(0.5)) {
    node = randomJson(1);
  }
}

json RecipeGenerator::mutatedDocument() {
  json j = json::parse(encodeEditDocument(document()));
  // Mutations start below the top level, which must stay an object.
  for (int n = integer(1, 6); n > 0; --n) {
    auto it = j.begin();
    std::advance(it, integer(0, int(j.size()) - 1));
    mutate(*it, 12);
  }
  return j;
}

}  // namespace vg::test
