// Output profiles and the fast working-space -> output conversion.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <random>

#include "render/color_profiles.h"
#include "render/srgb.h"

namespace vg {
namespace {

constexpr OutputColorSpace kSpaces[] = {OutputColorSpace::sRGB, OutputColorSpace::displayP3,
                                        OutputColorSpace::adobeRGB1998};

// Pixels that exercise every branch: in range, over white, negative, tiny,
// transparent, alpha overshooting 1 (a resampler's ringing), NaN and infinite.
std::vector<std::array<float, 4>> probePixels() {
  std::vector<std::array<float, 4>> px = {
      {0, 0, 0, 1},       {1, 1, 1, 1},          {0.18f, 0.18f, 0.18f, 1}, {1, 0, 0, 1},
      {0, 1, 0, 1},       {0, 0, 1, 1},          {2.5f, 0.3f, -0.2f, 1},   {1e-7f, 3e-5f, 0.002f, 1},
      {0.2f, 0.1f, 0.05f, 0.5f}, {0.3f, 0.3f, 0.3f, 0}, {0.6f, 0.3f, 0.15f, 1.2f}, {0.5f, 0.5f, 0.5f, -0.1f},
      {NAN, 0.5f, 0.5f, 1},     {INFINITY, 0, 0, 1},
  };
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-0.1f, 1.2f), a(0.0f, 1.0f);
  for (int i = 0; i < 2000; ++i) {
    float alpha = i % 3 == 0 ? a(rng) : 1.0f;
    px.push_back({u(rng) * alpha, u(rng) * alpha, u(rng) * alpha, alpha});
  }
  return px;
}

TEST(ColorProfiles, FastConversionMatchesTheReferenceWithinOneSixteenBitStep) {
  auto px = probePixels();
  for (OutputColorSpace space : kSpaces) {
    const auto& enc = OutputEncoding::get(space);
    for (OutputChannels ch : {OutputChannels::rgb, OutputChannels::rgba}) {
      const int n = ch == OutputChannels::rgba ? 4 : 3;
      std::vector<uint16_t> out(px.size() * n);
      encodeRow16(enc, px[0].data(), int(px.size()), ch, 65535, out.data());
      for (size_t i = 0; i < px.size(); ++i) {
        auto ref = encodeReference(space, px[i].data(), ch);
        for (int c = 0; c < n; ++c)
          ASSERT_NEAR(out[i * n + c], ref[c] * 65535.0, 1.0)
              << "space " << int(space) << " pixel " << i << " channel " << c;
      }
    }
  }
}

// Ringing can leave alpha a little above 1 beside a hard transparent edge;
// the straight colour written is still that of the pixel, not brighter.
TEST(ColorProfiles, AnAlphaOvershootStillDividesOut) {
  const float over[4] = {0.6f, 0.3f, 0.15f, 1.2f}, exact[4] = {0.5f, 0.25f, 0.125f, 1.0f};
  uint16_t a[4], b[4];
  encodeRow16(OutputEncoding::get(OutputColorSpace::sRGB), over, 1, OutputChannels::rgba, 65535, a);
  encodeRow16(OutputEncoding::get(OutputColorSpace::sRGB), exact, 1, OutputChannels::rgba, 65535, b);
  for (int c = 0; c < 4; ++c) EXPECT_NEAR(a[c], b[c], 1) << c;
}

TEST(ColorProfiles, EightBitCodesAreTheRoundedReferenceWithoutDitherAndWithinOneWithIt) {
  auto px = probePixels();
  for (OutputColorSpace space : kSpaces) {
    const auto& enc = OutputEncoding::get(space);
    std::vector<uint8_t> plain(px.size() * 3), dithered(px.size() * 3);
    encodeRow8(enc, px[0].data(), int(px.size()), OutputChannels::rgb, 0, 0, false, plain.data());
    encodeRow8(enc, px[0].data(), int(px.size()), OutputChannels::rgb, 0, 0, true, dithered.data());
    for (size_t i = 0; i < px.size(); ++i) {
      auto ref = encodeReference(space, px[i].data(), OutputChannels::rgb);
      for (int c = 0; c < 3; ++c) {
        double exact = ref[c] * 255.0;
        EXPECT_NEAR(plain[i * 3 + c], exact, 0.5 + 1e-3) << i;
        EXPECT_LT(std::fabs(dithered[i * 3 + c] - exact), 1.0 + 1e-3) << i;
      }
    }
  }
}

TEST(ColorProfiles, EmbeddedProfilesDescribeTheirSpaces) {
  // Our sRGB profile agrees with lcms's own sRGB; P3 and Adobe RGB move the
  // sRGB primaries where their published matrices put them.
  cmsHPROFILE srgb = cmsCreate_sRGBProfile();
  struct Case {
    OutputColorSpace space;
    const char* description;
    float in[3];     // encoded in the profile's space
    float srgbLinear[3];  // expected, linear sRGB
  } cases[] = {
      {OutputColorSpace::sRGB, "sRGB IEC61966-2.1", {0.5f, 0.25f, 0.75f},
       {srgb::decode(0.5f), srgb::decode(0.25f), srgb::decode(0.75f)}},
      {OutputColorSpace::displayP3, "Display P3", {1, 0, 0}, {1.2249f, -0.0421f, -0.0196f}},
      {OutputColorSpace::adobeRGB1998, "Adobe RGB (1998)", {0, 1, 0}, {-0.3982f, 1.0f, -0.0429f}},
  };
  for (const Case& c : cases) {
    const auto& bytes = outputIccProfile(c.space);
    cmsHPROFILE p = cmsOpenProfileFromMem(bytes.data(), cmsUInt32Number(bytes.size()));
    ASSERT_NE(p, nullptr);
    char desc[128] = {};
    cmsGetProfileInfoASCII(p, cmsInfoDescription, "en", "US", desc, sizeof desc);
    EXPECT_STREQ(desc, c.description);
    EXPECT_EQ(cmsGetColorSpace(p), cmsSigRgbData);
    // Linear sRGB via an lcms transform in unbounded float.
    cmsToneCurve* lin = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {lin, lin, lin};
    cmsCIExyY d65{0.3127, 0.3290, 1};
    cmsCIExyYTRIPLE prim{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
    cmsHPROFILE linear = cmsCreateRGBProfile(&d65, &prim, curves);
    cmsFreeToneCurve(lin);
    cmsHTRANSFORM t = cmsCreateTransform(p, TYPE_RGB_FLT, linear, TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC, 0);
    ASSERT_NE(t, nullptr);
    float out[3];
    cmsDoTransform(t, c.in, out, 1);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(out[i], c.srgbLinear[i], 2e-3) << c.description << " " << i;
    cmsDeleteTransform(t);
    cmsCloseProfile(linear);
    cmsCloseProfile(p);
  }
  cmsCloseProfile(srgb);
}

TEST(ColorProfiles, DitherIsFixedByPositionSoBandsAgree) {
  const auto& enc = OutputEncoding::get(OutputColorSpace::sRGB);
  std::vector<std::array<float, 4>> row(64, {0.2f, 0.2f, 0.2f, 1});
  std::vector<uint8_t> whole(64 * 3), left(32 * 3), right(32 * 3);
  encodeRow8(enc, row[0].data(), 64, OutputChannels::rgb, 100, 7, true, whole.data());
  encodeRow8(enc, row[0].data(), 32, OutputChannels::rgb, 100, 7, true, left.data());
  encodeRow8(enc, row[32].data(), 32, OutputChannels::rgb, 132, 7, true, right.data());
  left.insert(left.end(), right.begin(), right.end());
  EXPECT_EQ(whole, left);
}

}  // namespace
}  // namespace vg
