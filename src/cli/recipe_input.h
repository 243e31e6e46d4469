// Where a command's recipe comes from, decided in one place, and the one test
// for an output that would overwrite the image it is made from.
//
// A recipe is read from FILE (or standard input for "-") and decoded
// leniently, exactly as the editor reads a sidecar; without FILE a command
// on an image uses the edits saved for it, else the default recipe. The
// readers set `why` (an English sentence naming the file) instead of
// printing, so each command words its failure its own way.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "cli/command.h"
#include "model/document.h"

namespace vg::cli {

// The recipe in FILE, or on `in` when FILE is absent or "-". nullopt when it
// cannot be read (missing, unreadable, a folder), is not JSON, or its top
// level is not an object.
std::optional<EditDocument> readRecipe(const std::optional<std::string>& file, std::istream& in,
                                       std::string& why);
// The same, writing "verdantglass-cli: <why>" to io.err on failure.
std::optional<EditDocument> readRecipeInput(const std::optional<std::string>& file, Io& io);

// The recipe for IMAGE: FILE when given (as readRecipe), else the edits saved
// for IMAGE, else the default recipe.
std::optional<EditDocument> recipeForImage(const std::optional<std::string>& file,
                                           const std::filesystem::path& image, std::istream& in,
                                           std::string& why);

// True, after writing the exporter's own message, when OUT names the file
// IMAGE is read from (ImageExporter::sameFile: the same path once resolved,
// or the same file through another name).
bool outputIsTheSource(const std::filesystem::path& out, const std::filesystem::path& image,
                       Io& io);

}  // namespace vg::cli
