#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>

#include "cli/cli_run.h"
#include "io/working_image_files.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

// Sky over ground, the boundary through the centre falling `tilt` degrees to the right.
void writeHorizon(const std::filesystem::path& file, double tilt) {
  const int w = 600, h = 400;
  const double t = std::tan(tilt * std::numbers::pi / 180.0);
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      double edge = h / 2.0 + (x + 0.5 - w / 2.0) * t;
      float v = float(0.7 - 0.6 * std::clamp(y + 1.0 - edge, 0.0, 1.0));
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = v;
      p[3] = 1;
    }
  writeWorkingImage(file, img);
}

TEST(StraightenCommand, PrintsTheAngleForThePictureAsTheRecipeShowsIt) {
  test::TempDir dir;
  writeHorizon(dir / "tilted.png", 5.0);
  auto angleOf = [](const CliRun& r) { return nlohmann::json::parse(r.out).at("angle").get<double>(); };

  CliRun plain = runTool({"straighten", (dir / "tilted.png").string()});
  ASSERT_EQ(plain.code, 0) << plain.err;
  EXPECT_NEAR(angleOf(plain), -5.0, 0.5);

  test::writeFile(dir / "mirror.json", R"({"crop":{"flipHorizontal":true,"angle":3}})");
  CliRun mirrored = runTool({"straighten", (dir / "tilted.png").string(), "--recipe", (dir / "mirror.json").string()});
  ASSERT_EQ(mirrored.code, 0) << mirrored.err;
  EXPECT_NEAR(angleOf(mirrored), 5.0, 0.5);

  // A quarter turn stands the line on end: nothing left to level.
  test::writeFile(dir / "turned.json", R"({"crop":{"quarterTurn":1}})");
  CliRun turned = runTool({"straighten", (dir / "tilted.png").string(), "--recipe", (dir / "turned.json").string()});
  EXPECT_EQ(turned.code, 1);
  EXPECT_EQ(turned.out, "");
  EXPECT_EQ(turned.err, "未检测到可用的地平线\n");
}

TEST(StraightenCommand, BadInputFailsCleanly) {
  test::TempDir dir;
  test::writeFile(dir / "broken.jpg", "not a picture");
  CliRun broken = runTool({"straighten", (dir / "broken.jpg").string()});
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("broken.jpg"), std::string::npos);
  EXPECT_EQ(runTool({"straighten"}).code, 2);
}

TEST(AutoCommands, StatsFeedTheMappingOfEveryMode) {
  test::TempDir dir;
  writeHorizon(dir / "scene.png", 0.0);
  CliRun stats = runTool({"auto", "stats", (dir / "scene.png").string()});
  ASSERT_EQ(stats.code, 0) << stats.err;
  nlohmann::json j = nlohmann::json::parse(stats.out);
  EXPECT_EQ(j.size(), 15u);
  // Ground at 0.1 and sky at 0.7 linear: sRGB levels 89 and 218.
  EXPECT_NEAR(j.at("p2Luminance").get<double>(), 89 / 255.0, 0.005);
  EXPECT_NEAR(j.at("p98Luminance").get<double>(), 218 / 255.0, 0.005);
  test::writeFile(dir / "stats.json", stats.out);
  for (const char* mode : {"balanced", "portrait", "landscape", "nightScene", "highKey", "lowKey", "vivid", "bw"}) {
    CliRun adjusted = runTool({"auto", "adjust", "--stats", (dir / "stats.json").string(), "--mode", mode});
    ASSERT_EQ(adjusted.code, 0) << mode << adjusted.err;
    EXPECT_TRUE(nlohmann::json::parse(adjusted.out).contains("exposure")) << mode;
  }
  CliRun bw = runTool({"auto", "adjust", "--stats", "-", "--mode", "bw"}, stats.out);
  EXPECT_EQ(nlohmann::json::parse(bw.out).at("saturation"), -100);
}

TEST(AutoCommands, RefuseWhatTheyCannotUse) {
  test::TempDir dir;
  test::writeFile(dir / "stats.json", R"({"meanLuminance":0.5})");
  CliRun unknown = runTool({"auto", "adjust", "--stats", (dir / "stats.json").string(), "--mode", "sepia"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_NE(unknown.err.find("nightScene"), std::string::npos);
  CliRun partial = runTool({"auto", "adjust", "--stats", (dir / "stats.json").string(), "--mode", "vivid"});
  EXPECT_EQ(partial.code, 1);
  EXPECT_NE(partial.err.find("medianLuminance"), std::string::npos);
  EXPECT_EQ(runTool({"auto", "adjust", "--stats", "-", "--mode", "vivid"}, "{not json").code, 1);
  EXPECT_EQ(runTool({"auto", "adjust", "--mode", "vivid"}).code, 2);

  // A picture with nothing opaque cannot be measured.
  writeWorkingImage(dir / "clear.png", Image(40, 30));
  CliRun clear = runTool({"auto", "stats", (dir / "clear.png").string()});
  EXPECT_EQ(clear.code, 1);
  EXPECT_EQ(clear.err, "自动调整失败：无法分析图像\n");
}

TEST(RedEyeCommand, SpotsInRecipeUnitsOrTheNoFaceText) {
  CliRun found = runTool({"redeye", test::dataPath("faces/astronaut.jpg").string()});
  ASSERT_EQ(found.code, 0) << found.err;
  nlohmann::json spots = nlohmann::json::parse(found.out).at("spots");
  ASSERT_EQ(spots.size(), 2u);
  EXPECT_NEAR(spots[0].at("center")[0].get<double>(), 202 / 512.0, 0.01);
  EXPECT_NEAR(spots[1].at("center")[1].get<double>(), 103.5 / 512.0, 0.01);
  EXPECT_EQ(spots[0].at("radius"), 0.015);

  test::TempDir dir;
  writeHorizon(dir / "landscape.png", 0.0);
  CliRun none = runTool({"redeye", (dir / "landscape.png").string()});
  EXPECT_EQ(none.code, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err, "未检测到人脸/红眼，可尝试手动模式\n");
}

}  // namespace
}  // namespace vg::cli
