#include "session/lut_inspection.h"

#include <string_view>

#include "render/lut_loader.h"

namespace vg {

LutLibrary::Inspector lutInspector() {
  return [](const std::filesystem::path& file) -> std::variant<LutLibrary::LutInfo, std::string> {
    LUTResult result = LUTLoader::load(file);
    if (const auto* error = std::get_if<LUTError>(&result)) return error->description();
    const auto& lut = std::get<ParsedLUT>(result);
    // Files write TITLE "Name"; the library shows the name without quotes.
    std::string_view title = lut.title;
    if (title.size() >= 2 && title.front() == '"' && title.back() == '"') title = title.substr(1, title.size() - 2);
    return LutLibrary::LutInfo{std::string(title), lut.size};
  };
}

std::optional<std::string> checkLutFile(const std::filesystem::path& file) {
  auto facts = lutInspector()(file);
  if (auto* rejection = std::get_if<std::string>(&facts)) return *rejection;
  return std::nullopt;
}

LutLibrary lutLibraryIn(const std::filesystem::path& supportFolder) {
  return LutLibrary(supportFolder / "LUTs", lutInspector());
}

}  // namespace vg
