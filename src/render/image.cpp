#include "render/image.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace vg {
namespace {
constexpr size_t kAlign = 64;
}

void Image::Free::operator()(float* p) const { std::free(p); }

Image::Image(Rect bounds) : bounds_(bounds) {
  if (bounds.empty()) {
    bounds_ = Rect{bounds.x, bounds.y, 0, 0};
    return;
  }
  size_t rowBytes = size_t(bounds.width) * kChannels * sizeof(float);
  rowBytes = (rowBytes + kAlign - 1) / kAlign * kAlign;
  stride_ = rowBytes / sizeof(float);
  size_t total = rowBytes * size_t(bounds.height);
  if (total / rowBytes != size_t(bounds.height)) throw std::bad_alloc();
  void* p = std::aligned_alloc(kAlign, total);
  if (!p) throw std::bad_alloc();
  std::memset(p, 0, total);
  data_.reset(static_cast<float*>(p));
}

Image Image::clone() const {
  Image copy(bounds_);
  if (!empty()) std::memcpy(copy.data_.get(), data_.get(), byteSize());
  return copy;
}

}  // namespace vg
