// LutLibrary: the folder of imported .cube files (<support folder>/LUTs).
//
// Import validates a file with the LUT parser (injected, so this layer does
// not depend on the renderer), then copies it in under its bare file name; a
// name already taken gets a numeric suffix ("look.cube", "look-2.cube", ...).
// The copy is written to a temporary file first and linked into place without
// ever replacing an existing file.
//
// A recipe's AppliedLUT.filename resolves only to a regular file directly
// inside the folder: path components, "." and ".." and symbolic links that
// lead elsewhere resolve to nothing.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vg {

class LutLibrary {
 public:
  // Returns the user-facing rejection message ("LUT 文件格式错误：...") for a
  // file that is not a valid LUT, nullopt for a good one.
  using Validator = std::function<std::optional<std::string>(const std::filesystem::path&)>;

  LutLibrary(std::filesystem::path folder, Validator validator);

  struct Entry {
    std::string filename;     // bare name inside the folder
    std::string displayName;  // the name without its extension
  };
  // Every regular file in the folder, sorted by file name.
  std::vector<Entry> list() const;

  struct ImportResult {
    std::optional<Entry> entry;  // set on success
    std::string error;           // user-facing message on failure
  };
  ImportResult import(const std::filesystem::path& source);

  // False when there is no such file in the folder.
  bool remove(std::string_view filename);

  std::optional<std::filesystem::path> resolve(std::string_view filename) const;

  const std::filesystem::path& folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
  Validator validator_;
};

}  // namespace vg
