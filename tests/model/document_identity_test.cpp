// Equality, hashing, render signatures and the no-edit test of documents.
#include <gtest/gtest.h>

#include <unordered_set>

#include "model/document.h"

namespace vg {
namespace {

EditDocument withMask() {
  EditDocument doc;
  MaskLayer m;
  m.name = "A";
  m.kind = RadialMaskGeometry{};
  m.subtracts = {LinearMaskGeometry{}};
  m.repairSubtractIDs();
  doc.masks.push_back(m);
  return doc;
}

TEST(DocumentIdentity, MaskNameAndSubtractIDsChangeTheDocumentButNotTheSignature) {
  const EditDocument a = withMask();
  EditDocument b = a;
  b.masks[0].name = "B";
  EXPECT_NE(a, b);
  EXPECT_NE(hashValue(a), hashValue(b));
  EXPECT_EQ(renderSignature(a), renderSignature(b));
  EXPECT_EQ(hashValue(renderSignature(a)), hashValue(renderSignature(b)));

  b = a;
  b.masks[0].subtractIDs[0] = Uuid::random();
  EXPECT_NE(a, b);
  EXPECT_EQ(renderSignature(a), renderSignature(b));

  b = a;
  b.masks[0].enabled = false;
  EXPECT_NE(renderSignature(a), renderSignature(b));
}

TEST(DocumentIdentity, FilterBookkeepingIsOutsideTheSignature) {
  EditDocument a;
  EditDocument b = a;
  b.filterStrength = 20;
  b.filterID = "film";
  b.preFilterAdjustments = GlobalAdjustments{};
  b.coordinateSpace = 2;
  b.schemaVersion = 3;
  EXPECT_NE(a, b);
  EXPECT_EQ(renderSignature(a), renderSignature(b));
  EXPECT_EQ(hashValue(renderSignature(a)), hashValue(renderSignature(b)));

  b = a;
  b.lut = AppliedLUT{"x.cube", "X", 100};
  EXPECT_NE(renderSignature(a), renderSignature(b));
}

TEST(DocumentIdentity, SignedZerosAreEqualAndHashAlike) {
  EditDocument a, b;
  a.adjustments.contrast = 0.0;
  b.adjustments.contrast = -0.0;
  b.crop.angle = -0.0;
  b.adjustments.curves.red.points[0] = {-0.0, -0.0};
  b.adjustments.hsl.bands[3].hue = -0.0;
  ASSERT_EQ(a, b);
  EXPECT_EQ(hashValue(a), hashValue(b));
  EXPECT_EQ(std::hash<EditDocument>{}(a), std::hash<EditDocument>{}(b));
}

TEST(DocumentIdentity, NestedAdjustmentRecordsReachTheHash) {
  // The tabled fields are covered with the tables; these are the records
  // GlobalAdjustments holds beside them.
  const GlobalAdjustments base;
  std::unordered_set<std::size_t> hashes{hashValue(base)};
  GlobalAdjustments changed = base;
  changed.curves.blue.points[1].y = 0.5;
  EXPECT_TRUE(hashes.insert(hashValue(changed)).second);
  changed = base;
  changed.hsl.bands[7].luminance = 1;
  EXPECT_TRUE(hashes.insert(hashValue(changed)).second);
  changed = base;
  changed.splitToning.balance = 1;
  EXPECT_TRUE(hashes.insert(hashValue(changed)).second);
}

TEST(DocumentIdentity, ListsAndOptionalsHashTheirShape) {
  // The same numbers split differently between lists must not collide.
  HealStroke oneStroke{{{0.1, 0.2}, {0.3, 0.4}}, 0.5};
  EditDocument a, b;
  a.heals = {oneStroke, HealStroke{}};
  b.heals = {HealStroke{{{0.1, 0.2}}, 0}, HealStroke{{{0.3, 0.4}}, 0.5}};
  EXPECT_NE(hashValue(a), hashValue(b));

  CropSettings absent, zero;
  zero.aspectLock = 0.0;  // present, even though decoding would never keep 0
  EXPECT_NE(absent, zero);
  EXPECT_NE(hashValue(absent), hashValue(zero));
}

TEST(DocumentIdentity, MaskKindHashesItsCaseFirst) {
  // Luminance and colour-range shapes can carry the same leading numbers; the
  // case index keeps them apart.
  MaskKind lum = LuminanceMaskGeometry{0.5, 0.5, 0.5, false};
  MaskKind color = ColorRangeGeometry{0.5, 0.5, 0.5, 0.25, 0.15, false};
  EXPECT_NE(lum, color);
  EXPECT_NE(hashValue(lum), hashValue(color));
  EXPECT_NE(hashValue(MaskKind{std::vector<BrushStroke>{}}),
            hashValue(MaskKind{BitmapMaskData{}}));
}

TEST(NoEdit, DefaultDocumentIsNoEditAndEachRealEditCounts) {
  const EditDocument base;
  EXPECT_TRUE(isNoEdit(base));

  std::vector<std::pair<const char*, EditDocument>> edits;
  auto add = [&](const char* what, auto change) {
    EditDocument d = base;
    change(d);
    edits.emplace_back(what, d);
  };
  add("adjustment", [](EditDocument& d) { d.adjustments.exposure = 0.1; });
  add("curve", [](EditDocument& d) { d.adjustments.curves.blue.points.push_back({0.5, 0.4}); });
  add("mask", [](EditDocument& d) { d.masks.push_back(MaskLayer{}); });
  add("angle", [](EditDocument& d) { d.crop.angle = 1; });
  add("turn", [](EditDocument& d) { d.crop.quarterTurn = 1; });
  add("rect", [](EditDocument& d) { d.crop.rect = NormalizedRect{0, 0, 0.5, 0.5}; });
  add("flipH", [](EditDocument& d) { d.crop.flipHorizontal = true; });
  add("flipV", [](EditDocument& d) { d.crop.flipVertical = true; });
  add("raw exposure", [](EditDocument& d) { d.raw.exposure = 0.5; });
  add("raw boost", [](EditDocument& d) { d.raw.shadowBoost = 1; });
  add("raw nr", [](EditDocument& d) { d.raw.noiseReduction = 99; });
  add("raw version", [](EditDocument& d) { d.raw.decoderVersion = "2"; });
  add("raw gamut", [](EditDocument& d) { d.raw.gamutMapping = false; });
  add("distortion", [](EditDocument& d) { d.lens.distortion = -3; });
  add("lens vignette", [](EditDocument& d) { d.lens.vignette = 3; });
  add("heal", [](EditDocument& d) { d.heals.push_back({}); });
  add("red eye", [](EditDocument& d) { d.redEyes.push_back({}); });
  add("lut", [](EditDocument& d) { d.lut = AppliedLUT{}; });
  add("filter", [](EditDocument& d) { d.filterID = "f"; });
  for (const auto& [what, doc] : edits) EXPECT_FALSE(isNoEdit(doc)) << what;
}

TEST(NoEdit, BookkeepingAloneIsNoEdit) {
  EditDocument d;
  d.crop.aspectLock = 1.5;
  d.lens.vignetteMidpoint = 10;
  d.lens.vignetteFeather = 90;
  d.filterStrength = 30;
  d.preFilterAdjustments = GlobalAdjustments{};
  d.preFilterAdjustments->exposure = 2;
  d.coordinateSpace = 1;
  d.schemaVersion = 9;
  EXPECT_TRUE(isNoEdit(d));
}

TEST(MaskLayerRenderData, LeavesOutNameAndSubtractIDs) {
  MaskLayer m;
  m.kind = ColorRangeGeometry{};
  m.adjustments.exposure = 1;
  m.subtracts = {RadialMaskGeometry{}};
  m.repairSubtractIDs();
  const auto rd = m.renderData();
  EXPECT_EQ(rd.id, m.id);
  EXPECT_EQ(rd.kind, m.kind);
  EXPECT_EQ(rd.adjustments, m.adjustments);
  EXPECT_EQ(rd.subtracts, m.subtracts);
  MaskLayer renamed = m;
  renamed.name = "x";
  renamed.subtractIDs = {Uuid::random()};
  EXPECT_EQ(renamed.renderData(), rd);
  EXPECT_EQ(hashValue(renamed.renderData()), hashValue(rd));
  const auto rows = m.subtractRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0], (SubtractRow{0, m.subtractIDs[0]}));
}

}  // namespace
}  // namespace vg
