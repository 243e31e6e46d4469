#include "app/inspector/track_slider.h"

#include <QLinearGradient>
#include <QPainter>
#include <QStyleOptionSlider>
#include <algorithm>

namespace vg::app {

TrackSlider::TrackSlider(QWidget* parent) : QSlider(Qt::Horizontal, parent) { setMinimumHeight(20); }

void TrackSlider::paintEvent(QPaintEvent*) {
  QStyleOptionSlider opt;
  initStyleOption(&opt);
  const QRect groove = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderGroove, this);
  const QRect handle = style()->subControlRect(QStyle::CC_Slider, &opt, QStyle::SC_SliderHandle, this);
  const double span = std::max(1, groove.width() - handle.width());
  auto xOf = [&](int position) {
    return groove.left() + handle.width() / 2.0 +
           QStyle::sliderPositionFromValue(minimum(), maximum(), position, int(span)) ;
  };

  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const double cy = groove.center().y() + 0.5;
  const bool coloured = !track_.empty();
  const double h = coloured ? 6 : 4;
  const QRectF bar(groove.left() + handle.width() / 2.0, cy - h / 2, span, h);
  p.setPen(Qt::NoPen);
  if (coloured) {
    QLinearGradient g(bar.topLeft(), bar.topRight());
    for (size_t i = 0; i < track_.size(); ++i)
      g.setColorAt(track_.size() == 1 ? 0.0 : double(i) / double(track_.size() - 1), track_[i]);
    p.setBrush(g);
  } else {
    p.setBrush(QColor(0, 0, 0, 55));
  }
  p.drawRoundedRect(bar, h / 2, h / 2);
  if (!coloured && isEnabled()) {
    const double a = xOf(origin_), b = xOf(value());
    p.setBrush(palette().color(QPalette::Highlight));
    p.drawRoundedRect(QRectF(std::min(a, b), cy - h / 2, std::abs(b - a), h), h / 2, h / 2);
  }
  // Origin tick for sliders whose default sits inside the range.
  if (origin_ > minimum() && origin_ < maximum()) {
    p.setBrush(palette().color(QPalette::Dark));
    p.drawRect(QRectF(xOf(origin_) - 0.5, cy - h / 2 - 3, 1, h + 6));
  }
  const QPointF c(xOf(value()), cy);
  const double r = 7;
  p.setPen(QPen(hasFocus() ? palette().color(QPalette::Highlight) : QColor(0, 0, 0, 90), hasFocus() ? 2 : 1));
  p.setBrush(isEnabled() ? QColor(252, 252, 252) : QColor(220, 220, 220));
  p.drawEllipse(c, r, r);
}

}  // namespace vg::app
