// Property tests of the recipe JSON: valid documents survive encode/decode
// exactly, and arbitrary JSON decodes into a repaired, stable document.
#include <gtest/gtest.h>

#include <cmath>

#include "model/json.h"
#include "random_recipes.h"

namespace vg {
namespace {

using nlohmann::json;

// Problems found in a decoded document, empty when it keeps every invariant.
void checkAdjustments(const GlobalAdjustments& a, const std::string& where,
                      std::vector<std::string>& problems) {
  for (const auto& f : scalarFields()) {
    const double v = a.*f.member;
    if (!(v >= f.min && v <= f.max)) problems.push_back(where + "." + std::string(f.key));
  }
  if (a.hsl.bands.size() != 8) problems.push_back(where + ".hsl has " +
                                                  std::to_string(a.hsl.bands.size()) + " bands");
}

// Every number in the encoding is finite, and nothing is written as null
// (a NaN would come out as null).
void checkNumbers(const nlohmann::ordered_json& j, std::vector<std::string>& problems) {
  if (j.is_null()) problems.push_back("null in the encoding");
  if (j.is_number_float() && !std::isfinite(j.get<double>())) problems.push_back("non-finite");
  if (j.is_structured()) {
    for (const auto& e : j) checkNumbers(e, problems);
  }
}

std::vector<std::string> invariantProblems(const EditDocument& d) {
  std::vector<std::string> problems;
  checkAdjustments(d.adjustments, "adjustments", problems);
  if (d.preFilterAdjustments) checkAdjustments(*d.preFilterAdjustments, "preFilter", problems);
  for (const auto& m : d.masks) {
    checkAdjustments(m.adjustments, "mask", problems);
    if (m.subtractIDs.size() != m.subtracts.size()) problems.push_back("subtractIDs");
  }
  if (!(d.filterStrength >= 0 && d.filterStrength <= 100)) problems.push_back("filterStrength");
  if (d.crop.quarterTurn < 0 || d.crop.quarterTurn > 3) problems.push_back("quarterTurn");
  if (d.crop.rect) {
    const auto& r = *d.crop.rect;
    if (!(r.x >= 0 && r.y >= 0 && r.width > 0 && r.height > 0 && r.x + r.width <= 1 + 1e-12 &&
          r.y + r.height <= 1 + 1e-12)) {
      problems.push_back("rect");
    }
  }
  if (d.lut && (d.lut->filename == ".." || d.lut->filename.find('/') != std::string::npos)) {
    problems.push_back("lut filename");
  }
  checkNumbers(toJson(d), problems);
  return problems;
}

TEST(RecipeRoundTrip, ValidDocumentsSurviveEncodeDecodeExactly) {
  test::RecipeGenerator gen(11);
  for (int i = 0; i < 500; ++i) {
    const EditDocument doc = gen.document();
    const std::string text = encodeEditDocument(doc);
    const auto back = decodeEditDocument(text);
    ASSERT_TRUE(back) << text;
    ASSERT_EQ(*back, doc) << text << "\n" << encodeEditDocument(*back);
    EXPECT_EQ(hashValue(*back), hashValue(doc));
    EXPECT_EQ(encodeEditDocument(*back), text);
    EXPECT_TRUE(invariantProblems(doc).empty());
  }
}

// Decoding anything, then encoding and decoding again, gives the same value:
// decoding repairs once and completely.
void expectStableRepair(const json& input) {
  std::optional<EditDocument> first;
  ASSERT_NO_THROW(first = decodeEditDocument(input)) << input;
  ASSERT_TRUE(first) << input;
  const auto problems = invariantProblems(*first);
  EXPECT_TRUE(problems.empty()) << problems.front() << " after decoding " << input;
  const std::string text = encodeEditDocument(*first);
  const auto second = decodeEditDocument(text);
  ASSERT_TRUE(second);
  EXPECT_EQ(*second, *first) << "input " << input << "\nencoded " << text;
}

TEST(RecipeRoundTrip, RandomJsonNeverThrowsAndDecodesToARepairedDocument) {
  test::RecipeGenerator gen(5);
  for (int i = 0; i < 3000; ++i) {
    json j = gen.randomJson(5);
    if (!j.is_object()) {
      std::optional<EditDocument> doc;
      EXPECT_NO_THROW(doc = decodeEditDocument(j));
      EXPECT_FALSE(doc) << j;
      EXPECT_FALSE(decodeEditDocument(std::string_view(j.dump())));
      continue;
    }
    expectStableRepair(j);
  }
}

TEST(RecipeRoundTrip, MutatedDocumentsDecodeToRepairedDocuments) {
  test::RecipeGenerator gen(23);
  for (int i = 0; i < 2000; ++i) expectStableRepair(gen.mutatedDocument());
}

TEST(RecipeRoundTrip, NonFiniteNumbersPlantedAnywhereAreRepaired) {
  // JSON text cannot carry NaN or infinity, but a JSON value built in code can.
  test::RecipeGenerator gen(31);
  const double nonFinite[] = {std::nan(""), std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()};
  for (int i = 0; i < 300; ++i) {
    json j = json::parse(encodeEditDocument(gen.document()));
    // Replace every number with a non-finite one, one document at a time.
    std::function<void(json&)> plant = [&](json& node) {
      if (node.is_number_float()) node = nonFinite[i % 3];
      if (node.is_structured()) {
        for (auto& e : node) plant(e);
      }
    };
    plant(j);
    const auto doc = decodeEditDocument(j);
    ASSERT_TRUE(doc);
    const auto problems = invariantProblems(*doc);
    EXPECT_TRUE(problems.empty()) << problems.front();
  }
}

}  // namespace
}  // namespace vg
