// A recipe rendered band by band for export equals the whole-picture render,
// with masks (including one that reads the colour stage) and a crop.
#include <gtest/gtest.h>

#include <cmath>

#include "export_readback.h"
#include "io/document_band_source.h"
#include "io/image_exporter.h"
#include "render/document_render.h"
#include "support/test_support.h"

namespace vg {
namespace {

Image scene(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = 0.1f + 0.8f * float(x) / float(w);
      p[1] = 0.2f + 0.5f * float((x / 7 + y / 5) % 2);
      p[2] = 0.6f * float(y) / float(h);
      p[3] = 1;
    }
  return img;
}

EditDocument typicalRecipe() {
  EditDocument doc;
  doc.adjustments.exposure = 0.5;
  doc.adjustments.contrast = 20;
  doc.adjustments.saturation = 15;
  doc.adjustments.vignetteAmount = -30;
  doc.adjustments.sharpen = 40;
  doc.crop.rect = NormalizedRect{0.1, 0.05, 0.8, 0.85};
  MaskLayer radial;
  radial.kind = RadialMaskGeometry{};
  radial.adjustments.exposure = -0.7;
  doc.masks.push_back(radial);
  MaskLayer bright;
  bright.kind = LuminanceMaskGeometry{};
  bright.adjustments.saturation = -50;
  doc.masks.push_back(bright);
  return doc;
}

TEST(ExportDocument, BandsEqualTheWholeRender) {
  Image source = scene(160, 120);
  EditDocument recipe = typicalRecipe();
  RenderEngine engine;
  MaskImageCache cache;
  DocumentRender whole = renderDocument(engine, cache, source, recipe, RenderOptions{});
  ASSERT_TRUE(whole.maskErrors.empty());

  DocumentBandSource bands(engine, source, true, recipe);
  ASSERT_EQ(bands.width(), whole.image.width());
  ASSERT_EQ(bands.height(), whole.image.height());
  EXPECT_TRUE(bands.opaque());
  const Rect& origin = whole.image.bounds();
  float worst = 0;
  for (int rows : {1, 13, 64}) {
    for (int y0 = 0; y0 < bands.height(); y0 += rows) {
      int n = std::min(rows, bands.height() - y0);
      Image band = bands.renderBand(Rect{0, y0, bands.width(), n});
      ASSERT_EQ(band.bounds(), (Rect{0, y0, bands.width(), n}));
      for (int y = y0; y < y0 + n; ++y)
        for (int i = 0; i < bands.width() * 4; ++i)
          worst = std::max(worst, std::fabs(band.row(y)[i] - whole.image.row(origin.y + y)[i]));
    }
  }
  EXPECT_LT(worst, 1e-4f);
}

TEST(ExportDocument, ARecipeExportsAtItsCroppedSize) {
  test::TempDir dir;
  Image source = scene(160, 120);
  RenderEngine engine;
  DocumentBandSource bands(engine, source, true, typicalRecipe());
  ImageExporter::Options o;
  o.format = ExportFormat::png;
  ImageExporter::exportImage(bands, dir / "edit.png", o);
  auto png = test::readPng(dir / "edit.png");
  EXPECT_EQ(png.width, bands.width());
  EXPECT_EQ(png.height, bands.height());
  EXPECT_EQ(png.channels, 3);
}

}  // namespace
}  // namespace vg
