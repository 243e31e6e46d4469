// The red-eye spots of a document as the session edits them: which detected
// spots are new, which spot a click hits, and the spot a click places.
//
// Distances are measured in pixels of the upright image (width x height):
// centres are normalised to the width and the height, radii to the shorter
// side (the recipe's units).
//
// - newRedEyeSpots: the detected spots, in order, without those that lie
//   closer than kDuplicateFactor x the larger of the two radii to a spot of
//   the document or to a detected spot already kept (so of two pupils of a
//   tiny face closer than that, only the first is kept).
// - redEyeSpotAt: the index of the spot nearest to `point` among those within
//   kDuplicateFactor x their radius of it (the same reach that makes a spot
//   a duplicate), if any.
// - manualRedEyeSpot: a spot of kManualRadius at `point`, with a fresh id.
#pragma once

#include <optional>
#include <vector>

#include "model/masks.h"

namespace vg {

inline constexpr double kDuplicateFactor = 1.5;
inline constexpr double kManualRadius = 0.02;

std::vector<RedEyeSpot> newRedEyeSpots(const std::vector<RedEyeSpot>& existing, const std::vector<RedEyeSpot>& detected,
                                       double width, double height);

std::optional<size_t> redEyeSpotAt(const std::vector<RedEyeSpot>& spots, Point point, double width, double height);

RedEyeSpot manualRedEyeSpot(Point point);

}  // namespace vg
