// PresetLibrary: the photographer's own presets, one JSON file each in the
// Presets folder of the support folder, listed after the built-in looks.
//
// File form: {"id": "user-<UUID>", "name": ..., "adjustments": {...},
// "lut": {...}?}; adjustments and LUT use the recipe's lenient decoders, so a
// hand-edited file with bad values still loads (repaired). A file that is not
// a JSON object, or whose id does not match its file name, is skipped when
// listing. Files are written atomically (temporary file, then rename).
// decode() and encode() are that form on its own, without the folder:
// decode(encode(p), p.id) gives p back for every preset decode() returns.
//
// Not thread-safe: one library per window, used from the main thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "store/filter_preset.h"

namespace vg {

class PresetLibrary {
 public:
  // `folder` is <support folder>/Presets; it is created on the first save.
  explicit PresetLibrary(std::filesystem::path folder);

  // Built-in presets first (in their order), then user presets by name.
  std::vector<FilterPreset> list() const;
  std::vector<FilterPreset> userPresets() const;
  std::optional<FilterPreset> find(std::string_view id) const;

  struct Result {
    std::optional<FilterPreset> preset;  // set on success
    std::string error;                   // user-facing message on failure
  };
  // Saves the current adjustments (and LUT) as a new user preset.
  Result saveNew(std::string name, const GlobalAdjustments& adjustments,
                 const std::optional<AppliedLUT>& lut);
  Result rename(std::string_view id, std::string newName);
  // False when no user preset has that id (built-ins cannot be deleted).
  bool remove(std::string_view id);

  const std::filesystem::path& folder() const { return folder_; }

  // The preset in the text of a file named <fileStem>.json; nullopt when the
  // text is not a JSON object or its id is not a user id equal to fileStem.
  // A missing or empty name becomes the id.
  static std::optional<FilterPreset> decode(std::string_view jsonText, std::string_view fileStem);
  // Compact JSON text; invalid UTF-8 in the name is replaced, never thrown on.
  static std::string encode(const FilterPreset& preset);

 private:
  std::filesystem::path fileFor(std::string_view id) const;
  std::optional<FilterPreset> read(const std::filesystem::path& file) const;
  std::string write(const FilterPreset& preset);

  std::filesystem::path folder_;
};

}  // namespace vg
