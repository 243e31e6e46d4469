// verdantglass-cli export: renders an image through its recipe at full
// resolution and writes it with the exporter, exactly as the export sheet does.
#include <malloc.h>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <system_error>

#include "cli/commands.h"
#include "io/document_band_source.h"
#include "io/image_exporter.h"
#include "io/image_loader.h"
#include "model/json.h"
#include "render/render_engine.h"
#include "store/edit_store.h"
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

std::optional<double> parseNumber(const std::string& text) {
  double v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

std::optional<int64_t> parseInteger(const std::string& text) {
  int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

// An export allocates and frees a band of float pixels (up to ~25 MB) many
// times over. glibc's defaults hand such blocks back to the kernel on every
// free and fault them in again (measured: a third of a 24 MP export's CPU
// time in page faults); keeping them in the heap makes the reuse free. This is
// a one-shot process, so the retained memory is returned at exit.
void keepBandsInTheHeap() {
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
}

int runExport(const ParsedArgs& args, Io& io) {
  keepBandsInTheHeap();
  const fs::path image = args.positionals.at(0);
  const std::optional<std::string> out = args.value("output");
  if (!out || out->empty()) return usage(io, "export needs -o OUT");
  const fs::path destination = *out;

  // Options: the stored defaults, then what the command line says.
  ImageExporter::Options options = StoredExportSettings{}.toOptions(image);
  if (auto f = args.value("format")) {
    std::string upper = *f;
    for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
    auto format = parseExportFormat(upper);
    if (!format) return usage(io, "unknown format '" + *f + "' (jpeg, heic, png or tiff)");
    options.format = *format;
  } else if (auto byExtension = exportFormatForExtension(destination.extension().string())) {
    options.format = *byExtension;
  }
  if (auto q = args.value("quality")) {
    auto v = parseNumber(*q);
    if (!v) return usage(io, "--quality takes a number from 0 to 1");
    options.quality = *v;
  }
  if (auto e = args.value("long-edge")) {
    auto v = parseInteger(*e);
    if (!v) return usage(io, "--long-edge takes a whole number of pixels");
    options.longEdge = *v;
  }
  if (auto c = args.value("color-space")) {
    auto space = parseExportColorSpace(*c);
    if (!space) return usage(io, "unknown colour space '" + *c + "' (sRGB, \"Display P3\" or \"Adobe RGB\")");
    options.colorSpace = *space;
  }
  if (args.has("no-metadata")) options.includeMetadata = false;
  if (args.has("include-location")) options.includeLocation = true;
  if (auto s = args.value("output-sharpening")) {
    auto sharpening = parseOutputSharpening(*s);
    if (!sharpening) return usage(io, "unknown output sharpening '" + *s + "' (off, screen, matte or glossy)");
    options.outputSharpening = *sharpening;
  }
  if (auto t = args.value("tiff-compression")) {
    auto v = parseInteger(*t);
    auto compression = v ? parseTIFFCompression(*v) : std::nullopt;
    if (!compression) return usage(io, "--tiff-compression takes 1, 5 or 8");
    options.tiffCompression = *compression;
  }

  try {
    // Refuse before any decoding: the source and bad settings.
    ImageExporter::preflight(destination, options);

    EditDocument recipe;
    if (auto recipeFile = args.value("recipe")) {
      std::ifstream in(*recipeFile, std::ios::binary);
      std::stringstream text;
      text << in.rdbuf();
      auto decoded = in ? decodeEditDocument(text.str()) : std::nullopt;
      if (!decoded) return failed(io, "无法读取配方 " + fs::path(*recipeFile).filename().string());
      recipe = std::move(*decoded);
    } else if (auto saved = EditStore::shared().load(image)) {
      recipe = std::move(*saved);
    }

    ImageLoader::Loaded loaded = ImageLoader::load(image, recipe.raw);
    RenderEngine engine(supportFolder() / "LUTs");
    DocumentBandSource picture(engine, *loaded.image, recipe);
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
  return {
      {"export", "render an image through its recipe and write it as JPEG, HEIC, PNG or TIFF",
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
       "  --recipe FILE           a recipe as JSON\n"
       "  --format F              default: from OUT's extension, else jpeg\n"
       "  --quality Q             0...1, JPEG and HEIC (default 0.9)\n"
       "  --long-edge N           shrink so the longer side is N pixels (never enlarges)\n"
       "  --color-space S         sRGB (default), \"Display P3\" or \"Adobe RGB\"\n"
       "  --no-metadata           copy no metadata from IMAGE\n"
       "  --include-location      keep GPS and location fields (removed by default)\n"
       "  --output-sharpening S   off (default), screen, matte or glossy\n"
       "  --tiff-compression C    1 none (default), 5 LZW, 8 Deflate\n",
       {{"output", 'o', true},
        {"recipe", 0, true},
        {"format", 0, true},
        {"quality", 0, true},
        {"long-edge", 0, true},
        {"color-space", 0, true},
        {"no-metadata", 0, false},
        {"include-location", 0, false},
        {"output-sharpening", 0, true},
        {"tiff-compression", 0, true}},
       1,
       1,
       runExport},
  };
}

}  // namespace vg::cli
