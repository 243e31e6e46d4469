// verdantglass-cli recipe normalize|check: read an edit recipe (a sidecar's
// JSON) the way the editor does, with every lenient repair applied.
#include <filesystem>
#include <iostream>

#include "cli/commands.h"
#include "cli/recipe_input.h"
#include "model/json.h"

namespace vg::cli {

namespace {

// The recipe named by the optional FILE argument.
std::optional<EditDocument> readRecipeArgument(const ParsedArgs& args, Io& io) {
  return readRecipeInput(args.positionals.empty() ? std::nullopt : std::optional(args.positionals[0]), io);
}

int runNormalize(const ParsedArgs& args, Io& io) {
  const auto doc = readRecipeArgument(args, io);
  if (!doc) return kExitFailed;
  io.out << encodeEditDocument(*doc) << "\n";
  return kExitOk;
}

int runCheck(const ParsedArgs& args, Io& io) {
  const auto doc = readRecipeArgument(args, io);
  if (!doc) return kExitFailed;
  io.out << R"({"noEdit":)" << (isNoEdit(*doc) ? "true" : "false") << "}\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> recipeCommands() {
  return {
      {"recipe normalize", "decode a recipe leniently and print it re-encoded",
       "Usage: verdantglass-cli recipe normalize [FILE]\n"
       "\n"
       "Reads an edit recipe (the JSON of an edit sidecar) from FILE, or from\n"
       "standard input when FILE is absent or '-', decodes it exactly as the\n"
       "editor does and prints it re-encoded as compact JSON on one line.\n"
       "\n"
       "Decoding repairs instead of failing: missing, null or ill-typed values\n"
       "take their defaults, numbers are clamped into their ranges, unknown keys\n"
       "are dropped and keys that are always written are added. Only a file\n"
       "that is not JSON, or whose top level is not an object, fails (exit 1).\n",
       {},
       0,
       1,
       runNormalize},
      {"recipe check", "tell whether a recipe changes the image at all",
       "Usage: verdantglass-cli recipe check [FILE]\n"
       "\n"
       "Reads an edit recipe like 'recipe normalize' and prints\n"
       "{\"noEdit\":true} when, after lenient decoding, it changes nothing (no\n"
       "sidecar needs to exist for it), else {\"noEdit\":false}.\n"
       "\n"
       "An aspect-ratio lock alone, the filter strength, the adjustments saved\n"
       "before a filter, the lens vignette midpoint and feather, the coordinate\n"
       "convention and the schema version do not count as edits.\n",
       {},
       0,
       1,
       runCheck},
  };
}

}  // namespace vg::cli
