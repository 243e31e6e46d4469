// The fast colour paths checked against Little CMS doing the same
// conversion the slow, general way.
#include <gtest/gtest.h>

#include <lcms2.h>

#include <cmath>
#include <functional>
#include <vector>

#include "io/input_color.h"
#include "io_test_files.h"
#include "render/srgb.h"

namespace vg {
namespace {

const double kAdobePrimaries[6] = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06};
const double kSrgbPrimaries[6] = {0.64, 0.33, 0.30, 0.60, 0.15, 0.06};

// Little CMS: the profile's RGB (as 16-bit) to linear sRGB floats.
std::vector<float> lcmsReference(const std::vector<uint8_t>& icc, const std::vector<uint16_t>& rgb16) {
  cmsHPROFILE in = cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
  cmsCIExyY white = {0.3127, 0.3290, 1.0};
  cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
  cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
  cmsToneCurve* curves[3] = {linear, linear, linear};
  cmsHPROFILE out = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsHTRANSFORM t = cmsCreateTransform(in, TYPE_RGB_16, out, TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC,
                                       cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
  std::vector<float> result(rgb16.size());
  cmsDoTransform(t, rgb16.data(), result.data(), cmsUInt32Number(rgb16.size() / 3));
  cmsDeleteTransform(t);
  cmsCloseProfile(in);
  cmsCloseProfile(out);
  cmsFreeToneCurve(linear);
  return result;
}

TEST(InputColor, MatrixShaperProfileMatchesLittleCms) {
  auto icc = test::makeRgbProfile(kAdobePrimaries, 2.2, "Wide Test RGB");
  SourceFormat format;
  format.type = SampleType::u16;
  format.bitDepth = 16;
  InputColor color = InputColor::fromIcc(icc, format);
  EXPECT_TRUE(color.usesProfile());
  EXPECT_EQ(color.profileDescription(), "Wide Test RGB");

  std::vector<uint16_t> samples;
  for (int r = 0; r <= 65535; r += 13107)
    for (int g = 0; g <= 65535; g += 21845)
      for (int b = 0; b <= 65535; b += 32767) samples.insert(samples.end(), {uint16_t(r), uint16_t(g), uint16_t(b)});
  auto expected = lcmsReference(icc, samples);
  int n = int(samples.size() / 3);
  std::vector<float> out(size_t(n) * 4);
  color.convert(reinterpret_cast<const uint8_t*>(samples.data()), n, out.data());
  for (int i = 0; i < n; ++i) {
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(out[i * 4 + c], expected[i * 3 + c], 2e-3) << i << " " << c;
    }
    EXPECT_EQ(out[i * 4 + 3], 1.0f);
  }
  // Pure profile green lies outside sRGB: its red component is negative.
  uint16_t green[3] = {0, 65535, 0};
  float px[4];
  color.convert(reinterpret_cast<const uint8_t*>(green), 1, px);
  EXPECT_LT(px[0], -0.05f);
}

TEST(InputColor, SrgbLikeProfileAndNoProfileAgree) {
  auto icc = test::makeRgbProfile(kSrgbPrimaries, 2.2, "Gamma sRGB");
  SourceFormat format;
  InputColor profiled = InputColor::fromIcc(icc, format);
  InputColor plain = InputColor::fromIcc({}, format);
  EXPECT_FALSE(plain.usesProfile());
  EXPECT_EQ(plain.profileDescription(), "");
  uint8_t px[3] = {200, 100, 30};
  float a[4], b[4];
  profiled.convert(px, 1, a);
  plain.convert(px, 1, b);
  // Pure gamma 2.2 vs the sRGB curve: close, not identical.
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], 0.01f);
  EXPECT_NEAR(b[0], srgb::decode(200 / 255.0f), 1e-6);
}

TEST(InputColor, UnusableProfilesFallBackToTheColourModel) {
  SourceFormat grey;
  grey.model = ColorModel::gray;
  auto rgbProfile = test::makeRgbProfile(kAdobePrimaries, 2.2, "RGB on grey");
  InputColor mismatched = InputColor::fromIcc(rgbProfile, grey);
  EXPECT_FALSE(mismatched.usesProfile());
  EXPECT_EQ(mismatched.profileDescription(), "RGB on grey");  // still names the file's space
  std::vector<uint8_t> garbage(200, 0x5A);
  InputColor broken = InputColor::fromIcc(garbage, SourceFormat{});
  EXPECT_FALSE(broken.usesProfile());
  InputColor empty = InputColor::fromIcc({}, SourceFormat{});
  uint8_t px[3] = {10, 20, 30};
  float a[4], b[4];
  broken.convert(px, 1, a);
  empty.convert(px, 1, b);
  for (int c = 0; c < 4; ++c) EXPECT_EQ(a[c], b[c]);
}

TEST(InputColor, WorkingSpaceFloatsPassUnchangedIncludingOutOfRange) {
  SourceFormat f;
  f.type = SampleType::f32;
  f.hasAlpha = true;
  InputColor color = InputColor::workingSpace(f);
  const float in[8] = {-0.25f, 2.5f, 0.5f, 1.0f, 0.2f, 0.4f, 0.6f, 0.5f};
  float out[8];
  color.convert(reinterpret_cast<const uint8_t*>(in), 2, out);
  EXPECT_EQ(out[0], -0.25f);
  EXPECT_EQ(out[1], 2.5f);
  EXPECT_EQ(out[3], 1.0f);
  EXPECT_FLOAT_EQ(out[4], 0.1f);  // straight alpha 0.5 premultiplies
  EXPECT_FLOAT_EQ(out[7], 0.5f);
}

TEST(InputColor, AssociatedAlphaIsNotMultipliedTwice) {
  SourceFormat f;
  f.hasAlpha = true;
  f.alphaAssociated = true;
  InputColor color = InputColor::fromIcc({}, f);
  // Encoded colour 1.0 at alpha 0.5 stored premultiplied as 128.
  uint8_t px[4] = {128, 128, 128, 128};
  float out[4];
  color.convert(px, 1, out);
  float a = 128 / 255.0f;
  EXPECT_NEAR(out[0], srgb::decode(1.0f) * a, 1e-3);
  EXPECT_NEAR(out[3], a, 1e-6);
}

TEST(InputColor, TenBitSamplesUseTheirOwnFullScale) {
  SourceFormat f;
  f.type = SampleType::u16;
  f.bitDepth = 10;
  InputColor color = InputColor::fromIcc({}, f);
  uint16_t px[3] = {1023, 512, 4000};  // 4000 is out of range and clamps
  float out[4];
  color.convert(reinterpret_cast<const uint8_t*>(px), 1, out);
  EXPECT_FLOAT_EQ(out[0], 1.0f);
  EXPECT_NEAR(out[1], srgb::decode(512 / 1023.0f), 1e-6);
  EXPECT_FLOAT_EQ(out[2], 1.0f);
}

TEST(InputColor, PrimariesGivenAsNumbers) {
  SourceFormat f;
  InputColor::Primaries srgb{0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3290};
  InputColor same = InputColor::fromPrimaries(srgb, InputColor::Transfer::srgb, f);
  uint8_t px[3] = {255, 0, 0};
  float out[4];
  same.convert(px, 1, out);
  EXPECT_NEAR(out[0], 1.0f, 1e-5);
  EXPECT_NEAR(out[1], 0.0f, 1e-5);
  InputColor::Primaries p3{0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
  InputColor wide = InputColor::fromPrimaries(p3, InputColor::Transfer::srgb, f);
  wide.convert(px, 1, out);
  EXPECT_GT(out[0], 1.1f);  // P3 red is redder than sRGB red
  EXPECT_LT(out[1], 0.0f);
  // White stays white in any RGB space with a D65 white.
  uint8_t white[3] = {255, 255, 255};
  wide.convert(white, 1, out);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(out[c], 1.0f, 5e-4);
}

// 8-bit samples take whole-pixel tables; 16-bit samples the per-sample
// path. v / 255 and 257v / 65535 are the same float, so both must give the
// same colour bit for bit (alpha differs by the rounding of 1/255 vs
// 1/65535 only).
TEST(InputColor, EightBitTablesMatchThePerSamplePath) {
  auto adobe = test::makeRgbProfile(kAdobePrimaries, 2.2, "Wide Test RGB");
  InputColor::Primaries p3{0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
  struct Case {
    const char* name;
    ColorModel model;
    bool alpha;
    bool inverted;
    std::function<InputColor(const SourceFormat&)> make;
  };
  const std::vector<Case> cases = {
      {"sRGB", ColorModel::rgb, false, false, [](auto& f) { return InputColor::fromIcc({}, f); }},
      {"matrix profile + alpha", ColorModel::rgb, true, false,
       [&](auto& f) { return InputColor::fromIcc(adobe, f); }},
      {"primaries (matrix)", ColorModel::rgb, false, false,
       [&](auto& f) { return InputColor::fromPrimaries(p3, InputColor::Transfer::bt709, f); }},
      {"working space", ColorModel::rgb, true, false, [](auto& f) { return InputColor::workingSpace(f); }},
      {"grey", ColorModel::gray, true, false, [](auto& f) { return InputColor::fromIcc({}, f); }},
      {"grey min-is-white", ColorModel::gray, false, true, [](auto& f) { return InputColor::fromIcc({}, f); }},
      {"HLG (system gamma)", ColorModel::rgb, false, false,
       [](auto& f) {
         InputColor::Primaries bt2020{0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290};
         return InputColor::fromPrimaries(bt2020, InputColor::Transfer::hlg, f);
       }},
      {"grey through a matrix", ColorModel::gray, false, false,
       [&](auto& f) { return InputColor::fromPrimaries(p3, InputColor::Transfer::gamma22, f); }},
  };
  for (const Case& c : cases) {
    SourceFormat f8;
    f8.model = c.model;
    f8.hasAlpha = c.alpha;
    f8.inverted = c.inverted;
    SourceFormat f16 = f8;
    f16.type = SampleType::u16;
    f16.bitDepth = 16;
    InputColor eight = c.make(f8), sixteen = c.make(f16);
    const int channels = f8.channels();
    const int n = 256 * 3;
    std::vector<uint8_t> s8(size_t(n) * channels);
    for (size_t i = 0; i < s8.size(); ++i) s8[i] = uint8_t((i * 7 + i / 5) & 0xFF);
    std::vector<uint16_t> s16(s8.size());
    for (size_t i = 0; i < s8.size(); ++i) s16[i] = uint16_t(s8[i] * 257);
    std::vector<float> o8(size_t(n) * 4), o16(size_t(n) * 4);
    eight.convert(s8.data(), n, o8.data());
    sixteen.convert(reinterpret_cast<const uint8_t*>(s16.data()), n, o16.data());
    for (int i = 0; i < n * 4; ++i) {
      if (c.alpha) {
        EXPECT_FLOAT_EQ(o8[size_t(i)], o16[size_t(i)]) << c.name << " sample " << i;
      } else {
        EXPECT_EQ(o8[size_t(i)], o16[size_t(i)]) << c.name << " sample " << i;
      }
    }
  }
}

}  // namespace
}  // namespace vg
