#include <gtest/gtest.h>

#include <cmath>

#include "io/image_header.h"
#include "io/image_loader.h"
#include "io/raw_developer.h"
#include "io/raw_tone.h"
#include "io_test_files.h"
#include "support/test_support.h"

namespace vg {
namespace {

// A grey scene with a soft ramp and fine detail, photographed through an
// RGGB mosaic (equal channel response, so it develops grey).
uint16_t scene(int x, int y) {
  double v = 2000 + 150.0 * x + 40.0 * ((x / 2 + y / 2) % 2);
  return uint16_t(std::min(v, 60000.0));
}

// The settings with a decoder version of the first (linear) generation.
RAWDevelopSettings linear(RAWDevelopSettings s = {}) {
  s.decoderVersion = "ahd-1";
  return s;
}

class RawDevelopment : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_ / "synthetic.dng";
    test::writeDng(path_, 96, 64, scene);
  }
  ImageLoader::Loaded develop(const RAWDevelopSettings& s) { return ImageLoader::load(path_, s); }
  test::TempDir dir_;
  std::filesystem::path path_;
};

// FNV-1a over the float pixels: a fingerprint of a development.
uint64_t fingerprint(const Image& image) {
  uint64_t h = 1469598103934665603ull;
  for (int y = 0; y < image.height(); ++y) {
    const auto* p = reinterpret_cast<const unsigned char*>(image.row(image.bounds().y + y));
    for (size_t i = 0; i < size_t(image.width()) * 4 * sizeof(float); ++i) h = (h ^ p[i]) * 1099511628211ull;
  }
  return h;
}

TEST_F(RawDevelopment, DngIsDevelopedThroughTheRawPath) {
  auto loaded = develop({});
  EXPECT_TRUE(loaded.isRAW);
  EXPECT_EQ(loaded.fileFormat, "DNG RAW");
  EXPECT_EQ(loaded.colorSpaceName, "sRGB");
  EXPECT_EQ(loaded.pixelSize.width, 96);
  EXPECT_EQ(loaded.pixelSize.height, 64);
  ASSERT_TRUE(loaded.meta.rawSummary.has_value());
  EXPECT_EQ((*loaded.meta.rawSummary)["Make"], "Verdantglass");
  EXPECT_EQ((*loaded.meta.rawSummary)["WhiteLevel"], 65535);
  EXPECT_EQ(loaded.meta.camera, "Synthetic Bayer");
  // Grey in, grey out; brighter to the right.
  const float* left = loaded.image->at(10, 30);
  const float* right = loaded.image->at(80, 30);
  EXPECT_NEAR(right[0], right[1], 0.02f * right[1]);
  EXPECT_NEAR(right[2], right[1], 0.02f * right[1]);
  EXPECT_GT(right[1], left[1] * 2);
  EXPECT_EQ(right[3], 1.0f);
}

// The first generation's mapping of the settings, on its linear picture.
TEST_F(RawDevelopment, LinearExposureIsInStops) {
  auto base = develop(linear());
  RAWDevelopSettings minusOne;
  minusOne.exposure = -1;
  auto darker = develop(linear(minusOne));
  double ratio = test::channelMeans(*darker.image)[1] / test::channelMeans(*base.image)[1];
  EXPECT_NEAR(ratio, 0.5, 0.03);
  RAWDevelopSettings plusOne;
  plusOne.exposure = 1;
  auto brighter = develop(linear(plusOne));
  // Shadows double; highlights are preserved instead of clipping hard.
  EXPECT_NEAR(brighter.image->at(4, 30)[1] / base.image->at(4, 30)[1], 2.0, 0.15);
  EXPECT_LE(brighter.image->at(94, 30)[1], 1.0f);
}

TEST_F(RawDevelopment, LinearShadowBoostLiftsShadowsOnly) {
  auto base = develop(linear());
  RAWDevelopSettings boosted;
  boosted.shadowBoost = 100;
  auto lifted = develop(linear(boosted));
  // Deep shadows almost double; the lift fades as the scene brightens.
  float deep = lifted.image->at(4, 30)[1] / base.image->at(4, 30)[1];
  float middle = lifted.image->at(94, 30)[1] / base.image->at(94, 30)[1];
  EXPECT_GT(deep, 1.8f);
  EXPECT_LT(middle, deep);
  EXPECT_GT(middle, 1.0f);
}

// Decoder versions never change meaning: every first-generation preset,
// with settings and on real files (one without a mosaic), develops exactly
// what it developed before the second generation came.
TEST_F(RawDevelopment, FirstGenerationVersionsDevelopAsBefore) {
  const std::pair<const char*, uint64_t> versions[] = {
      {"ahd-1", 0x5dddafb1a8941779}, {"dht-1", 0x7a18be6f9dd59fd6}, {"aahd-1", 0x8cfe3a2d45ef6605},
      {"dcb-1", 0xafb2a6bde57e1662}, {"vng-1", 0x221ea19528e4ace4}, {"ppg-1", 0x1a361204fb6b00e6},
      {"linear-1", 0xc35371bfd385287f}};
  for (auto [id, expected] : versions) {
    RAWDevelopSettings s;
    s.decoderVersion = id;
    EXPECT_EQ(fingerprint(*develop(s).image), expected) << id;
  }
  RAWDevelopSettings busy = linear();
  busy.exposure = 1;
  busy.shadowBoost = 60;
  busy.noiseReduction = 40;
  busy.gamutMapping = false;
  EXPECT_EQ(fingerprint(*develop(busy).image), 0x2ac2795b01cde219u);

  const auto kodak = test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc");
  const auto lg = test::dataPath("raw/lg-g4-h815-acr-lossy-linear.dng");
  EXPECT_EQ(fingerprint(*ImageLoader::load(kodak, linear()).image), 0xce54cd4a4ed1fcbfu);
  EXPECT_EQ(fingerprint(*ImageLoader::load(lg, linear()).image), 0x9b4337f6098f83e1u);
  RAWDevelopSettings darker = linear();
  darker.exposure = -0.7;
  darker.shadowBoost = 30;
  EXPECT_EQ(fingerprint(*ImageLoader::load(kodak, darker).image), 0x024f1de95ccf1dfdu);
}

TEST_F(RawDevelopment, DecoderVersionsAreOfferedAndUnknownOnesIgnored) {
  auto options = ImageLoader::rawDecoderOptions(path_);
  ASSERT_GE(options.size(), 2u);
  EXPECT_EQ(options[0], (ImageLoader::RAWDecoderOption{"", "最新"}));
  EXPECT_EQ(options[1].id, "ahd-2");  // "最新" develops with the newest generation
  EXPECT_EQ(options.size(), rawPresets().size() + 1);
  EXPECT_EQ(options.back(), (ImageLoader::RAWDecoderOption{"linear-1", "双线性（最快，旧版线性）"}));
  RAWDevelopSettings newestById;
  newestById.decoderVersion = "ahd-2";
  EXPECT_EQ(test::maxDifference(*develop({}).image, *develop(newestById).image), 0.0);
  EXPECT_GT(test::maxDifference(*develop({}).image, *develop(linear()).image), 0.01);

  auto newest = develop({});
  RAWDevelopSettings gone;
  gone.decoderVersion = "a-version-from-an-older-release";
  auto ignored = develop(gone);
  EXPECT_EQ(test::maxDifference(*newest.image, *ignored.image), 0.0);
  RAWDevelopSettings bilinear;
  bilinear.decoderVersion = "linear-2";
  auto other = develop(bilinear);
  EXPECT_GT(test::maxDifference(*newest.image, *other.image), 0.0);
}

// The second generation is the first's linear picture through RawTone
// (whose curve, shadow boost and white are checked in raw_tone_test.cpp).
TEST_F(RawDevelopment, SecondGenerationTonesTheLinearPicture) {
  const Image linearPicture = develop(linear()).image->clone();
  auto tonedBy = [&](const RawTone& tone, const Image& toned) {
    double worst = 0;
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 96; ++x)
        for (int c = 0; c < 3; ++c)
          worst = std::max(worst, double(std::fabs(tone(linearPicture.at(x, y)[c]) - toned.at(x, y)[c])));
    return worst;
  };
  EXPECT_LT(tonedBy(RawTone(1, 1), *develop({}).image), 1e-6);
  RAWDevelopSettings busy;
  busy.exposure = 1.5;
  busy.shadowBoost = 100;
  EXPECT_LT(tonedBy(RawTone(std::exp2(1.5), 2), *develop(busy).image), 1e-6);
}

TEST_F(RawDevelopment, BaselineExposureOfTheFileIsAnExposureOfTheSecondGeneration) {
  const auto lifted = dir_ / "baseline.dng";
  test::writeDng(lifted, 96, 64, scene, 1, false, 1.0);
  RAWDevelopSettings plusOne;
  plusOne.exposure = 1;
  EXPECT_EQ(test::maxDifference(*ImageLoader::load(lifted).image, *develop(plusOne).image), 0.0);
  EXPECT_GT(test::channelMeans(*ImageLoader::load(lifted).image)[1], test::channelMeans(*develop({}).image)[1]);
  // The first generation never knew the baseline.
  EXPECT_EQ(test::maxDifference(*ImageLoader::load(lifted, linear()).image, *develop(linear()).image), 0.0);
}

TEST_F(RawDevelopment, OrientationIsApplied) {
  auto turned = dir_ / "turned.dng";
  test::writeDng(turned, 96, 64, scene, 6);
  auto loaded = ImageLoader::load(turned);
  EXPECT_EQ(loaded.pixelSize.width, 64);
  EXPECT_EQ(loaded.pixelSize.height, 96);
  // The bright right edge of the scene ends up at the bottom.
  EXPECT_GT(loaded.image->at(32, 90)[1], loaded.image->at(32, 5)[1] * 2);
}

TEST(RawProcessing, SettingsMapping) {
  RAWDevelopSettings s;
  RawProcessing p = rawProcessingFor(s, true);
  EXPECT_EQ(p.boostAmount, 1.0f);  // shadowBoost 0 is exactly no boost
  EXPECT_FALSE(p.noiseReductionSet);  // 100: the automatic default
  EXPECT_EQ(p.exposureShift, 1.0f);
  EXPECT_EQ(p.highlightMode, 2);
  EXPECT_EQ(p.preset, &newestRawPreset());
  s.noiseReduction = 99;
  s.shadowBoost = 50;
  s.exposure = 2;
  s.gamutMapping = false;
  s.decoderVersion = "vng-1";
  p = rawProcessingFor(s, true, 0.5);
  EXPECT_TRUE(p.noiseReductionSet);
  EXPECT_FLOAT_EQ(p.luminanceNoiseReduction, 0.99f);
  EXPECT_FLOAT_EQ(p.colorNoiseReduction, 0.99f);
  EXPECT_FLOAT_EQ(p.boostAmount, 1.5f);
  EXPECT_FLOAT_EQ(p.exposureShift, 4.0f);  // the first generation shifts in LibRaw...
  EXPECT_EQ(p.toneGain, 1.0);              // ...and knows no baseline
  EXPECT_GT(p.highlightPreserve, 0.0f);
  EXPECT_EQ(p.highlightMode, 0);
  EXPECT_FALSE(p.mapGamut);
  EXPECT_EQ(p.preset->id, "vng-1");
  // A sensor without a Bayer mosaic has no demosaic choice, only the generation.
  EXPECT_EQ(rawProcessingFor(s, false).preset->id, "ahd-1");
  s.decoderVersion = "vng-2";
  EXPECT_EQ(rawProcessingFor(s, false).preset->id, "ahd-2");
  // The second generation moves exposure and the baseline in front of its curve.
  p = rawProcessingFor(s, true, 0.5);
  EXPECT_EQ(p.exposureShift, 1.0f);
  EXPECT_EQ(p.highlightPreserve, 0.0f);
  EXPECT_DOUBLE_EQ(p.toneGain, std::exp2(2.5));
  EXPECT_DOUBLE_EQ(rawProcessingFor(s, true, 40).toneGain, std::exp2(6.0));  // baseline kept within 4 EV
  EXPECT_DOUBLE_EQ(rawProcessingFor(s, true, NAN).toneGain, 4.0);
  s.noiseReduction = std::nan("");
  EXPECT_FALSE(rawProcessingFor(s, true).noiseReductionSet);
}

TEST(RawProcessing, ShadowLiftIsMonotonicAndLeavesHighlights) {
  for (float b : {1.0f, 1.3f, 2.0f}) {
    float previous = -1;
    for (int i = 0; i <= 1000; ++i) {
      float x = i / 1000.0f;
      float y = shadowLift(x, b);
      EXPECT_GE(y, previous) << b << " " << x;
      EXPECT_GE(y, x);
      previous = y;
    }
    EXPECT_EQ(shadowLift(0.75f, b), 0.75f);
  }
  EXPECT_NEAR(shadowLift(0.001f, 2.0f), 0.002f, 1e-5);
}

TEST(RawDevelopmentErrors, CodesThreeAndFour) {
  test::TempDir dir;
  test::writeFile(dir / "fake.nef", "this is not a raw file at all");
  try {
    ImageLoader::load(dir / "fake.nef");
    ADD_FAILURE();
  } catch (const ImageLoadError& e) {
    EXPECT_EQ(e.code(), 3);
    EXPECT_EQ(std::string(e.what()), "无法创建 RAW 解码器，系统可能不支持该相机格式：fake.nef");
  }
  EXPECT_TRUE(ImageLoader::rawDecoderOptions(dir / "fake.nef").empty());
  // LibRaw 0.20 opens Deflate-compressed DNGs but cannot unpack them.
  test::writeDng(dir / "deflate.dng", 64, 48, scene, 1, true);
  try {
    ImageLoader::load(dir / "deflate.dng");
    ADD_FAILURE();
  } catch (const ImageLoadError& e) {
    EXPECT_EQ(e.code(), 4);
    EXPECT_EQ(std::string(e.what()), "RAW 解码失败（所选解码器版本可能不受支持）：deflate.dng");
  }
}

// Damaged headers are refused before LibRaw decodes anything:
// - a size field must not become an allocation: the Kodak file's strip
//   byte count (27340, stored at byte 778) set to 4 GiB - 1;
// - the Canon DNG's CFA pattern (2×2, its entry at byte 123454) declared
//   36 long: LibRaw would take it for a 6×6 pattern and crash while opening.
TEST(RawDevelopmentErrors, DamagedHeadersAreRefused) {
  std::string kodak = test::readFile(test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc"));
  ASSERT_EQ(kodak.substr(770, 2), "\x01\x17");  // the StripByteCounts entry
  ASSERT_EQ(kodak.substr(778, 4), std::string("\x00\x00\x6a\xcc", 4));
  kodak.replace(778, 4, "\xff\xff\xff\xff");
  std::string canon = test::readFile(test::dataPath("raw/canon-powershot-s40-CRW_0101.binned8.dng"));
  ASSERT_EQ(canon.substr(123454, 8), std::string("\x8e\x82\x01\x00\x04\x00\x00\x00", 8));
  canon[123458] = 36;
  test::TempDir dir;
  test::writeFile(dir / "damaged.kdc", kodak);
  test::writeFile(dir / "damaged.dng", canon);
  for (const char* name : {"damaged.kdc", "damaged.dng"}) {
    try {
      ImageLoader::load(dir / name);
      ADD_FAILURE() << name;
    } catch (const ImageLoadError& e) {
      EXPECT_EQ(e.code(), 3) << name;
    }
    // Reading only the size (as a batch does to plan its memory) takes the
    // same guarded path.
    EXPECT_FALSE(readImageDimensions(dir / name)) << name;
  }
  EXPECT_TRUE(readImageDimensions(test::dataPath("raw/canon-powershot-s40-CRW_0101.binned8.dng")));
}

// The Kodak file's JPEG stream (stored byte-swapped) declares 848 columns in
// its frame header, the low byte at 16261; 847 disagrees with the camera and
// LibRaw refuses the stream. (On that path LibRaw itself leaks libjpeg's
// memory, see fuzz/lsan.supp: this test is what proves that entry.)
TEST(RawDevelopmentErrors, DamagedKodakJpegStreamIsCodeFour) {
  std::string bytes = test::readFile(test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc"));
  ASSERT_EQ(bytes.substr(16252, 10), std::string("\xc0\xff\x11\x00\x01\x08\x03\xe8\x03\x50", 10));
  bytes[16261] = '\x4f';
  test::TempDir dir;
  test::writeFile(dir / "damaged.kdc", bytes);
  try {
    ImageLoader::load(dir / "damaged.kdc");
    ADD_FAILURE();
  } catch (const ImageLoadError& e) {
    EXPECT_EQ(e.code(), 4);
  }
}

TEST(RawDevelopmentFiles, GenuineCameraFiles) {
  auto lg = ImageLoader::load(test::dataPath("raw/lg-g4-h815-acr-lossy-linear.dng"));
  EXPECT_TRUE(lg.isRAW);
  EXPECT_EQ(lg.meta.camera, "LG-H815");
  EXPECT_EQ(lg.meta.iso, 50);
  EXPECT_EQ(lg.meta.takenAt, "2015:06:08 12:10:44");
  EXPECT_DOUBLE_EQ(*lg.meta.fNumber, 1.8);
  // A linear (already demosaiced) DNG has no demosaic choices.
  auto options = ImageLoader::rawDecoderOptions(test::dataPath("raw/lg-g4-h815-acr-lossy-linear.dng"));
  ASSERT_EQ(options.size(), 1u);
  EXPECT_EQ(options[0].title, "最新");

  auto kodak = ImageLoader::load(test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc"));
  EXPECT_EQ(kodak.fileFormat, "RAW");
  EXPECT_EQ(kodak.meta.camera, "Kodak DC120 ZOOM Digital Camera");
  EXPECT_GT(kodak.pixelSize.width, 800);
  auto means = test::channelMeans(*kodak.image);
  EXPECT_GT(means[1], 0.01);  // a real picture, not black
}

}  // namespace
}  // namespace vg
