// Transparency through load, render and export: the source's own alpha and
// the transparency geometry creates reach PNG, TIFF and HEIC as straight
// colour with alpha; JPEG composites over black; opaque pictures carry no
// alpha channel; a shrunk or sharpened cut-out keeps its edge colour.
#include <gtest/gtest.h>

#include <cmath>

#include "export_readback.h"
#include "io/batch_engine.h"
#include "io/document_band_source.h"
#include "io/image_exporter.h"
#include "io/image_loader.h"
#include "io_test_files.h"
#include "render/render_engine.h"
#include "render/srgb.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

constexpr int kSide = 64;
constexpr uint8_t kColour[3] = {200, 100, 50};

// The cut-out: colour (200, 100, 50); rows 0-31 alpha 0, rows 32-39 alpha
// 128, the rest opaque (alpha 255 everywhere when `opaque`).
void writeCutOut(const fs::path& path, bool opaque = false) {
  std::vector<uint8_t> rgba;
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x) {
      rgba.insert(rgba.end(), std::begin(kColour), std::end(kColour));
      rgba.push_back(opaque ? 255 : y < 32 ? 0 : y < 40 ? 128 : 255);
    }
  test::writePng(path, kSide, kSide, 4, 8, rgba.data());
}

ImageExporter::Options optionsFor(ExportFormat format) {
  ImageExporter::Options o;
  o.format = format;
  o.includeMetadata = false;
  return o;
}

fs::path exportFile(const fs::path& source, const fs::path& destination, const ImageExporter::Options& options,
                    const EditDocument& recipe = {}) {
  ImageLoader::Loaded loaded = ImageLoader::load(source);
  RenderEngine engine;
  DocumentBandSource picture(engine, *loaded.image, loaded.opaque, recipe);
  ImageExporter::exportImage(picture, destination, options);
  return destination;
}
fs::path exportFile(const fs::path& source, const fs::path& destination, ExportFormat format,
                    const EditDocument& recipe = {}) {
  return exportFile(source, destination, optionsFor(format), recipe);
}

test::ReadBack readBack(const fs::path& path) {
  const std::string ext = path.extension().string();
  if (ext == ".png") return test::readPng(path);
  if (ext == ".tiff") return test::readTiff(path);
  if (ext == ".heic") return test::readHeic(path);
  return test::readJpeg(path);
}

// A sample on the 8-bit scale, whatever depth the file stores.
double level(const test::ReadBack& r, int x, int y, int c) {
  return r.at(x, y, c) * 255.0 / double((1 << r.bitDepth) - 1);
}
double level8(const test::ReadBack& r, int x, int y, int c) {
  return r.bitDepth == 16 ? r.at(x, y, c) / 257.0 : r.at(x, y, c);
}

// Alpha 0 / 128 / 255 in the three bands; where alpha is not 0 the straight
// colour is (200, 100, 50) within `tolerance` 8-bit levels.
void expectCutOut(const fs::path& path, double tolerance) {
  SCOPED_TRACE(path.filename().string());
  test::ReadBack r = readBack(path);
  ASSERT_EQ(r.width, kSide);
  ASSERT_EQ(r.channels, 4);
  for (int x : {3, 40}) {
    EXPECT_NEAR(level8(r, x, 10, 3), 0, 0.5);
    EXPECT_NEAR(level8(r, x, 36, 3), 128, 0.5);
    EXPECT_NEAR(level8(r, x, 50, 3), 255, 0.5);
    for (int y : {36, 50})
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(level8(r, x, y, c), kColour[c], tolerance) << x << "," << y << " " << c;
  }
}

TEST(ExportAlpha, SourceAlphaSurvivesPngTiffAndHeicFromEachOfThem) {
  test::TempDir dir;
  writeCutOut(dir / "cut.png");
  const ExportFormat formats[] = {ExportFormat::png, ExportFormat::tiff, ExportFormat::heic};
  const char* extensions[] = {".png", ".tiff", ".heic"};
  // First from the PNG, then from the 16-bit TIFF and the HEIC just written
  // (each already checked with its own library).
  for (const char* from : {"cut.png", "cut.png.tiff", "cut.png.heic"}) {
    for (int f = 0; f < 3; ++f) {
      const fs::path out = dir / (std::string(from) + extensions[f]);
      exportFile(dir / from, out, formats[f]);
      // HEVC is lossy; the lossless formats hold one 8-bit level.
      const bool lossy = std::string(from).ends_with(".heic") || formats[f] == ExportFormat::heic;
      expectCutOut(out, lossy ? 3.0 : 1.0);
    }
  }
  EXPECT_EQ(test::readTiff(dir / "cut.png.tiff").bitDepth, 16);

  // JPEG has no alpha: the picture composited over black, as before.
  test::ReadBack jpeg = test::readJpeg(exportFile(dir / "cut.png", dir / "cut.jpg", ExportFormat::jpeg));
  ASSERT_EQ(jpeg.channels, 3);
  EXPECT_NEAR(jpeg.at(20, 10, 0), 0, 2);
  EXPECT_NEAR(jpeg.at(20, 36, 0), 147, 3);
  EXPECT_NEAR(jpeg.at(20, 36, 1), 71, 3);
  EXPECT_NEAR(jpeg.at(20, 50, 0), 200, 3);
}

TEST(ExportAlpha, OpaquePicturesWriteNoAlphaChannel) {
  test::TempDir dir;
  writeCutOut(dir / "rgba.png", /*opaque=*/true);  // stored with alpha, all of it 255
  EXPECT_TRUE(ImageLoader::load(dir / "rgba.png").opaque);
  EXPECT_EQ(test::readPng(exportFile(dir / "rgba.png", dir / "o.png", ExportFormat::png)).channels, 3);
  EXPECT_EQ(test::readTiff(exportFile(dir / "rgba.png", dir / "o.tiff", ExportFormat::tiff)).channels, 3);
  EXPECT_EQ(test::readHeic(exportFile(dir / "rgba.png", dir / "o.heic", ExportFormat::heic)).channels, 3);

  // Straightening alone still covers the frame; a crop reaching into the
  // straightened frame's corners leaves them transparent.
  EditDocument straight;
  straight.crop.angle = 10;
  EXPECT_EQ(test::readPng(exportFile(dir / "rgba.png", dir / "s.png", ExportFormat::png, straight)).channels, 3);
  straight.crop.rect = NormalizedRect{0, 0, 1, 1};
  test::ReadBack corners = test::readPng(exportFile(dir / "rgba.png", dir / "c.png", ExportFormat::png, straight));
  ASSERT_EQ(corners.channels, 4);
  const int w = corners.width, h = corners.height;
  for (auto [x, y] : {std::pair{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}}) EXPECT_EQ(corners.at(x, y, 3), 0);
  EXPECT_EQ(corners.at(w / 2, h / 2, 3), 65535);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(level(corners, w / 2, h / 2, c), kColour[c], 1.0);

  // The rest of the recipe (lifted blacks, grain, a vignette, an inverted
  // mask reaching the corners, a heal) and the exporter's shrink and
  // sharpening change no alpha: corners stay clear, the middle solid.
  straight.adjustments.blacks = 40;
  straight.adjustments.grainAmount = 30;
  straight.adjustments.vignetteAmount = -40;
  MaskLayer outside;
  outside.kind = RadialMaskGeometry{{0.5, 0.5}, 0.2, 0.2, 0, 50, /*invert=*/true};
  outside.adjustments.exposure = 1;
  straight.masks.push_back(outside);
  straight.heals.push_back(HealStroke{{{0.4, 0.45}, {0.45, 0.45}}, 0.05});
  ImageExporter::Options shrink = optionsFor(ExportFormat::png);
  shrink.longEdge = 48;
  shrink.outputSharpening = OutputSharpening::glossy;
  test::ReadBack busy = test::readPng(exportFile(dir / "rgba.png", dir / "b.png", shrink, straight));
  ASSERT_EQ(busy.channels, 4);
  const int bw = busy.width, bh = busy.height;
  for (auto [x, y] : {std::pair{0, 0}, {bw - 1, 0}, {0, bh - 1}, {bw - 1, bh - 1}}) EXPECT_EQ(busy.at(x, y, 3), 0);
  for (int y = bh / 4; y < bh * 3 / 4; ++y)
    for (int x = bw / 4; x < bw * 3 / 4; ++x) ASSERT_EQ(busy.at(x, y, 3), 65535) << x << "," << y;
}

// An opaque disc on a transparent ground whose pixels carry stray colour
// (as grain or a lifted black leave it): after the long-edge shrink, with
// and without output sharpening, every visible pixel keeps the disc's colour:
// no dark or light rim from the transparent surroundings.
TEST(ExportAlpha, ShrunkAndSharpenedCutOutKeepsItsEdgeColour) {
  test::TempDir dir;
  const float disc[3] = {0.6f, 0.3f, 0.1f};
  Image img(96, 96);
  for (int y = 0; y < 96; ++y)
    for (int x = 0; x < 96; ++x) {
      float* p = img.at(x, y);
      const bool in = std::hypot(x + 0.5 - 48, y + 0.5 - 48) < 30;
      for (int c = 0; c < 3; ++c) p[c] = in ? disc[c] : 0.3f;
      p[3] = in ? 1.0f : 0.0f;
    }
  for (OutputSharpening sharpening : {OutputSharpening::off, OutputSharpening::glossy}) {
    ImageExporter::Options o = optionsFor(ExportFormat::png);
    o.longEdge = 33;
    o.outputSharpening = sharpening;
    ImageExporter::exportImage(img, dir / "disc.png", o);
    test::ReadBack r = test::readPng(dir / "disc.png");
    ASSERT_EQ(r.channels, 4);
    int edge = 0;
    for (int y = 0; y < r.height; ++y)
      for (int x = 0; x < r.width; ++x) {
        const double a = r.at(x, y, 3) / 65535.0;
        if (a < 0.02) continue;
        edge += a < 0.98;
        for (int c = 0; c < 3; ++c)
          ASSERT_NEAR(r.at(x, y, c) / 65535.0, srgb::encode(disc[c]), 1.0 / 255)
              << int(sharpening) << " at " << x << "," << y << " alpha " << a;
      }
    EXPECT_GT(edge, 20);  // the rim was really there to look at
  }
}

TEST(ExportAlpha, BatchKeepsAlpha) {
  test::TempDir dir;
  fs::create_directories(dir / "in");
  writeCutOut(dir / "in" / "cut.png");
  BatchEngine::Config config;
  config.options = optionsFor(ExportFormat::png);
  config.outputFolder = dir / "out";
  config.useSavedEdits = false;
  RenderEngine engine;
  ASSERT_TRUE(BatchEngine::process(dir / "in" / "cut.png", config, {}, nullptr, engine));
  expectCutOut(BatchEngine::outputURL(dir / "in" / "cut.png", config), 1.0);
}

}  // namespace
}  // namespace vg
