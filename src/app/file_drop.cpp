#include "app/file_drop.h"

#include <QFileInfo>
#include <algorithm>

#include "io/image_formats.h"

namespace vg::app {

DroppedFiles sortDroppedUrls(const QList<QUrl>& urls) {
  DroppedFiles out;
  for (const QUrl& url : urls) {
    if (!url.isLocalFile()) {
      out.hadRemote = true;
      continue;
    }
    const QString local = url.toLocalFile();
    const std::filesystem::path path = std::filesystem::absolute(local.toStdString()).lexically_normal();
    if (!isSupportedImage(path) || QFileInfo(local).isDir()) {
      out.unsupported << QFileInfo(local).fileName();
      continue;
    }
    if (std::find(out.images.begin(), out.images.end(), path) == out.images.end()) out.images.push_back(path);
  }
  return out;
}

QString refusalMessage(const DroppedFiles& files) {
  if (files.hadRemote) return QStringLiteral("只能打开本机图片文件");
  if (!files.unsupported.isEmpty())
    return QStringLiteral("不支持的文件类型：%1").arg(files.unsupported.join(QStringLiteral("、")));
  return {};
}

QString openDialogFilter() {
  QStringList patterns;
  for (std::string_view ext : supportedExtensions()) {
    const QString e = QString::fromLatin1(ext.data(), qsizetype(ext.size()));
    patterns << "*." + e << "*." + e.toUpper();
  }
  return QStringLiteral("图片 (%1)").arg(patterns.join(' '));
}

}  // namespace vg::app
