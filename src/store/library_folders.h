// The folders of the support folder that hold the photographer's library —
// the edit sidecars, the user presets and the imported LUTs — as a backup
// archive carries them: "<folder>/<file name>", one level deep.
//
// Each folder states which of its files belong to it (the pattern its own
// code gives their names) and the largest file it may hold. Backup takes only
// such files; restore accepts only such entries and refuses larger ones.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vg {

struct LibraryFolder {
  enum class Kind { edits, presets, luts };
  Kind kind;
  std::string_view name;                     // "Edits", "Presets", "LUTs"
  bool (*isMemberName)(std::string_view);    // the folder's file-name pattern
  std::uintmax_t maxFileBytes;
};

// Edits, Presets, LUTs, in that order.
std::span<const LibraryFolder> libraryFolders();
const LibraryFolder* findLibraryFolder(std::string_view name);

// The one file of a backup outside the three folders: what made it and when.
inline constexpr std::string_view kBackupManifestName = "verdantglass-library.json";
inline constexpr std::string_view kBackupFormat = "verdantglass-library";
inline constexpr int kBackupFormatVersion = 1;

}  // namespace vg
