#include "cli/commands.h"

namespace vg::cli {
namespace {
void append(std::vector<Command>& list, std::vector<Command> group) {
  list.insert(list.end(), group.begin(), group.end());
}
}  // namespace

const std::vector<Command>& allCommands() {
  static const std::vector<Command> all = [] {
    std::vector<Command> list;
    (void)append;
    append(list, sidecarCommands());
    append(list, lutCommands());
    append(list, curveCommands());
    append(list, recipeCommands());
    append(list, infoCommands());
    append(list, presetCommands());
    append(list, libraryCommands());
    append(list, batchCommands());
    append(list, exportCommands());
    append(list, renderCommands());
    append(list, automaskCommands());
    append(list, analysisCommands());
    append(list, editCommands());
    return list;
  }();
  return all;
}

}  // namespace vg::cli
