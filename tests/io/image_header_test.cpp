#include <gtest/gtest.h>

#include <string>

#include "io/batch_engine.h"
#include "io/image_header.h"
#include "support/test_support.h"

namespace vg {
namespace {

using test::dataPath;

TEST(ImageHeader, ReadsStoredSizeOfEveryKind) {
  struct Case {
    const char* file;
    int64_t width, height;
  } cases[] = {
      {"jpeg/test-issue-6.jpg", 200, 133},
      {"jpeg/video-001.cmyk.jpeg", 150, 103},
      {"orientation/image_6.jpg", 450, 600},  // stored size, before orientation
      {"png/gray-gradient.interlaced.png", 1, 16},
      {"tiff/video-001-tile-64x64.tiff", 150, 103},
      {"heic/rocket-adobergb.converted.heic", 640, 427},
  };
  for (const auto& c : cases) {
    auto d = readImageDimensions(dataPath(c.file));
    ASSERT_TRUE(d) << c.file;
    EXPECT_EQ(d->width, c.width) << c.file;
    EXPECT_EQ(d->height, c.height) << c.file;
  }
  auto dng = readImageDimensions(dataPath("raw/lg-g4-h815-acr-lossy-linear.dng"));
  ASSERT_TRUE(dng);
  EXPECT_EQ(dng->pixels(), 600 * 338);
  auto kdc = readImageDimensions(dataPath("raw/kodak-dc120-compressed-good-P003913.kdc"));
  ASSERT_TRUE(kdc);
  EXPECT_EQ(kdc->height, 976);
}

TEST(ImageHeader, BrokenOrForeignFilesHaveNoSize) {
  test::TempDir dir;
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.png", "not a png at all, just text");
  test::writeFile(dir / "markers.jpg", std::string("\xFF\xD8\xFF\xD9", 4));
  test::writeFile(dir / "photo.txt", "x");
  for (auto name : {"empty.jpg", "text.png", "markers.jpg", "photo.txt", "missing.tif"}) {
    EXPECT_FALSE(readImageDimensions(dir / name)) << name;
  }
}

// A PNG signature and IHDR chunk declaring width x height, nothing more: the
// header is all the worker planning reads.
std::string pngHeader(uint32_t width, uint32_t height) {
  std::string s("\x89PNG\r\n\x1A\n", 8);
  s += std::string("\0\0\0\x0D", 4) + "IHDR";
  for (uint32_t v : {width, height}) {
    for (int shift = 24; shift >= 0; shift -= 8) s.push_back(char((v >> shift) & 0xFF));
  }
  s += std::string("\x08\x06\0\0\0", 5) + std::string(4, '\0');
  return s;
}

TEST(BatchEngine, SixtyMegapixelImageRunsAlone) {
  test::TempDir dir;
  test::writeFile(dir / "small.png", pngHeader(4000, 3000));
  test::writeFile(dir / "huge.png", pngHeader(10000, 6000));
  EXPECT_EQ(BatchEngine::workerCount({dir / "small.png"}), 2);
  EXPECT_EQ(BatchEngine::workerCount({dir / "small.png", dir / "huge.png"}), 1);
  test::writeFile(dir / "edge.png", pngHeader(10000, 5000));  // exactly 50 MP is not more
  EXPECT_EQ(BatchEngine::workerCount({dir / "edge.png"}), 2);
}

}  // namespace
}  // namespace vg
