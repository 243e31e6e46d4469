// CanvasPicture: a rendered picture ready to draw, and the conversion that
// makes one from a working-space render.
//
// `image` holds display pixels (QImage::Format_ARGB32_Premultiplied, already
// converted to the monitor profile); `imageRect` is the part of the frame it
// shows, in full-resolution image coordinates (canvas/viewport.h). A preview
// of the whole frame at a reduced scale covers the whole frame; a zoomed-in
// detail covers only the visible part, at (about) one pixel per view pixel.
#pragma once

#include <QImage>

#include "app/canvas/viewport.h"
#include "app/display_transform.h"
#include "render/image.h"

namespace vg::app {

struct CanvasPicture {
  QImage image;
  ViewRect imageRect;
  bool valid() const { return !image.isNull() && !imageRect.empty(); }
};

// Converts `image` through `transform` (rows in parallel). The result's
// imageRect is `covers`.
CanvasPicture makeCanvasPicture(const Image& image, const DisplayTransform& transform, ViewRect covers);

}  // namespace vg::app
