#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/command.h"
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

}  // namespace
}  // namespace vg::cli
