// verdantglass-cli export: renders an image through its recipe at full
// resolution and writes it with the exporter, exactly as the export sheet does.

#include <cmath>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "cli/commands.h"
#include "cli/export_option_args.h"
#include "cli/recipe_input.h"
#include "io/document_band_source.h"
#include "io/image_exporter.h"
#include "io/image_loader.h"
#include "render/render_engine.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

int usage(Io& io, const std::string& message) {
  io.err << "verdantglass-cli: " << message << "\nTry 'verdantglass-cli export --help'.\n";
  return kExitUsage;
}

int failed(Io& io, std::string_view message) {
  io.err << "导出失败：" << message << "\n";
  return kExitFailed;
}

int runExport(const ParsedArgs& args, Io& io) {
  keepBandsInTheHeap();
  const fs::path image = args.positionals.at(0);
  const std::optional<std::string> out = args.value("output");
  if (!out || out->empty()) return usage(io, "export needs -o OUT");
  const fs::path destination = *out;

  // Options: the stored defaults, then what the command line says.
  ImageExporter::Options options = StoredExportSettings{}.toOptions(image);
  if (auto error = applyExportOptionArgs(args, options, destination)) return usage(io, *error);

  try {
    // Refuse before any decoding: the source and bad settings.
    ImageExporter::preflight(destination, options);

    std::string why;
    const std::optional<std::string> recipeFile = args.value("recipe");
    std::optional<EditDocument> recipe = recipeForImage(recipeFile, image, io.in, why);
    if (!recipe) return failed(io, "无法读取配方 " + fs::path(*recipeFile).filename().string());

    ImageLoader::Loaded loaded = ImageLoader::load(image, recipe->raw);
    RenderEngine engine(supportFolder() / "LUTs");
    DocumentBandSource picture(engine, *loaded.image, loaded.opaque, *recipe);
    ImageExporter::exportImage(picture, destination, options);
    io.out << destination.string() << "\n";
    return kExitOk;
  } catch (const ExportError& e) {
    return failed(io, e.what());
  } catch (const ImageLoadError& e) {
    return failed(io, e.what());
  } catch (const std::exception& e) {
    return failed(io, e.what());
  }
}

}  // namespace

std::vector<Command> exportCommands() {
  static const std::string help =
      "Usage: verdantglass-cli export IMAGE -o OUT [--recipe FILE] [--format jpeg|heic|png|tiff]\n"
      "         [--quality Q] [--long-edge N] [--color-space sRGB|\"Display P3\"|\"Adobe RGB\"]\n"
      "         [--no-metadata] [--include-location] [--output-sharpening off|screen|matte|glossy]\n"
      "         [--tiff-compression 1|5|8]\n"
      "\n"
      "Renders IMAGE at full resolution through a recipe (FILE, else the edits\n"
      "saved for IMAGE, else none) and writes OUT, replacing it atomically. IMAGE\n"
      "itself is never written. Prints OUT on success; on failure prints\n"
      "\"导出失败：<reason>\", exits 1 and leaves OUT as it was.\n"
      "\n"
      "  -o, --output OUT        the file to write\n"
      "  --recipe FILE           a recipe as JSON (- reads standard input)\n" +
      exportOptionsHelp();
  std::vector<OptionSpec> options = {{"output", 'o', true}, {"recipe", 0, true}};
  auto shared = exportOptionSpecs();
  options.insert(options.end(), shared.begin(), shared.end());
  return {
      {"export", "render an image through its recipe and write it as JPEG, HEIC, PNG or TIFF", help,
       std::move(options), 1, 1, runExport},
  };
}

}  // namespace vg::cli
