#include "io/working_image_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "export_readback.h"
#include "support/test_support.h"

namespace vg {
namespace {

Image sample() {
  Image img(Rect{10, 20, 5, 3});  // a sub-rectangle: the file starts at its origin
  for (int y = 20; y < 23; ++y)
    for (int x = 10; x < 15; ++x) {
      float* p = img.at(x, y);
      p[0] = float(x - 10) * 0.5f - 0.25f;  // below 0 and above 1 survive in float
      p[1] = 1.5f;
      p[2] = float(y - 20) / 3.0f;
      p[3] = 1.0f;
    }
  return img;
}

TEST(WorkingImageFilesTest, FloatTiffKeepsTheWorkingValuesExactly) {
  test::TempDir dir;
  Image img = sample();
  writeWorkingImage(dir / "out.tif", img);
  TIFF* tif = TIFFOpen((dir / "out.tif").c_str(), "r");
  ASSERT_NE(tif, nullptr);
  uint32_t w = 0, h = 0;
  uint16_t bits = 0, format = 0, spp = 0;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetField(tif, TIFFTAG_SAMPLEFORMAT, &format);
  TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
  EXPECT_EQ(w, 5u);
  EXPECT_EQ(h, 3u);
  EXPECT_EQ(bits, 32);
  EXPECT_EQ(format, SAMPLEFORMAT_IEEEFP);
  EXPECT_EQ(spp, 4);
  uint32_t iccSize = 0;
  void* icc = nullptr;
  EXPECT_EQ(TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &icc), 0);
  std::vector<float> row(20);
  for (uint32_t y = 0; y < h; ++y) {
    ASSERT_EQ(TIFFReadScanline(tif, row.data(), y), 1);
    EXPECT_EQ(std::memcmp(row.data(), img.row(20 + int(y)), 20 * sizeof(float)), 0);
  }
  TIFFClose(tif);
}

TEST(WorkingImageFilesTest, PngAndJpegAreSrgbEncoded) {
  test::TempDir dir;
  Image img = sample();
  writeWorkingImage(dir / "out.png", img);
  test::ReadBack png = test::readPng(dir / "out.png");
  EXPECT_EQ(png.width, 5);
  EXPECT_EQ(png.bitDepth, 16);
  EXPECT_EQ(png.channels, 3);
  EXPECT_EQ(png.at(0, 0, 0), 0);      // negative clips to black
  EXPECT_EQ(png.at(0, 0, 1), 65535);  // over-white clips to white
  EXPECT_NEAR(png.at(0, 1, 2), 0.61250 * 65535, 10);  // linear 1/3 in sRGB
  EXPECT_FALSE(png.icc.empty());

  writeWorkingImage(dir / "out.JPG", img);
  test::ReadBack jpg = test::readJpeg(dir / "out.JPG");
  EXPECT_EQ(jpg.width, 5);
  EXPECT_EQ(jpg.height, 3);
}

TEST(WorkingImageFilesTest, GreyMaskPngAndRefusals) {
  test::TempDir dir;
  GreyImage m(Rect{4, 4, 3, 2});
  m.at(4, 4) = 1.0f;
  m.at(5, 4) = 0.5f;
  m.at(6, 5) = NAN;
  writeGreyPng(dir / "mask.png", m);
  test::ReadBack png = test::readPng(dir / "mask.png");
  EXPECT_EQ(png.channels, 1);
  EXPECT_EQ(png.bitDepth, 8);
  EXPECT_EQ(png.at(0, 0, 0), 255);
  EXPECT_EQ(png.at(1, 0, 0), 128);
  EXPECT_EQ(png.at(2, 1, 0), 0);

  // Unknown extensions and unwritable places fail cleanly and leave nothing.
  EXPECT_THROW(writeWorkingImage(dir / "out.bmp", sample()), std::runtime_error);
  EXPECT_THROW(writeWorkingImage(dir / "missing" / "out.png", sample()), std::exception);
  EXPECT_FALSE(std::filesystem::exists(dir / "out.bmp"));
  test::writeFile(dir / "keep.tif", "old");
  EXPECT_THROW(writeWorkingImage(dir / "keep.tif", Image()), std::runtime_error);
  EXPECT_EQ(test::readFile(dir / "keep.tif"), "old");
  size_t entries = 0;
  for (auto& e : std::filesystem::directory_iterator(dir.path())) entries += e.path().filename() != "" ? 1 : 0;
  EXPECT_EQ(entries, 2u);  // mask.png and keep.tif; no temporary left behind
}

}  // namespace
}  // namespace vg
