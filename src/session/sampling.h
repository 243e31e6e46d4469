// Click-to-sample: the modes the canvas can be armed with, their prompts, and
// the rules that turn a sampled pixel into white balance or a target colour.
//
// White balance from linear r, g, b (an sRGB-encoded pixel is linearised
// first with the sRGB transfer function):
//   temperature = clamp((1 - r / max(b, 0.001)) x 100, -100, 100)
//   tint        = clamp(-(g / max((r + b) x 0.5, 0.001) - 1) x 100, -100, 100)
// A bluish sample warms (positive temperature), a greenish one gives a
// negative tint, a grey one gives 0 and 0.
//
// A sample is refused when its pixel is transparent (alpha 0: outside the
// picture, or an empty corner after rotation) or not usefully exposed: black
// when its brightest sRGB-encoded channel is below 0.02 (about 5 of 255);
// white when, for white balance, any channel is above 0.985 (a clipped
// channel falsifies the ratios) or, for a colour, all of them are.
#pragma once

#include <optional>
#include <string_view>

#include "model/uuid.h"

namespace vg {

struct SamplingMode {
  enum class Kind {
    whiteBalance,   // maskID absent: the global white balance
    colorRange,     // resample the target colour of the colour-range mask maskID
    newColorRange,  // the click creates a new colour-range mask
  };
  Kind kind = Kind::whiteBalance;
  std::optional<Uuid> maskID;
  bool operator==(const SamplingMode&) const = default;
};

inline constexpr std::string_view kWhiteBalancePrompt = "点击画面中的中性灰或白色区域（Esc 取消）";
inline constexpr std::string_view kColorRangePrompt = "点击要选择的颜色（Esc 取消）";
inline constexpr std::string_view kTransparentSampleMessage =
    "无法采样：请点击画面内非透明的有效像素（Esc 取消）";
inline constexpr std::string_view kBadlyExposedSampleMessage =
    "无法采样：请点击画面内曝光正常的有效像素（Esc 取消）";

std::string_view samplingPrompt(const SamplingMode& mode);

struct WhiteBalanceValues {
  double temperature = 0;
  double tint = 0;
  bool operator==(const WhiteBalanceValues&) const = default;
};

WhiteBalanceValues whiteBalanceFromLinear(double r, double g, double b);
double linearFromSRGB(double encoded);

enum class SampleRejection { transparent, badlyExposed };

// `rgba` is a premultiplied linear working-space pixel.
std::optional<SampleRejection> judgeSample(const float rgba[4], bool forWhiteBalance);
std::string_view rejectionMessage(SampleRejection rejection);

}  // namespace vg
