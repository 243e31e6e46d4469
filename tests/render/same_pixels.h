// samePixels: two images with the same bounds and equal values at every
// pixel (float comparison), for the render tests.
#pragma once

#include <algorithm>

#include "render/image.h"

namespace vg::test {

inline bool samePixels(const Image& a, const Image& b) {
  if (a.bounds() != b.bounds()) return false;
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y) {
    if (!std::equal(a.row(y), a.row(y) + size_t(a.width()) * 4, b.row(y))) return false;
  }
  return true;
}

}  // namespace vg::test
