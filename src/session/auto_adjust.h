// Automatic adjustment: measure a picture, then map the measurements and a
// style (AutoMode) to a complete set of global adjustments. No state.
//
// analyze(image): the picture (a working image of any size, premultiplied
// linear RGBA) is reduced by averaging whole blocks until its long side is
// at most kAnalysisSize, then turned into an 8-bit sRGB RGBA bitmap. Only
// pixels at least half opaque are measured (the transparent corners of a
// straightened picture are not part of it); with none, or an empty image, the
// picture cannot be measured and the result is nothing. On the 0...255 scale,
// with luminance L = 0.2126 R + 0.7152 G + 0.0722 B:
// - meanLuminance, stdDevLuminance: mean and population deviation of L / 255;
// - median and p2/p10/p90/p98: from the 256-bin histogram of round(L), the
//   first bin where the running share reaches 0.5 (0.02, 0.10, ...), / 255;
// - highlightRatio: share of pixels with round(L) in 230...255;
//   shadowRatio: share with round(L) in 0...25, the mirror of that band;
// - meanSaturation: mean HSV saturation (max - min) / max, 0 for black;
// - darkChannelMean: mean of min(R, G, B) / 255 (haze lifts it);
// - meanR, meanG, meanB: channel means / 255;
// - noiseEnergy: an estimate of the standard deviation of fine noise in
//   L / 255: Immerkaer's Laplacian-difference estimator (sqrt(pi/2) / 6 times
//   the mean absolute response) in the flattest 16 x 16 blocks (the tenth
//   percentile of the blocks), since noise covers a picture evenly and detail
//   does not. A flat or smoothly graded picture measures about 0; a picture
//   too small for one block measures 0.
//
// adjustments(stats, mode): pure; every rule of every mode, then the noise
// damping. round() is half away from zero; exposures come in steps of
// 0.05 EV. Fields a mode does not set keep their defaults; curves, HSL and
// split toning are always the defaults.
//
// analyzeShown(previewSource, recipe): analyze() of the picture as the recipe
// frames it (crop, turns, flips, straightening, lens distortion; none of its
// adjustments, which an automatic adjustment replaces), made at a reduced
// scale so that a 2400-pixel preview source costs a few milliseconds.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/adjustments.h"
#include "model/document.h"
#include "render/image.h"
#include "session/auto_mode.h"

namespace vg::AutoAdjust {

inline constexpr int kAnalysisSize = 400;

struct ImageStats {
  double meanLuminance = 0;
  double medianLuminance = 0;
  double p2Luminance = 0;
  double p98Luminance = 0;
  double p10Luminance = 0;
  double p90Luminance = 0;
  double stdDevLuminance = 0;
  double meanSaturation = 0;
  double highlightRatio = 0;
  double shadowRatio = 0;
  double darkChannelMean = 0;
  double meanR = 0;
  double meanG = 0;
  double meanB = 0;
  double noiseEnergy = 0;
  bool operator==(const ImageStats&) const = default;
};

std::optional<ImageStats> analyze(const Image& image);
std::optional<ImageStats> analyzeShown(const Image& previewSource, const EditDocument& recipe);

GlobalAdjustments adjustments(const ImageStats& stats, AutoMode mode);

// The statistics as a JSON object keyed by field name, and back. Reading is
// strict: every key must be present with a finite number, else nothing and
// `error` names the first key at fault.
nlohmann::ordered_json toJson(const ImageStats& stats);
std::optional<ImageStats> statsFromJson(const nlohmann::json& value, std::string* error = nullptr);

}  // namespace vg::AutoAdjust
