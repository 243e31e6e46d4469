#include <gtest/gtest.h>

#include <cstdint>

#include "render/image.h"

namespace vg {
namespace {

TEST(ImageAllocation, UninitializedAndLargeImagesKeepTheLayoutContract) {
  for (Rect r : {Rect{0, 0, 7, 3}, Rect{-5, 9, 3000, 1000}}) {  // small, and above the huge-page size
    Image a = Image::uninitialized(r);
    Image z(r);
    EXPECT_EQ(a.bounds(), r);
    EXPECT_EQ(a.strideFloats(), z.strideFloats());
    for (int y : {r.y, r.y + 1, r.bottom() - 1}) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(a.row(y)) % 64, 0u);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(z.row(y)) % 64, 0u);
    }
    // The zeroing constructor still clears large buffers.
    EXPECT_EQ(z.at(r.right() - 1, r.bottom() - 1)[3], 0.0f);
    a.at(r.right() - 1, r.bottom() - 1)[3] = 2.0f;  // the whole buffer is writable
    EXPECT_EQ(a.at(r.right() - 1, r.bottom() - 1)[3], 2.0f);
  }
  EXPECT_TRUE(Image::uninitialized(0, 5).empty());
}

}  // namespace
}  // namespace vg
