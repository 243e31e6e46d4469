#include <gtest/gtest.h>

#include "session/red_eye_spots.h"

namespace vg {
namespace {

RedEyeSpot spot(double x, double y, double r) {
  RedEyeSpot s;
  s.center = {x, y};
  s.radius = r;
  return s;
}

// A 2000 x 1000 picture: radii in units of 1000 px, x in units of 2000 px.
TEST(RedEyeSpots, DetectedSpotsNearOnesAlreadyThereAreDropped) {
  const std::vector<RedEyeSpot> existing{spot(0.5, 0.5, 0.02)};  // 20 px
  // 29 px away (inside 1.5 x 20), 31 px away (outside), and a larger detected
  // radius of 0.03 that reaches 45 px.
  auto kept = newRedEyeSpots(existing, {spot(0.5145, 0.5, 0.01), spot(0.5155, 0.5, 0.01), spot(0.5, 0.544, 0.03)}, 2000, 1000);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].center.x, 0.5155);
  // Distances are in pixels: 0.02 of the height is 20 px, but 0.02 of the width 40 px.
  EXPECT_EQ(newRedEyeSpots(existing, {spot(0.5, 0.52, 0.01)}, 2000, 1000).size(), 0u);
  EXPECT_EQ(newRedEyeSpots(existing, {spot(0.52, 0.5, 0.01)}, 2000, 1000).size(), 1u);
  // Two pupils of a tiny face closer than 1.5 radii: only the first.
  auto tiny = newRedEyeSpots({}, {spot(0.2, 0.2, 0.015), spot(0.21, 0.2, 0.015), spot(0.3, 0.2, 0.015)}, 2000, 1000);
  ASSERT_EQ(tiny.size(), 2u);
  EXPECT_EQ(tiny[0].center.x, 0.2);
  EXPECT_EQ(tiny[1].center.x, 0.3);
  // Running the same detection again adds nothing.
  EXPECT_TRUE(newRedEyeSpots(tiny, tiny, 2000, 1000).empty());
}

TEST(RedEyeSpots, AClickHitsTheNearestSpotWithinReach) {
  const std::vector<RedEyeSpot> spots{spot(0.5, 0.5, 0.02), spot(0.52, 0.5, 0.02)};  // 40 px apart
  EXPECT_EQ(redEyeSpotAt(spots, {0.508, 0.5}, 2000, 1000), 0u);  // 16 px from the first, 24 from the second
  EXPECT_EQ(redEyeSpotAt(spots, {0.512, 0.5}, 2000, 1000), 1u);
  EXPECT_EQ(redEyeSpotAt(spots, {0.5, 0.529}, 2000, 1000), 0u);  // 29 px: within 30
  EXPECT_FALSE(redEyeSpotAt(spots, {0.5, 0.531}, 2000, 1000));
  EXPECT_FALSE(redEyeSpotAt({}, {0.5, 0.5}, 2000, 1000));
  RedEyeSpot placed = manualRedEyeSpot({0.25, 0.75});
  EXPECT_EQ(placed.center, (Point{0.25, 0.75}));
  EXPECT_EQ(placed.radius, kManualRadius);
  EXPECT_NE(placed.id, manualRedEyeSpot({0.25, 0.75}).id);
}

}  // namespace
}  // namespace vg
