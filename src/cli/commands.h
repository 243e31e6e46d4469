// The subcommand groups of verdantglass-cli. Each group lives in its own file
// (<group>_commands.cpp) and is appended once in commands.cpp.
#pragma once

#include <vector>

#include "cli/command.h"

namespace vg::cli {

std::vector<Command> sidecarCommands();
std::vector<Command> lutCommands();
std::vector<Command> curveCommands();
std::vector<Command> recipeCommands();
std::vector<Command> infoCommands();
std::vector<Command> presetCommands();
std::vector<Command> libraryCommands();
std::vector<Command> batchCommands();
std::vector<Command> exportCommands();
std::vector<Command> renderCommands();
std::vector<Command> automaskCommands();
std::vector<Command> analysisCommands();
std::vector<Command> editCommands();

}  // namespace vg::cli
