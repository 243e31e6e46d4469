#include <gtest/gtest.h>

#include <cstdint>

#include "render/image.h"

namespace vg {
namespace {

TEST(Rect, HalfOpenIntersectionAndGrowth) {
  Rect a{0, 0, 10, 10}, b{5, 8, 10, 10};
  EXPECT_EQ(a.intersected(b), (Rect{5, 8, 5, 2}));
  EXPECT_TRUE(a.intersected(Rect{10, 0, 3, 3}).empty());  // touching edges share no pixel
  EXPECT_TRUE(a.contains(9, 9));
  EXPECT_FALSE(a.contains(10, 9));
  EXPECT_EQ(a.grown(2), (Rect{-2, -2, 14, 14}));
  EXPECT_TRUE(a.contains(Rect{2, 2, 8, 8}));
  EXPECT_FALSE(a.contains(Rect{2, 2, 9, 8}));
}

TEST(Image, RowsAreAlignedAndAddressedInWorkingCoordinates) {
  Image img(Rect{-3, 7, 5, 4});
  EXPECT_EQ(img.width(), 5);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(img.row(7)) % 64, 0u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(img.row(10)) % 64, 0u);
  EXPECT_GE(img.strideFloats(), 5u * 4);
  EXPECT_EQ(img.at(-3, 7), img.row(7));
  img.at(1, 10)[2] = 0.5f;
  Image copy = img.clone();
  img.at(1, 10)[2] = 0.25f;
  EXPECT_EQ(copy.at(1, 10)[2], 0.5f);
  EXPECT_EQ(copy.at(0, 9)[0], 0.0f);  // new images start zeroed
  EXPECT_EQ(copy.bounds(), img.bounds());
}

TEST(Image, EmptyBoundsAllocateNothing) {
  Image img(Rect{4, 4, 0, 12});
  EXPECT_TRUE(img.empty());
  EXPECT_EQ(img.byteSize(), 0u);
  EXPECT_TRUE(img.clone().empty());
}

TEST(Image, LargeBuffersAreRecycledAndStaleOrSmallerOnesReleasedOnAMiss) {
  Image::releasePool();
  const Rect big{0, 0, 1024, 1024};  // 16 MiB
  const float* first = nullptr;
  {
    Image a(big);
    first = a.row(0);
    a.at(5, 5)[1] = 3.0f;
  }
  EXPECT_GE(Image::pooledBytes(), size_t(16) << 20);
  {
    Image again(big);
    EXPECT_EQ(again.row(0), first) << "the freed block is handed out again";
    EXPECT_EQ(again.at(5, 5)[1], 0.0f) << "and zeroed like a fresh one";
  }
  const Rect small{0, 0, 1024, 600}, larger{0, 0, 1024, 1280}, largest{0, 0, 1024, 1536};  // 10, 20, 24 MiB
  { Image a(small); }  // fits no kept block without waste: a miss, but the big block is in use lately
  EXPECT_EQ(Image::pooledBytes(), size_t(16 + 10) << 20);
  for (int i = 0; i < 40; ++i) Image a(small);  // the big size goes out of use
  { Image a(larger); }  // a miss: the stale 16 MiB and the smaller 10 MiB go
  EXPECT_EQ(Image::pooledBytes(), size_t(20) << 20);
  { Image a(small); }  // a miss that keeps the larger block
  EXPECT_EQ(Image::pooledBytes(), size_t(20 + 10) << 20);
  { Image a(largest); }  // a bigger picture: every smaller block goes, however fresh
  EXPECT_EQ(Image::pooledBytes(), size_t(24) << 20);
  Image::releasePool();
  EXPECT_EQ(Image::pooledBytes(), 0u);
}

}  // namespace
}  // namespace vg
