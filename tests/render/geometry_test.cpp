#include "render/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <optional>

namespace vg {
namespace {

// A source whose every pixel is distinct: R = x, G = y, B = 1, A = 1.
Image coordinateImage(Rect bounds) {
  Image img(bounds);
  for (int y = bounds.y; y < bounds.bottom(); ++y)
    for (int x = bounds.x; x < bounds.right(); ++x) {
      float* p = img.at(x, y);
      p[0] = float(x); p[1] = float(y); p[2] = 1; p[3] = 1;
    }
  return img;
}

// An opaque mid-grey source.
Image opaqueGrey(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = 0.5f; p[3] = 1;
    }
  return img;
}

Image renderAll(const Image& src, const Geometry& g) {
  Image out(g.outputRect());
  g.render(src, out);
  return out;
}

TEST(GeometryTest, NeutralIsTheSourceUnchanged) {
  Image src = coordinateImage({0, 0, 7, 5});
  Geometry g(src.bounds(), {});
  EXPECT_EQ(g.outputRect(), src.bounds());
  EXPECT_TRUE(g.isPixelPermutation());
  EXPECT_TRUE(g.isIdentity());
  Image out = renderAll(src, g);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x) EXPECT_EQ(out.at(x, y)[0], float(x));
  EXPECT_TRUE(Geometry(Rect{-3, 8, 600, 400}, {}).isIdentity());  // wherever the source lies

  // Anything that moves a pixel is not the identity.
  GeometryParams flip, turn, crop, angle, lens;
  flip.flipVertical = true;
  turn.quarterTurn = 2;
  crop.crop = RectF{0.1, 0.1, 0.5, 0.5};
  angle.angle = 0.5;
  lens.distortion = 10;
  for (const GeometryParams& p : {flip, turn, crop, angle, lens}) EXPECT_FALSE(Geometry(Rect{0, 0, 60, 40}, p).isIdentity());
}

TEST(GeometryTest, QuarterTurnsAreClockwiseAndExact) {
  Image src = coordinateImage({0, 0, 3, 2});
  GeometryParams p;
  p.quarterTurn = 1;
  Geometry g1(src.bounds(), p);
  EXPECT_EQ(g1.outputRect(), (Rect{0, 0, 2, 3}));
  Image o1 = renderAll(src, g1);
  // Clockwise: the source's top-left pixel lands at the top-right, its
  // bottom-left at the top-left.
  EXPECT_EQ(o1.at(1, 0)[0], 0.f); EXPECT_EQ(o1.at(1, 0)[1], 0.f);
  EXPECT_EQ(o1.at(0, 0)[0], 0.f); EXPECT_EQ(o1.at(0, 0)[1], 1.f);
  EXPECT_EQ(o1.at(0, 2)[0], 2.f); EXPECT_EQ(o1.at(0, 2)[1], 1.f);

  p.quarterTurn = 2;
  Image o2 = renderAll(src, Geometry(src.bounds(), p));
  EXPECT_EQ(o2.at(0, 0)[0], 2.f); EXPECT_EQ(o2.at(0, 0)[1], 1.f);

  p.quarterTurn = 7;  // two low bits: 3, counter-clockwise
  Geometry g3(src.bounds(), p);
  Image o3 = renderAll(src, g3);
  EXPECT_EQ(g3.outputRect(), (Rect{0, 0, 2, 3}));
  EXPECT_EQ(o3.at(0, 0)[0], 2.f); EXPECT_EQ(o3.at(0, 0)[1], 0.f);
  EXPECT_EQ(o3.at(1, 2)[0], 0.f); EXPECT_EQ(o3.at(1, 2)[1], 1.f);
}

TEST(GeometryTest, FlipsMirrorAboutTheCentreLines) {
  Image src = coordinateImage({10, 20, 4, 3});
  GeometryParams p;
  p.flipHorizontal = true;
  p.flipVertical = true;
  Geometry g(src.bounds(), p);
  Image out = renderAll(src, g);
  EXPECT_EQ(out.at(10, 20)[0], 13.f);
  EXPECT_EQ(out.at(10, 20)[1], 22.f);
  PointF q = g.toOutput({10.25, 20.5});
  EXPECT_DOUBLE_EQ(q.x, 13.75);
  EXPECT_DOUBLE_EQ(q.y, 22.5);
}

TEST(GeometryTest, ForwardAndInverseMappingsAgree) {
  Rect E{0, 0, 600, 400};
  for (double distortion : {0.0, 40.0, -15.0}) {
    for (int turn = 0; turn < 4; ++turn) {
      for (double angle : {0.0, 7.5, -30.0}) {
        GeometryParams p;
        p.distortion = distortion;
        p.quarterTurn = turn;
        p.angle = angle;
        p.flipHorizontal = turn == 1;
        Geometry g(E, p);
        for (PointF s : {PointF{10, 20}, PointF{300, 200}, PointF{590, 33}, PointF{123.4, 380.9}}) {
          PointF back = g.toSource(g.toOutput(s));
          EXPECT_NEAR(back.x, s.x, 1e-6) << distortion << " " << turn << " " << angle;
          EXPECT_NEAR(back.y, s.y, 1e-6);
        }
      }
    }
  }
}

TEST(GeometryTest, StraightenCoversTheFrame) {
  const Image src = opaqueGrey(120, 80);
  for (double angle : {3.0, -12.0, 45.0}) {
    GeometryParams p;
    p.angle = angle;
    Geometry g(src.bounds(), p);
    // Without a crop the output keeps the frame size before straightening.
    EXPECT_EQ(g.outputRect(), src.bounds()) << angle;
    double c = std::fabs(std::cos(angle * M_PI / 180)), t = std::fabs(std::sin(angle * M_PI / 180));
    EXPECT_DOUBLE_EQ(g.coverFactor(), std::max((c * 120 + t * 80) / 120, (t * 120 + c * 80) / 80));
    Image out = renderAll(src, g);
    for (int y = 0; y < 80; ++y)
      for (int x = 0; x < 120; ++x) {
        ASSERT_NEAR(out.at(x, y)[3], 1.0f, 1e-5) << angle << " at " << x << "," << y;
        ASSERT_NEAR(out.at(x, y)[0], 0.5f, 1e-5);
      }
  }
}

// coversOutput() against the rendered truth: an opaque source through the
// geometry, every output alpha looked at. Where the answer is exact the two
// agree; the one conservative case (strong barrel distortion with a crop past
// the turned picture) may only err towards "not covered".
TEST(GeometryTest, CoversOutputExactlyWhenNoOutputPixelIsTransparent) {
  const Image src = opaqueGrey(120, 80);
  auto params = [](double angle, double distortion, int turn, std::optional<RectF> crop) {
    GeometryParams p;
    p.angle = angle;
    p.distortion = distortion;
    p.quarterTurn = turn;
    p.flipHorizontal = turn == 3;
    p.crop = crop;
    return p;
  };
  const RectF whole{0, 0, 1, 1}, centre{0.3, 0.3, 0.4, 0.4}, edge{0, 0.2, 0.5, 0.6};
  struct Case {
    GeometryParams p;
    bool covered;
  };
  const Case exact[] = {
      {params(0, 0, 0, {}), true},          {params(0, 0, 1, edge), true},
      {params(10, 0, 0, {}), true},         {params(-33, 0, 3, {}), true},
      {params(10, 0, 0, whole), false},     {params(10, 0, 1, centre), true},
      {params(-4, 0, 0, edge), false},      {params(0, 40, 0, {}), false},
      {params(0, 40, 1, centre), true},     {params(0, 100, 0, edge), false},
      {params(0, -40, 0, {}), true},        {params(0, -100, 2, {}), true},
      {params(12, -30, 0, {}), true},       {params(12, 30, 1, centre), true},
  };
  auto allOpaque = [&](const Geometry& g) {
    Image out = renderAll(src, g);
    for (int y = out.bounds().y; y < out.bounds().bottom(); ++y)
      for (int x = out.bounds().x; x < out.bounds().right(); ++x)
        if (out.at(x, y)[3] < 0.5f) return false;
    return true;
  };
  for (size_t i = 0; i < std::size(exact); ++i) {
    Geometry g(src.bounds(), exact[i].p);
    EXPECT_EQ(allOpaque(g), exact[i].covered) << "case " << i;
    EXPECT_EQ(g.coversOutput(), exact[i].covered) << "case " << i;
  }
  Geometry conservative(src.bounds(), params(20, -100, 0, whole));
  if (conservative.coversOutput()) EXPECT_TRUE(allOpaque(conservative));
}

TEST(GeometryTest, PositiveAngleTurnsClockwise) {
  GeometryParams p;
  p.angle = 10;
  Geometry g({0, 0, 200, 200}, p);
  // A point right of the centre moves down on screen.
  PointF q = g.toOutput({180, 100});
  EXPECT_GT(q.y, 100);
}

TEST(GeometryTest, CropRectanglesSnapAndLockAspect) {
  Rect E{0, 0, 300, 200};
  GeometryParams p;
  p.crop = RectF{0.25, 0.5, 0.5, 0.5};
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{75, 100, 150, 100}));

  // Square lock on the whole frame: the height bounds it, re-centred.
  p.crop = RectF{0, 0, 1, 1};
  p.aspectLock = 1.0;
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{50, 0, 200, 200}));
  // Portrait lock narrows the width; the height follows it.
  p.aspectLock = 0.5;
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{100, 0, 100, 200}));
  // Landscape 16:9 of a 3:2 frame.
  p.aspectLock = 16.0 / 9.0;
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{1, 16, 298, 168}));
  // An aspect lock without a crop rectangle changes nothing.
  p.crop.reset();
  EXPECT_EQ(Geometry(E, p).outputRect(), E);

  // A sliver still gets two pixels of width; a crop is kept inside F.
  p.aspectLock.reset();
  p.crop = RectF{0.5, 0.25, 0.0001, 0.5};
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{150, 50, 2, 100}));

  // After a quarter turn the crop is normalised to the turned frame.
  p.crop = RectF{0, 0, 1, 0.5};
  p.quarterTurn = 1;
  EXPECT_EQ(Geometry(E, p).outputRect(), (Rect{0, 0, 200, 150}));
}

TEST(GeometryTest, StraightenedCropIsNormalisedToTheScaledFrame) {
  Rect E{0, 0, 400, 300};
  GeometryParams p;
  p.angle = 5;
  p.crop = RectF{0.1, 0.1, 0.8, 0.8};
  Geometry g(E, p);
  const RectF& F = g.frame();
  EXPECT_NEAR(F.width, 400 * g.coverFactor(), 1e-9);
  double w = 0.8 * F.width, h = 0.8 * F.height;
  Rect r = g.outputRect();
  EXPECT_EQ(r.width, int(w));
  EXPECT_EQ(r.height, int(h));
  EXPECT_EQ(r.x, int(std::trunc(200 - r.width / 2.0)));

  // The preview's integral variant rounds the frame outwards instead.
  p.crop.reset();
  Geometry gi(E, p, /*integral=*/true);
  EXPECT_EQ(gi.outputRect(), E);
  p.crop = RectF{0.1, 0.1, 0.8, 0.8};
  Geometry gc(E, p, true);
  double ox = F.x + 0.1 * F.width;
  EXPECT_EQ(gc.outputRect().x, int(std::floor(ox)));
  EXPECT_EQ(gc.outputRect().right(), int(std::ceil(ox + w)));
}

TEST(GeometryTest, InputRectCoversEverySampleTaken) {
  Rect E{0, 0, 160, 120};
  GeometryParams p;
  p.distortion = -70;
  p.angle = 12;
  p.quarterTurn = 1;
  Geometry g(E, p);
  Rect region{30, 40, 50, 30};
  Rect need = g.inputRectFor(region);
  ASSERT_FALSE(need.empty());
  // Poison everything outside the needed rectangle: it must not be read.
  Image src(E);
  for (int y = 0; y < E.height; ++y)
    for (int x = 0; x < E.width; ++x) {
      float v = need.contains(x, y) ? 0.25f : NAN;
      float* px = src.at(x, y);
      px[0] = px[1] = px[2] = v; px[3] = 1;
    }
  Image out(region);
  g.render(src, out);
  for (int y = region.y; y < region.bottom(); ++y)
    for (int x = region.x; x < region.right(); ++x) ASSERT_FALSE(std::isnan(out.at(x, y)[0])) << x << "," << y;
  EXPECT_LT(need.area(), E.area());
}

TEST(GeometryTest, SubRegionEqualsCropOfFullRender) {
  Image src = coordinateImage({0, 0, 90, 70});
  GeometryParams p;
  p.angle = -8;
  p.distortion = 25;
  Geometry g(src.bounds(), p);
  Image full = renderAll(src, g);
  Image part(Rect{20, 10, 33, 17});
  g.render(src, part);
  for (int y = 10; y < 27; ++y)
    for (int x = 20; x < 53; ++x)
      for (int c = 0; c < 4; ++c) ASSERT_EQ(part.at(x, y)[c], full.at(x, y)[c]);
}

}  // namespace
}  // namespace vg
