// The display conversion against Little CMS itself and the sRGB formula.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <random>

#include "app/canvas/canvas_picture.h"
#include "app/display_transform.h"
#include "render/color_profiles.h"
#include "render/srgb.h"

namespace vg::app {
namespace {


TEST(DisplayTransform, SRGBMonitorGetsTheSRGBEncodingOfThePicture) {
  auto t = DisplayTransform::sRGB();
  ASSERT_TRUE(t->isSRGB());
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-0.2f, 1.3f);
  for (int i = 0; i < 5000; ++i) {
    const float px[4] = {u(rng), u(rng), u(rng), 1.f};
    uint8_t out[4];
    t->convertRow(px, 1, out, i % 64, i / 64);
    for (int c = 0; c < 3; ++c) {
      const float expected = std::clamp(srgb::encode(std::clamp(px[c], 0.f, 1.f)), 0.f, 1.f) * 255.f;
      EXPECT_NEAR(double(out[c]), expected, 1.0) << px[c];  // the dither moves it by under one step
    }
    EXPECT_EQ(out[3], 255u);
  }
  // Transparent, half-transparent and NaN pixels.
  const float px[12] = {0.5f, 0.5f, 0.5f, 0.f, 0.25f, 0.25f, 0.25f, 0.5f, NAN, 1.f, 0.f, 1.f};
  uint8_t out[12];
  t->convertRow(px, 3, out);
  EXPECT_EQ(out[3], 0u);
  EXPECT_EQ(out[7], 128u);
  EXPECT_NEAR(double(out[4]), srgb::encode(0.5f) * 255, 1.0);  // not premultiplied
  EXPECT_EQ(out[8], 0u);  // NaN counts as black
  EXPECT_EQ(out[9], 255u);
}

// The largest difference, in 8-bit steps, between `t` and Little CMS's own
// transform from sRGB into `icc` over random colours.
int worstAgainstLittleCMS(const DisplayTransform& t, const std::vector<uint8_t>& icc, float lo, float hi) {
  cmsHPROFILE in = cmsCreate_sRGBProfile();
  cmsHPROFILE out = cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
  cmsHTRANSFORM ref = cmsCreateTransform(in, TYPE_RGB_16, out, TYPE_RGB_16, INTENT_PERCEPTUAL,
                                         cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE);
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> u(lo, hi);
  int worst = 0;
  for (int i = 0; i < 5000; ++i) {
    const float px[4] = {u(rng), u(rng), u(rng), 1.f};
    uint8_t got[4];
    t.convertRow(px, 1, got);
    uint16_t encoded[3], expected[3];
    for (int c = 0; c < 3; ++c) encoded[c] = uint16_t(std::lround(srgb::encode(px[c]) * 65535));
    cmsDoTransform(ref, encoded, expected, 1);
    for (int c = 0; c < 3; ++c)
      worst = std::max(worst, std::abs(int(got[c]) - int(std::lround(expected[c] / 257.0))));
  }
  cmsDeleteTransform(ref);
  cmsCloseProfile(in);
  cmsCloseProfile(out);
  return worst;
}

TEST(DisplayTransform, MonitorProfilesAgreeWithLittleCMS) {
  const auto& adobe = outputIccProfile(OutputColorSpace::adobeRGB1998);
  auto t = DisplayTransform::create(adobe);
  ASSERT_TRUE(t);
  EXPECT_FALSE(t->isSRGB());
  EXPECT_FALSE(t->usesTable());
  EXPECT_EQ(t->name(), "Adobe RGB (1998)");
  EXPECT_LE(worstAgainstLittleCMS(*t, adobe, 0.f, 1.f), 1);
  EXPECT_LE(worstAgainstLittleCMS(*t, adobe, 0.f, 0.01f), 1);  // the steep start of the gamma curve
  // sRGB green is well inside a wider monitor's gamut: it needs its red and blue.
  const float green[4] = {0.f, 1.f, 0.f, 1.f};
  uint8_t got[4];
  t->convertRow(green, 1, got);
  EXPECT_GT(got[0], 120u);
  EXPECT_GE(got[1], 250u);
  EXPECT_GT(got[2], 40u);

  // A monitor calibrated to sRGB gives the plain sRGB picture.
  const auto& srgbIcc = outputIccProfile(OutputColorSpace::sRGB);
  auto same = DisplayTransform::create(srgbIcc);
  ASSERT_TRUE(same);
  EXPECT_LE(worstAgainstLittleCMS(*same, srgbIcc, 0.f, 1.f), 1);

  // The table path (for table-based profiles) stays close too.
  auto table = DisplayTransform::create(adobe, DisplayTransform::Method::table);
  ASSERT_TRUE(table && table->usesTable());
  EXPECT_LE(worstAgainstLittleCMS(*table, adobe, 0.05f, 1.f), 1);
  EXPECT_LE(worstAgainstLittleCMS(*table, adobe, 0.f, 1.f), 6);
}

TEST(DisplayTransform, UnusableProfilesAreRefused) {
  const std::vector<uint8_t> garbage(500, 0x41);
  EXPECT_FALSE(DisplayTransform::create(garbage));
  EXPECT_FALSE(DisplayTransform::create({}));
  // A grey profile is not an RGB monitor profile.
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
  cmsHPROFILE grey = cmsCreateGrayProfile(cmsD50_xyY(), gamma);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(grey, nullptr, &size);
  std::vector<uint8_t> bytes(size);
  cmsSaveProfileToMem(grey, bytes.data(), &size);
  EXPECT_FALSE(DisplayTransform::create(bytes));
  cmsCloseProfile(grey);
  cmsFreeToneCurve(gamma);
}

}  // namespace
}  // namespace vg::app

namespace vg::app {
namespace {

TEST(CanvasPicture, ShrinksInLinearLightAndCoversEveryPixel) {
  // Alternate black and white columns: shrunk by two they are a linear 0.5,
  // which sRGB shows as 188, not the 128 a gamma-space average would give.
  Image stripes(101, 40);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 101; ++x) {
      float* p = stripes.at(x, y);
      p[0] = p[1] = p[2] = float(x % 2);
      p[3] = 1;
    }
  const auto t = DisplayTransform::sRGB();
  const CanvasPicture half = makeCanvasPicture(stripes, *t, {0, 0, 101, 40}, 50, 20);
  ASSERT_EQ(half.image.size(), QSize(50, 20));
  for (int x = 0; x < 49; ++x) EXPECT_NEAR(qRed(half.image.pixel(x, 7)), 188, 1) << x;
  // The last block takes the odd column as well: (0 + 1 + 0) / 3.
  EXPECT_NEAR(qRed(half.image.pixel(49, 7)), std::lround(srgb::encode(1.f / 3) * 255), 1);

  // A flat picture stays flat at any size, and larger sizes keep the image's own.
  Image flat(77, 33);
  for (int y = 0; y < 33; ++y)
    for (int x = 0; x < 77; ++x) {
      float* p = flat.at(x, y);
      p[0] = 0.2f, p[1] = 0.4f, p[2] = 0.6f, p[3] = 1;
    }
  const int expected[3] = {int(std::lround(srgb::encode(0.2f) * 255)), int(std::lround(srgb::encode(0.4f) * 255)),
                           int(std::lround(srgb::encode(0.6f) * 255))};
  for (auto [w, h] : {std::pair{13, 7}, {76, 32}, {1, 1}}) {
    const CanvasPicture p = makeCanvasPicture(flat, *t, {0, 0, 77, 33}, w, h);
    ASSERT_EQ(p.image.size(), QSize(w, h));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const QRgb c = p.image.pixel(x, y);
        ASSERT_LE(std::abs(qRed(c) - expected[0]), 1);
        ASSERT_LE(std::abs(qGreen(c) - expected[1]), 1);
        ASSERT_LE(std::abs(qBlue(c) - expected[2]), 1);
      }
  }
  EXPECT_EQ(makeCanvasPicture(flat, *t, {0, 0, 77, 33}, 200, 100).image.size(), QSize(77, 33));
}

}  // namespace
}  // namespace vg::app
