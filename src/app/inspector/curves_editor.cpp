#include "app/inspector/curves_editor.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "app/inspector/curve_editing.h"
#include "model/curve_function.h"

namespace vg::app {
namespace {

constexpr double kHitRadiusPx = 8;
constexpr double kRemoveDistancePx = 28;  // dragging this far outside the graph removes the point

QColor channelColour(CurveChannel c) {
  switch (c) {
    case CurveChannel::rgb: return QColor(235, 235, 235);
    case CurveChannel::red: return QColor(240, 80, 70);
    case CurveChannel::green: return QColor(80, 200, 100);
    case CurveChannel::blue: return QColor(80, 140, 255);
  }
  return Qt::white;
}

QString channelTitle(CurveChannel c) {
  switch (c) {
    case CurveChannel::rgb: return QStringLiteral("RGB");
    case CurveChannel::red: return QStringLiteral("红");
    case CurveChannel::green: return QStringLiteral("绿");
    case CurveChannel::blue: return QStringLiteral("蓝");
  }
  return {};
}

}  // namespace

CurvesEditor::CurvesEditor(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* row = new QHBoxLayout;
  row->setSpacing(2);
  channels_ = new QButtonGroup(this);
  for (CurveChannel c : kCurveChannels) {
    auto* b = new QToolButton(this);
    b->setText(channelTitle(c));
    b->setCheckable(true);
    b->setAutoRaise(true);
    b->setMinimumWidth(44);
    b->setChecked(c == channel_);
    channels_->addButton(b, int(c));
    row->addWidget(b);
  }
  row->addStretch();
  layout->addLayout(row);
  graph_ = new CurveGraph(this);
  layout->addWidget(graph_);
  connect(channels_, &QButtonGroup::idClicked, this, [this](int id) { setChannel(CurveChannel(id)); });
}

void CurvesEditor::setCurves(const CurveSet& curves) {
  if (graph_->dragging()) return;
  curves_ = curves;
  graph_->update();
}

void CurvesEditor::setChannel(CurveChannel channel) {
  channel_ = channel;
  if (auto* b = channels_->button(int(channel))) b->setChecked(true);
  graph_->update();
}

CurveGraph::CurveGraph(CurvesEditor* editor) : QWidget(editor), editor_(editor) {
  setMinimumSize(200, 200);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setFixedHeight(220);
  setMouseTracking(true);
  setToolTip(QStringLiteral("点击添加控制点，拖动调整，点按两下移除"));
}

ToneCurve& CurveGraph::current() { return editor_->curves_[editor_->channel_]; }

QRectF CurveGraph::plotRect() const {
  const double side = std::min(width(), height()) - 12.0;
  return {(width() - side) / 2, 6, side, side};
}

QPointF CurveGraph::toWidget(double x, double y) const {
  const QRectF r = plotRect();
  return {r.left() + x * r.width(), r.bottom() - y * r.height()};
}

std::pair<double, double> CurveGraph::toCurve(QPointF p) const {
  const QRectF r = plotRect();
  return {(p.x() - r.left()) / r.width(), (r.bottom() - p.y()) / r.height()};
}

void CurveGraph::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const QRectF r = plotRect();
  p.fillRect(r, QColor(24, 24, 26));
  p.setPen(QPen(QColor(70, 70, 74), 1));
  for (int i = 1; i < 4; ++i) {
    p.drawLine(QPointF(r.left() + r.width() * i / 4, r.top()), QPointF(r.left() + r.width() * i / 4, r.bottom()));
    p.drawLine(QPointF(r.left(), r.top() + r.height() * i / 4), QPointF(r.right(), r.top() + r.height() * i / 4));
  }
  p.drawLine(r.bottomLeft(), r.topRight());
  p.setPen(QPen(QColor(90, 90, 94), 1));
  p.setBrush(Qt::NoBrush);
  p.drawRect(r);

  auto drawCurve = [&](const ToneCurve& curve, QColor colour, double width) {
    const CurveFunction f(curve);
    QPainterPath path;
    const int steps = int(r.width());
    for (int i = 0; i <= steps; ++i) {
      const double x = double(i) / steps;
      const QPointF q = toWidget(x, f(x));
      i == 0 ? path.moveTo(q) : path.lineTo(q);
    }
    p.setPen(QPen(colour, width));
    p.drawPath(path);
  };
  for (CurveChannel c : kCurveChannels) {
    if (c == editor_->channel_ || editor_->curves_[c].isIdentity()) continue;
    QColor faint = channelColour(c);
    faint.setAlpha(90);
    drawCurve(editor_->curves_[c], faint, 1.2);
  }
  const ToneCurve& curve = editor_->curves_[editor_->channel_];
  drawCurve(curve, channelColour(editor_->channel_), 2);
  for (size_t i = 0; i < curve.points.size(); ++i) {
    const QPointF q = toWidget(curve.points[i].x, curve.points[i].y);
    p.setPen(QPen(QColor(20, 20, 20), 1));
    p.setBrush(dragged_ == i ? channelColour(editor_->channel_) : QColor(250, 250, 250));
    p.drawEllipse(q, 4.5, 4.5);
  }
}

void CurveGraph::mousePressEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton) return;
  ToneCurve curve = tidyCurve(current());
  const auto [x, y] = toCurve(e->position());
  const double radius = kHitRadiusPx / plotRect().width();
  dragged_ = pointAt(curve, x, y, radius);
  moved_ = false;
  removedByDrag_ = false;
  if (!dragged_ && x >= 0 && x <= 1 && y >= -0.05 && y <= 1.05) {
    dragged_ = addPoint(curve, x, std::clamp(y, 0.0, 1.0));
    moved_ = dragged_.has_value();
  }
  current() = curve;
  if (moved_) emit editor_->edited(editor_->curves_);
  update();
}

void CurveGraph::mouseMoveEvent(QMouseEvent* e) {
  if (!dragged_) {
    const auto [x, y] = toCurve(e->position());
    setCursor(pointAt(current(), x, y, kHitRadiusPx / plotRect().width()) ? Qt::SizeAllCursor : Qt::CrossCursor);
    return;
  }
  ToneCurve& curve = current();
  const QRectF r = plotRect();
  const bool outside = e->position().x() < r.left() - kRemoveDistancePx || e->position().x() > r.right() + kRemoveDistancePx;
  if (outside && *dragged_ > 0 && *dragged_ + 1 < curve.points.size()) {
    removePoint(curve, *dragged_);
    dragged_.reset();
    removedByDrag_ = true;
    moved_ = true;
    emit editor_->edited(editor_->curves_);
    update();
    return;
  }
  const auto [x, y] = toCurve(e->position());
  movePoint(curve, *dragged_, x, y);
  moved_ = true;
  emit editor_->edited(editor_->curves_);
  update();
}

void CurveGraph::mouseReleaseEvent(QMouseEvent*) {
  const bool changed = moved_;
  dragged_.reset();
  moved_ = false;
  update();
  if (changed) emit editor_->finished();
}

void CurveGraph::mouseDoubleClickEvent(QMouseEvent* e) {
  const auto [x, y] = toCurve(e->position());
  ToneCurve& curve = current();
  if (auto i = pointAt(curve, x, y, kHitRadiusPx / plotRect().width()); i && removePoint(curve, *i)) {
    dragged_.reset();
    emit editor_->edited(editor_->curves_);
    emit editor_->finished();
    update();
  }
}

}  // namespace vg::app
