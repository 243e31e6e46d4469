#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/cli_run.h"
#include "cli/command.h"
#include "model/json.h"
#include "store/preset_library.h"
#include "store/sidecar_name.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

struct Outcome {
  int code;
  std::string out, err;
};

Outcome run(std::vector<std::string> args) {
  std::istringstream in;
  std::ostringstream out, err;
  int code = runCli(args, {in, out, err});
  return {code, out.str(), err.str()};
}

TEST(LutCheck, PrintsTitleSizeAndDomain) {
  test::TempDir dir;
  std::string cube = "TITLE Teal \xE2\x80\x94 orange\r\nDOMAIN_MIN 0 0 0.1\r\nLUT_3D_SIZE 2\r\n";
  for (int i = 0; i < 8; ++i) cube += "0.5 0.5 0.5\r\n";
  test::writeFile(dir / "teal.cube", cube);
  Outcome r = run({"lut", "check", (dir / "teal.cube").string()});
  EXPECT_EQ(r.code, kExitOk) << r.err;
  EXPECT_EQ(r.out, "{\"title\":\"Teal \xE2\x80\x94 orange\",\"size\":2,\"domainMin\":[0.0,0.0,0.1],\"domainMax\":[1.0,1.0,1.0]}\n");
  EXPECT_TRUE(r.err.empty());
}

TEST(LutCheck, RejectionIsTheUserFacingMessageAndExitOne) {
  test::TempDir dir;
  test::writeFile(dir / "one.cube", "LUT_1D_SIZE 16\n");
  Outcome r = run({"lut", "check", (dir / "one.cube").string()});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_EQ(r.err, "LUT 文件格式错误：暂不支持 1D LUT\n");
  EXPECT_TRUE(r.out.empty());
  Outcome missing = run({"lut", "check", (dir / "nope.cube").string()});
  EXPECT_EQ(missing.code, kExitFailed);
  EXPECT_NE(missing.err.find("nope.cube"), std::string::npos);
  EXPECT_EQ(run({"lut", "check"}).code, kExitUsage);
}

std::string cube(int size, const std::string& title = {}) {
  std::string text = title.empty() ? "" : "TITLE " + title + "\n";
  text += "LUT_3D_SIZE " + std::to_string(size) + "\n";
  for (int i = 0; i < size * size * size; ++i) text += "0.5 0.5 0.5\n";
  return text;
}

using LutsCommand = ScratchSupportTest;

TEST_F(LutsCommand, ImportListRenameRemove) {
  test::writeFile(dir / "Teal.CUBE", cube(2, "\"Teal\""));
  test::writeFile(dir / "bad.cube", "LUT_1D_SIZE 4\n");
  const auto imported = run({"luts", "import", (dir / "Teal.CUBE").string()});
  ASSERT_EQ(imported.code, kExitOk) << imported.err;
  EXPECT_EQ(imported.out, R"({"file":"Teal.cube","name":"Teal","title":"Teal","size":2,"bytes":123})" "\n");
  const auto bad = run({"luts", "import", (dir / "bad.cube").string()});
  EXPECT_EQ(bad.code, kExitFailed);
  EXPECT_EQ(bad.err, "LUT 文件格式错误：暂不支持 1D LUT\n");
  test::writeFile(support / "LUTs" / "hand.cube", "junk");

  const auto listed = run({"luts", "list"});
  ASSERT_EQ(listed.code, kExitOk) << listed.err;
  const auto list = nlohmann::json::parse(listed.out);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0]["file"], "Teal.cube");
  EXPECT_EQ(list[1]["file"], "hand.cube");
  EXPECT_TRUE(list[1].contains("error"));
  EXPECT_FALSE(list[1].contains("size"));

  // A saved edit that uses the LUT follows it to its new name.
  EditDocument doc;
  doc.lut = AppliedLUT{"Teal.cube", "Teal", 80};
  const std::string sidecar = sidecarNames("/photos/a.jpg").current;
  std::filesystem::create_directories(support / "Edits");
  test::writeFile(support / "Edits" / sidecar, encodeEditDocument(doc));
  const auto renamed = run({"luts", "rename", "Teal", "青橙"});
  ASSERT_EQ(renamed.code, kExitOk) << renamed.err;
  EXPECT_EQ(nlohmann::json::parse(renamed.out)["file"], "青橙.cube");
  EXPECT_EQ(renamed.err, "已更新 1 个编辑或预设\n");
  EXPECT_EQ(decodeEditDocument(test::readFile(support / "Edits" / sidecar))->lut->filename, "青橙.cube");
  EXPECT_EQ(run({"luts", "rename", "青橙.cube", "hand"}).err, "已有同名 LUT「hand」\n");

  const auto removed = run({"luts", "remove", "青橙.cube"});
  EXPECT_EQ(removed.code, kExitOk) << removed.err;
  EXPECT_EQ(removed.err, "注意：1 个编辑或预设使用了此 LUT，它们将不再应用它\n");
  EXPECT_FALSE(std::filesystem::exists(support / "LUTs" / "青橙.cube"));
  const auto missing = run({"luts", "remove", "青橙"});
  EXPECT_EQ(missing.code, kExitFailed);
  EXPECT_EQ(missing.err, "找不到该 LUT\n");
}

}  // namespace
}  // namespace vg::cli
