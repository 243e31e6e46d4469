// CanvasPicture: a rendered picture ready to draw, and the conversion that
// makes one from a working-space render.
//
// `image` holds display pixels (QImage::Format_RGBA8888, already converted
// to the monitor profile); `imageRect` is the part of the frame it
// shows, in full-resolution image coordinates (canvas/viewport.h). A preview
// of the whole frame at a reduced scale covers the whole frame; a zoomed-in
// detail covers only the visible part.
#pragma once

#include <QImage>
#include <cstdint>

#include "app/canvas/viewport.h"
#include "app/display_transform.h"
#include "render/image.h"

namespace vg::app {

struct CanvasPicture {
  QImage image;
  ViewRect imageRect;
  uint64_t generation = 0;  // of the render it came from
  bool valid() const { return !image.isNull() && !imageRect.empty(); }
};

// Converts `image` through `transform`, rows in parallel, into a picture of
// `width` x `height` pixels covering `covers`. A smaller size than the image
// is reached by averaging, in linear light and premultiplied, the block of
// image pixels each picture pixel spans (block edges at whole pixels), in
// the same pass as the conversion, so the painter then draws the picture
// one to one. A size of 0 (or larger than the image) keeps the image's size.
CanvasPicture makeCanvasPicture(const Image& image, const DisplayTransform& transform, ViewRect covers,
                                int width = 0, int height = 0);

}  // namespace vg::app
