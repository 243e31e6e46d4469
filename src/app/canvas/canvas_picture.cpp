#include "app/canvas/canvas_picture.h"

#include "render/parallel.h"

namespace vg::app {

CanvasPicture makeCanvasPicture(const Image& image, const DisplayTransform& transform, ViewRect covers) {
  if (image.empty()) return {};
  QImage out(image.width(), image.height(), QImage::Format_ARGB32_Premultiplied);
  if (out.isNull()) return {};
  const Rect b = image.bounds();
  parallelRows(b, 16, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      transform.convertRow(image.row(y), b.width, reinterpret_cast<uint32_t*>(out.scanLine(y - b.y)));
  });
  return {std::move(out), covers};
}

}  // namespace vg::app
