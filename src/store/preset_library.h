// PresetLibrary: the photographer's own presets, one JSON file each in the
// Presets folder of the support folder, listed after the built-in looks.
//
// File form: "user-<UUID>.json" holding {"id": "user-<UUID>", "name": ...,
// "adjustments": {...}, "lut": {...}?}; adjustments and LUT use the recipe's
// lenient decoders, so a hand-edited file with bad values still loads
// (repaired). Files are written atomically (temporary file, then rename).
//
// Listing never fails because of one file: every visible *.json file of the
// folder that cannot be read as a preset (unreadable, over 4 MB, not a JSON
// object, no valid id, an id that is not its file name) is listed as damaged
// with the reason, and can be removed; the good ones are listed as presets.
//
// Names are trimmed, must not be empty or hold control characters, and are
// unique among all presets (built-in and user), compared as written. Built-in
// presets cannot be renamed or deleted; duplicating one gives a user preset
// that can.
//
// Messages (user-facing): "预设名称不能为空", "预设名称不能包含控制字符",
// "已有同名预设「<name>」", "找不到该预设", "内置预设不能重命名",
// "内置预设不能删除", "无法保存预设：<reason>", "无法删除预设：<reason>".
//
// Not thread-safe: one library per window, used from the main thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "store/filter_preset.h"

namespace vg {

class PresetLibrary {
 public:
  // A preset is a few kilobytes even with every curve and band set.
  static constexpr std::uintmax_t kMaxFileBytes = 4 << 20;

  // `folder` is <support folder>/Presets; it is created on the first save.
  explicit PresetLibrary(std::filesystem::path folder);

  struct DamagedFile {
    std::string fileName;  // bare name inside the folder
    std::string reason;    // why it is not a preset, in the user's language
    bool operator==(const DamagedFile&) const = default;
  };
  struct UserListing {
    std::vector<FilterPreset> presets;  // by name, then id
    std::vector<DamagedFile> damaged;   // by file name
  };
  UserListing scanUserPresets() const;

  // Built-in presets first (in their order), then user presets by name.
  std::vector<FilterPreset> list() const;
  std::vector<FilterPreset> userPresets() const { return scanUserPresets().presets; }
  std::optional<FilterPreset> find(std::string_view id) const;

  struct Result {
    std::optional<FilterPreset> preset;  // set on success (for remove: the removed preset)
    std::string error;                   // user-facing message on failure
  };
  // Saves the current adjustments (and LUT) as a new user preset.
  Result saveNew(std::string name, const GlobalAdjustments& adjustments,
                 const std::optional<AppliedLUT>& lut);
  // A user copy of any preset, built-in or user. Without a name it is called
  // "<name> 副本" ("<name> 副本 2", ... when that is taken).
  Result duplicate(std::string_view id, std::string name = {});
  Result rename(std::string_view id, std::string newName);
  Result remove(std::string_view id);
  // Removes a file listed as damaged; false for any other name.
  bool removeDamaged(std::string_view fileName);

  // True for the names user preset files have ("user-<UUID>.json").
  static bool isPresetFileName(std::string_view fileName);
  // The preset in the text of a file named <fileStem>.json, or the reason
  // (in the user's language) it is not one: not a JSON object, or its id is
  // not a user id equal to fileStem. A missing or empty name becomes the id.
  static std::variant<FilterPreset, std::string> decodeWithReason(std::string_view jsonText,
                                                                  std::string_view fileStem);
  static std::optional<FilterPreset> decode(std::string_view jsonText, std::string_view fileStem);
  // Compact JSON text; invalid UTF-8 in the name is replaced, never thrown on.
  // decode(encode(p), p.id) gives p back for every preset decode() returns.
  static std::string encode(const FilterPreset& preset);

  const std::filesystem::path& folder() const { return folder_; }

 private:
  std::filesystem::path fileFor(std::string_view id) const;
  std::variant<FilterPreset, std::string> read(const std::filesystem::path& file) const;
  std::string write(const FilterPreset& preset);
  // The message when `name` cannot name a preset (other than `exceptId`).
  std::string checkName(std::string& name, std::string_view exceptId) const;

  std::filesystem::path folder_;
};

}  // namespace vg
