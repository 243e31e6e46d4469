// Horizon detector: the straightening angle that levels a photograph, found
// from the straight edges in it, or nothing when the picture has no usable
// level line.
//
// detectHorizonAngle(previewSource, crop, cancel):
// - previewSource is the upright working image (any size; the preview source
//   is the usual input). It is reduced by averaging whole blocks of pixels to
//   between kAnalysisSize and twice that on the long side (a smaller picture
//   is taken as it is), turned into sRGB-encoded 8-bit luminance and then
//   flipped and quarter-turned exactly as `crop` shows it, so the answer is
//   for the picture as the user sees it. crop.angle, crop.rect and the
//   aspect lock are ignored: the result replaces the straightening angle.
// - Edges are found with Canny's detector after a slight blur (kBlurSigma;
//   thresholds kCannyLow and kCannyHigh). A Hough transform over directions
//   within kSearchRange of horizontal, in steps of kAngleStep, counts the
//   edge pixels along every line; a pixel votes only for directions within
//   kSpread of the edge's own direction (from its gradient), so texture adds
//   little. The line with the most edge pixels wins, and its direction is
//   refined by a least-squares fit through its pixels (within kFitDistance).
// - Evidence is weak, and the result is nothing, when the winning line is
//   more than kMaxTilt from horizontal (the strongest lines of the picture
//   are edges of things, not a tilted horizon), when it has fewer edge pixels
//   than kMinLine of the frame width, or when the best line in a direction
//   more than kSeparation away has at least kRivalRatio of its pixels (for
//   example converging lines of a building seen in perspective).
// - The value returned is what crop.angle must hold to level that line: the
//   render turns the picture clockwise for positive angles (y down), so a
//   line that falls to the right (dy/dx > 0 on screen) gives a negative angle.
//   Its magnitude is at most kMaxTilt.
// - A set cancel token is checked between stages; a cancelled run returns
//   nothing. Stateless and safe to call from any thread.
#pragma once

#include <optional>

#include "model/adjustments.h"
#include "render/cancel_token.h"
#include "render/image.h"

namespace vg {

struct HorizonDetector {
  static constexpr int kAnalysisSize = 800;      // long side of the analysed picture, px
  static constexpr double kBlurSigma = 1.0;      // pixels of the analysed picture
  static constexpr double kCannyLow = 10;        // gradient thresholds on 8-bit levels
  static constexpr double kCannyHigh = 30;
  static constexpr double kSearchRange = 30;     // degrees from horizontal that vote
  static constexpr double kAngleStep = 0.2;      // degrees between directions
  static constexpr double kSpread = 3;           // degrees an edge pixel votes either side
  static constexpr double kFitDistance = 2;      // pixels from the line, for the fit
  static constexpr double kMaxTilt = 15;         // the largest tilt taken for a horizon, degrees
  static constexpr double kMinLine = 0.25;       // edge pixels on the line / frame width
  static constexpr double kSeparation = 3.0;     // degrees between rival directions
  static constexpr double kRivalRatio = 0.7;     // rival line / winning line
};

std::optional<double> detectHorizonAngle(const Image& previewSource, const CropSettings& crop,
                                         const AsyncCancelToken* cancel = nullptr);

}  // namespace vg
