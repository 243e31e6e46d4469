// verdantglass-cli render|mask|histogram: the render pipeline on a file, the
// rasterised mask of one layer, and the histogram of the rendered preview.
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/image_input.h"
#include "cli/recipe_input.h"
#include "io/image_loader.h"
#include "io/load_error.h"
#include "io/working_image_files.h"
#include "model/json.h"
#include "render/document_render.h"
#include "render/histogram.h"
#include "render/srgb.h"
#include "store/edit_store.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

RenderEngine& engine() {
  static RenderEngine e(supportFolder() / "LUTs");
  return e;
}

MaskImageCache& maskCache() {
  static MaskImageCache c;
  return c;
}

// --mask ID=GREY_IMAGE: the image's grey levels as stored (8/16-bit files are
// decoded to linear light by the loader; the sRGB encoding is undone).
std::optional<int> readMaskOverrides(const ParsedArgs& args, Io& io, const Rect& outputRect, MaskImages& out) {
  for (const std::string& spec : args.values("mask")) {
    size_t eq = spec.find('=');
    std::optional<Uuid> id = eq == std::string::npos ? std::nullopt : Uuid::parse(spec.substr(0, eq));
    if (!id) {
      io.err << "verdantglass-cli: --mask needs ID=GREY_IMAGE with a mask UUID, got '" << spec << "'\n";
      return kExitUsage;
    }
    ImageLoader::Loaded grey;
    try {
      grey = ImageLoader::load(spec.substr(eq + 1));
    } catch (const ImageLoadError& e) {
      io.err << "verdantglass-cli: " << e.what() << "\n";
      return kExitFailed;
    }
    const Image& g = *grey.image;
    if (g.width() != outputRect.width || g.height() != outputRect.height) {
      io.err << "verdantglass-cli: mask " << spec.substr(eq + 1) << " is " << g.width() << "x" << g.height()
             << ", the output is " << outputRect.width << "x" << outputRect.height << "\n";
      return kExitFailed;
    }
    auto mask = std::make_shared<GreyImage>(outputRect);
    for (int y = 0; y < g.height(); ++y) {
      const float* s = g.row(g.bounds().y + y);
      float* d = mask->row(outputRect.y + y);
      for (int x = 0; x < g.width(); ++x) d[x] = srgb::encode(s[size_t(x) * 4]);
    }
    out[*id] = std::move(mask);
  }
  return std::nullopt;
}

int runRender(const ParsedArgs& args, Io& io) {
  const fs::path outPath = args.value("output").value_or("");
  if (outPath.empty() || !isWritableImageExtension(outPath)) {
    io.err << "verdantglass-cli: -o OUT must end in .tif, .tiff, .png, .jpg or .jpeg\n";
    return kExitUsage;
  }
  if (outputIsTheSource(outPath, args.positionals.at(0), io)) return kExitFailed;
  PreparedImage p;
  if (auto code = prepareImage(args, io, p)) return *code;
  RenderOptions options;
  options.scale = p.scale;
  options.dither = args.has("dither");
  Geometry geometry(p.source->bounds(), geometryParams(p.recipe), false);
  MaskImages overrides;
  if (auto code = readMaskOverrides(args, io, geometry.outputRect(), overrides)) return *code;
  DocumentRender result = renderDocument(engine(), maskCache(), *p.source, p.recipe, options, overrides);
  for (const std::string& e : result.maskErrors) io.err << "verdantglass-cli: " << e << "\n";
  try {
    writeWorkingImage(outPath, result.image);
  } catch (const std::exception& e) {
    io.err << "verdantglass-cli: " << e.what() << "\n";
    return kExitFailed;
  }
  return kExitOk;
}

int runMask(const ParsedArgs& args, Io& io) {
  const fs::path outPath = args.value("output").value_or("");
  std::string ext = outPath.extension().string();
  if (outPath.empty() || (ext != ".png" && ext != ".PNG")) {
    io.err << "verdantglass-cli: -o OUT.png is required\n";
    return kExitUsage;
  }
  if (!args.has("recipe") || !args.has("id")) {
    io.err << "verdantglass-cli: --recipe F and --id MASK_ID are required\n";
    return kExitUsage;
  }
  std::optional<Uuid> id = Uuid::parse(*args.value("id"));
  if (!id) {
    io.err << "verdantglass-cli: --id needs a mask UUID, got '" << *args.value("id") << "'\n";
    return kExitUsage;
  }
  if (outputIsTheSource(outPath, args.positionals.at(0), io)) return kExitFailed;
  PreparedImage p;
  if (auto code = prepareImage(args, io, p)) return *code;
  auto layer = std::find_if(p.recipe.masks.begin(), p.recipe.masks.end(), [&](const MaskLayer& m) { return m.id == *id; });
  if (layer == p.recipe.masks.end()) {
    io.err << "verdantglass-cli: the recipe has no mask " << *args.value("id") << "\n";
    return kExitFailed;
  }
  Geometry geometry(p.source->bounds(), geometryParams(p.recipe), false);
  std::optional<ColorStage> colorStage;
  const MaskLayer::RenderData data = layer->renderData();
  if (readsColorStage(data.kind) || std::any_of(data.subtracts.begin(), data.subtracts.end(), readsColorStage))
    colorStage = engine().colorStage(*p.source, p.recipe, p.scale, false);
  std::string error;
  std::optional<GreyImage> mask = rasterizeLayer(
      data, MaskFrame{&geometry, geometry.outputRect(), colorStage ? colorStage->image.get() : nullptr}, &error);
  if (!mask) {
    io.err << "verdantglass-cli: " << error << "\n";
    return kExitFailed;
  }
  try {
    writeGreyPng(outPath, *mask);
  } catch (const std::exception& e) {
    io.err << "verdantglass-cli: " << e.what() << "\n";
    return kExitFailed;
  }
  return kExitOk;
}

int runHistogram(const ParsedArgs& args, Io& io) {
  PreparedImage p;
  if (auto code = prepareImage(args, io, p, ImageLoader::kPreviewMaxDimension)) return *code;
  RenderOptions options;
  options.scale = p.scale;
  options.integralRect = true;  // the preview's output rectangle
  DocumentRender result = renderDocument(engine(), maskCache(), *p.source, p.recipe, options);
  for (const std::string& e : result.maskErrors) io.err << "verdantglass-cli: " << e << "\n";
  HistogramBins bins = HistogramComputer::compute(result.image);
  nlohmann::ordered_json j;
  auto arr = [](const std::array<float, HistogramBins::kBins>& a) { return nlohmann::json(a); };
  j["red"] = arr(bins.red);
  j["green"] = arr(bins.green);
  j["blue"] = arr(bins.blue);
  j["luminance"] = arr(bins.luminance);
  j["highlightClipping"] = bins.highlightClipping;
  j["shadowClipping"] = bins.shadowClipping;
  io.out << j.dump() << "\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> renderCommands() {
  return {
      {"render", "render an image through a recipe",
       "usage: verdantglass-cli render IMAGE -o OUT [--recipe F] [--scale S] [--mask ID=GREY_IMAGE]... [--dither]\n"
       "\n"
       "Renders IMAGE through the whole pipeline at render scale S (0 < S <= 1; the\n"
       "source is first reduced by S). OUT by extension: .tif/.tiff = 32-bit float\n"
       "RGBA of the linear working-space result (no ICC, no clamping); .png = 16-bit\n"
       "sRGB; .jpg = 8-bit sRGB. Without --recipe the image's saved recipe is used,\n"
       "else the default one. --mask replaces the mask of layer ID with a grey image\n"
       "of the output's size. --dither adds the 8-bit dither.\n",
       {{"output", 'o', true}, {"recipe", 0, true}, {"scale", 0, true}, {"mask", 0, true}, {"dither", 0, false}},
       1,
       1,
       runRender},
      {"mask", "write the rasterised mask of one layer",
       "usage: verdantglass-cli mask IMAGE --recipe F --id MASK_ID -o OUT.png [--scale S]\n"
       "\n"
       "Writes the mask of layer MASK_ID (its shape, feather, inversion and\n"
       "subtractions) in the output frame as an 8-bit grey PNG.\n",
       {{"output", 'o', true}, {"recipe", 0, true}, {"id", 0, true}, {"scale", 0, true}},
       1,
       1,
       runMask},
      {"histogram", "histogram of the rendered preview as JSON",
       "usage: verdantglass-cli histogram IMAGE [--recipe F]\n"
       "\n"
       "Renders the preview (long edge at most 2400) and prints {\"red\", \"green\",\n"
       "\"blue\", \"luminance\" (64 bins each), \"highlightClipping\", \"shadowClipping\"}.\n",
       {{"recipe", 0, true}},
       1,
       1,
       runHistogram},
  };
}

}  // namespace vg::cli
