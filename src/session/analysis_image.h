// The small pictures the one-click analyses measure, made the same way for
// all of them.
//
// averageBlocks(image, f): the mean of every f x f block of pixels (all four
// channels, premultiplied as stored), as an image of floor(width / f) x
// floor(height / f) pixels starting at (0, 0); the right and bottom
// remainders narrower than a block are left out. f <= 1 copies the image.
// Parallel over rows; the result does not depend on the thread count.
// (8-bit sRGB codes of such a picture come from render/heal_bitmap.h.)
#pragma once

#include "render/image.h"

namespace vg {

Image averageBlocks(const Image& image, int factor);

}  // namespace vg
