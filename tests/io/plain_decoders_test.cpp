// JPEG and PNG decoding: layouts, bit depths, alpha, profiles and damage.
#include <gtest/gtest.h>

#include <cstdio>  // before jpeglib.h, which uses FILE

#include <jpeglib.h>
#include <zlib.h>

#include <cmath>

#include "io/image_loader.h"
#include "io/jpeg_decoder.h"
#include "io/orientation.h"
#include "io/png_decoder.h"
#include "io_test_files.h"
#include "render/parallel.h"
#include "render/srgb.h"
#include "support/test_support.h"

namespace vg {
namespace {

std::vector<uint8_t> bytesOf(const std::filesystem::path& p) {
  std::string s = test::readFile(p);
  return {s.begin(), s.end()};
}

test::Raster8 texture(int w, int h) {
  test::Raster8 r{w, h, 3, std::vector<uint8_t>(size_t(w) * h * 3)};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t* p = r.at(x, y);
      p[0] = uint8_t(x * 255 / w);
      p[1] = uint8_t(y * 255 / h);
      p[2] = uint8_t((x + y) * 255 / (w + h));
    }
  return r;
}

TEST(JpegDecoder, ProgressiveAndBaselineOfTheSameDataDecodeAlike) {
  test::TempDir dir;
  auto raster = texture(203, 131);  // odd sizes: partial blocks at both edges
  test::writeJpeg(dir / "b.jpg", raster, 90, false);
  test::writeJpeg(dir / "p.jpg", raster, 90, true);
  auto baseline = decodeJpeg(bytesOf(dir / "b.jpg"), {});
  auto progressive = decodeJpeg(bytesOf(dir / "p.jpg"), {});
  ASSERT_EQ(baseline.image.width(), 203);
  ASSERT_EQ(baseline.image.height(), 131);
  EXPECT_LT(test::maxDifference(baseline.image, progressive.image), 1e-6);
  // And both are close to the sRGB-decoded source (lossy, quality 90).
  double sum = 0;
  for (int y = 0; y < 131; ++y)
    for (int x = 0; x < 203; ++x)
      for (int c = 0; c < 3; ++c)
        sum += std::fabs(srgb::encode(baseline.image.at(x, y)[c]) - raster.at(x, y)[c] / 255.0f);
  EXPECT_LT(sum / (203.0 * 131 * 3), 0.03);
  EXPECT_EQ(baseline.image.at(5, 5)[3], 1.0f);
}

TEST(JpegDecoder, SrgbValuesBecomeLinear) {
  test::TempDir dir;
  test::Raster8 flat{16, 16, 3, std::vector<uint8_t>(16 * 16 * 3, 128)};
  test::writeJpeg(dir / "grey.jpg", flat, 100);
  auto d = decodeJpeg(bytesOf(dir / "grey.jpg"), {});
  EXPECT_NEAR(d.image.at(8, 8)[1], srgb::decode(128 / 255.0f), 0.004);
  EXPECT_EQ(d.profileName, "");
  EXPECT_EQ(d.colorModel, "RGB");
}

// Plain libjpeg, the whole raster at once: what the banded decoder must
// reproduce row for row.
std::vector<uint8_t> referenceDecode(const std::vector<uint8_t>& bytes, int& width, int& height) {
  jpeg_decompress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, bytes.data(), (unsigned long)bytes.size());
  jpeg_read_header(&cinfo, TRUE);
  cinfo.out_color_space = JCS_RGB;
  jpeg_start_decompress(&cinfo);
  width = int(cinfo.output_width), height = int(cinfo.output_height);
  std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW row = rgb.data() + size_t(cinfo.output_scanline) * size_t(width) * 3;
    jpeg_read_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  return rgb;
}

// A tall image runs many bands through the decoder's small ring of band
// buffers; every row must land where it belongs, upright or rotated, with
// one thread or several.
TEST(JpegDecoder, TallImagesKeepEveryRowInPlace) {
  test::TempDir dir;
  test::Raster8 raster{37, 1003, 3, std::vector<uint8_t>(37 * 1003 * 3)};
  for (int y = 0; y < raster.height; ++y)
    for (int x = 0; x < raster.width; ++x) {
      uint8_t* p = raster.at(x, y);
      p[0] = uint8_t(y * 7), p[1] = uint8_t(y / 4), p[2] = uint8_t(x * 6);
    }
  test::writeJpeg(dir / "tall.jpg", raster, 92);
  std::vector<uint8_t> bytes = bytesOf(dir / "tall.jpg");
  int w = 0, h = 0;
  std::vector<uint8_t> expected = referenceDecode(bytes, w, h);
  ASSERT_EQ(h, 1003);
  for (int threads : {1, 2}) {
    ScopedThreadLimit limit(threads);
    for (int orientation = 1; orientation <= 8; ++orientation) {
      auto d = decodeJpeg(bytes, DecodeOptions{orientation});
      ASSERT_EQ(d.image.height(), orientation::swapsAxes(orientation) ? w : h);
      int wrong = 0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          auto up = orientation::upright(orientation, w, h, x, y);
          const float* px = d.image.at(up.x, up.y);
          for (int c = 0; c < 3; ++c)
            wrong += px[c] != srgb::decode(float(expected[(size_t(y) * w + x) * 3 + c]) / 255.0f);
        }
      EXPECT_EQ(wrong, 0) << threads << " threads, orientation " << orientation;
    }
  }
}

TEST(JpegDecoder, GreyscaleGivesNeutralPixels) {
  test::TempDir dir;
  test::Raster8 grey{20, 10, 1, std::vector<uint8_t>(200)};
  for (int i = 0; i < 200; ++i) grey.samples[i] = uint8_t(i);
  test::writeJpeg(dir / "g.jpg", grey, 95);
  auto d = decodeJpeg(bytesOf(dir / "g.jpg"), {});
  EXPECT_EQ(d.colorModel, "Gray");
  const float* p = d.image.at(13, 7);
  EXPECT_EQ(p[0], p[1]);
  EXPECT_EQ(p[1], p[2]);
}

// The CMYK JPEG and the 16-bit TIFF hold the same video still. Its maker
// separated the colours with ink limits, so the plain inversion we apply
// without a profile comes out darker, but the picture must be the same: a
// file read without its Adobe inversion would be a negative.
TEST(JpegDecoder, AdobeCmykMatchesTheSameStillInRgb) {
  auto cmyk = ImageLoader::load(test::dataPath("jpeg/video-001.cmyk.jpeg"));
  auto rgb = ImageLoader::load(test::dataPath("tiff/video-001-16bit.tiff"));
  EXPECT_EQ(cmyk.colorSpaceName, "CMYK");
  ASSERT_EQ(cmyk.pixelSize, rgb.pixelSize);
  double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0, n = 0;
  for (int y = 0; y < cmyk.image->height(); ++y)
    for (int x = 0; x < cmyk.image->width(); ++x) {
      double a = cmyk.image->at(x, y)[1], b = rgb.image->at(x, y)[1];
      sa += a, sb += b, saa += a * a, sbb += b * b, sab += a * b, n += 1;
    }
  double correlation = (sab - sa * sb / n) / std::sqrt((saa - sa * sa / n) * (sbb - sb * sb / n));
  EXPECT_GT(correlation, 0.95);
  EXPECT_LT(test::meanDifference(*cmyk.image, *rgb.image), 0.1);
}

TEST(JpegDecoder, DamagedFilesFailOrKeepWhatWasDecoded) {
  // Cut inside the header: nothing to show.
  EXPECT_THROW(decodeJpeg(bytesOf(test::dataPath("corrupt/skimage-truncated.jpg")), {}), DecodeError);
  // Cut in the middle of the progressive scans: a full-size, blurrier image.
  auto partial = decodeJpeg(bytesOf(test::dataPath("corrupt/video-001.progressive.truncated.jpeg")), {});
  EXPECT_EQ(partial.image.width(), 150);
  EXPECT_EQ(partial.image.height(), 103);
  // Hostile Exif, valid image.
  EXPECT_EQ(decodeJpeg(bytesOf(test::dataPath("corrupt/infinite_loop_exif.jpg")), {}).image.width(), 8);
  EXPECT_THROW(decodeJpeg(bytesOf(test::dataPath("corrupt/max_uint32_exif.jpg")), {}), DecodeError);
  // Cut right after the first scan header.
  std::vector<uint8_t> whole = bytesOf(test::dataPath("jpeg/iphone4s-gps-test1.jpg"));
  for (size_t cut : {size_t(2), size_t(20), whole.size() / 3, whole.size() - 3}) {
    std::vector<uint8_t> part(whole.begin(), whole.begin() + long(cut));
    try {
      auto d = decodeJpeg(part, {});
      EXPECT_EQ(d.image.width(), 180);
    } catch (const DecodeError&) {
    }
  }
}

TEST(JpegDecoder, AbsurdDeclaredSizeIsRefusedBeforeAllocating) {
  test::TempDir dir;
  test::writeJpeg(dir / "s.jpg", texture(16, 16));
  std::vector<uint8_t> bytes = bytesOf(dir / "s.jpg");
  // Patch the frame header (SOF0) to declare 65000 × 65000.
  for (size_t i = 0; i + 8 < bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) {
      bytes[i + 5] = 0xFD, bytes[i + 6] = 0xE8, bytes[i + 7] = 0xFD, bytes[i + 8] = 0xE8;
      break;
    }
  }
  EXPECT_THROW(decodeJpeg(bytes, {}), DecodeError);
}

TEST(PngDecoder, SixteenBitSamplesKeepTheirPrecision) {
  test::TempDir dir;
  std::vector<uint16_t> samples = {0x1234, 0x8001, 0xFFFF, 0x0000, 0x00FF, 0x7FFF};
  test::writePng(dir / "d.png", 2, 1, 3, 16, samples.data());
  auto d = decodePng(bytesOf(dir / "d.png"), {});
  for (int i = 0; i < 6; ++i) {
    float expected = srgb::decode(samples[i] / 65535.0f);
    EXPECT_NEAR(d.image.at(i / 3, 0)[i % 3], expected, 2e-6) << i;
  }
}

TEST(PngDecoder, StraightAlphaIsPremultiplied) {
  test::TempDir dir;
  const uint8_t rgba[] = {255, 255, 255, 128, 255, 0, 0, 0};
  test::writePng(dir / "a.png", 2, 1, 4, 8, rgba);
  auto d = decodePng(bytesOf(dir / "a.png"), {});
  EXPECT_NEAR(d.image.at(0, 0)[0], 128 / 255.0f, 1e-6);
  EXPECT_NEAR(d.image.at(0, 0)[3], 128 / 255.0f, 1e-6);
  EXPECT_EQ(d.image.at(1, 0)[0], 0.0f);  // fully transparent: no colour left
  EXPECT_EQ(d.image.at(1, 0)[3], 0.0f);
  EXPECT_FALSE(d.opaque);
}

// The decoder learns whether any pixel is transparent on every write path:
// straight rows, mirrored and turned rows, and transposed tiles.
TEST(PngDecoder, TransparencyIsNoticedWhateverTheOrientation) {
  test::TempDir dir;
  const int w = 70, h = 5;  // wider than one transposed tile
  std::vector<uint8_t> rgba(size_t(w) * h * 4, 255);
  test::writePng(dir / "full.png", w, h, 4, 8, rgba.data());
  rgba[(size_t(4) * w + 69) * 4 + 3] = 254;  // one pixel, in the last tile
  test::writePng(dir / "hole.png", w, h, 4, 8, rgba.data());
  for (int orientation : {1, 3, 6, 8}) {
    EXPECT_TRUE(decodePng(bytesOf(dir / "full.png"), {orientation}).opaque) << orientation;
    EXPECT_FALSE(decodePng(bytesOf(dir / "hole.png"), {orientation}).opaque) << orientation;
  }
}

TEST(PngDecoder, SuiteLayoutsDecode) {
  struct Case {
    const char* file;
    int width, height;
    const char* model;
  };
  for (Case c : {Case{"png/pngsuite-basn2c16.png", 32, 32, "RGB"}, Case{"png/pngsuite-basn6a16.png", 32, 32, "RGB"},
                 Case{"png/pngsuite-basn3p08.png", 32, 32, "RGB"}, Case{"png/pngsuite-basn0g08.png", 32, 32, "Gray"},
                 Case{"png/gray-gradient.interlaced.png", 1, 16, "Gray"}}) {
    auto d = decodePng(bytesOf(test::dataPath(c.file)), {});
    EXPECT_EQ(d.image.width(), c.width) << c.file;
    EXPECT_EQ(d.image.height(), c.height) << c.file;
    EXPECT_EQ(d.colorModel, c.model) << c.file;
  }
  // The interlaced gradient runs from dark to light down its 16 rows.
  auto g = decodePng(bytesOf(test::dataPath("png/gray-gradient.interlaced.png")), {});
  EXPECT_LT(g.image.at(0, 0)[0], g.image.at(0, 15)[0]);
  // basn6a16 has transparent corners and opaque areas.
  auto a = decodePng(bytesOf(test::dataPath("png/pngsuite-basn6a16.png")), {});
  float minAlpha = 1, maxAlpha = 0;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      minAlpha = std::min(minAlpha, a.image.at(x, y)[3]);
      maxAlpha = std::max(maxAlpha, a.image.at(x, y)[3]);
      EXPECT_LE(a.image.at(x, y)[0], a.image.at(x, y)[3] + 1e-6f);  // premultiplied
    }
  EXPECT_LT(minAlpha, 0.01f);
  EXPECT_GT(maxAlpha, 0.9f);
  EXPECT_FALSE(a.opaque);
  EXPECT_TRUE(decodePng(bytesOf(test::dataPath("png/pngsuite-basn2c16.png")), {}).opaque);
}

TEST(PngDecoder, DamagedFiles) {
  EXPECT_THROW(decodePng(bytesOf(test::dataPath("corrupt/invalid-crc32.png")), {}), DecodeError);
  // Complete image data with a broken end chunk still shows.
  EXPECT_EQ(decodePng(bytesOf(test::dataPath("corrupt/invalid-trunc.png")), {}).image.width(), 232);
  // A header that claims 60000 × 60000 in a few bytes.
  test::TempDir dir;
  const uint8_t px[] = {1, 2, 3};
  test::writePng(dir / "tiny.png", 1, 1, 3, 8, px);
  std::vector<uint8_t> bytes = bytesOf(dir / "tiny.png");
  bytes[16] = 0, bytes[17] = 0, bytes[18] = 0xEA, bytes[19] = 0x60;  // width
  bytes[20] = 0, bytes[21] = 0, bytes[22] = 0xEA, bytes[23] = 0x60;  // height
  uLong crc = crc32(0, bytes.data() + 12, 17);  // keep the header's CRC valid
  bytes[29] = uint8_t(crc >> 24), bytes[30] = uint8_t(crc >> 16), bytes[31] = uint8_t(crc >> 8), bytes[32] = uint8_t(crc);
  EXPECT_THROW(decodePng(bytes, {}), DecodeError);
  std::vector<uint8_t> truncated(bytes.begin(), bytes.begin() + 30);
  EXPECT_THROW(decodePng(truncated, {}), DecodeError);
}

}  // namespace
}  // namespace vg
