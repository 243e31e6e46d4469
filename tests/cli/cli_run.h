// Runs verdantglass-cli in-process and captures what it prints.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "support/test_support.h"

namespace vg::cli {

struct CliRun {
  int code;
  std::string out, err;
};

inline CliRun runTool(std::vector<std::string> args, const std::string& input = {}) {
  std::istringstream in(input);
  std::ostringstream out, err;
  int code = runCli(args, {in, out, err});
  return {code, out.str(), err.str()};
}

// A test whose support folder ($VERDANTGLASS_DATA_DIR) is a fresh scratch
// folder, `support`, with the previous value back afterwards.
struct ScratchSupportTest : ::testing::Test {
  test::TempDir dir;
  std::filesystem::path support = dir / "support";
  std::optional<std::string> previous;
  void SetUp() override {
    if (const char* v = std::getenv("VERDANTGLASS_DATA_DIR")) previous = v;
    ::setenv("VERDANTGLASS_DATA_DIR", support.c_str(), 1);
  }
  void TearDown() override {
    if (previous) ::setenv("VERDANTGLASS_DATA_DIR", previous->c_str(), 1);
    else ::unsetenv("VERDANTGLASS_DATA_DIR");
  }
};

}  // namespace vg::cli
