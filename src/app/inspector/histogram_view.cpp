#include "app/inspector/histogram_view.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace vg::app {

class HistogramGraph : public QWidget {
 public:
  explicit HistogramGraph(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(96);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  }
  HistogramBins bins;

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    constexpr double kMarker = 9;  // room for the indicator triangles on top
    const QRectF area = QRectF(rect()).adjusted(1, kMarker + 3, -1, -1);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(24, 24, 26));
    p.drawRoundedRect(area, 4, 4);

    auto curve = [&](const std::array<float, HistogramBins::kBins>& values) {
      QPainterPath path;
      path.moveTo(area.left(), area.bottom());
      for (int i = 0; i < HistogramBins::kBins; ++i) {
        const double x = area.left() + area.width() * (i + 0.5) / HistogramBins::kBins;
        path.lineTo(x, area.bottom() - area.height() * 0.94 * values[size_t(i)]);
      }
      path.lineTo(area.right(), area.bottom());
      path.closeSubpath();
      return path;
    };
    p.save();
    p.setClipRect(area);
    p.setBrush(QColor(200, 200, 200, 60));
    p.drawPath(curve(bins.luminance));
    p.setCompositionMode(QPainter::CompositionMode_Plus);
    p.setBrush(QColor(190, 40, 40, 170));
    p.drawPath(curve(bins.red));
    p.setBrush(QColor(40, 170, 60, 170));
    p.drawPath(curve(bins.green));
    p.setBrush(QColor(50, 90, 210, 170));
    p.drawPath(curve(bins.blue));
    p.restore();

    auto marker = [&](double x, bool lit, bool left) {
      QPolygonF tri;
      const double w = 9, top = 1;
      tri << QPointF(x, top) << QPointF(x + (left ? w : -w), top) << QPointF(left ? x : x, top + kMarker);
      p.setBrush(lit ? QColor(left ? QColor(80, 150, 255) : QColor(255, 90, 80)) : QColor(90, 90, 92));
      p.drawPolygon(tri);
    };
    p.setPen(Qt::NoPen);
    marker(area.left(), HistogramComputer::showsShadowIndicator(bins), true);
    marker(area.right(), HistogramComputer::showsHighlightIndicator(bins), false);
  }
};

HistogramView::HistogramView(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(2);
  graph_ = new HistogramGraph(this);
  graph_->setToolTip(QStringLiteral("直方图（左暗右亮）"));
  graph_->setAccessibleName(QStringLiteral("直方图（左暗右亮）"));
  layout->addWidget(graph_);
  for (QLabel** label : {&shadow_, &highlight_}) {
    *label = new QLabel(this);
    (*label)->setWordWrap(true);
    QFont f = (*label)->font();
    f.setPointSizeF(f.pointSizeF() * 0.9);
    (*label)->setFont(f);
    (*label)->hide();
    layout->addWidget(*label);
  }
  shadow_->setStyleSheet("color: #7fb0ff;");
  highlight_->setStyleSheet("color: #ff8a80;");
}

QString HistogramView::shadowText() const {
  return HistogramComputer::showsShadowIndicator(bins_)
             ? QString::fromStdString(HistogramComputer::shadowIndicatorText(bins_.shadowClipping))
             : QString();
}

QString HistogramView::highlightText() const {
  return HistogramComputer::showsHighlightIndicator(bins_)
             ? QString::fromStdString(HistogramComputer::highlightIndicatorText(bins_.highlightClipping))
             : QString();
}

void HistogramView::setBins(const HistogramBins& bins) {
  if (bins == bins_) return;  // an unchanged histogram does not redraw
  bins_ = bins;
  graph_->bins = bins;
  graph_->update();
  shadow_->setText(shadowText());
  shadow_->setVisible(!shadow_->text().isEmpty());
  highlight_->setText(highlightText());
  highlight_->setVisible(!highlight_->text().isEmpty());
}

}  // namespace vg::app
