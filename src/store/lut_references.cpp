#include "store/lut_references.h"

#include <fstream>
#include <functional>
#include <sstream>

#include "model/json.h"
#include "store/atomic_file.h"
#include "store/preset_library.h"
#include "store/sidecar_name.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

// Calls `visit` with each recipe or preset file that names `filename` as its
// LUT, and its parsed JSON.
void forEachReference(const LutReferenceFolders& folders, std::string_view filename,
                      const std::function<void(const fs::path&, nlohmann::ordered_json&)>& visit) {
  const std::pair<const fs::path*, bool (*)(std::string_view)> sources[] = {
      {&folders.edits, &isSidecarFileName}, {&folders.presets, &PresetLibrary::isPresetFileName}};
  for (const auto& [folder, isMember] : sources) {
    std::error_code ec;
    for (auto it = fs::directory_iterator(*folder, ec); !ec && it != fs::directory_iterator(); it.increment(ec)) {
      std::error_code typeError;
      if (!isMember(it->path().filename().string()) ||
          it->symlink_status(typeError).type() != fs::file_type::regular) {
        continue;
      }
      std::ifstream in(it->path(), std::ios::binary);
      std::stringstream text;
      text << in.rdbuf();
      // Most recipes have no LUT: skip the parse for them.
      if (text.str().find("\"lut\"") == std::string::npos) continue;
      auto json = nlohmann::ordered_json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
      if (!json.is_object()) continue;
      auto lut = json.find("lut");
      if (lut == json.end() || !lut->is_object()) continue;
      auto name = lut->find("filename");
      if (name == lut->end() || !name->is_string() || bareLUTFileName(name->get<std::string>()) != filename) {
        continue;
      }
      visit(it->path(), json);
    }
  }
}

}  // namespace

LutReferenceFolders LutReferenceFolders::in(const fs::path& supportFolder) {
  return {supportFolder / "Edits", supportFolder / "Presets"};
}

int countLutReferences(const LutReferenceFolders& folders, std::string_view filename) {
  int count = 0;
  forEachReference(folders, filename, [&](const fs::path&, nlohmann::ordered_json&) { ++count; });
  return count;
}

RetargetResult retargetLutReferences(const LutReferenceFolders& folders, std::string_view from,
                                     std::string_view to) {
  RetargetResult result;
  forEachReference(folders, from, [&](const fs::path& file, nlohmann::ordered_json& json) {
    json["lut"]["filename"] = std::string(to);
    if (auto error = writeFileAtomically(file, dumpCompact(json))) {
      result.failures.push_back(*error);
    } else {
      ++result.updated;
    }
  });
  return result;
}

}  // namespace vg
