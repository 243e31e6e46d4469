#include "app/app_icon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRadialGradient>

namespace vg::app {

QImage drawAppIcon(int size) {
  QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter p(&image);
  p.setRenderHint(QPainter::Antialiasing);
  p.scale(size / 256.0, size / 256.0);

  // The tile: deep green to fresh green, with a soft top highlight.
  const QRectF tile(12, 12, 232, 232);
  QLinearGradient body(tile.topLeft(), tile.bottomRight());
  body.setColorAt(0, QColor(0x2f, 0xb3, 0x7e));
  body.setColorAt(1, QColor(0x0f, 0x4d, 0x43));
  p.setPen(Qt::NoPen);
  p.setBrush(body);
  p.drawRoundedRect(tile, 52, 52);
  QLinearGradient shine(0, 12, 0, 130);
  shine.setColorAt(0, QColor(255, 255, 255, 70));
  shine.setColorAt(1, QColor(255, 255, 255, 0));
  p.setBrush(shine);
  p.drawRoundedRect(QRectF(20, 18, 216, 110), 46, 46);

  // The lens: a glass disc with a bright rim.
  const QPointF c(128, 132);
  QRadialGradient glass(c + QPointF(-24, -28), 110);
  glass.setColorAt(0, QColor(255, 255, 255, 120));
  glass.setColorAt(1, QColor(255, 255, 255, 25));
  p.setBrush(glass);
  p.setPen(QPen(QColor(255, 255, 255, 230), 10));
  p.drawEllipse(c, 78, 78);

  // The leaf inside the lens, with its midrib.
  QPainterPath leaf;
  leaf.moveTo(88, 176);
  leaf.cubicTo(84, 112, 124, 80, 178, 86);
  leaf.cubicTo(180, 140, 146, 182, 88, 176);
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(0xe8, 0xff, 0xd8));
  p.drawPath(leaf);
  p.setPen(QPen(QColor(0x1f, 0x7a, 0x5a), 6, Qt::SolidLine, Qt::RoundCap));
  p.drawLine(QPointF(96, 168), QPointF(164, 100));
  p.end();
  return image;
}

QIcon appIcon() {
  QIcon icon;
  for (int size : {16, 24, 32, 48, 64, 128, 256}) icon.addPixmap(QPixmap::fromImage(drawAppIcon(size)));
  return icon;
}

}  // namespace vg::app
