#include <gtest/gtest.h>

#include <set>

#include "io/image_loader.h"
#include "io/jpeg_decoder.h"
#include "io/orientation.h"
#include "io_test_files.h"
#include "support/test_support.h"

namespace vg {
namespace {

// Colour of the upright image near a relative position, as 8-bit-ish sRGB
// class: 'r', 'g', 'b', 'w' for the quadrant colours.
char quadrantAt(const Image& img, double fx, double fy) {
  const float* p = img.at(int(fx * img.width()), int(fy * img.height()));
  if (p[0] > 0.5 && p[1] > 0.5) return 'w';
  if (p[0] > 0.5) return 'r';
  if (p[1] > 0.5) return 'g';
  return 'b';
}

TEST(Orientation, MappingIsABijectionForEveryValue) {
  const int w = 5, h = 3;
  for (int o = 1; o <= 8; ++o) {
    int uw = orientation::swapsAxes(o) ? h : w, uh = orientation::swapsAxes(o) ? w : h;
    std::set<std::pair<int, int>> seen;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        auto p = orientation::upright(o, w, h, x, y);
        ASSERT_TRUE(p.x >= 0 && p.x < uw && p.y >= 0 && p.y < uh) << o;
        seen.insert({p.x, p.y});
      }
    EXPECT_EQ(seen.size(), size_t(w * h)) << o;
  }
  EXPECT_EQ(orientation::normalized(0), 1);
  EXPECT_EQ(orientation::normalized(100), 1);
  EXPECT_EQ(orientation::normalized(8), 8);
}

// Each file stores the quadrant pattern as the camera saw it, rotated or
// mirrored so that applying its orientation gives the same upright pattern.
TEST(Orientation, AllEightExifOrientationsComeBackUpright) {
  test::TempDir dir;
  const int W = 64, H = 48;  // upright size
  test::Raster8 upright = test::quadrants(W, H);
  for (int o = 1; o <= 8; ++o) {
    bool swap = orientation::swapsAxes(o);
    int sw = swap ? H : W, sh = swap ? W : H;
    test::Raster8 stored{sw, sh, 3, std::vector<uint8_t>(size_t(sw) * sh * 3)};
    for (int y = 0; y < sh; ++y)
      for (int x = 0; x < sw; ++x) {
        auto p = orientation::upright(o, sw, sh, x, y);
        std::copy_n(upright.at(p.x, p.y), 3, stored.at(x, y));
      }
    auto path = dir / ("o" + std::to_string(o) + ".jpg");
    test::writeJpeg(path, stored, 95);
    test::setExifOrientation(path, o);
    auto loaded = ImageLoader::load(path);
    ASSERT_EQ(loaded.pixelSize.width, W) << o;
    ASSERT_EQ(loaded.pixelSize.height, H) << o;
    EXPECT_EQ(quadrantAt(*loaded.image, 0.25, 0.25), 'r') << o;
    EXPECT_EQ(quadrantAt(*loaded.image, 0.75, 0.25), 'g') << o;
    EXPECT_EQ(quadrantAt(*loaded.image, 0.25, 0.75), 'b') << o;
    EXPECT_EQ(quadrantAt(*loaded.image, 0.75, 0.75), 'w') << o;
  }
}

TEST(Orientation, InvalidValueIsIgnored) {
  test::TempDir dir;
  auto path = dir / "odd.jpg";
  test::writeJpeg(path, test::quadrants(40, 30));
  test::setExifOrientation(path, 100);
  auto loaded = ImageLoader::load(path);
  EXPECT_EQ(loaded.pixelSize.width, 40);
  EXPECT_EQ(quadrantAt(*loaded.image, 0.25, 0.25), 'r');
}

// A real camera file stored 450 × 600 with orientation 6 looks like the
// same photograph stored upright.
TEST(Orientation, RealRotatedPhotoMatchesItsUprightTwin) {
  auto upright = ImageLoader::load(test::dataPath("orientation/image_1.jpg"));
  auto rotated = ImageLoader::load(test::dataPath("orientation/image_6.jpg"));
  ASSERT_EQ(rotated.pixelSize, upright.pixelSize);
  // The two files differ in their printed digit and their JPEG noise; the
  // same file turned the wrong way differs far more.
  std::string bytes = test::readFile(test::dataPath("orientation/image_6.jpg"));
  auto wrong = decodeJpeg({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, DecodeOptions{8});
  double right = test::meanDifference(*rotated.image, *upright.image);
  EXPECT_LT(right, 0.05);
  EXPECT_LT(right * 3, test::meanDifference(wrong.image, *upright.image));
}

}  // namespace
}  // namespace vg
