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

Outcome run(std::vector<std::string> args, std::string input = {}) {
  std::istringstream in(input);
  std::ostringstream out, err;
  int code = runCli(args, {in, out, err});
  return {code, out.str(), err.str()};
}

TEST(CurveSample, PrintsTheSamplesOfTheCurve) {
  Outcome r = run({"curve", "sample"}, R"({"points": [[0.2, 0.3], [0.8, 0.9]]})");
  ASSERT_EQ(r.code, kExitOk) << r.err;
  auto samples = nlohmann::json::parse(r.out);
  ASSERT_EQ(samples.size(), 1024u);
  EXPECT_NEAR(samples[0].get<double>(), 0.3, 1e-12);
  EXPECT_NEAR(samples[204].get<double>(), 0.3, 1e-12);  // x = 204/1023 < 0.2: flat
  EXPECT_NEAR(samples[1023].get<double>(), 0.9, 1e-12);
  EXPECT_GT(samples[512].get<double>(), 0.3);
  EXPECT_LT(samples[512].get<double>(), 0.9);

  // The same curve from a file, with its points as objects.
  test::TempDir dir;
  test::writeFile(dir / "c.json", R"({"points": [{"x": 0.8, "y": 0.9}, {"x": 0.2, "y": 0.3}]})");
  Outcome f = run({"curve", "sample", (dir / "c.json").string()});
  EXPECT_EQ(f.out, r.out);
}

TEST(CurveSample, LenientInputAndErrors) {
  // No usable points: the identity.
  Outcome id = run({"curve", "sample"}, R"({"points": "many"})");
  ASSERT_EQ(id.code, kExitOk);
  auto samples = nlohmann::json::parse(id.out);
  EXPECT_NEAR(samples[300].get<double>(), 300.0 / 1023.0, 1e-12);
  Outcome bad = run({"curve", "sample"}, "[1, 2");
  EXPECT_EQ(bad.code, kExitFailed);
  EXPECT_NE(bad.err.find("not JSON"), std::string::npos);
  EXPECT_EQ(run({"curve", "sample"}, "[1, 2]").code, kExitFailed);
}

}  // namespace
}  // namespace vg::cli
