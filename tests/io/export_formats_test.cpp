// Every output format read back with its own library: size, bit depth, ICC
// profile, compression, resolution, and the colours the conversion promises.
#include <gtest/gtest.h>

#include <cmath>

#include "export_readback.h"
#include "io/image_exporter.h"
#include "render/color_profiles.h"
#include "render/srgb.h"
#include "support/test_support.h"

namespace vg {
namespace {

Image flat(int w, int h, float r, float g, float b, float a = 1.0f) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = r * a;
      p[1] = g * a;
      p[2] = b * a;
      p[3] = a;
    }
  return img;
}

Image gradient(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = float(x) / float(w - 1);
      p[1] = float(y) / float(h - 1);
      p[2] = 0.18f;
      p[3] = 1.0f;
    }
  return img;
}

ImageExporter::Options optionsFor(ExportFormat format) {
  ImageExporter::Options o;
  o.format = format;
  o.includeMetadata = false;
  return o;
}

std::vector<uint8_t> profileOf(OutputColorSpace s) { return outputIccProfile(s); }

TEST(ExportFormats, EachFormatReadsBackWithItsSizeDepthAndProfile) {
  test::TempDir dir;
  Image img = gradient(97, 61);

  ASSERT_EQ(ImageExporter::exportImage(img, dir / "a.jpg", optionsFor(ExportFormat::jpeg)),
            ImageExporter::Result::written);
  auto jpeg = test::readJpeg(dir / "a.jpg");
  EXPECT_EQ(jpeg.width, 97);
  EXPECT_EQ(jpeg.height, 61);
  EXPECT_EQ(jpeg.channels, 3);
  EXPECT_EQ(jpeg.bitDepth, 8);
  EXPECT_EQ(jpeg.icc, profileOf(OutputColorSpace::sRGB));

  ImageExporter::exportImage(img, dir / "a.png", optionsFor(ExportFormat::png));
  auto png = test::readPng(dir / "a.png");
  EXPECT_EQ(png.width, 97);
  EXPECT_EQ(png.height, 61);
  EXPECT_EQ(png.channels, 3);
  EXPECT_EQ(png.bitDepth, 16);
  EXPECT_EQ(png.icc, profileOf(OutputColorSpace::sRGB));

  for (auto c : {TIFFCompression::none, TIFFCompression::lzw, TIFFCompression::zip}) {
    auto o = optionsFor(ExportFormat::tiff);
    o.tiffCompression = c;
    auto path = dir / ("a" + std::to_string(int(c)) + ".tif");
    ImageExporter::exportImage(img, path, o);
    auto tiff = test::readTiff(path);
    EXPECT_EQ(tiff.width, 97);
    EXPECT_EQ(tiff.height, 61);
    EXPECT_EQ(tiff.channels, 3);
    EXPECT_EQ(tiff.bitDepth, 16);
    EXPECT_EQ(tiff.tiffCompression, int(c));
    EXPECT_EQ(tiff.icc, profileOf(OutputColorSpace::sRGB));
    // The predictor must not have corrupted the samples: the three files agree.
    if (c != TIFFCompression::none) {
      EXPECT_EQ(tiff.samples, test::readTiff(dir / "a1.tif").samples);
    }
  }

  ImageExporter::exportImage(img, dir / "a.heic", optionsFor(ExportFormat::heic));
  auto heic = test::readHeic(dir / "a.heic");
  EXPECT_EQ(heic.width, 97);
  EXPECT_EQ(heic.height, 61);
  EXPECT_EQ(heic.bitDepth, 10);
  EXPECT_EQ(heic.icc, profileOf(OutputColorSpace::sRGB));
}

TEST(ExportFormats, SixteenBitSamplesCarryTheChosenSpaceAndCurve) {
  test::TempDir dir;
  // Linear Rec.709 red: its encoded coordinates in each output space.
  Image red = flat(8, 8, 1.0f, 0.0f, 0.0f);
  struct Case {
    ExportColorSpace space;
    OutputColorSpace icc;
    double r, g, b;
  } cases[] = {
      {ExportColorSpace::srgb, OutputColorSpace::sRGB, 1.0, 0.0, 0.0},
      {ExportColorSpace::displayP3, OutputColorSpace::displayP3, 0.9175, 0.2003, 0.1386},
      {ExportColorSpace::adobeRGB, OutputColorSpace::adobeRGB1998, 0.8588, 0.0, 0.0},
  };
  for (const Case& c : cases) {
    auto o = optionsFor(ExportFormat::png);
    o.colorSpace = c.space;
    auto path = dir / (std::string(storedValue(c.space)) + ".png");
    ImageExporter::exportImage(red, path, o);
    auto png = test::readPng(path);
    EXPECT_EQ(png.icc, profileOf(c.icc)) << storedValue(c.space);
    EXPECT_NEAR(png.at(3, 3, 0) / 65535.0, c.r, 0.003) << storedValue(c.space);
    EXPECT_NEAR(png.at(3, 3, 1) / 65535.0, c.g, 0.003) << storedValue(c.space);
    EXPECT_NEAR(png.at(3, 3, 2) / 65535.0, c.b, 0.003) << storedValue(c.space);
  }

  // Mid grey keeps more than 8 bits: the exact 16-bit code of the sRGB curve.
  Image grey = flat(4, 4, 0.18f, 0.18f, 0.18f);
  ImageExporter::exportImage(grey, dir / "grey.tif", optionsFor(ExportFormat::tiff));
  auto tiff = test::readTiff(dir / "grey.tif");
  EXPECT_NEAR(tiff.at(1, 1, 1), std::lround(srgb::encode(0.18f) * 65535.0), 1);
}

TEST(ExportFormats, JpegDitherKeepsTheMeanBetweenEightBitCodes) {
  test::TempDir dir;
  // A flat colour whose sRGB code is 100.3: plain rounding would store 100.
  const float linear = srgb::decode(100.3f / 255.0f);
  Image img = flat(128, 128, linear, linear, linear);
  auto o = optionsFor(ExportFormat::jpeg);
  o.quality = 1.0;
  ImageExporter::exportImage(img, dir / "d.jpg", o);
  auto jpeg = test::readJpeg(dir / "d.jpg");
  double sum = 0;
  for (int y = 0; y < 128; ++y)
    for (int x = 0; x < 128; ++x) sum += jpeg.at(x, y, 1);
  EXPECT_NEAR(sum / (128 * 128), 100.3, 0.08);
}

TEST(ExportFormats, TransparencySurvivesWhereTheFormatHasAlpha) {
  test::TempDir dir;
  Image img = flat(16, 16, 0.5f, 0.25f, 0.0f, 0.5f);  // premultiplied internally
  ImageExporter::exportImage(img, dir / "t.png", optionsFor(ExportFormat::png));
  auto png = test::readPng(dir / "t.png");
  ASSERT_EQ(png.channels, 4);
  // Straight colour: 0.5 linear, not the premultiplied 0.25.
  EXPECT_NEAR(png.at(2, 2, 0) / 65535.0, srgb::encode(0.5f), 1e-4);
  EXPECT_NEAR(png.at(2, 2, 3) / 65535.0, 0.5, 1e-4);

  ImageExporter::exportImage(img, dir / "t.tif", optionsFor(ExportFormat::tiff));
  EXPECT_EQ(test::readTiff(dir / "t.tif").channels, 4);

  ImageExporter::exportImage(img, dir / "t.jpg", optionsFor(ExportFormat::jpeg));
  EXPECT_EQ(test::readJpeg(dir / "t.jpg").channels, 3);

  Image opaque = flat(16, 16, 0.5f, 0.25f, 0.0f);
  ImageExporter::exportImage(opaque, dir / "o.png", optionsFor(ExportFormat::png));
  EXPECT_EQ(test::readPng(dir / "o.png").channels, 3);
}

TEST(ExportFormats, LongEdgeShrinksAndSharpeningActsOnlyOnEdges) {
  test::TempDir dir;
  Image img = gradient(600, 400);
  auto o = optionsFor(ExportFormat::png);
  o.longEdge = 300;
  ImageExporter::exportImage(img, dir / "small.png", o);
  auto small = test::readPng(dir / "small.png");
  EXPECT_EQ(small.width, 300);
  EXPECT_EQ(small.height, 200);
  // The ramp survives resampling: the centre is half red.
  EXPECT_NEAR(small.at(150, 100, 0) / 65535.0, srgb::encode(150.0f / 299.0f * 0.998f), 0.01);

  // A step edge: sharpening overshoots next to it, flat areas stay equal.
  Image step(64, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 64; ++x) {
      float v = x < 32 ? 0.2f : 0.6f;
      float* p = step.at(x, y);
      p[0] = p[1] = p[2] = v;
      p[3] = 1;
    }
  auto plain = optionsFor(ExportFormat::tiff);
  ImageExporter::exportImage(step, dir / "plain.tif", plain);
  auto sharp = plain;
  sharp.outputSharpening = OutputSharpening::glossy;
  ImageExporter::exportImage(step, dir / "sharp.tif", sharp);
  auto a = test::readTiff(dir / "plain.tif"), b = test::readTiff(dir / "sharp.tif");
  EXPECT_EQ(a.at(5, 8, 0), b.at(5, 8, 0));
  EXPECT_EQ(a.at(58, 8, 0), b.at(58, 8, 0));
  EXPECT_LT(b.at(31, 8, 0), a.at(31, 8, 0));
  EXPECT_GT(b.at(32, 8, 0), a.at(32, 8, 0));
}

}  // namespace
}  // namespace vg
