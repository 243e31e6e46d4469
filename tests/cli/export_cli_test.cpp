// verdantglass-cli export: the options reach the exporter, failures print
// "导出失败：…" and leave the destination alone.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>

#include "../io/export_readback.h"
#include "cli/cli_run.h"
#include "cli/command.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

using Run = CliRun;
Run run(std::vector<std::string> args, const std::string& input = {}) { return runTool(std::move(args), input); }

class ExportCli : public ::testing::Test {
 protected:
  void SetUp() override {
    // The binary's support folder is a scratch folder (sidecar_commands_test.cpp),
    // so no saved recipe leaks in from the user's own data folder.
    source = dir / "photo.jpg";
    std::filesystem::copy_file(test::dataPath("jpeg/test-issue-6.jpg"), source);
  }
  test::TempDir dir;
  std::filesystem::path source;
};

TEST_F(ExportCli, WritesTheFormatAndSizeAskedFor) {
  test::writeFile(dir / "recipe.json", R"({"adjustments":{"exposure":0.5,"contrast":20}})");
  auto r = run({"export", source.string(), "-o", (dir / "out.tif").string(), "--recipe",
                (dir / "recipe.json").string(), "--long-edge", "100", "--tiff-compression", "8",
                "--color-space", "Display P3"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_EQ(r.out, (dir / "out.tif").string() + "\n");
  auto tiff = test::readTiff(dir / "out.tif");
  EXPECT_EQ(tiff.width, 100);
  EXPECT_EQ(tiff.height, 67);  // 133 x 100 / 200 = 66.5
  EXPECT_EQ(tiff.tiffCompression, 8);
  EXPECT_EQ(tiff.bitDepth, 16);

  // --format wins over the extension.
  r = run({"export", source.string(), "-o", (dir / "out.tif2").string(), "--format", "png"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_EQ(test::readPng(dir / "out.tif2").bitDepth, 16);
}

TEST_F(ExportCli, FailuresKeepTheDestinationAndSayWhy) {
  test::writeFile(dir / "out.jpg", "previous");
  auto r = run({"export", source.string(), "-o", (dir / "out.jpg").string(), "--quality", "1.5"});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_EQ(r.err, "导出失败：导出尺寸或质量设置无效\n");
  EXPECT_EQ(test::readFile(dir / "out.jpg"), "previous");

  r = run({"export", source.string(), "-o", source.string()});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_EQ(r.err, "导出失败：为保留原图，请选择其他文件名或导出位置\n");

  test::writeFile(dir / "broken.jpg", "not a photo");
  r = run({"export", (dir / "broken.jpg").string(), "-o", (dir / "out.jpg").string()});
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_EQ(r.err.rfind("导出失败：", 0), 0u) << r.err;
  EXPECT_EQ(test::readFile(dir / "out.jpg"), "previous");
}

TEST_F(ExportCli, BadOptionValuesAreUsageErrors) {
  for (std::vector<std::string> extra : {std::vector<std::string>{"--format", "gif"},
                                         {"--quality", "high"},
                                         {"--tiff-compression", "7"},
                                         {"--output-sharpening", "extreme"},
                                         {"--color-space", "ProPhoto"}}) {
    std::vector<std::string> args = {"export", source.string(), "-o", (dir / "x.jpg").string()};
    args.insert(args.end(), extra.begin(), extra.end());
    EXPECT_EQ(run(args).code, kExitUsage) << extra[0];
  }
  EXPECT_EQ(run({"export", source.string()}).code, kExitUsage);
  EXPECT_FALSE(std::filesystem::exists(dir / "x.jpg"));
}

}  // namespace
}  // namespace vg::cli
