// What a drop (or a command line) hands the application, sorted into the
// images it can open and what it refuses. Only local files are opened
// ("只能打开本机图片文件" otherwise); a local file the loader has no decoder
// for is refused by name. Duplicates are dropped, the order kept.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <filesystem>
#include <vector>

namespace vg::app {

struct DroppedFiles {
  std::vector<std::filesystem::path> images;
  bool hadRemote = false;         // some were not local files
  QStringList unsupported;        // local files of other kinds, by file name
  bool empty() const { return images.empty() && !hadRemote && unsupported.isEmpty(); }
};

DroppedFiles sortDroppedUrls(const QList<QUrl>& urls);
// The refusal to show for a drop that opened nothing or only part (empty when
// nothing was refused).
QString refusalMessage(const DroppedFiles& files);

// The open dialog's filter: "图片 (*.jpg *.JPG …)".
QString openDialogFilter();

}  // namespace vg::app
