#include "session/sampling.h"

#include <algorithm>
#include <cmath>

#include "render/srgb.h"

namespace vg {

std::string_view samplingPrompt(const SamplingMode& mode) {
  return mode.kind == SamplingMode::Kind::whiteBalance ? kWhiteBalancePrompt : kColorRangePrompt;
}

double linearFromSRGB(double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); }

WhiteBalanceValues whiteBalanceFromLinear(double r, double g, double b) {
  WhiteBalanceValues v;
  v.temperature = std::clamp((1 - r / std::max(b, 0.001)) * 100, -100.0, 100.0);
  v.tint = std::clamp(-(g / std::max((r + b) * 0.5, 0.001) - 1) * 100, -100.0, 100.0);
  // A neutral sample gives exactly 0, never -0.
  v.temperature += 0.0;
  v.tint += 0.0;
  return v;
}

std::optional<SampleRejection> judgeSample(const float rgba[4], bool forWhiteBalance) {
  const float a = rgba[3];
  if (!(a > 0)) return SampleRejection::transparent;
  float lo = 1, hi = 0;
  for (int c = 0; c < 3; ++c) {
    const float v = rgba[c] / a;
    const float e = std::isfinite(v) ? std::clamp(srgb::encode(v), 0.0f, 1.0f) : 0.0f;
    lo = std::min(lo, e);
    hi = std::max(hi, e);
  }
  constexpr float kBlack = 0.02f, kWhite = 0.985f;
  if (hi < kBlack) return SampleRejection::badlyExposed;
  if ((forWhiteBalance ? hi : lo) > kWhite) return SampleRejection::badlyExposed;
  return std::nullopt;
}

std::string_view rejectionMessage(SampleRejection rejection) {
  return rejection == SampleRejection::transparent ? kTransparentSampleMessage : kBadlyExposedSampleMessage;
}

}  // namespace vg
