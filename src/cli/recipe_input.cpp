#include "cli/recipe_input.h"

#include <nlohmann/json.hpp>

#include <ostream>

#include "io/export_error.h"
#include "io/image_exporter.h"
#include "model/json.h"
#include "store/edit_store.h"

namespace vg::cli {

std::optional<EditDocument> readRecipe(const std::optional<std::string>& file, std::istream& in,
                                       std::string& why) {
  const std::optional<std::string> text = readInputText(file, in, why);
  if (!text) return std::nullopt;
  const std::string name = (!file || *file == "-") ? "standard input" : *file;
  const auto parsed = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) {
    why = name + " is not valid JSON";
    return std::nullopt;
  }
  std::optional<EditDocument> doc = decodeEditDocument(parsed);
  if (!doc) why = name + ": the top level is not a JSON object, so it is not an edit recipe";
  return doc;
}

std::optional<EditDocument> readRecipeInput(const std::optional<std::string>& file, Io& io) {
  std::string why;
  std::optional<EditDocument> doc = readRecipe(file, io.in, why);
  if (!doc) io.err << "verdantglass-cli: " << why << "\n";
  return doc;
}

std::optional<EditDocument> recipeForImage(const std::optional<std::string>& file,
                                           const std::filesystem::path& image, std::istream& in,
                                           std::string& why) {
  if (file) return readRecipe(file, in, why);
  return loadSavedRecipe(image).value_or(EditDocument{});
}

bool outputIsTheSource(const std::filesystem::path& out, const std::filesystem::path& image,
                       Io& io) {
  if (!ImageExporter::sameFile(out, image)) return false;
  io.err << "verdantglass-cli: " << ExportError::messageFor(ExportError::kWouldOverwriteSource)
         << "\n";
  return true;
}

}  // namespace vg::cli
