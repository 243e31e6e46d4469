// verdantglass-cli presets: the filter presets a batch or the editor can lay
// over a recipe — the built-in looks first, then the user's own presets from
// the Presets folder of the support folder.
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "store/preset_library.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

int runPresets(const ParsedArgs& args, Io& io) {
  PresetLibrary library(supportFolder() / "Presets");
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& preset : library.list()) {
    nlohmann::ordered_json entry;
    entry["id"] = preset.id;
    entry["name"] = preset.name;
    list.push_back(std::move(entry));
  }
  io.out << list.dump(args.has("pretty") ? 2 : -1, ' ', false,
                      nlohmann::ordered_json::error_handler_t::replace)
         << "\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> presetCommands() {
  return {
      {"presets", "list the filter presets (built-in first, then your own)",
       "Usage: verdantglass-cli presets [--pretty]\n"
       "\n"
       "Prints a JSON array of {\"id\", \"name\"}: the built-in looks in menu order,\n"
       "then the user presets of the Presets folder ($VERDANTGLASS_DATA_DIR/Presets,\n"
       "else $XDG_DATA_HOME/Verdantglass/Presets, else\n"
       "~/.local/share/Verdantglass/Presets) by name. Pass an id to\n"
       "'verdantglass-cli batch --preset ID'.\n"
       "\n"
       "Options:\n"
       "  --pretty   indent the JSON\n",
       {{"pretty", 0, false}},
       0,
       0,
       runPresets},
  };
}

}  // namespace vg::cli
