#include <gtest/gtest.h>

#include <cstdlib>

#include "cli/cli_run.h"
#include "io/image_loader.h"
#include "io/working_image_files.h"
#include "model/log.h"
#include "render/heal_bitmap.h"
#include "session/auto_mask_generator.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

// A 1500 x 900 photo stand-in: blue sky over dark ground from row 300.
fs::path writeLandscape(const test::TempDir& dir) {
  Image image(1500, 900);
  for (int y = 0; y < 900; ++y)
    for (int x = 0; x < 1500; ++x) {
      float* p = image.at(x, y);
      const bool sky = y < 300;
      p[0] = sky ? 0.30f : 0.02f;
      p[1] = sky ? 0.50f : 0.04f;
      p[2] = sky ? 0.90f : 0.01f;
      p[3] = 1;
    }
  fs::path file = dir / "landscape.png";
  writeWorkingImage(file, image);
  return file;
}

// The grey PNG as the bytes it holds.
MaskRaster readGrey(const fs::path& file) {
  std::shared_ptr<const Image> grey = ImageLoader::load(file).image;
  MaskRaster m(grey->width(), grey->height());
  for (int y = 0; y < m.height; ++y)
    for (int x = 0; x < m.width; ++x) m.at(x, y) = encodeSrgb8(grey->at(x, y)[0]);
  return m;
}

TEST(AutomaskCommandTest, WritesTheRasterAtItsOwnSize) {
  test::TempDir dir;
  fs::path image = writeLandscape(dir);
  CliRun sky = runTool({"automask", "sky", image.string(), "-o", (dir / "sky.png").string()});
  ASSERT_EQ(sky.code, 0) << sky.err;
  EXPECT_EQ(sky.out, (dir / "sky.png").string() + "\n");
  AutoMaskRequest request;
  request.kind = AutoMaskSource::sky;
  request.image = ImageLoader::load(image).image;
  MaskRaster expected = *AutoMaskGenerator(nullptr).raster(request);
  EXPECT_EQ(expected.width, 1024);
  EXPECT_EQ(readGrey(dir / "sky.png"), expected);

  CliRun wand = runTool({"automask", "wand", image.string(), "--point", "0.5,0.9", "--tolerance", "10", "--feather",
                         "0", "-o", (dir / "wand.png").string()});
  ASSERT_EQ(wand.code, 0) << wand.err;
  MaskRaster w = readGrey(dir / "wand.png");
  EXPECT_EQ(w.at(500, 0), 0);
  EXPECT_EQ(w.at(500, 600), 255);
  EXPECT_TRUE(std::all_of(w.values.begin(), w.values.end(), [](std::uint8_t v) { return v == 0 || v == 255; }));
}

TEST(AutomaskCommandTest, BadArgumentsAreUsageErrors) {
  test::TempDir dir;
  fs::path image = writeLandscape(dir);
  const std::string out = (dir / "m.png").string();
  std::vector<std::vector<std::string>> bad = {
      {"automask", "wand", image.string(), "-o", out},
      {"automask", "wand", image.string(), "--point", "2,0.5", "-o", out},
      {"automask", "wand", image.string(), "--point", "0.5", "-o", out},
      {"automask", "wand", image.string(), "--point", "0.5,0.5", "--tolerance", "101", "-o", out},
      {"automask", "wand", image.string(), "--point", "0.5,0.5", "--feather", "1.5", "-o", out},
      {"automask", "sky", image.string(), "-o", (dir / "m.jpg").string()},
      {"automask", "sky", image.string()},
  };
  for (const auto& args : bad) {
    CliRun r = runTool(args);
    EXPECT_EQ(r.code, 2) << args[3];
    EXPECT_NE(r.err.find("--help"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(out));
}

TEST(AutomaskCommandTest, FailuresExitOneAndWriteNothing) {
  test::TempDir dir;
  fs::path image = writeLandscape(dir);
  const std::string before = test::readFile(image);
  const std::string out = (dir / "m.png").string();

  CliRun over = runTool({"automask", "sky", image.string(), "-o", image.string()});
  EXPECT_EQ(over.code, 1);
  EXPECT_EQ(test::readFile(image), before);

  test::writeFile(dir / "broken.png", before.substr(0, 100));
  CliRun broken = runTool({"automask", "sky", (dir / "broken.png").string(), "-o", out});
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("无法解码图片：broken.png"), std::string::npos) << broken.err;

  // Without its model the subject fails with the kind's text; the cause is logged.
  const char* previous = std::getenv("VERDANTGLASS_MODELS_DIR");
  const std::string saved = previous ? previous : "";
  setenv("VERDANTGLASS_MODELS_DIR", dir.path().c_str(), 1);
  ScopedLogCapture log;
  CliRun subject = runTool({"automask", "background", image.string(), "-o", out});
  previous ? setenv("VERDANTGLASS_MODELS_DIR", saved.c_str(), 1) : unsetenv("VERDANTGLASS_MODELS_DIR");
  EXPECT_EQ(subject.code, 1);
  EXPECT_EQ(subject.err, "背景分割失败\n");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find("u2netp.onnx cannot be read"), std::string::npos) << log.lines()[0];
  EXPECT_FALSE(fs::exists(out));
}

}  // namespace
}  // namespace vg::cli
