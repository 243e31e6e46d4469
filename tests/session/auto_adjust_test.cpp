#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "render/srgb.h"
#include "session/auto_adjust.h"

namespace vg {
namespace {

using AutoAdjust::ImageStats;

// A well-exposed, neutral, clean picture: in balanced mode no rule fires
// except the texture of a clean picture.
ImageStats quiet() {
  ImageStats s;
  s.meanLuminance = s.medianLuminance = 0.48;
  s.p2Luminance = 0.05, s.p10Luminance = 0.15, s.p90Luminance = 0.8, s.p98Luminance = 0.9;
  s.stdDevLuminance = 0.25, s.meanSaturation = 0.4, s.highlightRatio = 0.01, s.shadowRatio = 0.01;
  s.darkChannelMean = 0.1, s.meanR = s.meanG = s.meanB = 0.45, s.noiseEnergy = 0.003;
  return s;
}

GlobalAdjustments adjust(AutoMode mode, const std::function<void(ImageStats&)>& change = {}) {
  ImageStats s = quiet();
  if (change) change(s);
  return AutoAdjust::adjustments(s, mode);
}

auto median(double m) {
  return [m](ImageStats& s) { s.medianLuminance = m; };
}

TEST(AutoMode, KeysLabelsAndOrder) {
  const char* keys[] = {"balanced", "portrait", "landscape", "nightScene", "highKey", "lowKey", "vivid", "bw"};
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(autoModes()[i].key, keys[i]);
    EXPECT_EQ(autoModeFromKey(keys[i]), autoModes()[i].mode);
    EXPECT_EQ(&autoModeInfo(autoModes()[i].mode), &autoModes()[i]);
  }
  EXPECT_FALSE(autoModeFromKey("Balanced"));
  EXPECT_EQ(autoModeInfo(AutoMode::nightScene).label, "夜景");
  EXPECT_EQ(autoModeInfo(AutoMode::bw).description, "丰富层次，经典黑白");
  EXPECT_EQ(autoAdjustButtonTitle(AutoMode::balanced), "自动调整：均衡");
}

TEST(AutoAdjustMapping, ExposureRulesAtTheirThresholdsInStepsOfAFifth) {
  GlobalAdjustments quietBalanced;
  quietBalanced.texture = 6;
  EXPECT_EQ(adjust(AutoMode::balanced), quietBalanced);
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.50)).exposure, 0);   // |0.48 - 0.5| <= 0.05
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.435)).exposure, 0);
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.425)).exposure, 0.2);  // log2(0.48/0.425) = 0.176
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.30)).exposure, 0.7);   // 0.678
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.10)).exposure, 2.0);   // 2.263 capped
  EXPECT_EQ(adjust(AutoMode::balanced, median(0.99)).exposure, -1.05);
  EXPECT_EQ(adjust(AutoMode::portrait, median(0.10)).exposure, 1.5);
  EXPECT_EQ(adjust(AutoMode::portrait, median(0.99)).exposure, -0.95);
  EXPECT_EQ(adjust(AutoMode::nightScene, median(0.31)).exposure, 0);   // 0.35 - m not above 0.05
  EXPECT_EQ(adjust(AutoMode::nightScene, median(0.2)).exposure, 0.8);
  EXPECT_EQ(adjust(AutoMode::nightScene, median(0.5)).exposure, 0);
  EXPECT_EQ(adjust(AutoMode::highKey, median(0.56)).exposure, 0);
  EXPECT_EQ(adjust(AutoMode::highKey, median(0.5)).exposure, 0.2);
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.3)).exposure, 0);        // between the two bands
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.5)).exposure, -0.6);
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.9)).exposure, -1.45);
  EXPECT_EQ(adjust(AutoMode::lowKey, median(1.0)).exposure, -1.5);     // -1.6 clamped
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.2)).exposure, 0.5);      // 0.72 capped
  EXPECT_EQ(adjust(AutoMode::vivid, median(0.1)).exposure, 1.5);
  EXPECT_EQ(adjust(AutoMode::bw, median(1.0)).exposure, -1.0);
  for (const AutoModeInfo& mode : autoModes()) {
    SCOPED_TRACE(mode.key);
    EXPECT_EQ(adjust(mode.mode, median(0.0)), adjust(mode.mode, median(0.01)));  // 0 is measured as 0.01
    for (double m = 0.013; m < 1; m += 0.037) {
      double steps = adjust(mode.mode, median(m)).exposure * 20;
      EXPECT_NEAR(steps, std::round(steps), 1e-9) << m;
    }
  }
}

TEST(AutoAdjustMapping, BalancedToneRulesAndTheirCaps) {
  auto range = [](double lo, double hi) { return [=](ImageStats& s) { s.p2Luminance = lo, s.p98Luminance = hi; }; };
  EXPECT_EQ(adjust(AutoMode::balanced, range(0.1, 0.55)).contrast, 8);
  EXPECT_EQ(adjust(AutoMode::balanced, range(0.1, 0.2)).contrast, 35);  // 36 capped
  EXPECT_EQ(adjust(AutoMode::balanced, range(0.02, 0.97)).contrast, -3);
  EXPECT_EQ(adjust(AutoMode::balanced, range(0.0, 1.5)).contrast, -20);
  auto highs = [](double hr, double hi) { return [=](ImageStats& s) { s.highlightRatio = hr, s.p98Luminance = hi; }; };
  EXPECT_EQ(adjust(AutoMode::balanced, highs(0.1, 0.99)).highlights, -30);
  EXPECT_EQ(adjust(AutoMode::balanced, highs(0.3, 0.99)).highlights, -50);
  EXPECT_EQ(adjust(AutoMode::balanced, highs(0.05, 0.45)).highlights, 15);
  EXPECT_EQ(adjust(AutoMode::balanced, highs(0.05, 0.2)).highlights, 20);
  EXPECT_EQ(adjust(AutoMode::balanced, highs(0.05, 0.45)).whites, 24);
  auto shadows = [](double sr, double lo) { return [=](ImageStats& s) { s.shadowRatio = sr, s.p2Luminance = lo; }; };
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.021, 0.0)).shadows, 6);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.0101, 0.0)).shadows, 0);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.5, 0.0)).shadows, 40);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.01, 0.35)).shadows, -3);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.01, 0.9)).shadows, -10);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.01, 0.3)).blacks, -11);
  EXPECT_EQ(adjust(AutoMode::balanced, shadows(0.01, 0.6)).blacks, -20);
  auto look = [](double sat, double dc, double sd) {
    return [=](ImageStats& s) { s.meanSaturation = sat, s.darkChannelMean = dc, s.stdDevLuminance = sd; };
  };
  GlobalAdjustments flat = adjust(AutoMode::balanced, look(0.05, 0.5, 0.05));
  EXPECT_EQ(flat.vibrance, 20);
  EXPECT_EQ(flat.dehaze, 18);
  EXPECT_EQ(flat.clarity, 13);
  EXPECT_EQ(adjust(AutoMode::balanced, look(0.29, 0.9, 0.0)).vibrance, 3);
  EXPECT_EQ(adjust(AutoMode::balanced, look(0.3, 0.9, 0.0)).dehaze, 30);
  EXPECT_EQ(adjust(AutoMode::balanced, look(0.3, 0.9, 0.0)).clarity, 15);
  EXPECT_EQ(adjust(AutoMode::balanced, [](ImageStats& s) { s.noiseEnergy = 0.0061; }).texture, 0);
}

TEST(AutoAdjustMapping, WhiteBalanceRuleAndItsStrength) {
  auto cast = [](double r, double g, double b) { return [=](ImageStats& s) { s.meanR = r, s.meanG = g, s.meanB = b; }; };
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.75, 0.6, 0.5)).temperature, -15);
  EXPECT_EQ(adjust(AutoMode::portrait, cast(0.75, 0.6, 0.5)).temperature, -11);  // -10.5, half away from zero
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.9, 0.4, 0.05)).temperature, -25);
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.3, 0.45, 0.6)).temperature, 15);
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.1, 0.45, 0.9)).temperature, 25);
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.55, 0.5, 0.5)).temperature, 0);  // within 0.85 ... 1.15
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.5, 0.6, 0.5)).tint, -6);
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.5, 0.1, 0.5)).tint, 15);
  EXPECT_EQ(adjust(AutoMode::balanced, cast(0.5, 0.52, 0.5)).tint, 0);
  EXPECT_EQ(adjust(AutoMode::vivid, cast(0.12, 0.02, 0.12)).tint, 15);
  GlobalAdjustments dark = adjust(AutoMode::balanced, cast(0.12, 0.0, 0.02));  // mean 0.047: too dark to judge
  EXPECT_EQ(dark.temperature, 0);
  EXPECT_EQ(dark.tint, 0);
  // Night scenes only warm a blue cast, without W's tint.
  EXPECT_EQ(adjust(AutoMode::nightScene, cast(0.2, 0.3, 0.4)).temperature, 13);
  EXPECT_EQ(adjust(AutoMode::nightScene, cast(0.2, 0.9, 0.4)).tint, 0);
  EXPECT_EQ(adjust(AutoMode::nightScene, cast(0.02, 0.02, 0.04)).temperature, 0);
  EXPECT_EQ(adjust(AutoMode::nightScene, cast(0.75, 0.6, 0.5)).temperature, 0);
}

TEST(AutoAdjustMapping, StylesSetTheirOwnLooks) {
  EXPECT_EQ(adjust(AutoMode::portrait).shadows, 10);
  EXPECT_EQ(adjust(AutoMode::portrait, [](ImageStats& s) { s.meanSaturation = 0.1; }).vibrance, 16);
  EXPECT_EQ(adjust(AutoMode::portrait, [](ImageStats& s) { s.shadowRatio = 0.021; }).shadows, 8);

  GlobalAdjustments l = adjust(AutoMode::landscape);
  EXPECT_EQ(l.vibrance, 8);    // (0.35 - 0.4) * 120 is not above 8
  EXPECT_EQ(l.clarity, 8);
  EXPECT_EQ(l.whites, 0);
  EXPECT_EQ(l.shadows, 12);
  EXPECT_EQ(adjust(AutoMode::landscape, [](ImageStats& s) { s.meanSaturation = 0.1; }).vibrance, 25);
  EXPECT_EQ(adjust(AutoMode::landscape, [](ImageStats& s) { s.meanSaturation = 0.1; }).saturation, 10);
  EXPECT_EQ(adjust(AutoMode::landscape, [](ImageStats& s) { s.p98Luminance = 0.6; }).whites, 18);
  EXPECT_EQ(adjust(AutoMode::landscape, [](ImageStats& s) { s.p98Luminance = 0.6; }).highlights, 5);

  auto highlights = [](double hr) { return [=](ImageStats& s) { s.highlightRatio = hr; }; };
  EXPECT_EQ(adjust(AutoMode::nightScene, highlights(0.005)).highlights, 0);
  EXPECT_EQ(adjust(AutoMode::nightScene, highlights(0.02)).highlights, -10);
  EXPECT_EQ(adjust(AutoMode::nightScene, highlights(0.1)).highlights, -40);
  EXPECT_EQ(adjust(AutoMode::nightScene, highlights(0.2)).highlights, -60);
  auto shadows = [](double sr) { return [=](ImageStats& s) { s.shadowRatio = sr; }; };
  EXPECT_EQ(adjust(AutoMode::nightScene, shadows(0.01)).shadows, 10);
  EXPECT_EQ(adjust(AutoMode::nightScene, shadows(0.1)).shadows, 35);
  EXPECT_EQ(adjust(AutoMode::nightScene, shadows(0.2)).shadows, 60);

  EXPECT_EQ(adjust(AutoMode::highKey, highlights(0.1)).highlights, 10);
  EXPECT_EQ(adjust(AutoMode::highKey, highlights(0.5)).highlights, -20);
  EXPECT_EQ(adjust(AutoMode::highKey, shadows(0.1)).shadows, 28);

  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.36)).shadows, -15);
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.36)).blacks, -25);
  EXPECT_EQ(adjust(AutoMode::lowKey, median(0.34)).blacks, -15);
  EXPECT_EQ(adjust(AutoMode::lowKey, highlights(0.1)).highlights, -35);
  EXPECT_EQ(adjust(AutoMode::lowKey).highlights, -15);

  auto range = [](double lo, double hi) { return [=](ImageStats& s) { s.p2Luminance = lo, s.p98Luminance = hi; }; };
  EXPECT_EQ(adjust(AutoMode::vivid, range(0.2, 0.78)).contrast, 5);  // 1.8 raised to 5
  EXPECT_EQ(adjust(AutoMode::vivid, range(0.2, 0.5)).contrast, 27);
  EXPECT_EQ(adjust(AutoMode::vivid).contrast, 10);
  EXPECT_EQ(adjust(AutoMode::vivid, range(0.2, 0.9)).blacks, -6);

  GlobalAdjustments bw = adjust(AutoMode::bw, range(0.2, 0.8));  // range 0.6: c = 8
  EXPECT_EQ(bw.contrast, 18);
  EXPECT_EQ(bw.saturation, -100);
  EXPECT_FALSE(bw.monochrome);
  EXPECT_EQ(bw.shadows, 12);
  EXPECT_EQ(adjust(AutoMode::bw, range(0.0, 0.2)).contrast, 40);
  EXPECT_EQ(adjust(AutoMode::bw, shadows(0.031)).shadows, 9);

  for (const AutoModeInfo& mode : autoModes()) {
    GlobalAdjustments a = adjust(mode.mode, [](ImageStats& s) { s.darkChannelMean = 0.9; });
    EXPECT_EQ(a.curves, CurveSet{}) << mode.key;
    EXPECT_EQ(a.hsl, HSLAdjustments{}) << mode.key;
    EXPECT_EQ(a.splitToning, SplitToning{}) << mode.key;
    EXPECT_GT(mode.mode == AutoMode::highKey ? 1 : a.dehaze, 0) << mode.key;
  }
}

TEST(AutoAdjustMapping, NoiseDampsDetailAndAddsDenoise) {
  auto noise = [](double ne) { return [=](ImageStats& s) { s.noiseEnergy = ne; }; };
  GlobalAdjustments clean = adjust(AutoMode::landscape, noise(0.006));
  EXPECT_EQ(clean.clarity, 8);
  EXPECT_EQ(clean.texture, 12);
  EXPECT_EQ(clean.sharpen, 35);
  GlobalAdjustments full = adjust(AutoMode::landscape, noise(0.026));  // k = 1
  EXPECT_EQ(full.clarity, 2);
  EXPECT_EQ(full.texture, 4);
  EXPECT_EQ(full.sharpen, 18);
  EXPECT_EQ(full.denoise, 20);
  EXPECT_EQ(adjust(AutoMode::landscape, noise(0.5)), full);
  GlobalAdjustments half = adjust(AutoMode::landscape, noise(0.016));  // k = 0.5: no denoise yet
  EXPECT_EQ(half.clarity, 5);
  EXPECT_EQ(half.sharpen, 26);
  EXPECT_EQ(half.denoise, 0);
  EXPECT_EQ(adjust(AutoMode::landscape, noise(0.018)).denoise, 12);
  EXPECT_EQ(adjust(AutoMode::highKey, noise(0.026)).clarity, -5);      // negative clarity is left alone
  EXPECT_EQ(adjust(AutoMode::nightScene, noise(0.026)).sharpen, 15);   // sharpening of 15 is left alone
  EXPECT_EQ(adjust(AutoMode::nightScene, noise(0.026)).denoise, 40);   // an existing denoise is kept
}

// ---- Measuring ----------------------------------------------------------------

// A picture whose sRGB-encoded grey levels are level(x, y); alpha 1.
Image encodedGrey(int w, int h, const std::function<double(int, int)>& level) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = srgb::decode(float(level(x, y)));
      p[3] = 1;
    }
  return img;
}

TEST(AutoAdjustAnalysis, FlatAndRampPictures) {
  std::optional<ImageStats> flat = AutoAdjust::analyze(encodedGrey(300, 200, [](int, int) { return 0.5; }));
  ASSERT_TRUE(flat);
  EXPECT_NEAR(flat->medianLuminance, 128 / 255.0, 1e-9);
  EXPECT_EQ(flat->p2Luminance, flat->p98Luminance);
  EXPECT_NEAR(flat->stdDevLuminance, 0, 1e-5);
  EXPECT_EQ(flat->meanSaturation, 0);
  EXPECT_EQ(flat->highlightRatio, 0);
  EXPECT_EQ(flat->shadowRatio, 0);
  EXPECT_EQ(flat->noiseEnergy, 0);
  EXPECT_NEAR(flat->meanR, flat->darkChannelMean, 1e-12);

  // 1000 px reduce to 334 px; a ramp keeps its percentiles where they are.
  std::optional<ImageStats> ramp = AutoAdjust::analyze(encodedGrey(1000, 600, [](int x, int) { return (x + 0.5) / 1000; }));
  ASSERT_TRUE(ramp);
  EXPECT_NEAR(ramp->medianLuminance, 0.5, 0.01);
  EXPECT_NEAR(ramp->p2Luminance, 0.02, 0.01);
  EXPECT_NEAR(ramp->p10Luminance, 0.10, 0.01);
  EXPECT_NEAR(ramp->p90Luminance, 0.90, 0.01);
  EXPECT_NEAR(ramp->p98Luminance, 0.98, 0.01);
  EXPECT_NEAR(ramp->meanLuminance, 0.5, 0.01);
  EXPECT_NEAR(ramp->stdDevLuminance, 1 / std::sqrt(12.0), 0.01);
  EXPECT_NEAR(ramp->highlightRatio, 26 / 256.0, 0.01);
  EXPECT_NEAR(ramp->shadowRatio, 26 / 256.0, 0.01);
  EXPECT_LT(ramp->noiseEnergy, 0.0015);  // 8-bit steps only
}

TEST(AutoAdjustAnalysis, ColourHazeAndNoiseMeasures) {
  Image red(200, 100);
  for (int y = 0; y < 100; ++y)
    for (int x = 0; x < 200; ++x) {
      float* p = red.at(x, y);
      p[0] = 1, p[1] = 0, p[2] = srgb::decode(0.5f), p[3] = 1;
    }
  std::optional<ImageStats> s = AutoAdjust::analyze(red);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->meanSaturation, 1);
  EXPECT_EQ(s->darkChannelMean, 0);
  EXPECT_EQ(s->meanR, 1);
  EXPECT_NEAR(s->meanB, 128 / 255.0, 1e-9);

  // Noise of deviation 0.02 in encoded levels over a mid grey.
  std::mt19937 rng(3);
  std::normal_distribution<double> noise(0, 0.02);
  std::optional<ImageStats> noisy = AutoAdjust::analyze(encodedGrey(400, 300, [&](int, int) { return 0.45 + noise(rng); }));
  ASSERT_TRUE(noisy);
  EXPECT_NEAR(noisy->noiseEnergy, 0.02, 0.003);
  EXPECT_NEAR(noisy->stdDevLuminance, 0.02, 0.002);
  // Strong detail without noise (bars 6 px wide) measures as clean in its flat parts.
  std::optional<ImageStats> bars = AutoAdjust::analyze(encodedGrey(400, 300, [](int x, int y) {
    return y < 100 ? 0.5 : ((x / 6) % 2 ? 0.9 : 0.1);
  }));
  ASSERT_TRUE(bars);
  EXPECT_LT(bars->noiseEnergy, 0.002);
}

TEST(AutoAdjustAnalysis, OnlyWhatIsShownIsMeasured) {
  // Left half black, right half white; transparent pixels do not count.
  Image img = encodedGrey(400, 200, [](int x, int) { return x < 200 ? 0.0 : 1.0; });
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 200; ++x) std::fill(img.at(x, y), img.at(x, y) + 4, 0.0f);
  std::optional<ImageStats> half = AutoAdjust::analyze(img);
  ASSERT_TRUE(half);
  EXPECT_EQ(half->medianLuminance, 1);
  EXPECT_EQ(half->highlightRatio, 1);

  Image sides = encodedGrey(2400, 1600, [](int x, int) { return x < 1200 ? 0.0 : 1.0; });
  EditDocument recipe;
  EXPECT_NEAR(AutoAdjust::analyzeShown(sides, recipe)->meanLuminance, 0.5, 0.01);
  recipe.crop.rect = NormalizedRect{0.6, 0.1, 0.3, 0.8};
  EXPECT_NEAR(AutoAdjust::analyzeShown(sides, recipe)->meanLuminance, 1, 1e-9);
  recipe.crop.rect.reset();
  recipe.crop.angle = 10;  // straightened: no transparent corners, still both halves
  EXPECT_NEAR(AutoAdjust::analyzeShown(sides, recipe)->meanLuminance, 0.5, 0.02);

  EXPECT_FALSE(AutoAdjust::analyze(Image()));
  EXPECT_FALSE(AutoAdjust::analyze(Image(50, 50)));  // all transparent
  EXPECT_FALSE(AutoAdjust::analyzeShown(Image(), recipe));
}

TEST(AutoAdjustStats, JsonRoundTripAndStrictReading) {
  ImageStats s = quiet();
  s.noiseEnergy = 0.0123;
  EXPECT_EQ(AutoAdjust::statsFromJson(AutoAdjust::toJson(s)), s);
  EXPECT_EQ(AutoAdjust::toJson(s).size(), 15u);
  std::string error;
  nlohmann::json missing = AutoAdjust::toJson(s);
  missing.erase("meanG");
  EXPECT_FALSE(AutoAdjust::statsFromJson(missing, &error));
  EXPECT_NE(error.find("meanG"), std::string::npos);
  nlohmann::json wrong = AutoAdjust::toJson(s);
  wrong["shadowRatio"] = "0.1";
  EXPECT_FALSE(AutoAdjust::statsFromJson(wrong, &error));
  EXPECT_NE(error.find("shadowRatio"), std::string::npos);
  EXPECT_FALSE(AutoAdjust::statsFromJson(nlohmann::json::array()));
}

}  // namespace
}  // namespace vg
