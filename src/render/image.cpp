#include "render/image.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

namespace vg {
namespace {
constexpr size_t kAlign = 64;
constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kHugeThreshold = size_t(8) << 20;
}

void Image::Free::operator()(float* p) const { std::free(p); }

Image::Image(Rect bounds) : Image(bounds, true) {}

Image Image::uninitialized(Rect bounds) { return Image(bounds, false); }

Image::Image(Rect bounds, bool zeroed) : bounds_(bounds) {
  if (bounds.empty()) {
    bounds_ = Rect{bounds.x, bounds.y, 0, 0};
    return;
  }
  size_t rowBytes = size_t(bounds.width) * kChannels * sizeof(float);
  rowBytes = (rowBytes + kAlign - 1) / kAlign * kAlign;
  stride_ = rowBytes / sizeof(float);
  size_t total = rowBytes * size_t(bounds.height);
  if (total / rowBytes != size_t(bounds.height)) throw std::bad_alloc();
  void* p = nullptr;
  if (total >= kHugeThreshold) {
    // Large rasters in 2 MiB pages: far fewer page faults when first written.
    size_t rounded = (total + kHugePage - 1) / kHugePage * kHugePage;
    p = std::aligned_alloc(kHugePage, rounded);
    if (p) madvise(p, rounded, MADV_HUGEPAGE);
  } else {
    p = std::aligned_alloc(kAlign, total);
  }
  if (!p) throw std::bad_alloc();
  if (zeroed) std::memset(p, 0, total);
  data_.reset(static_cast<float*>(p));
}

Image Image::clone() const {
  Image copy(bounds_);
  if (!empty()) std::memcpy(copy.data_.get(), data_.get(), byteSize());
  return copy;
}

}  // namespace vg
