// The recently opened images, newest first, kept in the application's
// settings under "recentImages" (absolute paths). At most kMax entries; an
// image opened again moves to the front; files that no longer exist are left
// out when the list is read.
#pragma once

#include <filesystem>
#include <vector>

class QSettings;

namespace vg::app {

class RecentImages {
 public:
  static constexpr int kMax = 20;
  explicit RecentImages(QSettings& settings) : settings_(settings) {}

  std::vector<std::filesystem::path> list() const;
  void noteOpened(const std::filesystem::path& image);
  void clear();

 private:
  QSettings& settings_;
};

}  // namespace vg::app
