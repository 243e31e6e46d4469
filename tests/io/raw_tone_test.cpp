// The base tone curve of the second RAW generation and its prepared table,
// and the look it gives a real camera file next to the camera's own JPEG.
#include <gtest/gtest.h>

#include <cmath>

#include "io/image_loader.h"
#include "io/raw_tone.h"
#include "render/srgb.h"
#include "support/test_support.h"

namespace vg {
namespace {

TEST(RawTone, BaseCurveIsAMonotoneSShapeFromZeroToOne) {
  EXPECT_EQ(RawTone::base(0), 0.0);
  EXPECT_NEAR(RawTone::base(1), 1.0, 1e-12);
  double previous = 0;
  for (int i = 1; i <= 4000; ++i) {
    const double x = i / 1000.0, y = RawTone::base(x);
    ASSERT_GT(y, previous) << x;
    previous = y;
  }
  EXPECT_LT(RawTone::base(0.01), 0.01);       // a toe: deep blacks stay deep
  EXPECT_GT(RawTone::base(0.09), 2 * 0.09);   // mid-tones lifted
  EXPECT_LT(RawTone::base(1) - RawTone::base(0.9), 0.1 * 0.5);  // a shoulder: slope below 1/2 at the top
}

// The claim the constants rest on: the S40's ColorChecker greys, raw linear
// against the camera's JPEG (linear), within 2 of 255 sRGB levels.
TEST(RawTone, BaseCurveReproducesTheCameraGreys) {
  const std::pair<double, double> greys[] = {{0.0157, 0.0168}, {0.043, 0.078}, {0.090, 0.207},
                                             {0.166, 0.415},   {0.256, 0.616}, {0.349, 0.750}};
  for (auto [raw, camera] : greys)
    EXPECT_NEAR(srgb::encode(float(RawTone::base(raw))) * 255, srgb::encode(float(camera)) * 255, 2.0) << raw;
}

TEST(RawTone, TableFollowsTheFormula) {
  for (double gain : {0.25, 1.0, 2.8}) {
    for (double boost : {1.0, 1.5, 2.0}) {
      const RawTone tone(gain, boost);
      float worst = 0;
      for (int i = -100; i <= 30000; ++i) {
        const float x = i < 0 ? float(i) / 100 : float(i) / 10000;  // -1 ... 3, beyond the table's end too
        worst = std::max(worst, std::fabs(tone(x) - tone.exact(x)));
        ASSERT_EQ(tone.exact(-x), -tone.exact(x));
      }
      EXPECT_LT(worst, 2e-5f) << gain << " " << boost;
      EXPECT_EQ(tone(NAN), 0.0f);
      EXPECT_EQ(tone(0.0f), 0.0f);
    }
  }
}

TEST(RawTone, WhiteStaysAtOneAndShadowBoostStaysInTheShadows) {
  // Any gain above 1 keeps sensor white at 1, so nothing recorded clips.
  for (double gain : {1.0, 1.7, 4.0, 16.0}) EXPECT_NEAR(RawTone(gain, 1)(1.0f), 1.0f, 1e-5) << gain;
  EXPECT_LT(RawTone(0.5, 1)(1.0f), 0.9f);  // a darker exposure greys the whites
  const RawTone plain(1, 1), boosted(1, 2);
  EXPECT_EQ(plain.exact(0.3f), float(RawTone::base(double(0.3f))));  // gain 1, no boost: the curve alone
  for (int i = 1; i <= 1000; ++i) {
    const float x = i / 1000.0f;
    if (x >= RawTone::kShadowKnee) ASSERT_EQ(boosted.exact(x), plain.exact(x)) << x;
    else ASSERT_GT(boosted.exact(x), plain.exact(x)) << x;
    ASSERT_GT(boosted.exact(x), boosted.exact(x - 0.001f)) << x;  // still monotone
  }
}

// sRGB luminance L = 0.2126 R + 0.7152 G + 0.0722 B on 0...255: the mean and
// the first histogram bins reaching 10 % and 90 % of the pixels.
struct Luminance {
  double mean = 0, p10 = 0, p90 = 0;
};
Luminance luminanceOf(const Image& image) {
  std::vector<int> histogram(256);
  double sum = 0;
  const size_t n = size_t(image.width()) * image.height();
  for (int y = image.bounds().y; y < image.bounds().bottom(); ++y)
    for (int x = image.bounds().x; x < image.bounds().right(); ++x) {
      const float* p = image.at(x, y);
      const double l = 255 * (0.2126 * srgb::encode(std::clamp(p[0], 0.0f, 1.0f)) +
                              0.7152 * srgb::encode(std::clamp(p[1], 0.0f, 1.0f)) +
                              0.0722 * srgb::encode(std::clamp(p[2], 0.0f, 1.0f)));
      sum += l;
      ++histogram[size_t(std::lround(l))];
    }
  Luminance out{sum / double(n)};
  size_t running = 0;
  for (int i = 0; i < 256; ++i) {
    running += size_t(histogram[size_t(i)]);
    if (out.p10 == 0 && running >= n / 10) out.p10 = i;
    if (running >= n * 9 / 10) {
      out.p90 = i;
      break;
    }
  }
  return out;
}

// A real sensor (a Canon PowerShot S40's ColorChecker shot, binned) opens
// close to the JPEG the camera made of it; the linear first generation did
// not (mean 94 against 131).
TEST(RawTone, RealFileOpensCloseToTheCameraJpeg) {
  const Luminance camera = luminanceOf(*ImageLoader::load(test::dataPath("raw/canon-powershot-s40-CRW_0101.camera.jpg")).image);
  const Luminance ours = luminanceOf(*ImageLoader::load(test::dataPath("raw/canon-powershot-s40-CRW_0101.binned8.dng")).image);
  EXPECT_NEAR(ours.mean, camera.mean, 10);
  EXPECT_NEAR(ours.p10, camera.p10, 20);
  EXPECT_NEAR(ours.p90, camera.p90, 20);
  RAWDevelopSettings old;
  old.decoderVersion = "ahd-1";
  const Luminance linear =
      luminanceOf(*ImageLoader::load(test::dataPath("raw/canon-powershot-s40-CRW_0101.binned8.dng"), old).image);
  EXPECT_LT(linear.mean, camera.mean - 25);
}

}  // namespace
}  // namespace vg
