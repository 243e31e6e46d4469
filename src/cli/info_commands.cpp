// verdantglass-cli info IMAGE: loads an image the way the editor opens it and
// prints its facts as JSON.
#include <ostream>

#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "io/image_loader.h"

namespace vg::cli {
namespace {

int runInfo(const ParsedArgs& args, Io& io) {
  const std::string& file = args.positionals.at(0);
  try {
    ImageLoader::Loaded loaded = ImageLoader::load(file);
    nlohmann::ordered_json j;
    j["pixelWidth"] = loaded.pixelSize.width;
    j["pixelHeight"] = loaded.pixelSize.height;
    j["fileFormat"] = loaded.fileFormat;
    j["colorSpaceName"] = loaded.colorSpaceName;
    j["isRAW"] = loaded.isRAW;
    j["metadata"] = toJson(loaded.meta);
    nlohmann::ordered_json options = nlohmann::ordered_json::array();
    if (loaded.isRAW) {
      for (const auto& o : ImageLoader::rawDecoderOptions(loaded.url)) {
        options.push_back({{"id", o.id}, {"title", o.title}});
      }
    }
    j["rawDecoderOptions"] = options;
    io.out << j.dump(2) << "\n";
    return kExitOk;
  } catch (const ImageLoadError& e) {
    io.err << e.what() << "\n";
    return kExitFailed;
  } catch (const std::exception& e) {
    io.err << "verdantglass-cli: " << e.what() << "\n";
    return kExitFailed;
  }
}

}  // namespace

std::vector<Command> infoCommands() {
  return {Command{
      "info",
      "Decode an image and print its size, format, colour space and metadata",
      "Usage: verdantglass-cli info IMAGE\n\n"
      "Loads IMAGE (JPEG, PNG, TIFF, HEIC/HEIF or camera RAW) as the editor opens it\n"
      "and prints a JSON object: pixelWidth, pixelHeight (upright), fileFormat,\n"
      "colorSpaceName, isRAW, metadata (only the fields the file carries) and\n"
      "rawDecoderOptions (the RAW decoder versions offered for it, each {id, title}).\n"
      "A file that cannot be loaded prints the loader's message and exits with 1.\n",
      {},
      1,
      1,
      runInfo,
  }};
}

}  // namespace vg::cli
