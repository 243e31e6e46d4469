#include <gtest/gtest.h>

#include <cmath>

#include "model/json.h"

namespace vg {
namespace {

using nlohmann::json;

json kindJson(std::string_view name, json carried) {
  return {{std::string(name), {{"_0", std::move(carried)}}}};
}

TEST(MaskGeometryJson, RadialClampsAndReducesAngles) {
  auto radial = [](json j) { return *decodeRadialMaskGeometry(j); };
  EXPECT_EQ(radial(json::object()), RadialMaskGeometry{});
  EXPECT_EQ(radial({{"radiusX", 0}}).radiusX, 0.001);
  EXPECT_EQ(radial({{"radiusY", 9}}).radiusY, 4);
  EXPECT_EQ(radial({{"center", {9, -9}}}).center, (Point{4, -4}));
  EXPECT_EQ(radial({{"center", {0.25}}}).center, (Point{0.5, 0.5}));  // not a point
  EXPECT_EQ(radial({{"center", {0.25, std::nan("")}}}).center, (Point{0.25, 0.5}));
  EXPECT_EQ(radial({{"angle", 370}}).angle, 10);
  EXPECT_EQ(radial({{"angle", -30}}).angle, -30);
  EXPECT_EQ(radial({{"angle", -725}}).angle, -5);
  EXPECT_EQ(radial({{"feather", 101}}).feather, 100);
  EXPECT_TRUE(radial({{"invert", true}}).invert);
}

TEST(MaskGeometryJson, LinearLuminanceAndColorRange) {
  const auto linear = *decodeLinearMaskGeometry(
      {{"center", {-5, 0.3}}, {"angle", 450}, {"length", 0}, {"feather", -2}});
  EXPECT_EQ(linear, (LinearMaskGeometry{{-4, 0.3}, 90, 0.001, 0, false}));
  EXPECT_EQ(*decodeLinearMaskGeometry(json::object()), LinearMaskGeometry{});

  const auto lum = *decodeLuminanceMaskGeometry({{"low", 0.8}, {"high", 0.3}});
  EXPECT_EQ(lum.low, 0.8);
  EXPECT_EQ(lum.high, 0.8);
  EXPECT_EQ(decodeLuminanceMaskGeometry({{"low", 2}})->high, 1);
  EXPECT_EQ(decodeLuminanceMaskGeometry({{"high", 3}})->high, 1);
  EXPECT_EQ(decodeLuminanceMaskGeometry(json::object())->feather, 20);

  const auto color = *decodeColorRangeGeometry(
      {{"red", 2}, {"green", -1}, {"blue", std::nan("")}, {"tolerance", 5}, {"feather", "x"}});
  EXPECT_EQ(color, (ColorRangeGeometry{1, 0, 0.5, 1, 0.15, false}));
}

TEST(MaskGeometryJson, StrokePointsOutsideTheLimitAreDroppedOneByOne) {
  const auto stroke = *decodeBrushStroke(
      {{"points", json::array({{0.1, 0.2}, {2000000, 0.5}, {0.3, -1000000}, "x", {0.4},
                               {1, std::numeric_limits<double>::infinity()}, {0.5, 0.6, 9}})},
       {"size", 5},
       {"hardness", -1},
       {"erase", true}});
  EXPECT_EQ(stroke.points, (std::vector<Point>{{0.1, 0.2}, {0.3, -1000000}, {0.5, 0.6}}));
  EXPECT_EQ(stroke.size, 4);
  EXPECT_EQ(stroke.hardness, 0);
  EXPECT_EQ(stroke.flow, 100);
  EXPECT_TRUE(stroke.erase);

  const auto heal = *decodeHealStroke({{"points", {{1e7, 0}, {0.5, 0.5}}}, {"size", -1}});
  EXPECT_EQ(heal.points, (std::vector<Point>{{0.5, 0.5}}));
  EXPECT_EQ(heal.size, 0);
}

TEST(MaskGeometryJson, BitmapDataCarriesBytesAndIdentity) {
  const Uuid id = Uuid::random();
  const auto bitmap = *decodeBitmapMaskData({{"compressedData", "AAEC/w=="},
                                             {"width", 64},
                                             {"height", 48},
                                             {"source", "sky"},
                                             {"id", id.toString()}});
  EXPECT_EQ(bitmap.compressedData, (std::vector<std::uint8_t>{0, 1, 2, 255}));
  EXPECT_EQ(bitmap.width, 64);
  EXPECT_EQ(bitmap.height, 48);
  EXPECT_EQ(bitmap.source, AutoMaskSource::sky);
  EXPECT_EQ(bitmap.id, id);
  EXPECT_EQ(decodeBitmapMaskData(json::parse(dumpCompact(toJson(bitmap)))), bitmap);

  const auto bad = *decodeBitmapMaskData(
      {{"compressedData", "***"}, {"width", 1.5}, {"source", "moon"}, {"id", "nope"}});
  EXPECT_TRUE(bad.compressedData.empty());
  EXPECT_EQ(bad.width, 0);
  EXPECT_EQ(bad.source, AutoMaskSource::magicWand);
  EXPECT_NE(bad.id, Uuid{});  // a fresh identity, not the nil one
}

TEST(MaskKindJson, SingleKeyObjectsWithUnderscoreZero) {
  std::string error;
  auto radial = decodeMaskKind(kindJson("radial", {{"radiusX", 0.5}}), &error);
  ASSERT_TRUE(radial) << error;
  EXPECT_EQ(kindCase(*radial), MaskKindCase::radial);
  EXPECT_EQ(std::get<RadialMaskGeometry>(*radial).radiusX, 0.5);

  auto brush = decodeMaskKind(kindJson("brush", json::array({{{"size", 0.1}}, json::object()})));
  ASSERT_TRUE(brush);
  ASSERT_EQ(std::get<std::vector<BrushStroke>>(*brush).size(), 2u);

  for (auto name : {"linear", "luminosity", "colorRange", "bitmap"}) {
    auto kind = decodeMaskKind(kindJson(name, json::object()));
    ASSERT_TRUE(kind) << name;
    EXPECT_EQ(maskKindCaseName(kindCase(*kind)), name);
  }
}

TEST(MaskKindJson, OtherThanOneKeyFailsWithTheKeyCountMessage) {
  std::string error;
  json two = kindJson("radial", json::object());
  two["linear"] = {{"_0", json::object()}};
  EXPECT_FALSE(decodeMaskKind(two, &error));
  EXPECT_EQ(error, "Invalid number of keys found, expected one.");
  error.clear();
  EXPECT_FALSE(decodeMaskKind(json::object(), &error));
  EXPECT_EQ(error, "Invalid number of keys found, expected one.");

  // An unknown case, no "_0", a carried value of the wrong type, and a stroke
  // list with one element that is no stroke.
  for (const json& bad : {kindJson("circle", json::object()), json{{"radial", json::object()}},
                          kindJson("radial", 4), kindJson("brush", json::object()),
                          kindJson("brush", json::array({json::object(), 3})), json(5)}) {
    error.clear();
    EXPECT_FALSE(decodeMaskKind(bad, &error)) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

TEST(MaskLayerJson, DefaultsAndRepairOfSubtractIDs) {
  const Uuid first = Uuid::random();
  json subtracts = json::array();
  for (int i = 0; i < 3; ++i) subtracts.push_back(kindJson("radial", json::object()));
  const auto mask = decodeMaskLayer({{"kind", kindJson("linear", json::object())},
                                     {"subtracts", subtracts},
                                     {"subtractIDs", {first.toString()}}});
  ASSERT_TRUE(mask);
  EXPECT_EQ(mask->name, "蒙版");
  EXPECT_TRUE(mask->enabled);
  EXPECT_EQ(mask->adjustments, GlobalAdjustments{});
  ASSERT_EQ(mask->subtracts.size(), 3u);
  ASSERT_EQ(mask->subtractIDs.size(), 3u);
  EXPECT_EQ(mask->subtractIDs[0], first);
  EXPECT_NE(mask->subtractIDs[1], mask->subtractIDs[2]);
  EXPECT_NE(mask->subtractIDs[1], first);

  const auto surplus = decodeMaskLayer({{"kind", kindJson("linear", json::object())},
                                        {"subtractIDs", {first.toString(), first.toString()}}});
  EXPECT_TRUE(surplus->subtractIDs.empty());
}

TEST(MaskLayerJson, AMaskNeedsADecodableShape) {
  EXPECT_FALSE(decodeMaskLayer({{"name", "lost"}}));
  EXPECT_FALSE(decodeMaskLayer({{"kind", nullptr}}));
  json twoKeys = kindJson("radial", json::object());
  twoKeys["linear"] = {{"_0", json::object()}};
  EXPECT_FALSE(decodeMaskLayer({{"kind", twoKeys}}));
}

TEST(MaskLayerJson, EncodesEveryFieldInOrder) {
  MaskLayer m;
  m.name = "天空";
  m.kind = std::vector<BrushStroke>{BrushStroke{{{0.25, 0.5}}, 0.1, 80, 90, true}};
  m.subtracts = {LuminanceMaskGeometry{}};
  m.repairSubtractIDs();
  const auto encoded = json::parse(dumpCompact(toJson(m)));
  const auto ordered = nlohmann::ordered_json::parse(dumpCompact(toJson(m)));
  std::vector<std::string> keys;
  for (const auto& [k, v] : ordered.items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{"id", "name", "enabled", "kind", "adjustments",
                                            "subtracts", "subtractIDs"}));
  EXPECT_EQ(encoded["id"], m.id.toString());
  EXPECT_EQ(encoded["kind"]["brush"]["_0"][0]["points"], json::parse("[[0.25,0.5]]"));
  EXPECT_TRUE(encoded["subtracts"][0]["luminosity"]["_0"].is_object());
  EXPECT_EQ(decodeMaskLayer(encoded), m);
}

TEST(RedEyeJson, RadiusClampsAndIdentityIsKept) {
  const Uuid id = Uuid::random();
  const auto spot =
      *decodeRedEyeSpot({{"id", id.toString()}, {"center", {0.3, 0.7}}, {"radius", 3}});
  EXPECT_EQ(spot, (RedEyeSpot{id, {0.3, 0.7}, 1}));
  EXPECT_EQ(decodeRedEyeSpot(json::parse(dumpCompact(toJson(spot)))), spot);
  EXPECT_EQ(decodeRedEyeSpot({{"radius", -1}})->radius, 0);
}

}  // namespace
}  // namespace vg
