#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "cli/command.h"

namespace vg::cli {

bool ParsedArgs::has(std::string_view name) const {
  return std::any_of(options_.begin(), options_.end(),
                     [&](const auto& o) { return o.first == name; });
}

std::optional<std::string> ParsedArgs::value(std::string_view name) const {
  for (auto it = options_.rbegin(); it != options_.rend(); ++it) {
    if (it->first == name) return it->second;
  }
  return std::nullopt;
}

std::vector<std::string> ParsedArgs::values(std::string_view name) const {
  std::vector<std::string> out;
  for (const auto& o : options_) {
    if (o.first == name) out.push_back(o.second);
  }
  return out;
}

void ParsedArgs::add(std::string_view name, std::string value) {
  options_.emplace_back(std::string(name), std::move(value));
}

std::string_view versionString() { return VG_VERSION; }

namespace {

constexpr std::string_view kProgram = "verdantglass-cli";

size_t wordCount(std::string_view s) {
  return size_t(std::count(s.begin(), s.end(), ' ')) + 1;
}

void printOverview(std::ostream& os) {
  os << "Usage: verdantglass-cli COMMAND [OPTIONS] [ARGS]\n\n"
        "Verdantglass, the non-destructive photo editor, from the command line.\n"
        "Results are written to stdout, messages to stderr. Exit status: 0 success,\n"
        "1 failed work, 2 bad usage.\n\nCommands:\n";
  size_t width = 0;
  for (const auto& c : allCommands()) width = std::max(width, c.name.size());
  for (const auto& c : allCommands()) {
    os << "  " << c.name << std::string(width - c.name.size() + 2, ' ') << c.summary << "\n";
  }
  os << "\nEvery command accepts --help and --version.\n"
        "Run 'verdantglass-cli COMMAND --help' for the details of one command.\n";
}

// Commands whose name starts with the given words ("recipe" lists the group).
std::vector<const Command*> commandsUnder(std::string_view prefix) {
  std::vector<const Command*> out;
  for (const auto& c : allCommands()) {
    if (c.name == prefix ||
        (c.name.size() > prefix.size() && c.name.substr(0, prefix.size()) == prefix &&
         c.name[prefix.size()] == ' ')) {
      out.push_back(&c);
    }
  }
  return out;
}

int usageError(Io& io, std::string_view message, std::string_view commandName) {
  io.err << kProgram << ": " << message << "\n";
  io.err << "Try '" << kProgram << (commandName.empty() ? "" : " ") << commandName
         << " --help'.\n";
  return kExitUsage;
}

const OptionSpec* findOption(const Command& c, std::string_view longName, char shortName) {
  for (const auto& o : c.options) {
    if ((!longName.empty() && o.name == longName) || (shortName && o.shortName == shortName)) {
      return &o;
    }
  }
  return nullptr;
}

int runCommand(const Command& c, std::span<const std::string> args, Io& io) {
  ParsedArgs parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (optionsEnded || a == "-" || a.size() < 2 || a[0] != '-') {
      parsed.positionals.push_back(a);
      continue;
    }
    if (a == "--") {
      optionsEnded = true;
      continue;
    }
    if (a == "--help" || a == "-h") {
      io.out << c.help;
      if (!c.help.empty() && c.help.back() != '\n') io.out << "\n";
      return kExitOk;
    }
    if (a == "--version") {
      io.out << kProgram << " " << versionString() << "\n";
      return kExitOk;
    }
    std::string_view name;
    std::optional<std::string> inlineValue;
    const OptionSpec* spec = nullptr;
    if (a.rfind("--", 0) == 0) {
      std::string_view body = std::string_view(a).substr(2);
      if (auto eq = body.find('='); eq != std::string_view::npos) {
        inlineValue = std::string(body.substr(eq + 1));
        body = body.substr(0, eq);
      }
      spec = findOption(c, body, 0);
      name = body;
    } else if (a.size() == 2) {
      spec = findOption(c, {}, a[1]);
      name = a;
    }
    if (!spec) return usageError(io, "unknown option '" + a + "'", c.name);
    if (!spec->takesValue) {
      if (inlineValue) return usageError(io, "option --" + std::string(spec->name) + " takes no value", c.name);
      parsed.add(spec->name, "");
      continue;
    }
    if (!inlineValue) {
      if (i + 1 >= args.size()) {
        return usageError(io, "option --" + std::string(spec->name) + " needs a value", c.name);
      }
      inlineValue = args[++i];
    }
    parsed.add(spec->name, *inlineValue);
  }
  const int count = int(parsed.positionals.size());
  if (count < c.minPositionals) return usageError(io, "missing argument", c.name);
  if (count > c.maxPositionals) {
    return usageError(io, "unexpected argument '" + parsed.positionals[c.maxPositionals] + "'", c.name);
  }
  return c.run(parsed, io);
}

}  // namespace

int runCli(std::span<const std::string> args, Io io) {
  try {
    if (args.empty()) {
      printOverview(io.err);
      return kExitUsage;
    }
    if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
      printOverview(io.out);
      return kExitOk;
    }
    if (args[0] == "--version") {
      io.out << kProgram << " " << versionString() << "\n";
      return kExitOk;
    }
    // The longest command whose words open the argument list.
    const Command* best = nullptr;
    for (const auto& c : allCommands()) {
      size_t n = wordCount(c.name);
      if (n > args.size()) continue;
      std::string joined;
      for (size_t i = 0; i < n; ++i) joined += (i ? " " : "") + args[i];
      if (joined == c.name && (!best || c.name.size() > best->name.size())) best = &c;
    }
    if (best) return runCommand(*best, args.subspan(wordCount(best->name)), io);

    // A group word alone ("recipe") lists its subcommands.
    auto group = commandsUnder(args[0]);
    if (!group.empty()) {
      bool wantsHelp = args.size() > 1 && (args[1] == "--help" || args[1] == "-h");
      if (args.size() > 1 && args[1] == "--version") {
        io.out << kProgram << " " << versionString() << "\n";
        return kExitOk;
      }
      std::ostream& os = wantsHelp ? io.out : io.err;
      os << "Usage: " << kProgram << " " << args[0] << " SUBCOMMAND ...\n\nSubcommands:\n";
      for (const auto* c : group) os << "  " << c->name << "  " << c->summary << "\n";
      if (wantsHelp) return kExitOk;
      if (args.size() > 1) os << "\n" << kProgram << ": unknown subcommand '" << args[1] << "'\n";
      return kExitUsage;
    }
    return usageError(io, "unknown command '" + args[0] + "'", "");
  } catch (const std::exception& e) {
    io.err << kProgram << ": " << e.what() << "\n";
    return kExitFailed;
  }
}

std::optional<std::string> readInputText(const std::optional<std::string>& path, std::istream& in,
                                         std::string& why) {
  if (!path || *path == "-") {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::error_code ec;
  if (std::filesystem::is_directory(*path, ec)) {
    why = "cannot read " + *path + ": it is a folder";
    return std::nullopt;
  }
  std::ifstream file(*path, std::ios::binary);
  std::ostringstream ss;
  if (file) ss << file.rdbuf();
  if (!file || file.bad()) {
    why = "cannot read " + *path;
    return std::nullopt;
  }
  return ss.str();
}

std::optional<std::string> readInputText(const std::optional<std::string>& path, Io& io) {
  std::string why;
  std::optional<std::string> text = readInputText(path, io.in, why);
  if (!text) io.err << kProgram << ": " << why << "\n";
  return text;
}

}  // namespace vg::cli
