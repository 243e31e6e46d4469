// The field tables against the records they describe: every row is read,
// clamped, repaired, written back and hashed, whichever record it belongs to.
#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "model/json.h"

namespace vg {
namespace {

using nlohmann::json;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Runs check(table, decode) once per record that has a table; decode turns a
// JSON object into the record (the record's own decoder).
template <class Check>
void forEveryTable(Check check) {
  check(adjustmentFields(), [](const json& j) { return decodeGlobalAdjustments(j).value(); });
  check(hslBandFields(), [](const json& j) { return decodeHSLBand(j).value(); });
  check(splitToningFields(), [](const json& j) { return decodeSplitToning(j).value(); });
  check(rawDevelopFields(), [](const json& j) { return decodeRAWDevelopSettings(j).value(); });
  check(lensCorrectionFields(),
        [](const json& j) { return decodeLensCorrectionSettings(j).value(); });
  check(cropFields(), [](const json& j) { return decodeCropSettings(j).value(); });
  check(appliedLUTFields(), [](const json& j) { return decodeAppliedLUT(j).value(); });
  check(documentFields(), [](const json& j) { return decodeEditDocument(j).value(); });
}

template <class Record>
std::string encoded(const Record& r) {
  return dumpCompact(toJson(r));
}

TEST(FieldTables, RowsAgreeWithTheRecordsTheyDescribe) {
  forEveryTable([]<class Record>(const FieldTable<Record>& table, auto) {
    const Record defaults{};
    std::set<std::string_view> keys;
    for (const auto& f : table.numbers()) {
      SCOPED_TRACE(f.key);
      EXPECT_EQ(defaults.*f.member, f.defaultValue);
      EXPECT_LE(f.min, f.defaultValue);
      EXPECT_GE(f.max, f.defaultValue);
      EXPECT_GT(f.step, 0);
      EXPECT_LE(f.step, (f.max - f.min) / 10);  // a slider has room to move
      EXPECT_FALSE(f.title.empty());
      EXPECT_TRUE(keys.insert(f.key).second) << "key used twice";
    }
    for (const auto& f : table.switches()) {
      EXPECT_EQ(defaults.*f.member, f.defaultValue) << f.key;
      EXPECT_FALSE(f.title.empty()) << f.key;
      EXPECT_TRUE(keys.insert(f.key).second) << f.key;
    }
    for (const auto& f : table.texts()) {
      EXPECT_EQ(defaults.*f.member, "") << f.key;
      EXPECT_FALSE(f.title.empty()) << f.key;
      EXPECT_TRUE(keys.insert(f.key).second) << f.key;
    }
    // Declaration order lists every row once (distinct keys, distinct members).
    EXPECT_EQ(table.declared().size(), keys.size());
  });
}

// Every row: out-of-range, non-finite and ill-typed values are repaired the
// way the field's row says, a decoded value survives encoding, and a change
// of the field changes the record's hash.
TEST(FieldTables, EveryRowIsDecodedClampedEncodedAndHashed) {
  forEveryTable([]<class Record>(const FieldTable<Record>& table, auto decode) {
    const Record defaults{};
    for (const auto& f : table.numbers()) {
      SCOPED_TRACE(f.key);
      const std::string key(f.key);
      EXPECT_EQ(decode({{key, 1e9}}).*f.member, f.max);
      EXPECT_EQ(decode({{key, -1e9}}).*f.member, f.min);
      EXPECT_EQ(decode({{key, kNaN}}).*f.member, f.defaultValue);
      EXPECT_EQ(decode({{key, -std::numeric_limits<double>::infinity()}}).*f.member,
                f.defaultValue);
      EXPECT_EQ(decode({{key, "1"}}).*f.member, f.defaultValue);
      const double inside = f.min + (f.max - f.min) * 0.375;
      const Record r = decode({{key, inside}});
      EXPECT_EQ(r.*f.member, inside);
      EXPECT_EQ(decode(json::parse(encoded(r))), r);
      EXPECT_NE(hashValue(r), hashValue(defaults));
    }
    for (const auto& f : table.switches()) {
      SCOPED_TRACE(f.key);
      const std::string key(f.key);
      EXPECT_EQ(decode({{key, 1}}).*f.member, f.defaultValue);
      const Record r = decode({{key, !f.defaultValue}});
      EXPECT_EQ(r.*f.member, !f.defaultValue);
      EXPECT_EQ(decode(json::parse(encoded(r))), r);
      EXPECT_NE(hashValue(r), hashValue(defaults));
    }
    for (const auto& f : table.texts()) {
      SCOPED_TRACE(f.key);
      const std::string key(f.key);
      EXPECT_EQ(decode({{key, 3}}).*f.member, "");
      const Record r = decode({{key, "Film"}});
      EXPECT_EQ(r.*f.member, "Film");
      EXPECT_EQ(decode(json::parse(encoded(r))), r);
      EXPECT_NE(hashValue(r), hashValue(defaults));
    }
  });
}

TEST(FieldTables, KeysAreWrittenInDeclarationOrderNotRowOrder) {
  // The slider rows run exposure ... vibrance, monochromeRed ..., sharpen,
  // sharpenRadius ...; the struct declares monochrome among them and the
  // noise fields before the sharpening details, and JSON follows the struct.
  const auto written = nlohmann::ordered_json::parse(encoded(GlobalAdjustments{}));
  std::vector<std::string> keys;
  for (const auto& [k, v] : written.items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "exposure", "contrast", "highlights", "shadows", "whites", "blacks",
                      "temperature", "tint", "saturation", "vibrance", "monochrome",
                      "monochromeRed", "monochromeGreen", "monochromeBlue", "texture", "clarity",
                      "dehaze", "sharpen", "denoise", "colorDenoise", "defringe", "sharpenRadius",
                      "sharpenDetail", "sharpenMasking", "vignetteAmount", "vignetteMidpoint",
                      "vignetteFeather", "grainAmount", "grainSize", "curves", "hsl",
                      "splitToning"}));
  EXPECT_EQ(encoded(RAWDevelopSettings{}),
            R"({"exposure":0.0,"shadowBoost":0.0,"noiseReduction":100.0,"decoderVersion":"",)"
            R"("gamutMapping":true})");
  EXPECT_EQ(encoded(AppliedLUT{"a.cube", "A", 40}),
            R"({"filename":"a.cube","name":"A","strength":40.0})");
}

TEST(FieldTables, GroupsAndTitlesForThePanels) {
  // Fields sharing a label form one group, each titled within it.
  std::vector<std::string_view> sharpening;
  for (const auto& f : scalarFields()) {
    if (f.label == "锐化") sharpening.push_back(f.title);
  }
  EXPECT_EQ(sharpening, (std::vector<std::string_view>{"数量", "半径", "细节", "蒙版"}));
  std::vector<std::string_view> bands;
  for (const auto& b : hslBandNames()) bands.push_back(b.key);
  EXPECT_EQ(bands, (std::vector<std::string_view>{"red", "orange", "yellow", "green", "aqua",
                                                   "blue", "purple", "magenta"}));
  EXPECT_EQ(hslBandKey(HSLBandKind::aqua), "aqua");
  EXPECT_TRUE(splitToningFields().findNumber("shadowHue")->hue);
  EXPECT_FALSE(splitToningFields().findNumber("balance")->hue);
}

}  // namespace
}  // namespace vg
