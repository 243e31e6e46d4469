// The display conversion against Little CMS itself and the sRGB formula.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <random>

#include "app/display_transform.h"
#include "render/color_profiles.h"
#include "render/srgb.h"

namespace vg::app {
namespace {

uint32_t channel(uint32_t px, int shift) { return (px >> shift) & 0xff; }

TEST(DisplayTransform, SRGBMonitorGetsTheSRGBEncodingOfThePicture) {
  auto t = DisplayTransform::sRGB();
  ASSERT_TRUE(t->isSRGB());
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-0.2f, 1.3f);
  for (int i = 0; i < 5000; ++i) {
    const float px[4] = {u(rng), u(rng), u(rng), 1.f};
    uint32_t out = 0;
    t->convertRow(px, 1, &out);
    for (int c = 0; c < 3; ++c) {
      const float expected = std::clamp(srgb::encode(std::clamp(px[c], 0.f, 1.f)), 0.f, 1.f) * 255.f;
      EXPECT_NEAR(double(channel(out, 16 - 8 * c)), expected, 0.61) << px[c];
    }
    EXPECT_EQ(channel(out, 24), 255u);
  }
  // Transparent, half-transparent and NaN pixels.
  const float px[12] = {0.5f, 0.5f, 0.5f, 0.f, 0.25f, 0.25f, 0.25f, 0.5f, NAN, 1.f, 0.f, 1.f};
  uint32_t out[3];
  t->convertRow(px, 3, out);
  EXPECT_EQ(out[0], 0u);
  EXPECT_EQ(channel(out[1], 24), 128u);
  EXPECT_NEAR(double(channel(out[1], 16)), std::round(srgb::encode(0.5f) * 255) * 128 / 255, 1.0);
  EXPECT_EQ(channel(out[2], 16), 0u);  // NaN counts as black
  EXPECT_EQ(channel(out[2], 8), 255u);
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
    uint32_t got = 0;
    t.convertRow(px, 1, &got);
    uint16_t encoded[3], expected[3];
    for (int c = 0; c < 3; ++c) encoded[c] = uint16_t(std::lround(srgb::encode(px[c]) * 65535));
    cmsDoTransform(ref, encoded, expected, 1);
    for (int c = 0; c < 3; ++c)
      worst = std::max(worst, std::abs(int(channel(got, 16 - 8 * c)) - int(std::lround(expected[c] / 257.0))));
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
  uint32_t got = 0;
  t->convertRow(green, 1, &got);
  EXPECT_GT(channel(got, 16), 120u);
  EXPECT_GE(channel(got, 8), 250u);
  EXPECT_GT(channel(got, 0), 40u);

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
