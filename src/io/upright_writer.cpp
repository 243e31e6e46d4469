#include "io/upright_writer.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <vector>

#include "io/orientation.h"

namespace vg {

UprightWriter::UprightWriter(int storedWidth, int storedHeight, int orientation, const InputColor& color)
    : width_(storedWidth),
      height_(storedHeight),
      orientation_(orientation::normalized(orientation)),
      color_(color),
      image_(orientation::swapsAxes(orientation_) ? Image::uninitialized(storedHeight, storedWidth)
                                                  : Image::uninitialized(storedWidth, storedHeight)) {}

void UprightWriter::write(const uint8_t* rows, size_t pitch, int y0, int count) {
  if (orientation_ == 1) {
    for (int k = 0; k < count; ++k) color_.convert(rows + size_t(k) * pitch, width_, image_.row(y0 + k));
    return;
  }
  std::vector<float> buffer(size_t(width_) * 4);
  const ptrdiff_t stride = ptrdiff_t(image_.strideFloats());
  for (int k = 0; k < count; ++k) {
    int y = y0 + k;
    color_.convert(rows + size_t(k) * pitch, width_, buffer.data());
    auto p0 = orientation::upright(orientation_, width_, height_, 0, y);
    auto p1 = orientation::upright(orientation_, width_, height_, 1, y);
    ptrdiff_t step = (p1.x - p0.x) * 4 + (p1.y - p0.y) * stride;
    float* d = image_.at(p0.x, p0.y);
    const float* s = buffer.data();
    for (int x = 0; x < width_; ++x, d += step, s += 4) {
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
      d[3] = s[3];
    }
  }
}

void UprightWriter::writeAll(const uint8_t* rows, size_t pitch) {
  int blocks = (height_ + kBlockRows - 1) / kBlockRows;
  tbb::parallel_for(tbb::blocked_range<int>(0, blocks), [&](const tbb::blocked_range<int>& r) {
    for (int b = r.begin(); b < r.end(); ++b) {
      int y0 = b * kBlockRows;
      int n = std::min(kBlockRows, height_ - y0);
      write(rows + size_t(y0) * pitch, pitch, y0, n);
    }
  });
}

}  // namespace vg
