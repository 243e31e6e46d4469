// verdantglass-cli automask subject|background|sky|wand: the raster of an
// automatic mask, written as an 8-bit grey PNG at the raster's own size.
#include <filesystem>

#include "cli/commands.h"
#include "cli/export_option_args.h"
#include "cli/image_input.h"
#include "cli/recipe_input.h"
#include "io/working_image_files.h"
#include "model/log.h"
#include "session/auto_mask_generator.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

int usage(Io& io, const std::string& message, std::string_view command) {
  io.err << "verdantglass-cli: " << message << "\nTry 'verdantglass-cli " << command << " --help'.\n";
  return kExitUsage;
}

// "X,Y" with both in 0...1.
std::optional<Point> parsePoint(const std::string& text) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  std::optional<double> x = parseNumberArg(text.substr(0, comma)), y = parseNumberArg(text.substr(comma + 1));
  if (!x || !y || *x < 0 || *x > 1 || *y < 0 || *y > 1) return std::nullopt;
  return Point{*x, *y};
}

// The wand's options over their defaults; the usage error when one is bad.
std::optional<std::string> readWandOptions(const ParsedArgs& args, MagicWandSettings& wand) {
  std::optional<std::string> point = args.value("point");
  if (!point) return "automask wand needs --point X,Y";
  std::optional<Point> p = parsePoint(*point);
  if (!p) return "--point needs X,Y with both between 0 and 1 (y from the top), got '" + *point + "'";
  wand.point = *p;
  if (std::optional<std::string> t = args.value("tolerance")) {
    std::optional<double> v = parseNumberArg(*t);
    if (!v || *v < 0 || *v > 100) return "--tolerance needs a number from 0 to 100, got '" + *t + "'";
    wand.tolerance = *v;
  }
  if (std::optional<std::string> f = args.value("feather")) {
    std::optional<int64_t> v = parseIntegerArg(*f);
    if (!v || *v < 0 || *v > MagicWandSettings::kMaxFeather) {
      return "--feather needs whole pixels from 0 to " + std::to_string(MagicWandSettings::kMaxFeather) + ", got '" +
             *f + "'";
    }
    wand.feather = int(*v);
  }
  return std::nullopt;
}

int runAutomask(AutoMaskSource kind, std::string_view command, const ParsedArgs& args, Io& io) {
  const fs::path image = args.positionals.at(0);
  const fs::path out = args.value("output").value_or("");
  std::string ext = out.extension().string();
  if (out.empty() || (ext != ".png" && ext != ".PNG")) return usage(io, "-o OUT.png is required", command);
  AutoMaskRequest request;
  request.kind = kind;
  if (kind == AutoMaskSource::magicWand) {
    if (std::optional<std::string> error = readWandOptions(args, request.wand)) return usage(io, *error, command);
  }
  if (outputIsTheSource(out, image, io)) return kExitFailed;
  PreparedImage prepared;
  if (std::optional<int> code = prepareImage(args, io, prepared)) return *code;
  request.image = prepared.source;
  std::optional<MaskRaster> raster;
  try {
    raster = AutoMaskGenerator().raster(request);
  } catch (const AutoMaskError& e) {
    io.err << autoMaskFailureText(kind) << "：" << e.what() << "\n";
    return kExitFailed;
  } catch (const SubjectModelError& e) {
    logLine(std::string("Verdantglass: ") + e.what());
    io.err << autoMaskFailureText(kind) << "\n";
    return kExitFailed;
  }
  GreyImage grey(Rect{0, 0, raster->width, raster->height});
  for (size_t i = 0; i < raster->values.size(); ++i) grey.row(0)[i] = float(raster->values[i]) / 255.0f;
  try {
    writeGreyPng(out, grey);
  } catch (const std::exception& e) {
    io.err << "verdantglass-cli: " << e.what() << "\n";
    return kExitFailed;
  }
  io.out << out.string() << "\n";
  return kExitOk;
}

constexpr std::string_view kRasterHelp =
    "Writes OUT.png, an 8-bit grey PNG at the raster's own size (the image\n"
    "reduced to at most 2048 pixels on its longer side for subject and\n"
    "background, 1024 for sky and wand): 255 fully selected, 0 not at all.\n"
    "IMAGE is developed with the RAW settings of the recipe FILE, else of the\n"
    "edits saved for IMAGE. Prints OUT; on failure prints the failure and its\n"
    "reason (\"主体分割失败：未检测到可分割的区域\") and exits 1.\n"
    "\n"
    "  -o, --output OUT.png   the file to write (replaced atomically)\n"
    "  --recipe FILE          a recipe as JSON (- reads standard input)\n";

std::string kindHelp(std::string_view kind, std::string_view what) {
  return "Usage: verdantglass-cli automask " + std::string(kind) + " IMAGE -o OUT.png [--recipe FILE]\n\n" +
         std::string(what) + "\n\n" + std::string(kRasterHelp);
}

}  // namespace

std::vector<Command> automaskCommands() {
  static const std::string subjectHelp =
      kindHelp("subject", "The main subject of IMAGE, from the salient-object network U²-Net-p.");
  static const std::string backgroundHelp =
      kindHelp("background", "Everything but the main subject: the subject mask inverted.");
  static const std::string skyHelp = kindHelp(
      "sky", "The sky: bright colours joined to the top edge, fading with colour distance.\n"
             "A photo without a bright top gives an all-black mask, not a failure.");
  static const std::string wandHelp =
      "Usage: verdantglass-cli automask wand IMAGE --point X,Y [--tolerance T] [--feather F]\n"
      "         -o OUT.png [--recipe FILE]\n\n"
      "A magic-wand selection: every pixel joined to the one at X,Y (0...1 across\n"
      "and down the picture, y from the top) whose colour lies within T percent\n"
      "(0...100, default " + std::to_string(int(MagicWandSettings::kDefaultTolerance)) +
      ") of the largest RGB distance from that pixel's colour, softened by F\n"
      "pixels (default " + std::to_string(MagicWandSettings::kDefaultFeather) + "; 0 keeps a hard edge).\n\n" +
      std::string(kRasterHelp);
  const std::vector<OptionSpec> common = {{"output", 'o', true}, {"recipe", 0, true}};
  std::vector<OptionSpec> wandOptions = common;
  wandOptions.insert(wandOptions.end(), {{"point", 0, true}, {"tolerance", 0, true}, {"feather", 0, true}});
  return {
      {"automask subject", "the main subject's mask as a grey PNG", subjectHelp, common, 1, 1,
       [](const ParsedArgs& a, Io& io) { return runAutomask(AutoMaskSource::subject, "automask subject", a, io); }},
      {"automask background", "the background's mask (the subject inverted) as a grey PNG", backgroundHelp,
       common, 1, 1,
       [](const ParsedArgs& a, Io& io) {
         return runAutomask(AutoMaskSource::background, "automask background", a, io);
       }},
      {"automask sky", "the sky's mask as a grey PNG", skyHelp, common, 1, 1,
       [](const ParsedArgs& a, Io& io) { return runAutomask(AutoMaskSource::sky, "automask sky", a, io); }},
      {"automask wand", "a magic-wand selection from a point as a grey PNG", wandHelp, wandOptions, 1, 1,
       [](const ParsedArgs& a, Io& io) { return runAutomask(AutoMaskSource::magicWand, "automask wand", a, io); }},
  };
}

}  // namespace vg::cli
