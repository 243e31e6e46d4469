#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli/cli_run.h"
#include "model/json.h"
#include "store/filter_preset.h"
#include "store/preset_library.h"

namespace vg::cli {
namespace {

using PresetsCommand = ScratchSupportTest;

TEST_F(PresetsCommand, ListsBuiltInsThenUserPresetsAndReportsDamagedFiles) {
  PresetLibrary library(support / "Presets");
  ASSERT_TRUE(library.saveNew("我的", {}, std::nullopt).preset);
  test::writeFile(support / "Presets" / "broken.json", "{");

  const auto r = runTool({"presets"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  auto list = nlohmann::json::parse(r.out);
  ASSERT_EQ(list.size(), builtInPresets().size() + 1);
  EXPECT_EQ(list[0], nlohmann::json({{"id", builtInPresets()[0].id}, {"name", builtInPresets()[0].name}}));
  EXPECT_EQ(list.back()["name"], "我的");
  EXPECT_EQ(r.err, "预设文件已损坏：broken.json（不是有效的预设文件）\n");
}

TEST_F(PresetsCommand, SaveDuplicateRenameDeleteWithTheirMessages) {
  EditDocument recipe;
  recipe.adjustments.exposure = 0.75;
  recipe.lut = AppliedLUT{"look.cube", "look", 40};
  test::writeFile(dir / "recipe.json", encodeEditDocument(recipe));

  const auto saved = runTool({"presets", "save", " 午后暖光 ", "--from", (dir / "recipe.json").string()});
  ASSERT_EQ(saved.code, kExitOk) << saved.err;
  const auto id = nlohmann::json::parse(saved.out)["id"].get<std::string>();
  EXPECT_EQ(nlohmann::json::parse(saved.out)["name"], "午后暖光");
  const auto preset = PresetLibrary(support / "Presets").find(id);
  ASSERT_TRUE(preset);
  EXPECT_EQ(preset->adjustments.exposure, 0.75);
  EXPECT_EQ(preset->lut, recipe.lut);

  const auto fromStdin = runTool({"presets", "save", "第二"}, R"({"adjustments":{"contrast":20}})");
  ASSERT_EQ(fromStdin.code, kExitOk) << fromStdin.err;
  const auto clash = runTool({"presets", "save", "午后暖光"}, "{}");
  EXPECT_EQ(clash.code, kExitFailed);
  EXPECT_EQ(clash.err, "已有同名预设「午后暖光」\n");
  const auto notRecipe = runTool({"presets", "save", "X"}, "[1]");
  EXPECT_EQ(notRecipe.code, kExitFailed);
  EXPECT_NE(notRecipe.err.find("not an edit recipe"), std::string::npos) << notRecipe.err;

  const auto copy = runTool({"presets", "duplicate", builtInPresets()[0].id});
  ASSERT_EQ(copy.code, kExitOk) << copy.err;
  EXPECT_EQ(nlohmann::json::parse(copy.out)["name"], builtInPresets()[0].name + " 副本");

  const auto renamed = runTool({"presets", "rename", id, "清晨冷光"});
  ASSERT_EQ(renamed.code, kExitOk) << renamed.err;
  EXPECT_EQ(renamed.out, nlohmann::json({{"id", id}, {"name", "清晨冷光"}}).dump() + "\n");
  EXPECT_EQ(runTool({"presets", "rename", builtInPresets()[0].id, "x"}).err, "内置预设不能重命名\n");

  const auto deleted = runTool({"presets", "delete", id});
  EXPECT_EQ(deleted.code, kExitOk) << deleted.err;
  EXPECT_TRUE(deleted.out.empty());
  const auto again = runTool({"presets", "delete", id});
  EXPECT_EQ(again.code, kExitFailed);
  EXPECT_EQ(again.err, "找不到该预设\n");
  EXPECT_EQ(runTool({"presets", "delete", builtInPresets()[0].id}).err, "内置预设不能删除\n");
  EXPECT_EQ(runTool({"presets", "rename", id}).code, kExitUsage);
}

}  // namespace
}  // namespace vg::cli
