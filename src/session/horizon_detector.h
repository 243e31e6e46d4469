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
// - Line segments are found with OpenCV's line segment detector. Segments
//   within kSearchRange of horizontal and at least kMinSegment of the frame
//   width long vote for their direction with their length; the votes are
//   smoothed over angle and the strongest direction wins. The answer is the
//   length-weighted mean direction of the segments within kBand of it.
// - Evidence is weak, and the result is nothing, when the winning direction
//   is more than kMaxTilt from horizontal (the strongest lines of the picture
//   are not a tilted horizon but edges of things), when another direction
//   more than kSeparation away has at least kRivalRatio of its votes (for
//   example converging lines of a building seen in perspective), when its
//   segments add up to less than kMinSupport of the frame width, or when none
//   of them, joined along one line (kLineTolerance across, gaps up to
//   kMaxGap), spans kMinLine of the width. A soft horizon comes out of the
//   segment detector in pieces; joining them is what recognises it.
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
  static constexpr double kSearchRange = 30;     // degrees from horizontal that vote
  static constexpr double kMaxTilt = 15;         // the largest tilt taken for a horizon, degrees
  static constexpr double kMinSegment = 0.04;    // of the frame width
  static constexpr double kBand = 1.0;           // degrees around the winning direction
  static constexpr double kMinSupport = 0.25;    // of the frame width
  static constexpr double kMinLine = 0.15;       // of the frame width
  static constexpr double kLineTolerance = 0.01; // of the frame height, across a line
  static constexpr double kMaxGap = 0.15;        // of the frame width, along a line
  static constexpr double kSeparation = 3.0;     // degrees between rival directions
  static constexpr double kRivalRatio = 0.7;     // rival support / winning support
};

std::optional<double> detectHorizonAngle(const Image& previewSource, const CropSettings& crop,
                                         const AsyncCancelToken* cancel = nullptr);

}  // namespace vg
