#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "cli/cli_run.h"
#include "cli/command.h"
#include "io/image_loader.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

using Run = CliRun;
Run run(std::vector<std::string> args, const std::string& input = {}) { return runTool(std::move(args), input); }

class BatchCli : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(src);
    fs::copy_file(test::dataPath("jpeg/test-issue-6.jpg"), src / "eagle.jpg");
    fs::copy_file(test::dataPath("png/pngsuite-basn2c16.png"), src / "gradient.png");
    test::writeFile(src / "notes.txt", "not an image");
  }
  test::TempDir dir;
  fs::path src = dir / "src";
  fs::path out = dir / "out";
};

TEST_F(BatchCli, DevelopsTheFolderThenSkipsWhatExists) {
  auto first = run({"batch", src.string(), out.string(), "--preset", "warm", "--strength", "50",
                    "--long-edge", "64", "--no-saved-edits"});
  ASSERT_EQ(first.code, kExitOk) << first.err << first.out;
  EXPECT_EQ(first.out, "完成：2 张全部导出\n");
  for (auto name : {"eagle-已编辑.jpg", "gradient-已编辑.jpg"}) {
    auto loaded = ImageLoader::load(out / name);
    EXPECT_LE(std::max(loaded.pixelSize.width, loaded.pixelSize.height), 64) << name;
  }

  auto again = run({"batch", src.string(), out.string()});
  EXPECT_EQ(again.code, kExitOk);
  EXPECT_EQ(again.out, "完成：0 张导出，2 张已存在跳过（可关闭下方开关重跑）\n");

  auto png = run({"batch", src.string(), out.string(), "--format", "png", "--suffix", "a/b"});
  EXPECT_EQ(png.code, kExitOk) << png.out;
  EXPECT_TRUE(fs::exists(out / "eaglea-b.png"));
}

TEST_F(BatchCli, FailuresAreListedAndTheExitStatusSaysSo) {
  test::writeFile(src / "broken.jpg", "\xFF\xD8 not really");
  // An output that is a hard link to its own source must never be written.
  fs::create_directories(out);
  fs::create_hard_link(src / "eagle.jpg", out / "eagle-x.jpg");
  auto r = run({"batch", src.string(), out.string(), "--suffix", "-x"});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_NE(r.out.find("完成：1 张导出，2 失败"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("broken.jpg：无法解码图片：broken.jpg"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("eagle.jpg：输出位置不能覆盖原图"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("…共 2 个失败"), std::string::npos);
  EXPECT_EQ(test::readFile(src / "eagle.jpg"), test::readFile(test::dataPath("jpeg/test-issue-6.jpg")));
}

TEST_F(BatchCli, BadUsage) {
  EXPECT_EQ(run({"batch", src.string()}).code, kExitUsage);
  EXPECT_EQ(run({"batch", src.string(), out.string(), "--preset", "nope"}).code, kExitUsage);
  EXPECT_EQ(run({"batch", src.string(), out.string(), "--strength", "150"}).code, kExitUsage);
  EXPECT_EQ(run({"batch", src.string(), out.string(), "--format", "gif"}).code, kExitUsage);
  auto missing = run({"batch", (dir / "none").string(), out.string()});
  EXPECT_EQ(missing.code, kExitFailed);
  EXPECT_NE(missing.out.find("批处理无法开始，请查看下方错误"), std::string::npos);
  EXPECT_NE(missing.out.find("无法读取文件夹："), std::string::npos);
}

}  // namespace
}  // namespace vg::cli
