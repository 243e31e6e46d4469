#include "app/recent_images.h"

#include <QSettings>
#include <QStringList>

namespace vg::app {
namespace {
constexpr const char* kKey = "recentImages";
}

std::vector<std::filesystem::path> RecentImages::list() const {
  std::vector<std::filesystem::path> out;
  for (const QString& entry : settings_.value(kKey).toStringList()) {
    std::filesystem::path p(entry.toStdString());
    std::error_code ec;
    if (p.is_absolute() && std::filesystem::is_regular_file(p, ec)) out.push_back(std::move(p));
  }
  return out;
}

void RecentImages::noteOpened(const std::filesystem::path& image) {
  const QString entry = QString::fromStdString(std::filesystem::absolute(image).lexically_normal().string());
  QStringList all = settings_.value(kKey).toStringList();
  all.removeAll(entry);
  all.prepend(entry);
  while (all.size() > kMax) all.removeLast();
  settings_.setValue(kKey, all);
}

void RecentImages::clear() { settings_.remove(kKey); }

}  // namespace vg::app
