// GreyImage: a single-channel float raster over a Rect, the form of every
// rasterised mask (1 where a layer's adjustments apply fully, 0 where not).
// A quarter of an RGBA Image, so several masks of a 24-megapixel frame stay
// affordable. Rows are contiguous; values are not clamped by the type.
#pragma once

#include <cstddef>
#include <vector>

#include "render/rect.h"

namespace vg {

class GreyImage {
 public:
  GreyImage() = default;
  explicit GreyImage(Rect bounds, float fill = 0.0f)
      : bounds_(bounds), values_(size_t(bounds.area()), fill) {}

  const Rect& bounds() const { return bounds_; }
  int width() const { return bounds_.width; }
  int height() const { return bounds_.height; }
  bool empty() const { return bounds_.empty(); }
  size_t byteSize() const { return values_.size() * sizeof(float); }

  // Row y (working-image coordinates), starting at column bounds().x.
  float* row(int y) { return values_.data() + size_t(y - bounds_.y) * size_t(bounds_.width); }
  const float* row(int y) const { return values_.data() + size_t(y - bounds_.y) * size_t(bounds_.width); }
  float at(int x, int y) const { return row(y)[x - bounds_.x]; }
  float& at(int x, int y) { return row(y)[x - bounds_.x]; }

  // The part inside r (r must lie within bounds()).
  GreyImage cropped(const Rect& r) const {
    GreyImage out(r);
    for (int y = r.y; y < r.bottom(); ++y) {
      const float* s = row(y) + (r.x - bounds_.x);
      float* d = out.row(y);
      for (int i = 0; i < r.width; ++i) d[i] = s[i];
    }
    return out;
  }

  friend bool operator==(const GreyImage&, const GreyImage&) = default;

 private:
  Rect bounds_;
  std::vector<float> values_;
};

}  // namespace vg
