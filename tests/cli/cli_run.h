// Runs verdantglass-cli in-process and captures what it prints.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "cli/command.h"

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

}  // namespace vg::cli
