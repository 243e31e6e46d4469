// What the desktop sees of the application: the files a drop opens, and the
// desktop entry's MIME types covering every extension the loader opens.
#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QUrl>
#include <map>
#include <set>

#include "app/file_drop.h"
#include "io/image_formats.h"
#include "support/test_support.h"

namespace vg::app {
namespace {

TEST(FileDrop, OnlyLocalSupportedImagesOpen) {
  vg::test::TempDir dir;
  const QString jpg = QString::fromStdString((dir / "a.JPG").string());
  const QString raw = QString::fromStdString((dir / "b.nef").string());
  const QString text = QString::fromStdString((dir / "notes.txt").string());
  const DroppedFiles files = sortDroppedUrls(
      {QUrl::fromLocalFile(jpg), QUrl::fromLocalFile(text), QUrl::fromLocalFile(raw), QUrl::fromLocalFile(jpg)});
  ASSERT_EQ(files.images.size(), 2u);  // duplicates once, order kept
  EXPECT_EQ(files.images[0].filename(), "a.JPG");
  EXPECT_EQ(files.images[1].filename(), "b.nef");
  EXPECT_EQ(files.unsupported, QStringList{"notes.txt"});
  EXPECT_EQ(refusalMessage(files), QStringLiteral("不支持的文件类型：notes.txt"));

  const DroppedFiles remote = sortDroppedUrls({QUrl("https://example.com/a.jpg")});
  EXPECT_TRUE(remote.images.empty());
  EXPECT_EQ(refusalMessage(remote), QStringLiteral("只能打开本机图片文件"));
  EXPECT_TRUE(openDialogFilter().contains("*.heic") && openDialogFilter().contains("*.CR2"));
}

// extension -> MIME type, from a shared-mime-info package file.
std::map<std::string, std::string> globs(const QString& file) {
  std::map<std::string, std::string> out;
  QFile f(file);
  if (!f.open(QIODevice::ReadOnly)) return out;
  const QString xml = QString::fromUtf8(f.readAll());
  static const QRegularExpression type(R"re(<mime-type type="([^"]+)"(.*?)</mime-type>)re",
                                       QRegularExpression::DotMatchesEverythingOption);
  static const QRegularExpression glob(R"re(<glob pattern="\*\.([^"]+)")re");
  for (auto m = type.globalMatch(xml); m.hasNext();) {
    const auto t = m.next();
    for (auto g = glob.globalMatch(t.captured(2)); g.hasNext();)
      out.emplace(g.next().captured(1).toLower().toStdString(), t.captured(1).toStdString());
  }
  return out;
}

TEST(Packaging, DesktopEntryNamesATypeForEveryOpenableExtension) {
  const QString source = QStringLiteral(VG_SOURCE_DIR);
  auto types = globs(source + "/data/verdantglass-mime.xml");
  ASSERT_FALSE(types.empty());
  const auto system = globs("/usr/share/mime/packages/freedesktop.org.xml");
  if (system.empty()) GTEST_SKIP() << "no shared MIME database here";
  types.insert(system.begin(), system.end());  // ours first: they win

  QFile desktop(source + "/data/verdantglass.desktop");
  ASSERT_TRUE(desktop.open(QIODevice::ReadOnly));
  std::set<std::string> listed;
  for (const QString& line : QString::fromUtf8(desktop.readAll()).split('\n'))
    if (line.startsWith("MimeType="))
      for (const QString& t : line.mid(9).split(';', Qt::SkipEmptyParts)) listed.insert(t.toStdString());
  for (std::string_view ext : supportedExtensions()) {
    const auto it = types.find(std::string(ext));
    ASSERT_NE(it, types.end()) << "no MIME type for ." << ext;
    EXPECT_TRUE(listed.count(it->second)) << it->second << " (." << ext << ") missing from MimeType=";
  }
}

}  // namespace
}  // namespace vg::app
