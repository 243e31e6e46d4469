// LutLibrary: the folder of imported .cube files (<support folder>/LUTs).
//
// Library files are named "<name>.cube": not hidden, no path separators or
// control characters, at most 255 bytes. Other files of the folder are not
// part of the library and are never listed, resolved or removed.
//
// Import checks a file with the LUT parser (injected as an Inspector, so this
// layer does not depend on the renderer), then copies it in under its own
// stem and ".cube"; a name already taken gets a numeric suffix ("look.cube",
// "look-2.cube", ...). The copy is written to a temporary file first and
// linked into place, which never replaces an existing file, even when two
// imports race.
//
// Rename gives a library file a new name under the same rules and never
// replaces another file. Recipes and presets refer to a LUT by its file name:
// see store/lut_references.h for keeping them pointed at a renamed file.
//
// The list shows each file with its title and cube size from the inspector;
// a file the inspector rejects (placed there by hand, or damaged) is listed
// with its error. Inspections are remembered per file name, size and
// modification time, so listing again only parses what changed.
//
// A recipe's AppliedLUT.filename resolves only to a regular file directly
// inside the folder: path components, "." and ".." and symbolic links that
// lead elsewhere resolve to nothing.
//
// Messages (user-facing): the inspector's rejection ("LUT 文件格式错误：..."),
// "无法导入 LUT：<name>", "LUT 名称不能为空", "LUT 名称无效", "已有同名 LUT「<name>」",
// "找不到该 LUT", "无法重命名 LUT：<reason>".
//
// Not thread-safe: one library per window or command, used from one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vg {

class LutLibrary {
 public:
  struct LutInfo {
    std::string title;  // the file's TITLE, empty when it has none
    int size = 0;       // cube edge length
  };
  // The facts of a valid LUT file, or the user-facing rejection message.
  using Inspector = std::function<std::variant<LutInfo, std::string>(const std::filesystem::path&)>;
  // The largest .cube file the LUT parser reads.
  static constexpr std::uintmax_t kMaxFileBytes = 268'435'456;

  LutLibrary(std::filesystem::path folder, Inspector inspector);

  struct Entry {
    std::string filename;     // bare name inside the folder
    std::string displayName;  // the name without its extension
    std::string title;
    int size = 0;
    std::uintmax_t bytes = 0;
    std::string error;        // non-empty: the file is not a valid LUT
    bool operator==(const Entry&) const = default;
  };
  // Every library file, sorted by file name.
  std::vector<Entry> list() const;

  struct Result {
    std::optional<Entry> entry;  // set on success
    std::string error;           // user-facing message on failure
  };
  Result import(const std::filesystem::path& source);
  // `newName` is the new display name; ".cube" is added.
  Result rename(std::string_view filename, std::string newName);

  // False when there is no such library file.
  bool remove(std::string_view filename);

  std::optional<std::filesystem::path> resolve(std::string_view filename) const;

  static bool isLibraryFileName(std::string_view name);

  const std::filesystem::path& folder() const { return folder_; }

 private:
  Entry inspect(const std::string& filename) const;

  struct CachedEntry {
    std::filesystem::file_time_type modified;
    Entry entry;
  };
  std::filesystem::path folder_;
  Inspector inspector_;
  mutable std::map<std::string, CachedEntry, std::less<>> cache_;
};

}  // namespace vg
