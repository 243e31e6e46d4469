#include "cli/export_option_args.h"

#include <cctype>
#include <charconv>
#include <malloc.h>

namespace vg::cli {

std::optional<double> parseNumberArg(const std::string& text) {
  double v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

std::optional<int64_t> parseIntegerArg(const std::string& text) {
  int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

void keepBandsInTheHeap() {
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
}

std::vector<OptionSpec> exportOptionSpecs() {
  return {{"format", 0, true},          {"quality", 0, true},
          {"long-edge", 0, true},       {"color-space", 0, true},
          {"no-metadata", 0, false},    {"include-location", 0, false},
          {"output-sharpening", 0, true}, {"tiff-compression", 0, true}};
}

std::string exportOptionsHelp() {
  return "  --format F              jpeg, heic, png or tiff (default: from OUT's extension, else jpeg)\n"
         "  --quality Q             0...1, JPEG and HEIC (default 0.9)\n"
         "  --long-edge N           shrink so the longer side is N pixels (never enlarges)\n"
         "  --color-space S         sRGB (default), \"Display P3\" or \"Adobe RGB\"\n"
         "  --no-metadata           copy no metadata from the source\n"
         "  --include-location      keep GPS and location fields (removed by default)\n"
         "  --output-sharpening S   off (default), screen, matte or glossy\n"
         "  --tiff-compression C    1 none (default), 5 LZW, 8 Deflate\n";
}

std::optional<std::string> applyExportOptionArgs(const ParsedArgs& args, ExportOptions& options,
                                                 const std::optional<std::filesystem::path>& destination) {
  if (auto f = args.value("format")) {
    std::string upper = *f;
    for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
    auto format = parseExportFormat(upper);
    if (!format) return "unknown format '" + *f + "' (jpeg, heic, png or tiff)";
    options.format = *format;
  } else if (destination) {
    if (auto byExtension = exportFormatForExtension(destination->extension().string())) {
      options.format = *byExtension;
    }
  }
  if (auto q = args.value("quality")) {
    auto v = parseNumberArg(*q);
    if (!v) return std::string("--quality takes a number from 0 to 1");
    options.quality = *v;
  }
  if (auto e = args.value("long-edge")) {
    auto v = parseIntegerArg(*e);
    if (!v) return std::string("--long-edge takes a whole number of pixels");
    options.longEdge = *v;
  }
  if (auto c = args.value("color-space")) {
    auto space = parseExportColorSpace(*c);
    if (!space) return "unknown colour space '" + *c + "' (sRGB, \"Display P3\" or \"Adobe RGB\")";
    options.colorSpace = *space;
  }
  if (args.has("no-metadata")) options.includeMetadata = false;
  if (args.has("include-location")) options.includeLocation = true;
  if (auto s = args.value("output-sharpening")) {
    auto sharpening = parseOutputSharpening(*s);
    if (!sharpening) return "unknown output sharpening '" + *s + "' (off, screen, matte or glossy)";
    options.outputSharpening = *sharpening;
  }
  if (auto t = args.value("tiff-compression")) {
    auto v = parseIntegerArg(*t);
    auto compression = v ? parseTIFFCompression(*v) : std::nullopt;
    if (!compression) return std::string("--tiff-compression takes 1, 5 or 8");
    options.tiffCompression = *compression;
  }
  return std::nullopt;
}

}  // namespace vg::cli
