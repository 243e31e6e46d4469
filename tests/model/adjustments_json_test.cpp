#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "model/json.h"

namespace vg {
namespace {

using nlohmann::json;

GlobalAdjustments adjustments(const json& j) {
  auto a = decodeGlobalAdjustments(j);
  EXPECT_TRUE(a.has_value());
  return a.value_or(GlobalAdjustments{});
}

TEST(FieldTable, HoldsTheLabelledFieldsThenTheUnlabelledOnesInOrder) {
  std::vector<std::string_view> keys;
  for (const auto& f : scalarFields()) keys.push_back(f.key);
  EXPECT_EQ(keys, (std::vector<std::string_view>{
                      "exposure", "contrast", "highlights", "shadows", "whites", "blacks",
                      "temperature", "tint", "saturation", "vibrance", "monochromeRed",
                      "monochromeGreen", "monochromeBlue", "texture", "clarity", "dehaze",
                      "sharpen", "sharpenRadius", "sharpenDetail", "sharpenMasking", "denoise",
                      "colorDenoise", "defringe", "vignetteAmount", "grainAmount",
                      "vignetteMidpoint", "vignetteFeather", "grainSize"}));
  EXPECT_EQ(labelledFields().size(), 25u);
  EXPECT_EQ(unlabelledFields().size(), 3u);
  for (const auto& f : labelledFields()) EXPECT_TRUE(f.labelled()) << f.key;
  for (const auto& f : unlabelledFields()) EXPECT_FALSE(f.labelled()) << f.key;
  // Built once: both calls see the same storage.
  EXPECT_EQ(scalarFields().data(), scalarFields().data());
}

TEST(FieldTable, LabelsByKey) {
  EXPECT_EQ(labelForKey("exposure"), "曝光");
  EXPECT_EQ(labelForKey("vibrance"), "自然饱和度");
  EXPECT_EQ(labelForKey("monochromeGreen"), "黑白混合");
  EXPECT_EQ(labelForKey("sharpenRadius"), "锐化");
  EXPECT_EQ(labelForKey("denoise"), "明度降噪");
  EXPECT_EQ(labelForKey("colorDenoise"), "色度降噪");
  EXPECT_EQ(labelForKey("defringe"), "去紫边");
  EXPECT_EQ(labelForKey("vignetteAmount"), "暗角");
  EXPECT_EQ(labelForKey("grainAmount"), "颗粒");
  EXPECT_EQ(labelForKey("grainSize"), std::nullopt);
  EXPECT_EQ(labelForKey("vignetteMidpoint"), std::nullopt);
  EXPECT_EQ(labelForKey("monochrome"), std::nullopt);
  EXPECT_EQ(labelForKey("nonsense"), std::nullopt);
}

TEST(GlobalAdjustmentsJson, ClampsEachFieldIntoItsRange) {
  const auto a = adjustments({{"exposure", 9}});
  EXPECT_EQ(a.exposure, 5);
  GlobalAdjustments expected;
  expected.exposure = 5;
  EXPECT_EQ(a, expected);  // everything else at its default

  EXPECT_EQ(adjustments({{"exposure", "1"}}).exposure, 0);
  EXPECT_EQ(adjustments({{"exposure", "1"}}).sharpenRadius, 1.5);
  EXPECT_EQ(adjustments({{"exposure", "1"}}).grainSize, 25);
  EXPECT_EQ(adjustments({{"sharpenRadius", 0.1}}).sharpenRadius, 0.5);
  EXPECT_EQ(adjustments({{"sharpenRadius", 7}}).sharpenRadius, 5);
  EXPECT_EQ(adjustments({{"monochromeRed", -5}}).monochromeRed, 0);
  EXPECT_EQ(adjustments({{"texture", -250}}).texture, -100);
  EXPECT_EQ(adjustments({{"grainSize", 101}}).grainSize, 100);
  EXPECT_EQ(adjustments({{"vignetteFeather", -1}}).vignetteFeather, 0);
  EXPECT_EQ(adjustments({{"defringe", -0.5}}).defringe, 0);
  EXPECT_EQ(adjustments({{"contrast", 33.25}}).contrast, 33.25);
  EXPECT_EQ(adjustments({{"contrast", true}}).contrast, 0);
  EXPECT_EQ(adjustments({{"contrast", nullptr}}).contrast, 0);
  EXPECT_EQ(adjustments({{"contrast", json::array({5})}}).contrast, 0);
}

TEST(GlobalAdjustmentsJson, LowerBoundTurnsNegativeZeroIntoZero) {
  const double v = adjustments({{"sharpen", -0.0}}).sharpen;
  EXPECT_FALSE(std::signbit(v));
}

TEST(GlobalAdjustmentsJson, MonochromeAndNestedRecordsFallBackOnBadValues) {
  EXPECT_TRUE(adjustments({{"monochrome", true}}).monochrome);
  EXPECT_FALSE(adjustments({{"monochrome", 1}}).monochrome);
  const auto a = adjustments({{"curves", 5}, {"hsl", "x"}, {"splitToning", json::array()}});
  EXPECT_EQ(a, GlobalAdjustments{});
  EXPECT_FALSE(decodeGlobalAdjustments(json::array()));
}

TEST(CurvesJson, PointsAreClampedButNotReordered) {
  const auto curve = decodeToneCurve(
      {{"points", json::array({{{"x", 0.8}, {"y", 1.5}}, {{"x", -1}, {"y", "a"}},
                               {{"x", 0.8}}, {{"y", 0.5}}})}});
  ASSERT_TRUE(curve);
  EXPECT_EQ(curve->points, (std::vector<CurvePoint>{{0.8, 1}, {0, 0}, {0.8, 0}, {0, 0.5}}));
  EXPECT_TRUE(decodeToneCurve(json::object())->points.empty());
  EXPECT_TRUE(decodeToneCurve({{"points", 3}})->points.empty());
}

TEST(CurvesJson, MissingOrBadChannelsAreIdentity) {
  const auto set = decodeCurveSet(
      {{"red", {{"points", json::array({{{"x", 0.5}, {"y", 0.6}}})}}}, {"green", 4}, {"blue", {}}});
  ASSERT_TRUE(set);
  EXPECT_TRUE(set->rgb.isIdentity());
  EXPECT_EQ(set->red.points, (std::vector<CurvePoint>{{0.5, 0.6}}));
  EXPECT_TRUE(set->green.isIdentity());
  EXPECT_TRUE(set->blue.isIdentity());  // {} in C++ is null here
  EXPECT_FALSE(set->isIdentity());
}

TEST(HSLJson, AlwaysEightBands) {
  auto bands = [](int n) {
    json list = json::array();
    for (int i = 0; i < n; ++i) list.push_back({{"hue", i + 1}, {"saturation", -(i + 1)}});
    return decodeHSLAdjustments({{"bands", list}})->bands;
  };
  const auto three = bands(3);
  ASSERT_EQ(three.size(), 8u);
  EXPECT_EQ(three[2], (HSLBand{3, -3, 0}));
  for (size_t i = 3; i < 8; ++i) EXPECT_EQ(three[i], HSLBand{}) << i;
  const auto ten = bands(10);
  ASSERT_EQ(ten.size(), 8u);
  EXPECT_EQ(ten[7], (HSLBand{8, -8, 0}));
  EXPECT_EQ(bands(0).size(), 8u);

  const auto clamped = decodeHSLAdjustments(
      {{"bands", json::array({{{"hue", 300}, {"luminance", -300}}, {{"hue", 5}}})}});
  EXPECT_EQ(clamped->bands[0], (HSLBand{100, 0, -100}));
  EXPECT_EQ(clamped->bands[1].hue, 5);
  EXPECT_EQ(decodeHSLAdjustments({{"bands", "no"}})->bands.size(), 8u);
}

TEST(RawAndLensJson, DefaultsAndClamps) {
  EXPECT_EQ(*decodeRAWDevelopSettings(json::object()), RAWDevelopSettings{});
  const auto raw = decodeRAWDevelopSettings({{"exposure", -3},
                                             {"shadowBoost", 200},
                                             {"noiseReduction", std::nan("")},
                                             {"decoderVersion", "v2"},
                                             {"gamutMapping", false}});
  EXPECT_EQ(*raw, (RAWDevelopSettings{-2, 100, 100, "v2", false}));
  const auto lens = decodeLensCorrectionSettings(
      {{"distortion", -150}, {"vignette", 120}, {"vignetteMidpoint", std::nan("")},
       {"vignetteFeather", -std::numeric_limits<double>::infinity()}});
  EXPECT_EQ(*lens, (LensCorrectionSettings{-100, 100, 50, 50}));
}

TEST(CropJson, TurnsLocksAndAngles) {
  auto crop = [](json j) { return *decodeCropSettings(j); };
  EXPECT_EQ(crop({{"quarterTurn", 7}}).quarterTurn, 3);
  EXPECT_EQ(crop({{"quarterTurn", -1}}).quarterTurn, 3);
  EXPECT_EQ(crop({{"quarterTurn", 5}}).quarterTurn, 1);
  EXPECT_EQ(crop({{"quarterTurn", 2.0}}).quarterTurn, 2);
  EXPECT_EQ(crop({{"quarterTurn", 2.5}}).quarterTurn, 0);
  EXPECT_EQ(crop({{"aspectLock", 0}}).aspectLock, std::nullopt);
  EXPECT_EQ(crop({{"aspectLock", 0.0009}}).aspectLock, std::nullopt);
  EXPECT_EQ(crop({{"aspectLock", 1000.5}}).aspectLock, std::nullopt);
  EXPECT_EQ(crop({{"aspectLock", 0.001}}).aspectLock, 0.001);
  EXPECT_EQ(crop({{"aspectLock", 1.5}}).aspectLock, 1.5);
  EXPECT_EQ(crop({{"angle", 60}}).angle, 45);
  EXPECT_EQ(crop({{"angle", -46}}).angle, -45);
  EXPECT_EQ(crop({{"angle", std::nan("")}}).angle, 0);
  EXPECT_TRUE(crop({{"flipHorizontal", true}}).flipHorizontal);
}

TEST(CropJson, RectangleIsCutToTheUnitSquare) {
  auto rect = [](double x, double y, double w, double h) {
    return decodeCropSettings({{"rect", json::array({json::array({x, y}), json::array({w, h})})}})
        ->rect;
  };
  EXPECT_EQ(rect(0.5, 0.5, 1, 1), (NormalizedRect{0.5, 0.5, 0.5, 0.5}));
  EXPECT_EQ(rect(2, 2, 1, 1), std::nullopt);
  EXPECT_EQ(rect(0.1, 0.2, 0.3, 0.4), (NormalizedRect{0.1, 0.2, 0.3, 0.4}));
  EXPECT_EQ(rect(-0.5, 0.25, 1, 0.5), (NormalizedRect{0, 0.25, 0.5, 0.5}));
  EXPECT_EQ(rect(0.5, 0.5, -0.25, 0.25), (NormalizedRect{0.25, 0.5, 0.25, 0.25}));
  EXPECT_EQ(rect(0.2, 0.2, 0, 0.5), std::nullopt);  // empty
  EXPECT_EQ(rect(1, 0, 0.5, 1), std::nullopt);      // touches the edge only
  EXPECT_EQ(rect(0, 0, std::nan(""), 1), std::nullopt);
  EXPECT_EQ(decodeCropSettings({{"rect", json::array({1, 2, 3, 4})}})->rect, std::nullopt);
  EXPECT_EQ(decodeCropSettings({{"rect", "whole"}})->rect, std::nullopt);
}

TEST(CropJson, EncodesRectAsNestedPairsAndOmitsAbsentOptionals) {
  CropSettings c;
  EXPECT_EQ(dumpCompact(toJson(c)),
            R"({"angle":0.0,"quarterTurn":0,"flipHorizontal":false,"flipVertical":false})");
  c.aspectLock = 1.5;
  c.rect = NormalizedRect{0.25, 0.5, 0.5, 0.25};
  EXPECT_EQ(dumpCompact(toJson(c)),
            R"({"angle":0.0,"quarterTurn":0,"aspectLock":1.5,"rect":[[0.25,0.5],[0.5,0.25]],)"
            R"("flipHorizontal":false,"flipVertical":false})");
  EXPECT_EQ(decodeCropSettings(json::parse(dumpCompact(toJson(c)))), c);
}

TEST(LutJson, FileNameIsReducedToABareName) {
  auto lut = [](json j) { return *decodeAppliedLUT(j); };
  EXPECT_EQ(lut({{"filename", "../../evil.cube"}}).filename, "evil.cube");
  EXPECT_EQ(lut({{"filename", ".."}}).filename, "");
  EXPECT_EQ(lut({{"filename", "."}}).filename, "");
  EXPECT_EQ(lut({{"filename", "/abs/dir/"}}).filename, "dir");
  EXPECT_EQ(lut({{"filename", "a/.."}}).filename, "");
  EXPECT_EQ(lut({{"filename", "///"}}).filename, "");
  EXPECT_EQ(lut({{"filename", "Film Look.cube"}}).filename, "Film Look.cube");
  EXPECT_EQ(lut(json::object()), (AppliedLUT{"", "", 100}));
}

}  // namespace
}  // namespace vg
