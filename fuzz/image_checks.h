// Checks the image targets share about a decoded image.
#pragma once

#include "io/decoded_image.h"

#include "fuzz_check.h"

namespace vg::fuzz {

// DecodedImage::opaque must agree with the pixels: when it says opaque,
// every alpha is 1 (every `step`-th row is looked at); when it does not,
// some alpha is below 1 (the search stops at the first one).
inline void checkOpaqueFlag(const DecodedImage& d, int step = 1) {
  const Image& image = d.image;
  bool below = false;
  for (int y = 0; y < image.height() && !below; y += d.opaque ? step : 1) {
    const float* p = image.row(y);
    for (int x = 0; x < image.width() && !below; ++x) below = !(p[x * 4 + 3] >= 1.0f);
  }
  check(below != d.opaque, "opaque says whether every alpha is 1");
}

}  // namespace vg::fuzz
