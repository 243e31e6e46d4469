// The application's icon, drawn in code so the window, the welcome view and
// the installed hicolor icons (written at build time by vg_write_icons) are
// one picture: a green glass tile with a leaf seen through a lens.
#pragma once

#include <QIcon>
#include <QImage>

namespace vg::app {

QImage drawAppIcon(int size);
QIcon appIcon();

}  // namespace vg::app
