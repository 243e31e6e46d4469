#include "store/recent_images.h"

#include <algorithm>
#include <system_error>

namespace vg {

RecentImages::RecentImages(const std::vector<std::string>& stored) {
  for (const auto& entry : stored) {
    std::filesystem::path path = std::filesystem::path(entry).lexically_normal();
    if (images_.size() == kMax) break;
    if (!path.is_absolute() || std::find(images_.begin(), images_.end(), path) != images_.end()) continue;
    images_.push_back(std::move(path));
  }
}

void RecentImages::noteOpened(const std::filesystem::path& image) {
  std::error_code ec;
  std::filesystem::path path = std::filesystem::absolute(image, ec).lexically_normal();
  if (ec || path.empty()) return;
  images_.erase(std::remove(images_.begin(), images_.end(), path), images_.end());
  images_.insert(images_.begin(), std::move(path));
  if (images_.size() > kMax) images_.resize(kMax);
}

bool RecentImages::pruneMissing(const std::function<bool(const std::filesystem::path&)>& exists) {
  const auto before = images_.size();
  images_.erase(std::remove_if(images_.begin(), images_.end(), [&](const auto& p) { return !exists(p); }),
                images_.end());
  return images_.size() != before;
}

std::vector<std::string> RecentImages::toStrings() const {
  std::vector<std::string> out;
  out.reserve(images_.size());
  for (const auto& p : images_) out.push_back(p.string());
  return out;
}

bool RecentImages::isRegularFile(const std::filesystem::path& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec);
}

}  // namespace vg
