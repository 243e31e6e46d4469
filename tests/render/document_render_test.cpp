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
