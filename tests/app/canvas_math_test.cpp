// The canvas's pure rules: the viewport's zoom, pan and clamping, and the
// show-original key gesture.
#include <gtest/gtest.h>

#include <random>

#include "app/canvas/show_original_gesture.h"
#include "app/canvas/viewport.h"

namespace vg::app {
namespace {

Viewport makeViewport(double vw, double vh, double iw, double ih) {
  Viewport v;
  v.resize(vw, vh);
  v.setImageSize(iw, ih);
  return v;
}

TEST(Viewport, FitShowsTheWholePictureCentred) {
  for (auto [iw, ih] : {std::pair{6000.0, 4000.0}, {400.0, 3000.0}, {50.0, 50.0}}) {
    Viewport v = makeViewport(1200, 800, iw, ih);
    const ViewRect r = v.imageRectInView();
    EXPECT_LE(r.width, 1200 + 1e-9);
    EXPECT_LE(r.height, 800 + 1e-9);
    EXPECT_NEAR(r.x + r.width / 2, 600, 1e-9);
    EXPECT_NEAR(r.y + r.height / 2, 400, 1e-9);
    // One side nearly fills the view: the margin, no more.
    EXPECT_NEAR(std::max(r.width / 1200, r.height / 800), Viewport::kFitMargin, 1e-9);
  }
}

TEST(Viewport, ZoomAtKeepsThePointUnderTheCursor) {
  // Anchors in the middle of a large picture, so no clamping interferes.
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> x(300, 900), y(200, 600), s(1.0, 8.0);
  for (int i = 0; i < 200; ++i) {
    Viewport v = makeViewport(1200, 800, 6000, 4000);
    v.zoomAt({600, 400}, 1.0);
    const ViewPoint anchor{x(rng), y(rng)};
    const ViewPoint before = v.toImage(anchor);
    v.zoomAt(anchor, s(rng));
    const ViewPoint after = v.toImage(anchor);
    EXPECT_NEAR(after.x, before.x, 1e-6);
    EXPECT_NEAR(after.y, before.y, 1e-6);
    EXPECT_FALSE(v.fitted);
  }
}

TEST(Viewport, PanNeverOpensAGapAndSmallPicturesStayCentred) {
  Viewport v = makeViewport(1200, 800, 6000, 4000);
  v.zoomAt({0, 0}, 1.0);
  v.panBy(1e6, 1e6);  // far to the bottom right: the top-left corner shows
  EXPECT_NEAR(v.imageRectInView().x, 0, 1e-9);
  EXPECT_NEAR(v.imageRectInView().y, 0, 1e-9);
  v.panBy(-1e7, -1e7);
  const ViewRect r = v.imageRectInView();
  EXPECT_NEAR(r.x + r.width, 1200, 1e-6);
  EXPECT_NEAR(r.y + r.height, 800, 1e-6);
  // At 100 % the visible part is exactly the view's size in image pixels.
  EXPECT_NEAR(v.visibleImageRect().width, 1200, 1e-6);
  EXPECT_NEAR(v.visibleImageRect().height, 800, 1e-6);

  Viewport small = makeViewport(1200, 800, 300, 200);
  small.zoomAt({0, 0}, 1.0);
  small.panBy(500, -300);
  EXPECT_NEAR(small.imageRectInView().x, 450, 1e-9);
  EXPECT_NEAR(small.imageRectInView().y, 300, 1e-9);
  // The scale stays in its bounds.
  small.zoomAt({0, 0}, 1e9);
  EXPECT_DOUBLE_EQ(small.scale, Viewport::kMaxScale);
  small.zoomAt({0, 0}, 1e-9);
  EXPECT_DOUBLE_EQ(small.scale, small.minScale());
}

TEST(Viewport, ResizeFollowsFitUntilTheUserZooms) {
  Viewport v = makeViewport(1200, 800, 6000, 4000);
  v.resize(600, 400);
  EXPECT_NEAR(v.scale, 0.1 * Viewport::kFitMargin, 1e-12);
  v.zoomAt({300, 200}, 1.0);
  v.resize(1200, 800);
  EXPECT_DOUBLE_EQ(v.scale, 1.0);
  // A new frame size (a crop) fits again; the same size keeps the zoom.
  v.setImageSize(6000, 4000);
  EXPECT_DOUBLE_EQ(v.scale, 1.0);
  v.setImageSize(3000, 4000);
  EXPECT_TRUE(v.fitted);
}

TEST(ShowOriginalGesture, HoldShowsOriginalAndDoubleTapSwitches) {
  using namespace std::chrono_literals;
  ShowOriginalGesture g;
  const auto t0 = std::chrono::steady_clock::time_point{} + 10s;
  EXPECT_TRUE(g.press(t0));
  EXPECT_TRUE(g.showingOriginal());
  EXPECT_FALSE(g.release(t0 + 2s));  // a long hold ends where it started
  // Two quick taps: the original stays.
  g.press(t0 + 3s);
  g.release(t0 + 3s + 100ms);
  g.press(t0 + 3s + 300ms);
  EXPECT_TRUE(g.release(t0 + 3s + 400ms));
  EXPECT_TRUE(g.toggled());
  // Holding now shows the edited picture; releasing shows the original again.
  EXPECT_FALSE(g.press(t0 + 10s));
  EXPECT_TRUE(g.release(t0 + 12s));
  // Two taps too far apart do not switch back.
  g.press(t0 + 20s);
  g.release(t0 + 20s + 100ms);
  g.press(t0 + 21s);
  g.release(t0 + 21s + 100ms);
  EXPECT_TRUE(g.toggled());
  // A third quick tap after a lone one does: it pairs with the one before.
  g.press(t0 + 21s + 300ms);
  EXPECT_FALSE(g.release(t0 + 21s + 350ms));
  EXPECT_FALSE(g.toggled());
}

}  // namespace
}  // namespace vg::app
