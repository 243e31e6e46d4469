#include "app/canvas/canvas_view.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace vg::app {
namespace {

constexpr double kDividerGrab = 8;        // device pixels either side of the divider
constexpr double kWheelStep = 1.0015;     // zoom per wheel unit: one notch (120) is about x1.2
const QColor kBackground(0x26, 0x26, 0x28);

QRectF toQ(const ViewRect& r) { return {r.x, r.y, r.width, r.height}; }

}  // namespace

CanvasView::CanvasView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setMouseTracking(true);
  setFocusPolicy(Qt::StrongFocus);
  setMinimumSize(240, 180);
  setAccessibleName(tr("画布"));
}

ViewPoint CanvasView::toDevice(const QPointF& p) const {
  const double dpr = devicePixelRatioF();
  return {p.x() * dpr, p.y() * dpr};
}

void CanvasView::setFrameSize(double width, double height) {
  if (width == viewport_.imageWidth && height == viewport_.imageHeight) return;
  viewport_.setImageSize(width, height);
  detail_ = {};
  viewportMoved();
}

void CanvasView::setPicture(CanvasPicture picture) {
  picture_ = std::move(picture);
  update();
}

void CanvasView::setDetail(CanvasPicture detail) {
  detail_ = std::move(detail);
  update();
}

void CanvasView::setOriginal(CanvasPicture original, double frameWidth, double frameHeight) {
  original_ = std::move(original);
  originalWidth_ = frameWidth;
  originalHeight_ = frameHeight;
  update();
}

void CanvasView::clearPictures() {
  picture_ = detail_ = original_ = {};
  update();
}

void CanvasView::setShowOriginal(bool on) {
  if (showOriginal_ == on) return;
  showOriginal_ = on;
  update();
}

void CanvasView::setSplitCompare(bool on) {
  if (splitCompare_ == on) return;
  splitCompare_ = on;
  update();
}

void CanvasView::setSplitPosition(double fraction) {
  split_ = std::clamp(fraction, 0.0, 1.0);
  update();
}

void CanvasView::setSamplingPrompt(const QString& prompt) {
  prompt_ = prompt;
  setCursor(prompt_.isEmpty() ? Qt::ArrowCursor : Qt::CrossCursor);
  update();
}

void CanvasView::setBadge(const QString& text) {
  if (badge_ == text) return;
  badge_ = text;
  update();
}

void CanvasView::setSpacePan(bool on) {
  spacePan_ = on;
  if (drag_ == Drag::none) setCursor(on ? Qt::OpenHandCursor : (prompt_.isEmpty() ? Qt::ArrowCursor : Qt::CrossCursor));
}

void CanvasView::addOverlay(CanvasOverlay* overlay) {
  overlays_.push_back(overlay);
  update();
}

void CanvasView::removeOverlay(CanvasOverlay* overlay) {
  std::erase(overlays_, overlay);
  if (dragOverlay_ == overlay) {
    dragOverlay_ = nullptr;
    drag_ = Drag::none;
  }
  update();
}

void CanvasView::fitToWindow() {
  viewport_.fit();
  detail_ = {};
  viewportMoved();
}

void CanvasView::actualSize() {
  viewport_.zoomAt({viewport_.viewWidth / 2, viewport_.viewHeight / 2}, 1.0);
  viewportMoved();
}

void CanvasView::zoomBy(double factor) {
  viewport_.zoomAt({viewport_.viewWidth / 2, viewport_.viewHeight / 2}, viewport_.scale * factor);
  viewportMoved();
}

void CanvasView::viewportMoved() {
  update();
  emit viewportChanged();
}

double CanvasView::dividerX() const {
  const ViewRect r = viewport_.imageRectInView();
  const double x0 = std::max(0.0, r.x), x1 = std::min(viewport_.viewWidth, r.x + r.width);
  return x0 + (x1 - x0) * split_;
}

bool CanvasView::nearDivider(ViewPoint p) const {
  return splitCompare_ && !showOriginal_ && std::abs(p.x - dividerX()) <= kDividerGrab;
}

void CanvasView::drawPicture(QPainter& p, const CanvasPicture& picture, const Viewport& vp) const {
  if (!picture.valid()) return;
  const ViewPoint a = vp.toView({picture.imageRect.x, picture.imageRect.y});
  const ViewPoint b = vp.toView({picture.imageRect.x + picture.imageRect.width,
                                 picture.imageRect.y + picture.imageRect.height});
  const QRectF target(a.x, a.y, b.x - a.x, b.y - a.y);
  if (std::abs(target.width() - picture.image.width()) < 1 && std::abs(target.height() - picture.image.height()) < 1) {
    // Made at the size it is shown: a plain copy at whole pixels.
    p.drawImage(QPointF(std::round(target.x()), std::round(target.y())), picture.image);
    return;
  }
  // Smooth when the picture is shrunk or mildly enlarged; pixels stay crisp
  // from 200 % on, where a photographer inspects single pixels.
  const bool smooth = target.width() < picture.image.width() * 2.0;
  p.setRenderHint(QPainter::SmoothPixmapTransform, smooth);
  p.drawImage(target, picture.image, QRectF(picture.image.rect()));
}

void CanvasView::drawPill(QPainter& p, const QString& text, double centerX, double y, bool top) const {
  const double dpr = devicePixelRatioF();
  QFont f = font();
  f.setPixelSize(int(std::lround(13 * dpr)));
  p.setFont(f);
  const QFontMetricsF m(f);
  const double w = m.horizontalAdvance(text) + 24 * dpr, h = m.height() + 10 * dpr;
  const QRectF box(centerX - w / 2, top ? y : y - h, w, h);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(0, 0, 0, 170));
  p.drawRoundedRect(box, h / 2, h / 2);
  p.setPen(QColor(240, 240, 240));
  p.drawText(box, Qt::AlignCenter, text);
}

void CanvasView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  const double dpr = devicePixelRatioF();
  p.scale(1 / dpr, 1 / dpr);
  p.fillRect(QRectF(0, 0, viewport_.viewWidth, viewport_.viewHeight), kBackground);

  if (showOriginal_ && original_.valid()) {
    // The original may have another frame than the edit (crop, turns): it
    // gets a fitted view of its own unless the frames agree.
    Viewport vp = viewport_;
    if (originalWidth_ != vp.imageWidth || originalHeight_ != vp.imageHeight) {
      vp.setImageSize(originalWidth_, originalHeight_);
      vp.fit();
    }
    drawPicture(p, original_, vp);
  } else {
    drawPicture(p, picture_, viewport_);
    drawPicture(p, detail_, viewport_);
    paintedGeneration_ = picture_.generation;
    if (detail_.valid()) paintedDetailGeneration_ = detail_.generation;
    if (splitCompare_ && original_.valid()) {
      const double x = dividerX();
      p.save();
      p.setClipRect(QRectF(0, 0, x, viewport_.viewHeight));
      p.fillRect(toQ(viewport_.imageRectInView()), kBackground);
      drawPicture(p, original_, viewport_);
      p.restore();
      const ViewRect r = viewport_.imageRectInView();
      const double y0 = std::max(0.0, r.y), y1 = std::min(viewport_.viewHeight, r.y + r.height);
      p.setRenderHint(QPainter::Antialiasing);
      p.setPen(QPen(QColor(255, 255, 255, 230), 2 * dpr));
      p.drawLine(QPointF(x, y0), QPointF(x, y1));
      const double knob = 9 * dpr, cy = (y0 + y1) / 2;
      p.setBrush(QColor(255, 255, 255, 230));
      p.setPen(QPen(QColor(0, 0, 0, 120), dpr));
      p.drawEllipse(QPointF(x, cy), knob, knob);
      p.setPen(QPen(QColor(60, 60, 60), 1.5 * dpr));
      p.drawLine(QPointF(x - 3 * dpr, cy - 4 * dpr), QPointF(x - 3 * dpr, cy + 4 * dpr));
      p.drawLine(QPointF(x + 3 * dpr, cy - 4 * dpr), QPointF(x + 3 * dpr, cy + 4 * dpr));
    }
  }

  for (CanvasOverlay* overlay : overlays_) {
    p.save();
    overlay->paint(p, viewport_);
    p.restore();
  }

  const QString line = !prompt_.isEmpty() ? prompt_ : badge_;
  if (!line.isEmpty()) drawPill(p, line, viewport_.viewWidth / 2, 12 * dpr, true);
}

void CanvasView::resizeEvent(QResizeEvent*) {
  const double dpr = devicePixelRatioF();
  viewport_.resize(width() * dpr, height() * dpr);
  viewportMoved();
}

void CanvasView::wheelEvent(QWheelEvent* e) {
  const int delta = e->angleDelta().y();
  if (delta == 0 || !viewport_.valid()) return;
  viewport_.zoomAt(toDevice(e->position()), viewport_.scale * std::pow(kWheelStep, delta));
  viewportMoved();
  e->accept();
}

void CanvasView::mousePressEvent(QMouseEvent* e) {
  setFocus(Qt::MouseFocusReason);
  const ViewPoint at = toDevice(e->position());
  lastPointer_ = at;
  if (e->button() != Qt::LeftButton) return;
  if (spacePan_) {
    drag_ = Drag::pan;
  } else if (!prompt_.isEmpty()) {
    const ViewPoint image = viewport_.toImage(at);
    emit sampleRequested(image.x, image.y);
    return;
  } else if (nearDivider(at)) {
    drag_ = Drag::divider;
  } else {
    drag_ = Drag::pan;
    for (auto it = overlays_.rbegin(); it != overlays_.rend(); ++it) {
      if ((*it)->press(at, *e, viewport_)) {
        drag_ = Drag::overlay;
        dragOverlay_ = *it;
        break;
      }
    }
  }
  if (drag_ == Drag::pan) setCursor(Qt::ClosedHandCursor);
}

void CanvasView::mouseMoveEvent(QMouseEvent* e) {
  const ViewPoint at = toDevice(e->position());
  switch (drag_) {
    case Drag::pan:
      viewport_.panBy(at.x - lastPointer_.x, at.y - lastPointer_.y);
      viewportMoved();
      break;
    case Drag::divider: {
      const ViewRect r = viewport_.imageRectInView();
      const double x0 = std::max(0.0, r.x), x1 = std::min(viewport_.viewWidth, r.x + r.width);
      if (x1 > x0) {
        split_ = std::clamp((at.x - x0) / (x1 - x0), 0.0, 1.0);
        update();
        emit splitPositionChanged(split_);
      }
      break;
    }
    case Drag::overlay:
      if (dragOverlay_) dragOverlay_->move(at, *e, viewport_);
      update();
      break;
    case Drag::none:
      updateCursor(at);
      break;
  }
  lastPointer_ = at;
}

void CanvasView::mouseReleaseEvent(QMouseEvent* e) {
  const ViewPoint at = toDevice(e->position());
  if (drag_ == Drag::overlay && dragOverlay_) dragOverlay_->release(at, *e, viewport_);
  drag_ = Drag::none;
  dragOverlay_ = nullptr;
  updateCursor(at);
  update();
}

void CanvasView::mouseDoubleClickEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton || !prompt_.isEmpty() || nearDivider(toDevice(e->position()))) return;
  if (viewport_.fitted || viewport_.scale < 1.0) viewport_.zoomAt(toDevice(e->position()), 1.0);
  else viewport_.fit();
  viewportMoved();
}

void CanvasView::updateCursor(ViewPoint at) {
  if (!prompt_.isEmpty()) return setCursor(Qt::CrossCursor);
  if (spacePan_) return setCursor(Qt::OpenHandCursor);
  if (nearDivider(at)) return setCursor(Qt::SplitHCursor);
  for (auto it = overlays_.rbegin(); it != overlays_.rend(); ++it) {
    if (auto c = (*it)->cursorAt(at, viewport_)) return setCursor(*c);
  }
  setCursor(Qt::ArrowCursor);
}

}  // namespace vg::app
