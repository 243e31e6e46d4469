#include "render/mask_rasterizer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "codec/lzfse.h"
#include "model/log.h"
#include "render/parallel.h"
#include "render/srgb.h"

namespace vg {
namespace {

struct Frame {
  explicit Frame(Rect extent, GeometryParams p = {}) : geometry(extent, p) {}
  MaskFrame frame(const Image* colorStage = nullptr) const {
    return {&geometry, geometry.outputRect(), colorStage};
  }
  Geometry geometry;
};

GreyImage shape(const MaskKind& kind, const Frame& f, const Image* cs = nullptr) {
  std::optional<GreyImage> m = rasterizeShape(kind, f.frame(cs));
  EXPECT_TRUE(m.has_value());
  return m ? std::move(*m) : GreyImage();
}

TEST(MaskRasterizerTest, RadialFeatherAndInversion) {
  Frame f({0, 0, 200, 100});
  RadialMaskGeometry r;
  r.center = {100.5 / 200, 50.5 / 100};  // centre of pixel (100, 50)
  r.radiusX = 0.2;                        // 40 px
  r.radiusY = 0.3;                        // 30 px
  r.feather = 50;                         // flat inside d <= 0.525
  GreyImage m = shape(r, f);
  EXPECT_FLOAT_EQ(m.at(100, 50), 1.0f);
  EXPECT_FLOAT_EQ(m.at(120, 50), 1.0f);                    // d = 0.5
  EXPECT_NEAR(m.at(130, 50), (1 - 0.75) / 0.475, 1e-6);    // d = 0.75, on the ramp
  EXPECT_NEAR(m.at(100, 50 + 24), (1 - 0.8) / 0.475, 1e-6);  // the y axis uses radiusY
  EXPECT_FLOAT_EQ(m.at(141, 50), 0.0f);
  EXPECT_FLOAT_EQ(m.at(0, 0), 0.0f);

  r.feather = 0;  // nearly hard: the ramp is 0.1 % of the radius
  GreyImage hard = shape(r, f);
  EXPECT_FLOAT_EQ(hard.at(139, 50), 1.0f);
  EXPECT_FLOAT_EQ(hard.at(141, 50), 0.0f);

  r.invert = true;
  GreyImage inv = shape(r, f);
  EXPECT_FLOAT_EQ(inv.at(100, 50), 0.0f);
  EXPECT_FLOAT_EQ(inv.at(0, 0), 1.0f);

  // Rotated by 90 degrees the long axis becomes vertical.
  r.invert = false;
  r.angle = 90;
  r.feather = 0;
  GreyImage turned = shape(r, f);
  EXPECT_FLOAT_EQ(turned.at(100, 50 + 28), 1.0f);  // 28 px along the 40 px axis
  EXPECT_FLOAT_EQ(turned.at(100 + 35, 50), 0.0f);  // beyond the 30 px axis
}

TEST(MaskRasterizerTest, ShapesFollowTheGeometry) {
  Rect E{0, 0, 200, 100};
  RadialMaskGeometry r;
  r.center = {0.2, 0.3};  // source pixel (40, 30)
  r.radiusX = 0.02;
  r.radiusY = 0.04;
  r.feather = 0;

  GeometryParams flip;
  flip.flipHorizontal = true;
  Frame ff(E, flip);
  GreyImage mf = shape(r, ff);
  EXPECT_FLOAT_EQ(mf.at(160, 30), 1.0f);
  EXPECT_FLOAT_EQ(mf.at(40, 30), 0.0f);

  GeometryParams turn;
  turn.quarterTurn = 1;  // clockwise: (u, v) -> (H - v, u)
  Frame ft(E, turn);
  GreyImage mt = shape(r, ft);
  EXPECT_EQ(mt.bounds(), (Rect{0, 0, 100, 200}));
  EXPECT_FLOAT_EQ(mt.at(70, 40), 1.0f);
  EXPECT_FLOAT_EQ(mt.at(40, 30), 0.0f);

  // A crop moves the output frame, not the shape.
  GeometryParams crop;
  crop.crop = RectF{0.1, 0.1, 0.5, 0.5};
  Frame fc(E, crop);
  GreyImage mc = shape(r, fc);
  EXPECT_EQ(mc.bounds(), (Rect{20, 10, 100, 50}));
  EXPECT_FLOAT_EQ(mc.at(40, 30), 1.0f);
}

TEST(MaskRasterizerTest, LinearRampAcrossTheLine) {
  Frame f({0, 0, 100, 100});
  LinearMaskGeometry l;
  l.center = {0.5, 0.5};
  l.length = 0.4;   // 40 px
  l.feather = 50;   // half-width 20 px
  GreyImage m = shape(l, f);
  EXPECT_FLOAT_EQ(m.at(50, 10), 1.0f);  // above the line
  EXPECT_FLOAT_EQ(m.at(50, 90), 0.0f);
  EXPECT_NEAR(m.at(50, 49), 0.5 + 0.5 / 40, 1e-6);  // centre y = 49.5
  EXPECT_NEAR(m.at(3, 60), 0.5 - 10.5 / 40, 1e-6);  // constant along the line

  l.angle = 90;  // the up-vector points right
  GreyImage right = shape(l, f);
  EXPECT_FLOAT_EQ(right.at(95, 50), 1.0f);
  EXPECT_FLOAT_EQ(right.at(5, 50), 0.0f);

  l.angle = 0;
  l.feather = 0;  // ramp half-width floor: 0.02 x 40 px
  GreyImage hard = shape(l, f);
  EXPECT_FLOAT_EQ(hard.at(50, 48), 1.0f);
  EXPECT_FLOAT_EQ(hard.at(50, 51), 0.0f);

  l.invert = true;
  EXPECT_FLOAT_EQ(shape(l, f).at(50, 10), 0.0f);
}

TEST(MaskRasterizerTest, BrushDabsHardnessFlowAndErase) {
  Frame f({0, 0, 200, 200});
  BrushStroke dot;
  dot.points = {{100.5 / 200, 100.5 / 200}};
  dot.size = 0.1;  // 20 px across
  GreyImage hard = shape(std::vector<BrushStroke>{dot}, f);
  EXPECT_FLOAT_EQ(hard.at(100, 100), 1.0f);
  EXPECT_FLOAT_EQ(hard.at(108, 100), 1.0f);
  EXPECT_FLOAT_EQ(hard.at(111, 100), 0.0f);

  dot.hardness = 0;
  GreyImage soft = shape(std::vector<BrushStroke>{dot}, f);
  EXPECT_FLOAT_EQ(soft.at(100, 100), 1.0f);
  EXPECT_NEAR(soft.at(105, 100), 0.5f, 1e-6);  // half way: smooth step 0.5
  EXPECT_LT(soft.at(108, 100), 0.2f);

  dot.hardness = 100;
  dot.flow = 40;
  EXPECT_NEAR(shape(std::vector<BrushStroke>{dot}, f).at(100, 100), 0.4f, 1e-6);

  // A line of dabs at 40 % flow builds up along its length.
  BrushStroke line = dot;
  line.points = {{0.2, 0.5}, {0.8, 0.5}};
  GreyImage built = shape(std::vector<BrushStroke>{line}, f);
  EXPECT_GT(built.at(100, 100), 0.9f);
  EXPECT_FLOAT_EQ(built.at(100, 130), 0.0f);

  BrushStroke eraser = line;
  eraser.flow = 100;
  eraser.erase = true;
  eraser.points = {{0.5, 0.5}};
  GreyImage erased = shape(std::vector<BrushStroke>{line, eraser}, f);
  EXPECT_FLOAT_EQ(erased.at(100, 100), 0.0f);
  EXPECT_GT(erased.at(60, 100), 0.9f);

  // Degenerate strokes paint nothing.
  BrushStroke empty;
  empty.size = 0.1;
  BrushStroke zero = dot;
  zero.size = 0;
  GreyImage none = shape(std::vector<BrushStroke>{empty, zero}, f);
  EXPECT_FLOAT_EQ(none.at(100, 100), 0.0f);
}

TEST(MaskRasterizerTest, BitmapStretchesOverTheSource) {
  std::vector<uint8_t> raster = {0, 255, 255, 0,  //
                                 255, 255, 0, 0};
  BitmapMaskData b;
  b.width = 4;
  b.height = 2;
  b.compressedData = encodeLzfse(raster);
  Frame f({0, 0, 40, 20});
  GreyImage m = shape(b, f);
  EXPECT_FLOAT_EQ(m.at(0, 0), 0.0f);
  EXPECT_FLOAT_EQ(m.at(15, 2), 1.0f);   // inside raster pixel (1, 0)
  EXPECT_FLOAT_EQ(m.at(35, 18), 0.0f);
  EXPECT_FLOAT_EQ(m.at(5, 18), 1.0f);
  EXPECT_NEAR(m.at(19, 2), 1.0f, 1e-6);
  // Centre (20.5, 5.5) reads raster (1.55, 0.05): top 1, bottom 0.45.
  EXPECT_NEAR(m.at(20, 5), 1.0f - 0.55f * 0.05f, 1e-6);

  ScopedLogCapture capture;
  BitmapMaskData corrupt = b;
  corrupt.compressedData.resize(corrupt.compressedData.size() / 2);
  std::string error;
  EXPECT_FALSE(rasterizeShape(corrupt, f.frame(), &error));
  EXPECT_EQ(error, "蒙版数据损坏");
  BitmapMaskData wrongSize = b;
  wrongSize.width = 5;
  EXPECT_FALSE(rasterizeShape(wrongSize, f.frame()));
  BitmapMaskData negative = b;
  negative.height = -2;
  EXPECT_FALSE(rasterizeShape(negative, f.frame()));

  MaskLayer::RenderData layer;
  layer.kind = RadialMaskGeometry{};
  layer.subtracts = {corrupt};
  EXPECT_FALSE(rasterizeLayer(layer, f.frame()));
}

Image greyRamp(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float v = srgb::decode(float(x) / float(w - 1));  // encoded level x/(w-1)
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = v;
      p[3] = 1;
    }
  return img;
}

TEST(MaskRasterizerTest, LuminosityRangeOnEncodedLuma) {
  Image cs = greyRamp(101, 3);
  Frame f(cs.bounds());
  LuminanceMaskGeometry l;
  l.low = 0.3;
  l.high = 0.6;
  l.feather = 0;  // hard, both limits inside
  GreyImage m = shape(l, f, &cs);
  EXPECT_FLOAT_EQ(m.at(29, 1), 0.0f);
  EXPECT_FLOAT_EQ(m.at(31, 1), 1.0f);
  EXPECT_FLOAT_EQ(m.at(59, 1), 1.0f);
  EXPECT_FLOAT_EQ(m.at(61, 1), 0.0f);

  l.feather = 20;  // ramp 0.1
  GreyImage soft = shape(l, f, &cs);
  EXPECT_NEAR(soft.at(35, 1), 0.5f, 1e-3);
  EXPECT_NEAR(soft.at(45, 1), 1.0f, 1e-6);

  l.invert = true;
  EXPECT_NEAR(shape(l, f, &cs).at(45, 1), 0.0f, 1e-6);
  // Without colour-stage pixels the mask is empty (nothing selected).
  l.invert = false;
  EXPECT_FLOAT_EQ(shape(l, f).at(45, 1), 0.0f);
}

TEST(MaskRasterizerTest, ColorRangeComparesEncodedColour) {
  Image cs(Rect{0, 0, 3, 1});
  auto set = [&](int x, float r, float g, float b) {
    float* p = cs.at(x, 0);
    p[0] = srgb::decode(r); p[1] = srgb::decode(g); p[2] = srgb::decode(b); p[3] = 1;
  };
  set(0, 0.8f, 0.2f, 0.1f);
  set(1, 0.8f, 0.3f, 0.1f);
  set(2, 0.1f, 0.2f, 0.9f);
  ColorRangeGeometry c;
  c.red = 0.8; c.green = 0.2; c.blue = 0.1;
  c.tolerance = 0.05;
  c.feather = 0.1;
  Frame f(cs.bounds());
  GreyImage m = shape(c, f, &cs);
  EXPECT_NEAR(m.at(0, 0), 1.0f, 1e-5);
  EXPECT_NEAR(m.at(1, 0), 0.5f, 1e-3);  // distance 0.1: half way along the feather
  EXPECT_NEAR(m.at(2, 0), 0.0f, 1e-6);
}

TEST(MaskRasterizerTest, SubtractionMultipliesByTheInverse) {
  Frame f({0, 0, 100, 100});
  LinearMaskGeometry top;
  top.feather = 0;
  RadialMaskGeometry hole;
  hole.center = {0.5, 0.2};
  hole.radiusX = hole.radiusY = 0.1;
  hole.feather = 0;
  MaskLayer::RenderData layer;
  layer.kind = top;
  layer.subtracts = {hole};
  std::optional<GreyImage> m = rasterizeLayer(layer, f.frame());
  ASSERT_TRUE(m);
  EXPECT_FLOAT_EQ(m->at(50, 20), 0.0f);  // cut out
  EXPECT_FLOAT_EQ(m->at(10, 20), 1.0f);  // still selected
  EXPECT_FLOAT_EQ(m->at(50, 80), 0.0f);  // never selected

  // A soft subtract leaves the product, and an inverted subtract keeps only its inside.
  hole.feather = 100;
  hole.invert = true;
  hole.center = {0.505, 0.205};  // the centre of pixel (50, 20)
  layer.subtracts = {hole};
  std::optional<GreyImage> kept = rasterizeLayer(layer, f.frame());
  EXPECT_FLOAT_EQ(kept->at(50, 20), 1.0f);
  EXPECT_FLOAT_EQ(kept->at(10, 20), 0.0f);
}

TEST(MaskRasterizerTest, RegionsAndThreadCountsGiveTheSamePixels) {
  GeometryParams p;
  p.angle = 7;
  p.distortion = 20;
  Frame f({0, 0, 300, 200}, p);
  BrushStroke s;
  s.size = 0.05;
  s.hardness = 30;
  s.flow = 60;
  for (int i = 0; i < 20; ++i) s.points.push_back({0.1 + 0.04 * i, 0.5 + 0.2 * std::sin(i * 0.7)});
  MaskKind kind = std::vector<BrushStroke>{s};
  GreyImage full = shape(kind, f);
  Rect part{77, 41, 90, 63};
  std::optional<GreyImage> sub = rasterizeShape(kind, MaskFrame{&f.geometry, part, nullptr});
  ASSERT_TRUE(sub);
  EXPECT_EQ(*sub, full.cropped(part));
  {
    ScopedThreadLimit one(1);
    EXPECT_EQ(shape(kind, f), full);
  }
}

TEST(MaskRasterizerTest, CacheIsKeyedByValueAndEvictsOldestFirst) {
  Frame f({0, 0, 64, 64});
  MaskImageCache cache(2);
  MaskLayer::RenderData a;
  a.kind = RadialMaskGeometry{};
  MaskLayer::RenderData b = a;
  std::get<RadialMaskGeometry>(b.kind).radiusX = 0.1;
  MaskLayer::RenderData c = a;
  std::get<RadialMaskGeometry>(c.kind).feather = 10;

  auto ma = cache.layerMask(a, f.frame(), {}, false, 0);
  EXPECT_EQ(cache.layerMask(a, f.frame(), {}, false, 0), ma);  // same pointer: a hit
  MaskLayer::RenderData renamed = a;
  renamed.adjustments.exposure = 1;  // adjustments do not change the mask
  EXPECT_EQ(cache.layerMask(renamed, f.frame(), {}, false, 0), ma);
  cache.layerMask(b, f.frame(), {}, false, 0);
  cache.layerMask(c, f.frame(), {}, false, 0);
  EXPECT_EQ(cache.size(), 2u);
  MaskCacheKey keyA{a.kind, {}, f.geometry.sourceExtent(), {}, false, f.geometry.outputRect(), 0};
  EXPECT_EQ(cache.find(keyA), nullptr);  // the oldest went first
  EXPECT_EQ(cache.bytes(), 2 * size_t(64 * 64) * sizeof(float));
}

}  // namespace
}  // namespace vg
