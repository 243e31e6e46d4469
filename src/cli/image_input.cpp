#include "cli/image_input.h"

#include <cmath>
#include <filesystem>

#include "cli/recipe_input.h"
#include "io/load_error.h"

namespace vg::cli {

namespace fs = std::filesystem;

std::optional<int> prepareImage(const ParsedArgs& args, Io& io, PreparedImage& p, std::optional<double> maxLongEdge) {
  const fs::path image = args.positionals.at(0);
  if (image.empty()) {
    io.err << "verdantglass-cli: IMAGE must not be empty\n";
    return kExitUsage;
  }
  if (args.has("scale")) {
    std::string text = *args.value("scale");
    char* end = nullptr;
    double s = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(s) || s <= 0 || s > 1) {
      io.err << "verdantglass-cli: --scale needs a number in (0, 1], got '" << text << "'\n";
      return kExitUsage;
    }
    p.scale = s;
  }
  std::string why;
  std::optional<EditDocument> recipe = recipeForImage(args.value("recipe"), image, io.in, why);
  if (!recipe) {
    io.err << "verdantglass-cli: " << why << "\n";
    return kExitFailed;
  }
  p.recipe = std::move(*recipe);
  try {
    p.loaded = ImageLoader::load(image, p.recipe.raw);
  } catch (const ImageLoadError& e) {
    io.err << "verdantglass-cli: " << e.what() << "\n";
    return kExitFailed;
  }
  p.source = p.loaded.image;
  double longest = std::max(p.source->width(), p.source->height());
  if (maxLongEdge && longest * p.scale > *maxLongEdge) p.scale = *maxLongEdge / longest;
  if (p.scale < 1) p.source = ImageLoader::downscaled(p.source, p.scale * longest);
  return std::nullopt;
}

}  // namespace vg::cli
