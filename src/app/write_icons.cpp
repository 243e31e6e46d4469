// vg_write_icons DIR: writes the application icon into a hicolor theme tree
// (DIR/<n>x<n>/apps/verdantglass.png) for installation.
#include <QDir>
#include <QGuiApplication>
#include <cstdio>

#include "app/app_icon.h"

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: vg_write_icons DIR\n");
    return 2;
  }
  for (int size : {16, 24, 32, 48, 64, 128, 256, 512}) {
    const QString dir = QStringLiteral("%1/%2x%2/apps").arg(QString::fromLocal8Bit(argv[1])).arg(size);
    if (!QDir().mkpath(dir) || !vg::app::drawAppIcon(size).save(dir + "/verdantglass.png")) {
      std::fprintf(stderr, "vg_write_icons: cannot write %s\n", qPrintable(dir));
      return 1;
    }
  }
  return 0;
}
