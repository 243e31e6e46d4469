#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "cli/cli_run.h"
#include "cli/command.h"

namespace vg::cli {
namespace {

using Run = CliRun;
Run run(std::vector<std::string> args, const std::string& input = {}) { return runTool(std::move(args), input); }

TEST(CliDispatch, HelpAndVersionSucceedOnStdout) {
  auto help = run({"--help"});
  EXPECT_EQ(help.code, kExitOk);
  EXPECT_NE(help.out.find("Usage: verdantglass-cli"), std::string::npos);
  EXPECT_TRUE(help.err.empty());

  auto version = run({"--version"});
  EXPECT_EQ(version.code, kExitOk);
  EXPECT_EQ(version.out, "verdantglass-cli " + std::string(versionString()) + "\n");
}

TEST(CliDispatch, BadUsageExitsTwoWithMessageOnStderr) {
  auto none = run({});
  EXPECT_EQ(none.code, kExitUsage);
  EXPECT_TRUE(none.out.empty());

  auto unknown = run({"frobnicate"});
  EXPECT_EQ(unknown.code, kExitUsage);
  EXPECT_NE(unknown.err.find("unknown command 'frobnicate'"), std::string::npos);
  EXPECT_TRUE(unknown.out.empty());
}

TEST(CliDispatch, EverySubcommandAnswersHelpAndVersion) {
  for (const auto& c : allCommands()) {
    std::vector<std::string> args;
    std::string name(c.name);
    for (size_t pos = 0, next; pos <= name.size(); pos = next + 1) {
      next = name.find(' ', pos);
      if (next == std::string::npos) next = name.size();
      args.push_back(name.substr(pos, next - pos));
    }
    auto withHelp = args;
    withHelp.push_back("--help");
    auto help = run(withHelp);
    EXPECT_EQ(help.code, kExitOk) << c.name;
    EXPECT_NE(help.out.find(name), std::string::npos) << c.name << ": help must show its usage";

    auto withVersion = args;
    withVersion.push_back("--version");
    EXPECT_EQ(run(withVersion).code, kExitOk) << c.name;

    auto withBogus = args;
    withBogus.push_back("--no-such-option");
    EXPECT_EQ(run(withBogus).code, kExitUsage) << c.name;
  }
}

}  // namespace
}  // namespace vg::cli
