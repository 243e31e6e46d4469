// The command-line contract of verdantglass-cli, shared by every subcommand:
// - results go to stdout, messages to stderr;
// - exit 0 on success, 1 when the work failed, 2 on bad usage;
// - every subcommand answers --help (its usage, exit 0) and --version.
//
// A subcommand is a Command value: its words ("recipe normalize"), a one-line
// summary, its help text, the options it accepts and a run function that gets
// the parsed arguments and the three streams (so tests drive it in-process).
#pragma once

#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vg::cli {

enum Exit : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

struct Io {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
};

struct OptionSpec {
  std::string_view name;        // long name without dashes: "recipe"
  char shortName = 0;           // e.g. 'o' for -o; 0 when there is none
  bool takesValue = false;      // --name VALUE or --name=VALUE
};

class ParsedArgs {
 public:
  std::vector<std::string> positionals;

  bool has(std::string_view name) const;
  // The last value given for an option, absent when it was not given.
  std::optional<std::string> value(std::string_view name) const;
  // Every value of a repeatable option, in command-line order.
  std::vector<std::string> values(std::string_view name) const;

  void add(std::string_view name, std::string value);
  // Every option as (name, value) in command-line order ("" for flags).
  const std::vector<std::pair<std::string, std::string>>& ordered() const { return options_; }

 private:
  std::vector<std::pair<std::string, std::string>> options_;
};

struct Command {
  std::string_view name;     // the words after the program name
  std::string_view summary;  // one line, for the overview
  std::string_view help;     // full text printed by --help (usage line first)
  std::vector<OptionSpec> options;
  int minPositionals = 0;
  int maxPositionals = 0;
  int (*run)(const ParsedArgs& args, Io& io) = nullptr;
};

// Every subcommand, in the order of the overview.
const std::vector<Command>& allCommands();

// Runs the tool on argv (without the program name). Never throws.
int runCli(std::span<const std::string> args, Io io);

std::string_view versionString();

// Reads the whole of FILE, or of `in` when path is absent or "-". On failure
// (missing, unreadable, a folder) sets why ("cannot read FILE...").
std::optional<std::string> readInputText(const std::optional<std::string>& path, std::istream& in,
                                         std::string& why);
// The same, writing "verdantglass-cli: <why>" to io.err on failure.
std::optional<std::string> readInputText(const std::optional<std::string>& path, Io& io);

}  // namespace vg::cli
