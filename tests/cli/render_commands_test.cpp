#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <tiffio.h>

#include <cstring>
#include <sstream>

#include "cli/command.h"
#include "io/working_image_files.h"
#include "model/json.h"
#include "render/render_engine.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

struct Result {
  int code;
  std::string out, err;
};

Result run(std::vector<std::string> args) {
  std::istringstream in;
  std::ostringstream out, err;
  int code = runCli(args, {in, out, err});
  return {code, out.str(), err.str()};
}

Image gradient(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = float(x) / float(w);
      p[1] = float(y) / float(h);
      p[2] = 0.25f + 0.5f * float((x + y) % 7) / 7.0f;
      p[3] = 1;
    }
  return img;
}

Image readFloatTiff(const std::filesystem::path& path) {
  TIFF* tif = TIFFOpen(path.c_str(), "r");
  if (!tif) return Image();
  uint32_t w = 0, h = 0;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
  Image img(static_cast<int>(w), static_cast<int>(h));
  for (uint32_t y = 0; y < h; ++y) TIFFReadScanline(tif, img.row(int(y)), y);
  TIFFClose(tif);
  return img;
}

bool sameFloats(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) return false;
  for (int y = 0; y < a.height(); ++y)
    if (std::memcmp(a.row(a.bounds().y + y), b.row(b.bounds().y + y), size_t(a.width()) * 16) != 0) return false;
  return true;
}

class RenderCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeWorkingImage(dir / "in.tif", source);
  }
  std::string path(const char* name) { return (dir / name).string(); }
  void writeRecipe(const EditDocument& doc) { test::writeFile(dir / "r.json", encodeEditDocument(doc)); }

  test::TempDir dir;
  Image source = gradient(60, 40);
};

TEST_F(RenderCommandTest, FloatInFloatOutIsExact) {
  writeRecipe(EditDocument{});
  Result r = run({"render", path("in.tif"), "-o", path("out.tif"), "--recipe", path("r.json")});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_TRUE(sameFloats(readFloatTiff(dir / "out.tif"), source));

  EditDocument doc;
  doc.adjustments.exposure = 1;
  doc.adjustments.contrast = 30;
  doc.crop.quarterTurn = 1;
  writeRecipe(doc);
  r = run({"render", path("in.tif"), "-o", path("turned.tif"), "--recipe", path("r.json")});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  RenderEngine engine;
  Image expected = engine.render(source, doc, {}, {});
  Image got = readFloatTiff(dir / "turned.tif");
  EXPECT_EQ(got.width(), 40);
  EXPECT_TRUE(sameFloats(got, expected));
}

TEST_F(RenderCommandTest, ScaleMaskOverrideAndEncodedOutputs) {
  EditDocument doc;
  MaskLayer layer;
  layer.adjustments.exposure = 1;
  doc.masks = {layer};
  writeRecipe(doc);
  GreyImage white(Rect{0, 0, 60, 40}, 1.0f);
  writeGreyPng(dir / "white.png", white);
  Result r = run({"render", path("in.tif"), "-o", path("masked.tif"), "--recipe", path("r.json"), "--mask",
                  layer.id.toString() + "=" + path("white.png")});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  Image masked = readFloatTiff(dir / "masked.tif");
  EXPECT_FLOAT_EQ(masked.at(30, 20)[0], source.at(30, 20)[0] * 2);

  r = run({"render", path("in.tif"), "-o", path("half.png"), "--recipe", path("r.json"), "--scale", "0.5"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  r = run({"render", path("in.tif"), "-o", path("out.jpg"), "--recipe", path("r.json"), "--dither"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  Result info = run({"info", path("half.png")});
  ASSERT_EQ(info.code, kExitOk) << info.err;
  EXPECT_EQ(nlohmann::json::parse(info.out)["pixelWidth"], 30);
}

TEST_F(RenderCommandTest, BadUsageAndFailuresLeaveNoOutput) {
  EXPECT_EQ(run({"render", path("in.tif")}).code, kExitUsage);
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("out.bmp")}).code, kExitUsage);
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("o.tif"), "--scale", "0"}).code, kExitUsage);
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("o.tif"), "--scale", "abc"}).code, kExitUsage);
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("o.tif"), "--mask", "nonsense"}).code, kExitUsage);
  test::writeFile(dir / "junk.jpg", "not an image");
  Result r = run({"render", path("junk.jpg"), "-o", path("o.tif")});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_FALSE(r.err.empty());
  test::writeFile(dir / "bad.json", "[1, 2]");
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("o.tif"), "--recipe", path("bad.json")}).code, kExitFailed);
  EXPECT_EQ(run({"render", path("in.tif"), "-o", path("in.tif")}).code, kExitFailed);
  EXPECT_FALSE(std::filesystem::exists(dir / "o.tif"));
  EXPECT_TRUE(sameFloats(readFloatTiff(dir / "in.tif"), source));
}

TEST_F(RenderCommandTest, MaskCommandWritesTheLayerInTheOutputFrame) {
  EditDocument doc;
  MaskLayer layer;
  RadialMaskGeometry radial;
  radial.radiusX = 0.2;
  radial.radiusY = 0.3;
  radial.feather = 0;
  layer.kind = radial;
  doc.masks = {layer};
  doc.crop.rect = NormalizedRect{0.25, 0.25, 0.5, 0.5};
  writeRecipe(doc);
  Result r = run({"mask", path("in.tif"), "--recipe", path("r.json"), "--id", layer.id.toString(), "-o",
                  path("m.png")});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  Result info = run({"info", path("m.png")});
  auto j = nlohmann::json::parse(info.out);
  EXPECT_EQ(j["pixelWidth"], 30);
  EXPECT_EQ(j["pixelHeight"], 20);
  EXPECT_EQ(run({"mask", path("in.tif"), "--recipe", path("r.json"), "--id", Uuid::random().toString(), "-o",
                 path("x.png")})
                .code,
            kExitFailed);
  EXPECT_EQ(run({"mask", path("in.tif"), "--recipe", path("r.json"), "-o", path("x.png")}).code, kExitUsage);
}

TEST_F(RenderCommandTest, HistogramOfTheRenderedPreview) {
  EditDocument doc;
  doc.adjustments.exposure = -5;  // at most 1/32 ...
  doc.adjustments.blacks = -100;  // ... and then 0.35 lower: black
  writeRecipe(doc);
  Result r = run({"histogram", path("in.tif"), "--recipe", path("r.json")});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  auto j = nlohmann::json::parse(r.out);
  for (const char* key : {"red", "green", "blue", "luminance"}) EXPECT_EQ(j[key].size(), 64u) << key;
  EXPECT_EQ(j["shadowClipping"].get<double>(), 1.0);
  EXPECT_EQ(j["highlightClipping"].get<double>(), 0.0);
  EXPECT_EQ(j["red"][0].get<double>(), 1.0);
}

}  // namespace
}  // namespace vg::cli
