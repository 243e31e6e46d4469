#include "render/document_render.h"

#include <gtest/gtest.h>

#include "model/log.h"

namespace vg {
namespace {

Image ramp(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = float(x) / float(w - 1);
      p[3] = 1;
    }
  return img;
}

TEST(DocumentRenderTest, MasksAreRasterisedInTheOutputFrame) {
  RenderEngine engine;
  MaskImageCache cache;
  Image src = ramp(80, 40);
  EditDocument doc;
  doc.crop.rect = NormalizedRect{0.5, 0, 0.5, 1};  // the right half
  MaskLayer bright;
  bright.kind = LuminanceMaskGeometry{0.9, 1, 0, false};  // only the brightest columns
  bright.adjustments.exposure = -1;
  doc.masks = {bright};
  DocumentRender r = renderDocument(engine, cache, src, doc, {});
  EXPECT_TRUE(r.maskErrors.empty());
  EXPECT_EQ(r.image.bounds(), (Rect{40, 0, 40, 40}));
  EXPECT_FLOAT_EQ(r.image.at(79, 5)[0], src.at(79, 5)[0] * 0.5f);  // selected: darkened
  EXPECT_FLOAT_EQ(r.image.at(45, 5)[0], src.at(45, 5)[0]);         // not selected

  // An override replaces the rasterised mask.
  auto everywhere = std::make_shared<GreyImage>(Rect{40, 0, 40, 40}, 1.0f);
  DocumentRender o = renderDocument(engine, cache, src, doc, {}, {{bright.id, everywhere}});
  EXPECT_FLOAT_EQ(o.image.at(45, 5)[0], src.at(45, 5)[0] * 0.5f);
}

TEST(DocumentRenderTest, RegionsOfACroppedFrameEqualTheFullRender) {
  // The output frame starts right of and below the source origin (crop and
  // straightening), and the regions start inside it: mask rows and image
  // rows are indexed from frame coordinates that are never 0. Point-only
  // layers (radial, luminosity) take the fused path, the textured brush layer
  // the full pass.
  RenderEngine engine;
  MaskImageCache cache;
  Image src(120, 90);
  for (int y = 0; y < 90; ++y)
    for (int x = 0; x < 120; ++x) {
      float* p = src.at(x, y);
      p[0] = float(x) / 119, p[1] = float(y) / 89, p[2] = float((x * 7 + y * 3) % 17) / 16, p[3] = 1;
    }
  EditDocument doc;
  doc.crop.rect = NormalizedRect{0.3, 0.2, 0.6, 0.7};
  doc.crop.angle = 3;
  MaskLayer radial, bright, brush;
  radial.kind = RadialMaskGeometry{{0.6, 0.5}, 0.15, 0.2, 20, 40, false};
  radial.adjustments.exposure = 0.7;
  bright.kind = LuminanceMaskGeometry{0.5, 1, 30, false};
  bright.adjustments.saturation = -60;
  BrushStroke stroke{{{0.4, 0.4}, {0.8, 0.7}}, 0.1, 50, 100, false};
  brush.kind = std::vector<BrushStroke>{stroke};
  brush.adjustments.texture = 70;
  doc.masks = {radial, bright, brush};
  const DocumentRender full = renderDocument(engine, cache, src, doc, {});
  const Rect& frame = full.image.bounds();
  ASSERT_GT(frame.x, 0);
  ASSERT_GT(frame.y, 0);
  for (Rect r : {Rect{frame.x + 9, frame.y + 5, 31, 22}, Rect{frame.right() - 17, frame.y + 30, 17, 20}}) {
    RenderOptions o;
    o.region = r;
    const DocumentRender part = renderDocument(engine, cache, src, doc, o);
    ASSERT_EQ(part.image.bounds(), r);
    float worst = 0;
    for (int y = r.y; y < r.bottom(); ++y)
      for (int x = r.x; x < r.right(); ++x)
        for (int c = 0; c < 4; ++c) worst = std::max(worst, std::abs(part.image.at(x, y)[c] - full.image.at(x, y)[c]));
    EXPECT_LT(worst, 1e-5f) << r;
  }
}

TEST(DocumentRenderTest, ACorruptBitmapLayerIsSkippedAndReported) {
  RenderEngine engine;
  MaskImageCache cache;
  Image src = ramp(20, 10);
  EditDocument doc;
  MaskLayer broken;
  BitmapMaskData bitmap;
  bitmap.width = 20;
  bitmap.height = 10;
  bitmap.compressedData = {1, 2, 3};
  broken.kind = bitmap;
  broken.adjustments.exposure = 2;
  doc.masks = {broken};
  ScopedLogCapture capture;
  DocumentRender r = renderDocument(engine, cache, src, doc, {});
  ASSERT_EQ(r.maskErrors.size(), 1u);
  EXPECT_EQ(r.maskErrors[0], "蒙版数据损坏");
  EXPECT_FLOAT_EQ(r.image.at(10, 5)[0], src.at(10, 5)[0]);
  bool logged = false;
  for (const std::string& line : capture.lines()) logged = logged || line == "蒙版数据损坏";
  EXPECT_TRUE(logged);
}

}  // namespace
}  // namespace vg
