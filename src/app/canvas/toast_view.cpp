#include "app/canvas/toast_view.h"

#include <QAccessible>
#include <QEvent>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QPushButton>
#include <cmath>

namespace vg::app {
namespace {

constexpr int kIcon = 18;
constexpr int kPad = 12;
constexpr int kMaxTextWidth = 460;

QColor kindColour(ToastKind kind, const QPalette& palette) {
  switch (kind) {
    case ToastKind::success: return QColor(0x34, 0xc7, 0x59);
    case ToastKind::info: return palette.color(QPalette::Highlight);
    case ToastKind::warning: return QColor(0xff, 0x95, 0x00);
    case ToastKind::error: return QColor(0xff, 0x3b, 0x30);
  }
  return Qt::white;
}

// The symbol of a kind inside `r`: filled shape, white mark.
void drawSymbol(QPainter& p, ToastKind kind, const QRectF& r, const QColor& colour) {
  p.setPen(Qt::NoPen);
  p.setBrush(colour);
  const QPointF c = r.center();
  const double s = r.width();
  QPainterPath shape;
  if (kind == ToastKind::warning) {
    shape.moveTo(c.x(), r.top());
    shape.lineTo(r.right(), r.bottom() - s * 0.06);
    shape.lineTo(r.left(), r.bottom() - s * 0.06);
    shape.closeSubpath();
  } else if (kind == ToastKind::error) {
    for (int i = 0; i < 8; ++i) {
      const double a = (22.5 + 45.0 * i) * M_PI / 180.0;
      const QPointF q(c.x() + s / 2 * std::cos(a), c.y() + s / 2 * std::sin(a));
      i == 0 ? shape.moveTo(q) : shape.lineTo(q);
    }
    shape.closeSubpath();
  } else {
    shape.addEllipse(r);
  }
  p.drawPath(shape);
  QPen mark(Qt::white, s * 0.12, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
  p.setPen(mark);
  p.setBrush(Qt::NoBrush);
  switch (kind) {
    case ToastKind::success:
      p.drawPolyline(QPolygonF({QPointF(c.x() - s * 0.22, c.y()), QPointF(c.x() - s * 0.05, c.y() + s * 0.17),
                                QPointF(c.x() + s * 0.24, c.y() - s * 0.16)}));
      break;
    case ToastKind::info:
      p.drawLine(QPointF(c.x(), c.y() - s * 0.02), QPointF(c.x(), c.y() + s * 0.22));
      p.drawPoint(QPointF(c.x(), c.y() - s * 0.22));
      break;
    case ToastKind::warning:
      p.drawLine(QPointF(c.x(), c.y() - s * 0.12), QPointF(c.x(), c.y() + s * 0.12));
      p.drawPoint(QPointF(c.x(), c.y() + s * 0.3));
      break;
    case ToastKind::error:
      p.drawLine(QPointF(c.x() - s * 0.18, c.y() - s * 0.18), QPointF(c.x() + s * 0.18, c.y() + s * 0.18));
      p.drawLine(QPointF(c.x() + s * 0.18, c.y() - s * 0.18), QPointF(c.x() - s * 0.18, c.y() + s * 0.18));
      break;
  }
}

}  // namespace

ToastView::ToastView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_TranslucentBackground);
  setAccessibleName(QString());
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(kPad + kIcon + 10 + kMaxTextWidth, 6, kPad, 6);
  button_ = new QPushButton(this);
  button_->setFlat(true);
  button_->setCursor(Qt::PointingHandCursor);
  QFont bold = button_->font();
  bold.setWeight(QFont::Bold);
  button_->setFont(bold);
  button_->setStyleSheet("QPushButton { color: #8ab4ff; border: none; padding: 2px 6px; }");
  button_->hide();
  layout->addWidget(button_);
  connect(button_, &QPushButton::clicked, this, [this] {
    if (auto action = action_) action();
  });
  opacity_ = new QGraphicsOpacityEffect(this);
  setGraphicsEffect(opacity_);
  fade_ = new QPropertyAnimation(opacity_, "opacity", this);
  fade_->setDuration(250);
  fade_->setEasingCurve(QEasingCurve::OutCubic);
  parent->installEventFilter(this);
  hide();
}

void ToastView::showToast(const QString& text, ToastKind kind, const QString& actionTitle,
                          std::function<void()> action) {
  text_ = text;
  kind_ = kind;
  action_ = std::move(action);
  button_->setText(actionTitle);
  button_->setVisible(!actionTitle.isEmpty() && action_);
  setAccessibleName(text);
  reposition();
  show();
  raise();
  fade_->stop();
  fade_->setStartValue(0.0);
  fade_->setEndValue(1.0);
  fade_->start();
  update();
  QAccessibleEvent alert(this, QAccessible::Alert);
  QAccessible::updateAccessibility(&alert);
}

void ToastView::dismiss() {
  fade_->stop();
  hide();
  text_.clear();
  action_ = nullptr;
}

void ToastView::reposition() {
  QWidget* parent = parentWidget();
  if (!parent) return;
  const QFontMetrics m(font());
  // A few pixels of slack: the advance of mixed Latin and Chinese text can
  // come out a little short of what drawing it takes.
  const int textWidth = std::min(kMaxTextWidth, m.horizontalAdvance(text_) + 6);
  const QRect textBox = m.boundingRect(QRect(0, 0, textWidth, 1000), Qt::TextWordWrap, text_);
  auto* layout = static_cast<QHBoxLayout*>(this->layout());
  layout->setContentsMargins(kPad + kIcon + 10 + textWidth, 6, kPad, 6);
  const int buttonWidth = button_->isVisibleTo(this) ? button_->sizeHint().width() + 6 : 0;
  const int w = std::min(parent->width() - 24, kPad * 2 + kIcon + 10 + textWidth + buttonWidth);
  const int h = std::max(kIcon, textBox.height()) + 2 * kPad;
  setGeometry((parent->width() - w) / 2, parent->height() - h - 28, w, h);
}

bool ToastView::eventFilter(QObject* watched, QEvent* event) {
  if (watched == parentWidget() && event->type() == QEvent::Resize) reposition();
  return false;
}

void ToastView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
  p.setPen(QPen(QColor(255, 255, 255, 40), 1));
  p.setBrush(QColor(32, 32, 34, 235));
  p.drawRoundedRect(box, 10, 10);
  const QColor colour = kindColour(kind_, palette());
  drawSymbol(p, kind_, QRectF(kPad, (height() - kIcon) / 2.0, kIcon, kIcon), colour);
  const int textLeft = kPad + kIcon + 10;
  const int buttonWidth = button_->isVisible() ? button_->width() + 6 : 0;
  p.setPen(QColor(242, 242, 242));
  p.drawText(QRect(textLeft, 0, width() - textLeft - kPad - buttonWidth, height()),
             Qt::AlignVCenter | Qt::AlignLeft | Qt::TextWordWrap, text_);
}

}  // namespace vg::app
