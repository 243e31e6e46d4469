#include "render/histogram.h"

#include <gtest/gtest.h>

#include <vector>

namespace vg {
namespace {

Image flat(int w, int h, float r, float g, float b) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = r; p[1] = g; p[2] = b; p[3] = 1;
    }
  return img;
}

TEST(HistogramTest, PureBlackFillsBinZero) {
  HistogramBins bins = HistogramComputer::compute(flat(500, 300, 0, 0, 0));
  EXPECT_EQ(bins.red[0], 1.f);
  EXPECT_EQ(bins.green[0], 1.f);
  EXPECT_EQ(bins.blue[0], 1.f);
  EXPECT_EQ(bins.luminance[0], 1.f);
  for (int i = 1; i < 64; ++i) EXPECT_EQ(bins.red[size_t(i)] + bins.luminance[size_t(i)], 0.f);
  EXPECT_EQ(bins.shadowClipping, 1.f);
  EXPECT_EQ(bins.highlightClipping, 0.f);
}

TEST(HistogramTest, BinEdgesAndClippingCounts) {
  // Pixels: pure red (both clipped), 3 (bin 0), 4 (bin 1), 255 (bin 63).
  std::vector<unsigned char> px = {255, 0, 0, 255, 3, 3, 3, 255, 4, 4, 4, 255, 255, 255, 255, 255};
  HistogramBins b = HistogramComputer::fromPixels8(px.data(), 4);
  // Counts before normalisation: red bin 63 = 2, bin 0 = 1, bin 1 = 1;
  // green/blue bin 0 = 2 (pure red's 0 and the 3s) -> peak 2.
  EXPECT_FLOAT_EQ(b.red[63], 1.0f);
  EXPECT_FLOAT_EQ(b.red[0], 0.5f);
  EXPECT_FLOAT_EQ(b.red[1], 0.5f);
  EXPECT_FLOAT_EQ(b.green[0], 1.0f);
  EXPECT_FLOAT_EQ(b.green[63], 0.5f);
  EXPECT_FLOAT_EQ(b.highlightClipping, 0.5f);  // pure red and white
  EXPECT_FLOAT_EQ(b.shadowClipping, 0.25f);    // pure red only: 3 is not below 2
  // Luminance of pure red: 0.2126 * 255 / 4 = 13.55 -> bin 13.
  EXPECT_FLOAT_EQ(b.luminance[13], 0.5f);
}

TEST(HistogramTest, LuminancePeakIsCappedNotNormalisedAgainst) {
  // Eight grey pixels spread over two colour bins per channel but one luminance bin.
  std::vector<unsigned char> px;
  for (int i = 0; i < 4; ++i) px.insert(px.end(), {100, 120, 100, 255});
  for (int i = 0; i < 4; ++i) px.insert(px.end(), {120, 100, 120, 255});
  HistogramBins b = HistogramComputer::fromPixels8(px.data(), 8);
  // Colour peak is 4 (e.g. red bin 25); luminance gathers 8 in bin 28 and 4 in 26.
  EXPECT_FLOAT_EQ(b.red[25], 1.0f);
  float total = 0;
  for (float v : b.luminance) total += v;
  EXPECT_LE(total, 2.0f);
  for (float v : b.luminance) EXPECT_LE(v, 1.0f);
}

TEST(HistogramTest, AnalysisSizeAndSrgbEncoding) {
  // Linear 0.22 encodes to sRGB 129 -> bin 32 whatever the size.
  for (auto [w, h] : {std::pair{1000, 400}, std::pair{30, 90}, std::pair{1, 1}}) {
    HistogramBins b = HistogramComputer::compute(flat(w, h, 0.22f, 0.22f, 0.22f));
    EXPECT_EQ(b.red[32], 1.0f) << w << "x" << h;
    EXPECT_EQ(b.shadowClipping, 0.0f);
  }
  Image box = boxResample(flat(1000, 400, 0.5f, 0, 0), 220, 88);
  EXPECT_EQ(box.width(), 220);
  EXPECT_NEAR(box.at(219, 87)[0], 0.5f, 1e-5);
  EXPECT_TRUE(HistogramComputer::compute(Image()) == HistogramBins{});
}

TEST(HistogramTest, IndicatorTexts) {
  EXPECT_EQ(HistogramComputer::shadowIndicatorText(0.1234f), "阴影裁切 12.3%（提亮阴影/黑色滑杆）");
  EXPECT_EQ(HistogramComputer::highlightIndicatorText(0.0f), "高光裁切 0.0%（压低高光/白色滑杆）");
  HistogramBins b;
  b.shadowClipping = 0.002f;
  EXPECT_FALSE(HistogramComputer::showsShadowIndicator(b));
  b.shadowClipping = 0.0021f;
  EXPECT_TRUE(HistogramComputer::showsShadowIndicator(b));
}

}  // namespace
}  // namespace vg
