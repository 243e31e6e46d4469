#include "render/band_source.h"

#include <cstring>
#include <stdexcept>

namespace vg {

ImageBandSource::ImageBandSource(const Image& image) : image_(image) {
  const Rect& b = image.bounds();
  for (int y = b.y; y < b.bottom() && opaque_; ++y) {
    const float* p = image.row(y);
    for (int x = 0; x < b.width; ++x)
      if (!(p[4 * x + 3] == 1.0f)) {
        opaque_ = false;
        break;
      }
  }
}

Image ImageBandSource::renderBand(const Rect& rect) {
  const Rect& b = image_.bounds();
  if (!Rect{0, 0, b.width, b.height}.contains(rect)) throw std::out_of_range("band outside the image");
  Image band(rect);
  for (int y = rect.y; y < rect.bottom(); ++y)
    std::memcpy(band.row(y), image_.at(b.x + rect.x, b.y + y), size_t(rect.width) * 4 * sizeof(float));
  return band;
}

}  // namespace vg
