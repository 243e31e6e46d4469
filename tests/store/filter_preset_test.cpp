#include <gtest/gtest.h>

#include <set>

#include "model/json.h"
#include "store/filter_preset.h"

namespace vg {
namespace {

TEST(BuiltInPresets, TwelveOrMoreDistinctLooksWithValuesInRange) {
  auto presets = builtInPresets();
  ASSERT_GE(presets.size(), 12u);
  std::set<std::string> ids, names;
  for (const auto& p : presets) {
    EXPECT_TRUE(ids.insert(p.id).second) << "duplicate id " << p.id;
    EXPECT_TRUE(names.insert(p.name).second) << "duplicate name " << p.name;
    EXPECT_NE(p.adjustments, GlobalAdjustments{}) << p.id << " changes nothing";
    // Decoding clamps into every range: a look that survives a round trip
    // unchanged has all its values in range.
    auto decoded = decodeGlobalAdjustments(nlohmann::json::parse(toJson(p.adjustments).dump()));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, p.adjustments) << p.id;
    EXPECT_EQ(findBuiltInPreset(p.id), &p);
  }
  EXPECT_EQ(findBuiltInPreset("no-such-look"), nullptr);
}

FilterPreset warmLook() {
  FilterPreset p{"test-warm", "Warm", {}, std::nullopt};
  p.adjustments.temperature = 40;
  p.adjustments.contrast = 20;
  return p;
}

EditDocument manualDocument() {
  EditDocument doc;
  doc.adjustments.exposure = 1.0;  // the preset does not touch exposure
  doc.adjustments.contrast = -10;
  return doc;
}

TEST(ApplyPreset, BlendsFromManualStateAtTheStrength) {
  auto doc = manualDocument();
  auto preset = warmLook();

  auto full = applyPreset(doc, preset, 100);
  EXPECT_EQ(full.filterID, "test-warm");
  EXPECT_EQ(full.filterStrength, 100);
  EXPECT_EQ(full.preFilterAdjustments, doc.adjustments);
  EXPECT_EQ(full.adjustments.temperature, 40);
  EXPECT_EQ(full.adjustments.contrast, 20);
  EXPECT_EQ(full.adjustments.exposure, 1.0) << "untouched sliders keep the photographer's value";

  auto none = applyPreset(doc, preset, 0);
  EXPECT_EQ(none.adjustments, doc.adjustments);
  EXPECT_EQ(none.filterID, "test-warm");

  auto half = applyPreset(doc, preset, 50);
  EXPECT_DOUBLE_EQ(half.adjustments.temperature, 20);
  EXPECT_DOUBLE_EQ(half.adjustments.contrast, 5);
  EXPECT_EQ(half.adjustments.exposure, 1.0);
}

TEST(ApplyPreset, ReapplyingAndSwitchingStartFromThePreFilterAdjustments) {
  auto doc = manualDocument();
  auto half = applyPreset(doc, warmLook(), 50);
  auto again = applyPreset(half, warmLook(), 50);
  EXPECT_EQ(again.adjustments, half.adjustments) << "re-applying must not compound";
  auto quarter = applyPreset(half, warmLook(), 25);
  EXPECT_DOUBLE_EQ(quarter.adjustments.temperature, 10);
  EXPECT_EQ(quarter.preFilterAdjustments, doc.adjustments);

  const auto* bw = findBuiltInPreset("bw-classic");
  ASSERT_NE(bw, nullptr);
  auto switched = applyPreset(half, *bw, 100);
  EXPECT_EQ(switched.adjustments.temperature, 0) << "the warm look is gone, not stacked";
  EXPECT_TRUE(switched.adjustments.monochrome);
  EXPECT_EQ(switched.preFilterAdjustments, doc.adjustments);

  auto restored = removePreset(switched, bw);
  EXPECT_EQ(restored.adjustments, doc.adjustments);
  EXPECT_FALSE(restored.filterID);
  EXPECT_FALSE(restored.preFilterAdjustments);
  EXPECT_EQ(removePreset(doc, nullptr), doc);
}

TEST(ApplyPreset, StrengthIsClampedAndLutFollowsIt) {
  auto preset = warmLook();
  preset.lut = AppliedLUT{"film.cube", "Film", 80};
  EditDocument doc;
  auto over = applyPreset(doc, preset, 250);
  EXPECT_EQ(over.filterStrength, 100);
  ASSERT_TRUE(over.lut);
  EXPECT_EQ(over.lut->strength, 80);
  auto half = applyPreset(doc, preset, 50);
  EXPECT_EQ(half.lut->strength, 40);
  EXPECT_EQ(applyPreset(doc, preset, -5).filterStrength, 0);

  auto removed = removePreset(half, &preset);
  EXPECT_FALSE(removed.lut);
  // A LUT the photographer chose after the preset stays.
  half.lut = AppliedLUT{"mine.cube", "Mine", 100};
  EXPECT_TRUE(removePreset(half, &preset).lut);
}

TEST(LayPresetOver, OnlyWhatTheLookChangesIsTaken) {
  GlobalAdjustments base;
  base.curves.red.points = {{0, 0.1}, {1, 1}};
  base.hsl[HSLBandKind::green] = {5, 5, 5};
  base.splitToning = {10, 20, 30, 40, 0};
  GlobalAdjustments look;
  look.curves.rgb.points = {{0, 0.1}, {1, 0.9}};
  look.hsl[HSLBandKind::blue] = {0, 20, 0};
  auto target = layPresetOver(base, look);
  EXPECT_EQ(target.curves.rgb, look.curves.rgb);
  EXPECT_EQ(target.curves.red, base.curves.red);
  EXPECT_EQ(target.hsl[HSLBandKind::green], base.hsl[HSLBandKind::green]);
  EXPECT_EQ(target.hsl[HSLBandKind::blue], look.hsl[HSLBandKind::blue]);
  EXPECT_EQ(target.splitToning, base.splitToning);
}

}  // namespace
}  // namespace vg
