// RecentImages: the images the photographer opened lately, newest first, as
// the welcome view lists them and the settings keep them (a list of absolute
// paths).
//
// - Opening an image puts its absolute, lexically normal path first; an entry
//   for the same path moves rather than repeats.
// - At most kMax entries: the oldest fall off.
// - When the list is shown, entries whose file is gone (or is no longer a
//   regular file) are pruned, and the caller stores the shorter list.
// - Stored lists are read leniently: relative or empty entries and repeats
//   are dropped and the length is capped.
//
// A plain value: no I/O except the existence check given to pruneMissing().
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace vg {

class RecentImages {
 public:
  static constexpr std::size_t kMax = 20;

  RecentImages() = default;
  explicit RecentImages(const std::vector<std::string>& stored);

  void noteOpened(const std::filesystem::path& image);
  // True when entries were removed (the list should then be stored again).
  bool pruneMissing(const std::function<bool(const std::filesystem::path&)>& exists = isRegularFile);
  void clear() { images_.clear(); }

  const std::vector<std::filesystem::path>& images() const { return images_; }
  std::vector<std::string> toStrings() const;

  static bool isRegularFile(const std::filesystem::path& path);

 private:
  std::vector<std::filesystem::path> images_;
};

}  // namespace vg
