#include "app/canvas/viewport.h"

#include <algorithm>
#include <cmath>

namespace vg::app {

double Viewport::fitScale() const {
  if (!valid()) return 1;
  return std::min(viewWidth / imageWidth, viewHeight / imageHeight) * kFitMargin;
}

double Viewport::minScale() const { return std::min(fitScale() / 4, 1.0); }

ViewPoint Viewport::toView(ViewPoint p) const {
  return {(p.x - center.x) * scale + viewWidth / 2, (p.y - center.y) * scale + viewHeight / 2};
}

ViewPoint Viewport::toImage(ViewPoint p) const {
  return {(p.x - viewWidth / 2) / scale + center.x, (p.y - viewHeight / 2) / scale + center.y};
}

ViewRect Viewport::imageRectInView() const {
  const ViewPoint origin = toView({0, 0});
  return {origin.x, origin.y, imageWidth * scale, imageHeight * scale};
}

ViewRect Viewport::visibleImageRect() const {
  const ViewPoint a = toImage({0, 0});
  const ViewPoint b = toImage({viewWidth, viewHeight});
  const double x0 = std::max(0.0, a.x), y0 = std::max(0.0, a.y);
  const double x1 = std::min(imageWidth, b.x), y1 = std::min(imageHeight, b.y);
  if (x1 <= x0 || y1 <= y0) return {};
  return {x0, y0, x1 - x0, y1 - y0};
}

void Viewport::resize(double width, double height) {
  viewWidth = std::max(0.0, width);
  viewHeight = std::max(0.0, height);
  if (fitted) fit();
  else clampCenter();
}

void Viewport::setImageSize(double width, double height) {
  const bool sameSize = width == imageWidth && height == imageHeight;
  imageWidth = std::max(0.0, width);
  imageHeight = std::max(0.0, height);
  // A new frame (crop, rotation) starts fitted; the same frame keeps the view.
  if (!sameSize) fitted = true;
  if (fitted) fit();
  else clampCenter();
}

void Viewport::fit() {
  fitted = true;
  scale = fitScale();
  center = {imageWidth / 2, imageHeight / 2};
}

void Viewport::zoomAt(ViewPoint anchor, double newScale) {
  if (!valid() || !(newScale > 0)) return;
  const ViewPoint fixed = toImage(anchor);
  scale = std::clamp(newScale, minScale(), kMaxScale);
  // Solve toView(fixed) == anchor for the centre.
  center = {fixed.x - (anchor.x - viewWidth / 2) / scale, fixed.y - (anchor.y - viewHeight / 2) / scale};
  fitted = false;
  clampCenter();
}

void Viewport::panBy(double dx, double dy) {
  if (!valid()) return;
  center.x -= dx / scale;
  center.y -= dy / scale;
  fitted = false;
  clampCenter();
}

void Viewport::clampCenter() {
  if (!valid()) return;
  scale = std::clamp(scale, minScale(), kMaxScale);
  auto clampAxis = [this](double& c, double image, double view) {
    const double half = view / 2 / scale;  // half the view, in image pixels
    if (image * scale <= view) c = image / 2;
    else c = std::clamp(c, half, image - half);
  };
  clampAxis(center.x, imageWidth, viewWidth);
  clampAxis(center.y, imageHeight, viewHeight);
}

}  // namespace vg::app
