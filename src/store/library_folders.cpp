#include "store/library_folders.h"

#include <array>

#include "store/lut_library.h"
#include "store/preset_library.h"
#include "store/sidecar_name.h"

namespace vg {
namespace {

// Sidecars grow with brush strokes and bitmap masks; a few megabytes is
// already a heavily retouched photograph.
constexpr std::uintmax_t kMaxSidecarBytes = 64ull << 20;

constexpr std::array<LibraryFolder, 3> kFolders{{
    {LibraryFolder::Kind::edits, "Edits", &isSidecarFileName, kMaxSidecarBytes},
    {LibraryFolder::Kind::presets, "Presets", &PresetLibrary::isPresetFileName, PresetLibrary::kMaxFileBytes},
    {LibraryFolder::Kind::luts, "LUTs", &LutLibrary::isLibraryFileName, LutLibrary::kMaxFileBytes},
}};

}  // namespace

std::span<const LibraryFolder> libraryFolders() { return kFolders; }

const LibraryFolder* findLibraryFolder(std::string_view name) {
  for (const auto& f : kFolders) {
    if (f.name == name) return &f;
  }
  return nullptr;
}

}  // namespace vg
