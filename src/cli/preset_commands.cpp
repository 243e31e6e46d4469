// verdantglass-cli presets: the filter presets a batch or the editor can lay
// over a recipe — the built-in looks first, then the user's own presets from
// the Presets folder of the support folder — and the management of the
// user's own: save, duplicate, rename, delete.
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/recipe_input.h"
#include "model/document.h"
#include "store/preset_library.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

PresetLibrary userLibrary() { return PresetLibrary(supportFolder() / "Presets"); }

nlohmann::ordered_json describe(const FilterPreset& preset) {
  nlohmann::ordered_json entry;
  entry["id"] = preset.id;
  entry["name"] = preset.name;
  return entry;
}

void print(Io& io, const nlohmann::ordered_json& json, bool pretty = false) {
  io.out << json.dump(pretty ? 2 : -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
}

// A preset operation's outcome: the preset on stdout, or its message on stderr.
int report(const PresetLibrary::Result& result, Io& io, bool printPreset = true) {
  if (!result.preset) {
    io.err << result.error << "\n";
    return kExitFailed;
  }
  if (printPreset) print(io, describe(*result.preset));
  return kExitOk;
}

int runPresets(const ParsedArgs& args, Io& io) {
  const PresetLibrary library = userLibrary();
  const auto user = library.scanUserPresets();
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& preset : builtInPresets()) list.push_back(describe(preset));
  for (const auto& preset : user.presets) list.push_back(describe(preset));
  for (const auto& damaged : user.damaged) {
    io.err << "预设文件已损坏：" << damaged.fileName << "（" << damaged.reason << "）\n";
  }
  print(io, list, args.has("pretty"));
  return kExitOk;
}

int runSave(const ParsedArgs& args, Io& io) {
  const auto recipe = readRecipeInput(args.value("from"), io);
  if (!recipe) return kExitFailed;
  return report(userLibrary().saveNew(args.positionals[0], recipe->adjustments, recipe->lut), io);
}

int runDuplicate(const ParsedArgs& args, Io& io) {
  return report(userLibrary().duplicate(args.positionals[0], args.positionals.size() > 1 ? args.positionals[1] : ""),
                io);
}

int runRename(const ParsedArgs& args, Io& io) {
  return report(userLibrary().rename(args.positionals[0], args.positionals[1]), io);
}

int runDelete(const ParsedArgs& args, Io& io) {
  return report(userLibrary().remove(args.positionals[0]), io, /*printPreset=*/false);
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
       "'verdantglass-cli batch --preset ID'. A file of that folder that is not a\n"
       "readable preset is reported on stderr as \"预设文件已损坏：FILE（reason）\".\n"
       "\n"
       "Options:\n"
       "  --pretty   indent the JSON\n",
       {{"pretty", 0, false}},
       0,
       0,
       runPresets},
      {"presets save", "save a recipe's global adjustments as a new preset",
       "Usage: verdantglass-cli presets save NAME [--from RECIPE]\n"
       "\n"
       "Saves the global adjustments of RECIPE (a recipe JSON file; standard input\n"
       "when --from is absent or \"-\"), and its LUT when it has one, as a new user\n"
       "preset called NAME, and prints {\"id\", \"name\"}. Names are unique; an empty\n"
       "name or one already in use is refused (\"预设名称不能为空\",\n"
       "\"已有同名预设「NAME」\") with exit status 1.\n",
       {{"from", 0, true}},
       1,
       1,
       runSave},
      {"presets duplicate", "copy a preset (a built-in one too) into a new user preset",
       "Usage: verdantglass-cli presets duplicate ID [NAME]\n"
       "\n"
       "Saves a copy of preset ID as a new user preset, called NAME or else\n"
       "\"<name> 副本\", and prints {\"id\", \"name\"}.\n",
       {},
       1,
       2,
       runDuplicate},
      {"presets rename", "rename one of your presets",
       "Usage: verdantglass-cli presets rename ID NAME\n"
       "\n"
       "Gives user preset ID the name NAME and prints {\"id\", \"name\"}. Built-in\n"
       "presets cannot be renamed (\"内置预设不能重命名\").\n",
       {},
       2,
       2,
       runRename},
      {"presets delete", "delete one of your presets",
       "Usage: verdantglass-cli presets delete ID\n"
       "\n"
       "Deletes user preset ID. Built-in presets cannot be deleted (\"内置预设不能删除\");\n"
       "an unknown id fails with \"找不到该预设\".\n",
       {},
       1,
       1,
       runDelete},
  };
}

}  // namespace vg::cli
