// HistogramComputer: the histogram display ("直方图（左暗右亮）", dark on the
// left) and the two clipping indicators, measured on a small copy of a
// rendered image.
//
// 1. The image is scaled so that its longer side is 220 pixels (sizes
//    truncated, at least 1) with an area-weighted box filter, clamped to 0...1
//    and encoded to 8-bit sRGB (premultiplied values, as drawn).
// 2. For each pixel: red, green and blue bins R/4, G/4, B/4; the luminance bin
//    (0.2126 R + 0.7152 G + 0.0722 B) / 4, capped at 63; highlight-clipped when
//    any channel is above 253, shadow-clipped when any is below 2.
// 3. Every bin is scaled by 1/peak, the peak taken over the red, green and blue
//    arrays only (when it exceeds 1), and capped at 1.
#pragma once

#include <array>
#include <string>

#include "render/image.h"

namespace vg {

struct HistogramBins {
  static constexpr int kBins = 64;
  std::array<float, kBins> red{};
  std::array<float, kBins> green{};
  std::array<float, kBins> blue{};
  std::array<float, kBins> luminance{};
  float highlightClipping = 0;  // fraction of pixels, 0...1
  float shadowClipping = 0;

  friend bool operator==(const HistogramBins&, const HistogramBins&) = default;
};

class HistogramComputer {
 public:
  static constexpr int kAnalysisSize = 220;
  // Fractions above which the indicators are shown.
  static constexpr float kShadowIndicatorThreshold = 0.002f;
  static constexpr float kHighlightIndicatorThreshold = 0.002f;

  static HistogramBins compute(const Image& image);
  // Bins from 8-bit sRGB pixels (R, G, B, A interleaved), the analysis step.
  static HistogramBins fromPixels8(const unsigned char* rgba, size_t pixelCount);

  // "阴影裁切 12.3%（提亮阴影/黑色滑杆）" and "高光裁切 …（压低高光/白色滑杆）".
  static std::string shadowIndicatorText(float fraction);
  static std::string highlightIndicatorText(float fraction);
  static bool showsShadowIndicator(const HistogramBins& b) { return b.shadowClipping > kShadowIndicatorThreshold; }
  static bool showsHighlightIndicator(const HistogramBins& b) {
    return b.highlightClipping > kHighlightIndicatorThreshold;
  }
};

// The analysis copy: `image` box-filtered to dstW x dstH (exposed for tests).
Image boxResample(const Image& image, int dstW, int dstH);

}  // namespace vg
