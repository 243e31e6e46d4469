#include "session/red_eye_spots.h"

#include <algorithm>
#include <cmath>

namespace vg {

namespace {

double pixelDistance(Point a, Point b, double width, double height) {
  return std::hypot((a.x - b.x) * width, (a.y - b.y) * height);
}

}  // namespace

std::vector<RedEyeSpot> newRedEyeSpots(const std::vector<RedEyeSpot>& existing, const std::vector<RedEyeSpot>& detected,
                                       double width, double height) {
  const double shorter = std::min(width, height);
  std::vector<RedEyeSpot> kept;
  auto duplicate = [&](const RedEyeSpot& spot, const RedEyeSpot& other) {
    return pixelDistance(spot.center, other.center, width, height) <
           kDuplicateFactor * std::max(spot.radius, other.radius) * shorter;
  };
  for (const RedEyeSpot& spot : detected) {
    auto near = [&](const RedEyeSpot& other) { return duplicate(spot, other); };
    if (std::none_of(existing.begin(), existing.end(), near) && std::none_of(kept.begin(), kept.end(), near))
      kept.push_back(spot);
  }
  return kept;
}

std::optional<size_t> redEyeSpotAt(const std::vector<RedEyeSpot>& spots, Point point, double width, double height) {
  const double shorter = std::min(width, height);
  std::optional<size_t> best;
  double bestDistance = 0;
  for (size_t i = 0; i < spots.size(); ++i) {
    const double d = pixelDistance(spots[i].center, point, width, height);
    if (d <= kDuplicateFactor * spots[i].radius * shorter && (!best || d < bestDistance)) best = i, bestDistance = d;
  }
  return best;
}

RedEyeSpot manualRedEyeSpot(Point point) {
  RedEyeSpot spot;
  spot.center = point;
  spot.radius = kManualRadius;
  return spot;
}

}  // namespace vg
