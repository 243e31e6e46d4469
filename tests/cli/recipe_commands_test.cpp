#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <sstream>

#include "cli/cli_run.h"
#include "cli/command.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

using Run = CliRun;
Run run(std::vector<std::string> args, const std::string& input = {}) { return runTool(std::move(args), input); }

TEST(RecipeNormalize, RepairsAndReencodesFromStdin) {
  const auto r = run({"recipe", "normalize"},
                     R"({"filterStrength": 250, "unknown": [1], "crop": {"quarterTurn": 7},
                         "adjustments": {"exposure": "bright", "texture": -250}})");
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_TRUE(r.err.empty());
  ASSERT_FALSE(r.out.empty());
  EXPECT_EQ(r.out.back(), '\n');
  EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);  // one line
  const auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["filterStrength"], 100);
  EXPECT_FALSE(j.contains("unknown"));
  EXPECT_EQ(j["crop"]["quarterTurn"], 3);
  EXPECT_EQ(j["adjustments"]["exposure"], 0);
  EXPECT_EQ(j["adjustments"]["texture"], -100);
  EXPECT_EQ(j["schemaVersion"], 1);
  EXPECT_TRUE(j["masks"].is_array());

  // Normalising normalised output changes nothing.
  const auto again = run({"recipe", "normalize", "-"}, r.out);
  EXPECT_EQ(again.code, kExitOk);
  EXPECT_EQ(again.out, r.out);
}

TEST(RecipeNormalize, ReadsAFile) {
  test::TempDir dir;
  test::writeFile(dir / "edit.json", R"({"lut": {"filename": "../../x.cube"}})");
  const auto r = run({"recipe", "normalize", (dir / "edit.json").string()});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_EQ(nlohmann::json::parse(r.out)["lut"]["filename"], "x.cube");
}

TEST(RecipeNormalize, NonObjectsAndUnreadableFilesFailWithAMessage) {
  for (const char* input : {"[1, 2]", "42", "\"text\"", "null"}) {
    const auto r = run({"recipe", "normalize"}, input);
    EXPECT_EQ(r.code, kExitFailed) << input;
    EXPECT_TRUE(r.out.empty()) << input;
    EXPECT_NE(r.err.find("not a JSON object"), std::string::npos) << r.err;
  }
  const auto garbage = run({"recipe", "normalize"}, "{\"adjustments\": ");
  EXPECT_EQ(garbage.code, kExitFailed);
  EXPECT_NE(garbage.err.find("not valid JSON"), std::string::npos) << garbage.err;

  test::TempDir dir;
  const auto missing = run({"recipe", "normalize", (dir / "absent.json").string()});
  EXPECT_EQ(missing.code, kExitFailed);
  EXPECT_NE(missing.err.find("absent.json"), std::string::npos) << missing.err;
  EXPECT_TRUE(missing.out.empty());

  const auto folder = run({"recipe", "check", dir.path().string()});
  EXPECT_EQ(folder.code, kExitFailed);
  EXPECT_NE(folder.err.find("folder"), std::string::npos) << folder.err;

  EXPECT_EQ(run({"recipe", "normalize", "a", "b"}).code, kExitUsage);
}

TEST(RecipeCheck, ReportsWhetherTheRecipeChangesAnything) {
  const std::pair<const char*, bool> cases[] = {
      {"{}", true},
      {R"({"crop": {"aspectLock": 1.5}, "filterStrength": 20, "schemaVersion": 4})", true},
      {R"({"lens": {"vignetteMidpoint": 10}, "preFilterAdjustments": {"exposure": 2}})", true},
      {R"({"adjustments": {"exposure": 9}})", false},
      {R"({"filterID": "warm"})", false},
      {R"({"crop": {"quarterTurn": 4}})", true},  // four turns are no turn
      {R"({"crop": {"rect": [[0.1, 0.1], [0.5, 0.5]]}})", false},
      {R"({"crop": {"rect": [[2, 2], [1, 1]]}})", true},  // nothing left of it
      {R"({"masks": [{"kind": {"radial": {"_0": {}}}}]})", false},
  };
  for (const auto& [input, noEdit] : cases) {
    const auto r = run({"recipe", "check"}, input);
    ASSERT_EQ(r.code, kExitOk) << input << ": " << r.err;
    EXPECT_EQ(r.out, noEdit ? "{\"noEdit\":true}\n" : "{\"noEdit\":false}\n") << input;
  }
  const auto bad = run({"recipe", "check"}, "[]");
  EXPECT_EQ(bad.code, kExitFailed);
  EXPECT_TRUE(bad.out.empty());
}

}  // namespace
}  // namespace vg::cli
