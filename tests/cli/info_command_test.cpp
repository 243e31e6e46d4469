#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <sstream>

#include "cli/command.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

struct Result {
  int code;
  std::string out, err;
};

Result info(const std::string& file) {
  std::istringstream in;
  std::ostringstream out, err;
  std::vector<std::string> args = {"info", file};
  int code = runCli(args, {in, out, err});
  return {code, out.str(), err.str()};
}

TEST(InfoCommand, PrintsTheLoadedFactsAsJson) {
  auto r = info(test::dataPath("jpeg/test-issue-6.jpg").string());
  ASSERT_EQ(r.code, kExitOk) << r.err;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["pixelWidth"], 200);
  EXPECT_EQ(j["pixelHeight"], 133);
  EXPECT_EQ(j["fileFormat"], "JPEG");
  EXPECT_EQ(j["colorSpaceName"], "sRGB IEC61966-2.1");
  EXPECT_EQ(j["isRAW"], false);
  EXPECT_EQ(j["metadata"]["camera"], "Canon EOS 350D DIGITAL");
  EXPECT_EQ(j["metadata"]["iso"], 100);
  EXPECT_FALSE(j["metadata"].contains("focalLength35mm"));  // absent fields are omitted
  EXPECT_TRUE(j["rawDecoderOptions"].empty());
}

TEST(InfoCommand, RawFilesListTheirDecoderVersions) {
  auto r = info(test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc").string());
  ASSERT_EQ(r.code, kExitOk) << r.err;
  auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j["isRAW"], true);
  EXPECT_EQ(j["fileFormat"], "RAW");
  ASSERT_FALSE(j["rawDecoderOptions"].empty());
  EXPECT_EQ(j["rawDecoderOptions"][0]["id"], "");
  EXPECT_EQ(j["rawDecoderOptions"][0]["title"], "最新");
  EXPECT_TRUE(j["metadata"]["rawSummary"].contains("Make"));
}

TEST(InfoCommand, FailuresPrintTheLoaderMessageAndExitOne) {
  test::TempDir dir;
  test::writeFile(dir / "broken.png", "not a png");
  auto r = info((dir / "broken.png").string());
  EXPECT_EQ(r.code, kExitFailed);
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(r.err, "无法解码图片：broken.png\n");
  EXPECT_EQ(info("http://example.com/a.jpg").err, "只能打开本机图片文件\n");
}

}  // namespace
}  // namespace vg::cli
