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

}  // namespace
}  // namespace vg
