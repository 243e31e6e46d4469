// The commands that make an image from IMAGE read their recipe one way and
// refuse, one way, to write over IMAGE.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>

#include "cli/cli_run.h"
#include "io/working_image_files.h"
#include "model/json.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

class RecipeInput : public ::testing::Test {
 protected:
  void SetUp() override {
    Image img(60, 40);
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 60; ++x) {
        float* p = img.at(x, y);
        p[0] = float(x) / 60, p[1] = float(y) / 40, p[2] = 0.5f, p[3] = 1;
      }
    writeWorkingImage(dir / "in.png", img);
    sourceBytes = test::readFile(dir / "in.png");
  }
  std::string path(const char* name) const { return (dir / name).string(); }
  int widthOf(const char* name) {
    CliRun info = runTool({"info", path(name)});
    return info.code == kExitOk ? nlohmann::json::parse(info.out)["pixelWidth"].get<int>() : -1;
  }

  test::TempDir dir;
  std::string sourceBytes;
};

TEST_F(RecipeInput, RenderAndExportReadTheirRecipeAlike) {
  EditDocument halfWidth;
  halfWidth.crop.rect = NormalizedRect{0, 0, 0.5, 1};
  const std::string recipe = encodeEditDocument(halfWidth);
  test::writeFile(dir / "r.json", recipe);
  test::writeFile(dir / "list.json", "[1, 2]");
  test::writeFile(dir / "cut.json", recipe.substr(0, recipe.size() / 2));
  fs::create_directory(dir / "folder.json");

  for (const char* command : {"render", "export"}) {
    SCOPED_TRACE(command);
    // From a file and from standard input.
    CliRun r = runTool({command, path("in.png"), "-o", path("a.tif"), "--recipe", path("r.json")});
    ASSERT_EQ(r.code, kExitOk) << r.err;
    EXPECT_EQ(widthOf("a.tif"), 30);
    r = runTool({command, path("in.png"), "-o", path("b.tif"), "--recipe", "-"}, recipe);
    ASSERT_EQ(r.code, kExitOk) << r.err;
    EXPECT_EQ(widthOf("b.tif"), 30);
    // No recipe and no saved edits: the image as it is.
    r = runTool({command, path("in.png"), "-o", path("c.tif")});
    ASSERT_EQ(r.code, kExitOk) << r.err;
    EXPECT_EQ(widthOf("c.tif"), 60);

    for (const char* bad : {"list.json", "cut.json", "folder.json", "absent.json"}) {
      r = runTool({command, path("in.png"), "-o", path("x.tif"), "--recipe", path(bad)});
      EXPECT_EQ(r.code, kExitFailed) << bad;
      EXPECT_NE(r.err.find(bad), std::string::npos) << r.err;
      EXPECT_FALSE(fs::exists(dir / "x.tif")) << bad;
    }
  }
}

TEST_F(RecipeInput, NoCommandWritesOverItsSourceUnderAnotherName) {
  // The source through another spelling of its path and through a hard link.
  fs::create_directory(dir / "sub");
  fs::create_hard_link(dir / "in.png", dir / "linked.png");
  MaskLayer layer;
  EditDocument doc;
  doc.masks = {layer};
  test::writeFile(dir / "mask.json", encodeEditDocument(doc));
  for (const std::string& out : {path("sub/../in.png"), path("linked.png")}) {
    const std::vector<std::vector<std::string>> commands = {
        {"render", path("in.png"), "-o", out},
        {"export", path("in.png"), "-o", out},
        {"mask", path("in.png"), "--recipe", path("mask.json"), "--id", layer.id.toString(), "-o", out},
        {"automask", "sky", path("in.png"), "-o", out},
    };
    for (const auto& args : commands) {
      SCOPED_TRACE(args[0] + " -o " + out);
      CliRun r = runTool(args);
      EXPECT_EQ(r.code, kExitFailed);
      EXPECT_NE(r.err.find("为保留原图，请选择其他文件名或导出位置"), std::string::npos) << r.err;
      EXPECT_EQ(test::readFile(dir / "in.png"), sourceBytes);
    }
  }
}

}  // namespace
}  // namespace vg::cli
