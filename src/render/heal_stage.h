// The heal stage of the render: heal strokes repair the geometry-corrected,
// cropped image before the colour stage sees it.
//
// 1. The geometry (lens distortion, flips, turns, straightening, crop) is
//    applied to the whole source; the result covers the output rectangle.
// 2. The recipe's strokes are carried into that frame by the same mapping that
//    masks and red-eye spots follow (Geometry::normalisedToOutput), then
//    normalised to the output rectangle. The stroke size follows the frame's
//    scale: a size is a diameter relative to the source width, so in the frame
//    the radius is size x source width x 0.5 x k (k the straightening cover
//    factor); with no crop and no turn this is the healer's own
//    size x width x 0.5. A point that the crop cuts away is no dab centre.
// 3. The frame is healed as an 8-bit bitmap (heal_bitmap.h) and the healed
//    pixels are written back into the float frame.
// The caller then runs the colour stage on the result with its geometry
// marked as already applied.
//
// Caching (heal_cache.h): an equal request returns the cached image; a failed
// one is not tried again (the unhealed frame is returned and a log line
// written); a request whose strokes extend the last healed ones (same source,
// geometry and rectangle) heals only the new strokes on a copy of the last
// bitmap, and gives the same pixels as healing them all.
//
// Cancellation: the token is checked before every dab; a cancelled stage
// returns nothing and caches nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "render/cancel_token.h"
#include "render/geometry.h"
#include "render/heal_cache.h"
#include "render/healer.h"
#include "render/image.h"

namespace vg {

struct HealStageRequest {
  const Image* source = nullptr;  // working source; its bounds are the source extent
  HealSourceId sourceId = 0;
  GeometryParams geometry;
  bool integral = false;  // the preview's integral output rectangle
  std::span<const HealStroke> heals;
  const AsyncCancelToken* token = nullptr;
};

// A fingerprint of a source image: its bounds and a grid of up to 128 x 128
// pixels spread evenly over it (bit patterns, so -0 and NaNs count too).
// Cheap (well under a millisecond at 24 MP) and part of every heal cache key.
uint64_t sourceFingerprint(const Image& source);

// Strokes in the healer's frame: normalised to geometry.outputRect().
std::vector<Healer::Stroke> healStrokesInFrame(std::span<const HealStroke> heals, const Geometry& geometry);

// The geometry-corrected, healed frame (bounds = the output rectangle), or
// nothing when cancelled. Without strokes it is the geometry result alone.
std::shared_ptr<const Image> runHealStage(HealCache& cache, const HealStageRequest& request);

}  // namespace vg
