// Crop edits checked against the render engine: a turned or mirrored crop
// must select the same pixels, turned or mirrored; a refitted straightened
// crop must show no empty corner.
#include <gtest/gtest.h>

#include <cmath>

#include "render/render_engine.h"
#include "session/crop_session.h"

namespace vg {
namespace {

// Every pixel distinct: its own coordinates in red and green.
Image coordinates(int w, int h) {
  Image image(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = image.at(x, y);
      p[0] = float(x) / float(w);
      p[1] = float(y) / float(h);
      p[2] = 0.5f;
      p[3] = 1;
    }
  return image;
}

Image rendered(const Image& source, const CropSettings& crop) {
  static RenderEngine engine;
  EditDocument doc;
  doc.crop = crop;
  return engine.render(source, doc, {}, RenderOptions{});
}

float minimumAlpha(const Image& image) {
  float a = 1;
  for (int y = image.bounds().y; y < image.bounds().bottom(); ++y)
    for (int x = image.bounds().x; x < image.bounds().right(); ++x) a = std::min(a, image.at(x, y)[3]);
  return a;
}

TEST(CropSessionTest, TurnsComeBackAroundAndCancelEachOther) {
  CropSettings crop;
  crop.rect = NormalizedRect{0.125, 0.25, 0.5, 0.375};
  crop.aspectLock = 1.5;
  crop.quarterTurn = 3;
  CropSettings c = crop;
  for (int i = 0; i < 4; ++i) c = rotatedQuarter(c, true);
  EXPECT_EQ(c.quarterTurn, 3);
  EXPECT_EQ(c.rect, crop.rect);
  EXPECT_DOUBLE_EQ(*c.aspectLock, 1.5);
  EXPECT_EQ(rotatedQuarter(rotatedQuarter(crop, true), false).rect, crop.rect);
  EXPECT_EQ(rotatedQuarter(crop, true).quarterTurn, 0);
  EXPECT_EQ(rotatedQuarter(CropSettings{}, false).quarterTurn, 3);

  CropSettings bare;
  bare.angle = 4;
  CropSettings turned = rotatedQuarter(bare, true);
  bare.quarterTurn = 1;
  EXPECT_EQ(turned, bare) << "only quarterTurn changes without a rectangle or a lock";
}

TEST(CropSessionTest, ATurnedOrMirroredCropSelectsTheSamePixelsTurnedOrMirrored) {
  const Image source = coordinates(64, 32);
  CropSettings crop;
  crop.rect = NormalizedRect{0.25, 0.125, 0.5, 0.5};
  const Image a = rendered(source, crop);
  ASSERT_EQ(a.bounds(), (Rect{16, 4, 32, 16}));

  const CropSettings turned = rotatedQuarter(crop, true);
  const Image b = rendered(source, turned);
  ASSERT_EQ(b.bounds(), (Rect{12, 16, 16, 32}));
  for (int y = 4; y < 20; ++y)
    for (int x = 16; x < 48; ++x) ASSERT_EQ(b.at(31 - y, x)[0], a.at(x, y)[0]) << x << "," << y;

  // Mirrors as seen on screen, on the turned picture (frame 32 x 64).
  const Image h = rendered(source, mirroredOnScreen(turned, true));
  const Image v = rendered(source, mirroredOnScreen(turned, false));
  for (int y = 16; y < 48; ++y)
    for (int x = 12; x < 28; ++x) {
      ASSERT_EQ(h.at(31 - x, y)[0], b.at(x, y)[0]);
      ASSERT_EQ(v.at(x, 63 - y)[1], b.at(x, y)[1]);
    }

  // A straightened picture mirrors with its angle negated.
  CropSettings tilted;
  tilted.angle = 7;
  tilted.quarterTurn = 1;
  const Image t = rendered(source, tilted), m = rendered(source, mirroredOnScreen(tilted, true));
  ASSERT_EQ(t.bounds(), m.bounds());
  const Rect& r = t.bounds();
  for (int y = r.y; y < r.bottom(); ++y)
    for (int x = r.x; x < r.right(); ++x)
      ASSERT_NEAR(m.at(r.x + r.right() - 1 - x, y)[0], t.at(x, y)[0], 1e-4);
}

TEST(CropSessionTest, AStraightenedCropIsRefittedInsideTheRotatedPicture) {
  const Image source = coordinates(64, 32);
  CropSettings crop;
  crop.rect = NormalizedRect{0, 0, 1, 1};
  CropSettings unfitted = crop;
  unfitted.angle = 10;
  ASSERT_LT(minimumAlpha(rendered(source, unfitted)), 0.5f) << "the corners are empty without a refit";

  const CropSettings fitted = straightened(crop, 10, 64, 32);
  EXPECT_EQ(fitted.angle, 10);
  const Image image = rendered(source, fitted);
  EXPECT_GT(minimumAlpha(image), 0.99f);
  EXPECT_NEAR(double(image.bounds().width) / image.bounds().height, 2.0, 0.1) << "the aspect is kept";

  // Largest: the same rectangle 5 % larger shows empty corners again.
  CropSettings larger = fitted;
  larger.rect->x -= larger.rect->width * 0.025;
  larger.rect->y -= larger.rect->height * 0.025;
  larger.rect->width *= 1.05;
  larger.rect->height *= 1.05;
  EXPECT_LT(minimumAlpha(rendered(source, larger)), 0.99f);

  // A rectangle already inside stays; none stays none; the angle is clamped.
  CropSettings small;
  small.rect = NormalizedRect{0.375, 0.375, 0.25, 0.25};
  EXPECT_EQ(straightened(small, -12, 64, 32).rect, small.rect);
  EXPECT_FALSE(straightened(CropSettings{}, 30, 64, 32).rect);
  EXPECT_EQ(straightened(CropSettings{}, 60, 64, 32).angle, 45);
}

}  // namespace
}  // namespace vg
