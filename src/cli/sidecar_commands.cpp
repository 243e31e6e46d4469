// verdantglass-cli sidecar path|show: where an image's saved edits live and
// what they hold, read through the same store the editor uses.
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "model/json.h"
#include "store/edit_store.h"
#include "store/sidecar_name.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

// An empty argument names no file; everything else is a location, existing or not.
bool rejectEmptyImage(const fs::path& image, Io& io, std::string_view command) {
  if (!image.empty()) return false;
  io.err << "verdantglass-cli: IMAGE must not be empty\nTry 'verdantglass-cli " << command
         << " --help'.\n";
  return true;
}

int runSidecarPath(const ParsedArgs& args, Io& io) {
  EditStore& store = EditStore::shared();
  const fs::path image = args.positionals.at(0);
  if (rejectEmptyImage(image, io, "sidecar path")) return kExitUsage;
  if (!args.has("all")) {
    io.out << store.sidecarPath(image).string() << "\n";
    return kExitOk;
  }
  const SidecarNames names = sidecarNames(image);
  auto line = [&](std::string_view role, const std::string& name) {
    const fs::path path = store.editsFolder() / name;
    std::error_code ec;
    io.out << role << "\t" << path.string() << (fs::exists(path, ec) ? "\texists" : "") << "\n";
  };
  line("current", names.current);
  line("older", names.older);
  line("oldest", names.oldest);
  return kExitOk;
}

int runSidecarShow(const ParsedArgs& args, Io& io) {
  const fs::path image = args.positionals.at(0);
  if (rejectEmptyImage(image, io, "sidecar show")) return kExitUsage;
  std::optional<EditDocument> doc = EditStore::shared().load(image);
  if (!doc) {
    io.err << "verdantglass-cli: no saved edits for " << image.string() << "\n";
    return kExitFailed;
  }
  if (args.has("compact")) {
    io.out << encodeEditDocument(*doc) << "\n";
  } else {
    io.out << toJson(*doc).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
           << "\n";
  }
  return kExitOk;
}

}  // namespace

std::vector<Command> sidecarCommands() {
  return {
      {"sidecar path", "print where an image's saved edits are stored",
       "Usage: verdantglass-cli sidecar path [--all] IMAGE\n"
       "\n"
       "Prints the path of IMAGE's edit sidecar (the name new edits are written\n"
       "under), in the edits folder of $VERDANTGLASS_DATA_DIR, else\n"
       "$XDG_DATA_HOME/Verdantglass, else ~/.local/share/Verdantglass.\n"
       "The image does not need to exist.\n"
       "\n"
       "  --all   print all three names an image's edits may be stored under\n"
       "          (current, older, oldest), one per line as ROLE<TAB>PATH, with\n"
       "          <TAB>exists after those present\n",
       {{"all", 0, false}},
       1,
       1,
       runSidecarPath},
      {"sidecar show", "print the saved edits of an image",
       "Usage: verdantglass-cli sidecar show [--compact] IMAGE\n"
       "\n"
       "Prints the recipe saved for IMAGE as JSON, read as the editor reads it\n"
       "(any of its sidecar names; a sidecar that cannot be decoded is set aside\n"
       "and logged). Exits 1 when no edits are saved for IMAGE.\n"
       "\n"
       "  --compact   one line, exactly as stored\n",
       {{"compact", 0, false}},
       1,
       1,
       runSidecarShow},
  };
}

}  // namespace vg::cli
