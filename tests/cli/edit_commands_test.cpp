#include <gtest/gtest.h>

#include <cstdlib>

#include <nlohmann/json.hpp>

#include "cli/cli_run.h"
#include "model/json.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

// A copy of a small photograph per test: its sidecar starts absent.
struct EditCommand : ::testing::Test {
  test::TempDir dir;
  fs::path photo = dir / "photo.jpg";
  std::optional<std::string> previous;
  void SetUp() override {
    if (const char* v = std::getenv("VERDANTGLASS_DATA_DIR")) previous = v;
    ::setenv("VERDANTGLASS_DATA_DIR", (dir / "data").c_str(), 1);
    fs::copy_file(test::dataPath("jpeg/test-issue-6.jpg"), photo);
  }
  void TearDown() override {
    if (previous) ::setenv("VERDANTGLASS_DATA_DIR", previous->c_str(), 1);
    else ::unsetenv("VERDANTGLASS_DATA_DIR");
  }
  std::optional<EditDocument> sidecar() { return EditStore(dir / "data" / "Edits").load(photo); }
};

TEST_F(EditCommand, AppliesOperationsInOrderWithTheWindowsLabelsAndSavesTheRecipe) {
  const auto r = runTool({"edit", photo.string(), "--set", "exposure=0.5", "--rotate", "cw", "--set",
                          "vignetteMidpoint=250", "--undo", "--report"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  const auto report = nlohmann::json::parse(r.out);
  EXPECT_EQ(report["undo"], nlohmann::json({"曝光", "顺时针旋转 90°"}));
  EXPECT_EQ(report["redo"], nlohmann::json({"暗角"}));
  EXPECT_EQ(report["toasts"], nlohmann::json::array());
  const auto doc = decodeEditDocument(report["document"]);
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->adjustments.exposure, 0.5);
  EXPECT_EQ(doc->crop.quarterTurn, 1);
  EXPECT_EQ(doc->adjustments.vignetteMidpoint, 50) << "undone";
  EXPECT_EQ(sidecar(), doc);

  // The saved recipe is where the next edit starts; a redo of the clamped
  // value needs the undo in the same run.
  const auto again = runTool({"edit", photo.string(), "--set", "vignetteMidpoint=250", "--undo", "--redo"});
  ASSERT_EQ(again.code, kExitOk) << again.err;
  const auto next = decodeEditDocument(again.out);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->adjustments.vignetteMidpoint, 100) << "clamped like the model";
  EXPECT_EQ(next->crop.quarterTurn, 1);
}

TEST_F(EditCommand, ADryRunWritesNothingAndBadUsageOpensNothing) {
  const auto dry = runTool({"edit", photo.string(), "--set", "contrast=20", "--dry-run"});
  ASSERT_EQ(dry.code, kExitOk) << dry.err;
  EXPECT_EQ(decodeEditDocument(dry.out)->adjustments.contrast, 20);
  EXPECT_FALSE(sidecar());

  const auto unknown = runTool({"edit", photo.string(), "--set", "sparkle=3"});
  EXPECT_EQ(unknown.code, kExitUsage);
  EXPECT_NE(unknown.err.find("sparkle"), std::string::npos);
  EXPECT_EQ(runTool({"edit", photo.string(), "--rotate", "left"}).code, kExitUsage);
  EXPECT_EQ(runTool({"edit", photo.string(), "--set", "exposure=bright"}).code, kExitUsage);
  EXPECT_FALSE(fs::exists(dir / "data"));
}

TEST_F(EditCommand, PresetsAndLUTsApplyAtAStrength) {
  test::writeFile(dir / "look.cube", "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n");
  const auto r = runTool({"edit", photo.string(), "--preset", "vivid:50", "--lut", (dir / "look.cube").string() + ":80",
                          "--report"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  const auto report = nlohmann::json::parse(r.out);
  EXPECT_EQ(report["undo"], nlohmann::json({"应用滤镜「鲜艳」", "应用 LUT「look」"}));
  EXPECT_EQ(report["document"]["filterID"], "vivid");
  EXPECT_EQ(report["document"]["filterStrength"], 50);
  EXPECT_EQ(report["document"]["lut"]["filename"], "look.cube");
  EXPECT_EQ(report["document"]["lut"]["strength"], 80);
  EXPECT_TRUE(fs::exists(dir / "data" / "LUTs" / "look.cube")) << "imported into the LUT folder";

  const auto unknown = runTool({"edit", photo.string(), "--preset", "nope"});
  EXPECT_EQ(unknown.code, kExitFailed);
  EXPECT_NE(unknown.err.find("error: 找不到该预设：nope"), std::string::npos) << unknown.err;
}

TEST_F(EditCommand, AFailedOperationSaysWhyAndEndsTheScriptWithExitOne) {
  const auto r = runTool({"edit", photo.string(), "--set", "shadows=10", "--sample-wb", "1.5,0.5", "--set",
                          "contrast=5", "--report"});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_NE(r.err.find("warning: 无法采样：请点击画面内非透明的有效像素（Esc 取消）"), std::string::npos) << r.err;
  const auto report = nlohmann::json::parse(r.out);
  EXPECT_EQ(report["undo"], nlohmann::json({"阴影"}));
  EXPECT_EQ(report["document"]["adjustments"]["contrast"], 0) << "the steps after the failure do not run";
  EXPECT_EQ(sidecar()->adjustments.shadows, 10) << "the edits before it are kept";

  const auto missing = runTool({"edit", (dir / "none.jpg").string(), "--set", "shadows=10"});
  EXPECT_EQ(missing.code, kExitFailed);
  EXPECT_NE(missing.err.find("无法解码图片：none.jpg"), std::string::npos) << missing.err;
}

TEST_F(EditCommand, AutomaticMasksAndTheWandAddBitmapLayers) {
  const auto r = runTool({"edit", photo.string(), "--automask", "sky", "--wand", "0.5,0.5:15:0", "--report"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  const auto report = nlohmann::json::parse(r.out);
  EXPECT_EQ(report["undo"], nlohmann::json({"新建天空蒙版", "新建魔棒选区"}));
  EXPECT_EQ(report["toasts"], nlohmann::json::parse(R"([{"kind": "success", "text": "已生成魔棒选区"}])"));
  const auto doc = decodeEditDocument(report["document"]);
  ASSERT_TRUE(doc);
  ASSERT_EQ(doc->masks.size(), 2u);
  EXPECT_EQ(doc->masks[1].name, "魔棒选区");
  EXPECT_EQ(std::get<BitmapMaskData>(doc->masks[1].kind).source, AutoMaskSource::magicWand);

  for (const char* bad : {"1.5,0.5", "0.5,0.5:101", "0.5,0.5:10:2.5", "0.5;0.5"})
    EXPECT_EQ(runTool({"edit", photo.string(), "--wand", bad}).code, kExitUsage) << bad;
  EXPECT_EQ(runTool({"edit", photo.string(), "--automask", "wand"}).code, kExitUsage);
}

TEST_F(EditCommand, AutomaticAdjustmentAndRedEyeDetectionAreSteps) {
  const auto adjusted = runTool({"edit", photo.string(), "--set", "contrast=70", "--auto", "landscape", "--report"});
  ASSERT_EQ(adjusted.code, kExitOk) << adjusted.err;
  const auto report = nlohmann::json::parse(adjusted.out);
  EXPECT_EQ(report["undo"], nlohmann::json({"对比度", "自动调整：风光"}));
  EXPECT_EQ(report["toasts"], nlohmann::json::parse(R"([{"kind":"success","text":"已应用「风光」自动调整"}])"));
  EXPECT_EQ(sidecar()->adjustments.texture, 12) << "the mode's own value";
  const auto unknown = runTool({"edit", photo.string(), "--auto", "sunset"});
  EXPECT_EQ(unknown.code, kExitUsage);
  EXPECT_NE(unknown.err.find("balanced, portrait"), std::string::npos) << unknown.err;

  // Two runs on a portrait: the second finds only the spots already there.
  const fs::path face = dir / "face.jpg";
  fs::copy_file(test::dataPath("faces/astronaut.jpg"), face);
  const auto eyes = runTool({"edit", face.string(), "--redeye", "--redeye", "--report"});
  ASSERT_EQ(eyes.code, kExitOk) << eyes.err;
  const auto found = nlohmann::json::parse(eyes.out);
  EXPECT_EQ(found["undo"], nlohmann::json({"红眼检测（2 处）"}));
  EXPECT_EQ(found["toasts"], nlohmann::json::parse(R"([{"kind":"success","text":"已修复 2 处红眼"},
                                                        {"kind":"info","text":"没有发现新的红眼"}])"));
  EXPECT_EQ(EditStore(dir / "data" / "Edits").load(face)->redEyes.size(), 2u);

  const auto none = runTool({"edit", photo.string(), "--redeye"});
  EXPECT_EQ(none.code, kExitFailed);
  EXPECT_NE(none.err.find("warning: 未检测到人脸/红眼，可尝试手动模式"), std::string::npos) << none.err;
}

}  // namespace
}  // namespace vg::cli
