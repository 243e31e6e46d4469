#include <gtest/gtest.h>

#include <limits>

#include "model/json.h"

namespace vg {
namespace {

using nlohmann::json;

EditDocument decode(std::string_view text) {
  auto doc = decodeEditDocument(text);
  EXPECT_TRUE(doc.has_value()) << text;
  return doc.value_or(EditDocument{});
}

TEST(DocumentJson, EmptyObjectDecodesToTheDefaultDocument) {
  const EditDocument doc = decode("{}");
  EXPECT_EQ(doc, EditDocument{});
  EXPECT_EQ(doc.filterStrength, 100);
  EXPECT_EQ(doc.schemaVersion, 1);
  EXPECT_EQ(doc.raw.noiseReduction, 100);
  EXPECT_TRUE(doc.raw.gamutMapping);
  EXPECT_EQ(doc.lens.vignetteMidpoint, 50);
  EXPECT_EQ(doc.lens.vignetteFeather, 50);
  EXPECT_TRUE(doc.adjustments.curves.isIdentity());
  EXPECT_EQ(doc.adjustments.hsl.bands, std::vector<HSLBand>(8));
  EXPECT_TRUE(isNoEdit(doc));
}

TEST(DocumentJson, OnlyANonObjectTopLevelFails) {
  for (const char* text : {"", "[]", "3", "\"x\"", "null", "true", "{", "{\"a\":}", "{} x"}) {
    EXPECT_FALSE(decodeEditDocument(std::string_view(text))) << text;
  }
  EXPECT_TRUE(decodeEditDocument(std::string_view(" {\"unknown\": [1, 2]} ")));
}

TEST(DocumentJson, OneBadFieldLeavesTheRestIntact) {
  const EditDocument doc = decode(
      R"({"masks": 5, "heals": {}, "redEyes": "no", "crop": [], "raw": 1,
          "adjustments": {"contrast": 20}, "schemaVersion": "two",
          "filterID": 7, "coordinateSpace": 1.5, "lut": false,
          "preFilterAdjustments": 3, "lens": {"distortion": 12}})");
  EXPECT_TRUE(doc.masks.empty());
  EXPECT_TRUE(doc.heals.empty());
  EXPECT_TRUE(doc.redEyes.empty());
  EXPECT_EQ(doc.crop, CropSettings{});
  EXPECT_EQ(doc.raw, RAWDevelopSettings{});
  EXPECT_EQ(doc.adjustments.contrast, 20);
  EXPECT_EQ(doc.schemaVersion, 1);
  EXPECT_FALSE(doc.filterID);
  EXPECT_FALSE(doc.coordinateSpace);
  EXPECT_FALSE(doc.lut);
  EXPECT_FALSE(doc.preFilterAdjustments);
  EXPECT_EQ(doc.lens.distortion, 12);
}

TEST(DocumentJson, OptionalsArePresentWhenDecodable) {
  const EditDocument doc = decode(
      R"({"filterID": "warm", "coordinateSpace": 2, "schemaVersion": 7, "lut": {},
          "preFilterAdjustments": {"exposure": 1}})");
  EXPECT_EQ(doc.filterID, "warm");
  EXPECT_EQ(doc.coordinateSpace, 2);
  EXPECT_EQ(doc.schemaVersion, 7);  // a newer version is not rejected here
  ASSERT_TRUE(doc.lut);
  EXPECT_EQ(doc.lut->strength, 100);
  ASSERT_TRUE(doc.preFilterAdjustments);
  EXPECT_EQ(doc.preFilterAdjustments->exposure, 1);
  EXPECT_FALSE(isNoEdit(doc));
}

TEST(DocumentJson, DefaultDocumentEncodesTheAlwaysWrittenKeysInOrder) {
  const json encoded = json::parse(encodeEditDocument(EditDocument{}));
  const auto ordered = nlohmann::ordered_json::parse(encodeEditDocument(EditDocument{}));
  std::vector<std::string> keys;
  for (const auto& [k, v] : ordered.items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{"adjustments", "masks", "crop", "raw", "lens", "heals",
                                            "redEyes", "filterStrength", "schemaVersion"}));
  EXPECT_EQ(encoded["schemaVersion"], 1);
  EXPECT_TRUE(encoded["schemaVersion"].is_number_integer());
  EXPECT_EQ(encodeEditDocument(EditDocument{}).find(' '), std::string::npos);  // compact
  EXPECT_EQ(encodeEditDocument(EditDocument{}).find("null"), std::string::npos);
}

TEST(DocumentJson, PresentOptionalsAreWrittenInFieldOrder) {
  EditDocument doc;
  doc.filterID = "f";
  doc.preFilterAdjustments = GlobalAdjustments{};
  doc.coordinateSpace = 3;
  doc.lut = AppliedLUT{"a.cube", "A", 40};
  const auto ordered = nlohmann::ordered_json::parse(encodeEditDocument(doc));
  std::vector<std::string> keys;
  for (const auto& [k, v] : ordered.items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{"adjustments", "masks", "crop", "raw", "lens", "heals",
                                            "redEyes", "filterID", "filterStrength",
                                            "preFilterAdjustments", "coordinateSpace",
                                            "schemaVersion", "lut"}));
  EXPECT_EQ(decode(encodeEditDocument(doc)), doc);
}

// A recipe with two good elements in every list, and a value outside the
// lists to show the rest of the document survives.
json withEveryList() {
  auto kind = [](std::string_view name, json carried) {
    return json{{std::string(name), {{"_0", std::move(carried)}}}};
  };
  const json point = {{"x", 0.25}, {"y", 0.75}};
  const json stroke = {{"points", {{0.1, 0.2}, {0.3, 0.4}}}, {"size", 0.05}};
  return {
      {"adjustments",
       {{"contrast", 20},
        {"curves", {{"red", {{"points", {point, point}}}}}},
        {"hsl", {{"bands", {{{"hue", 300}}, {{"saturation", 10}}}}}}}},
      {"masks",
       {{{"id", "6F9619FF-8B86-D011-B42D-00C04FC964FF"},
         {"kind", kind("radial", json::object())},
         {"subtracts", {kind("linear", json::object()), kind("luminosity", json::object())}},
         {"subtractIDs",
          {"6F9619FF-8B86-D011-B42D-00C04FC96400", "6F9619FF-8B86-D011-B42D-00C04FC96401"}}},
        {{"id", "6F9619FF-8B86-D011-B42D-00C04FC96402"},
         {"kind", kind("brush", {stroke, stroke})}}}},
      {"heals", {stroke, stroke}},
      {"redEyes",
       {{{"id", "6F9619FF-8B86-D011-B42D-00C04FC96403"}, {"center", {0.5, 0.5}}, {"radius", 0.1}},
        {{"id", "6F9619FF-8B86-D011-B42D-00C04FC96404"}, {"radius", 0.2}}}},
      {"filterStrength", 40}};
}

TEST(DocumentJson, ListsAreDecodedAsAWhole) {
  const json good = withEveryList();
  const EditDocument kept = decode(good.dump());
  ASSERT_EQ(kept.masks.size(), 2u);
  EXPECT_EQ(kept.masks[0].subtracts.size(), 2u);
  EXPECT_EQ(kept.adjustments.hsl.bands[0].hue, 100);  // elements keep their own repairs
  EXPECT_EQ(kept.adjustments.curves.red.points.size(), 2u);
  EXPECT_EQ(kept.heals.size(), 2u);
  EXPECT_EQ(kept.redEyes.size(), 2u);

  // One element that is not of the list's type, appended to each list in
  // turn: that list (at `fallsBack`) decodes as if it held `asDefault`, and
  // the rest of the document as before.
  const json twoKeys = {{"radial", {{"_0", json::object()}}}, {"linear", {{"_0", json::object()}}}};
  struct Case {
    const char* list;
    json bad;
    const char* fallsBack;
    json asDefault;
  };
  const Case cases[] = {
      {"/masks", 7, "/masks", json::array()},
      {"/masks", {{"kind", twoKeys}}, "/masks", json::array()},
      {"/masks/1/kind/brush/_0", "stroke", "/masks", json::array()},
      {"/masks/0/subtracts", twoKeys, "/masks/0/subtracts", json::array()},
      {"/heals", json::array(), "/heals", json::array()},
      {"/redEyes", "eye", "/redEyes", json::array()},
      {"/adjustments/curves/red/points", 0.5, "/adjustments/curves/red/points", json::array()},
      {"/adjustments/hsl/bands", "band", "/adjustments/hsl", json::object()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.list);
    json poisoned = good;
    poisoned[json::json_pointer(c.list)].push_back(c.bad);
    json expected = good;
    expected[json::json_pointer(c.fallsBack)] = c.asDefault;
    const EditDocument doc = decode(poisoned.dump());
    EXPECT_EQ(doc, decode(expected.dump()));
    EXPECT_NE(doc, kept);
    EXPECT_EQ(doc.filterStrength, 40);
    EXPECT_EQ(doc.adjustments.contrast, 20);
  }

  // A bad subtract ID gives every subtract a fresh one; the shapes stay.
  json badID = good;
  badID["masks"][0]["subtractIDs"][1] = 5;
  const EditDocument fresh = decode(badID.dump());
  ASSERT_EQ(fresh.masks[0].subtractIDs.size(), 2u);
  EXPECT_NE(fresh.masks[0].subtractIDs[0], kept.masks[0].subtractIDs[0]);
  EXPECT_EQ(fresh.masks[0].subtracts, kept.masks[0].subtracts);
}

}  // namespace
}  // namespace vg
