#include "io_test_files.h"

#include <exiv2/exiv2.hpp>
#include <jpeglib.h>
#include <lcms2.h>
#include <png.h>
#include <tiffio.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace vg::test {

Raster8 quadrants(int width, int height) {
  Raster8 r{width, height, 3, std::vector<uint8_t>(size_t(width) * height * 3)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      bool right = x >= width / 2, bottom = y >= height / 2;
      uint8_t* p = r.at(x, y);
      if (!right && !bottom) p[0] = 220, p[1] = 20, p[2] = 20;
      if (right && !bottom) p[0] = 20, p[1] = 220, p[2] = 20;
      if (!right && bottom) p[0] = 20, p[1] = 20, p[2] = 220;
      if (right && bottom) p[0] = 230, p[1] = 230, p[2] = 230;
    }
  }
  return r;
}

void writeJpeg(const std::filesystem::path& path, const Raster8& raster, int quality, bool progressive) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) throw std::runtime_error("cannot write " + path.string());
  jpeg_compress_struct c;
  jpeg_error_mgr err;
  c.err = jpeg_std_error(&err);
  jpeg_create_compress(&c);
  jpeg_stdio_dest(&c, f);
  c.image_width = raster.width;
  c.image_height = raster.height;
  c.input_components = raster.channels;
  c.in_color_space = raster.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, quality, TRUE);
  if (progressive) jpeg_simple_progression(&c);
  jpeg_start_compress(&c, TRUE);
  while (c.next_scanline < c.image_height) {
    JSAMPROW row = const_cast<uint8_t*>(raster.samples.data()) + size_t(c.next_scanline) * raster.width * raster.channels;
    jpeg_write_scanlines(&c, &row, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::fclose(f);
}

void setExifOrientation(const std::filesystem::path& path, long orientation) {
  auto image = Exiv2::ImageFactory::open(path.string());
  image->readMetadata();
  Exiv2::ExifData exif = image->exifData();
  exif["Exif.Image.Orientation"] = uint16_t(orientation);
  image->setExifData(exif);
  image->writeMetadata();
}

void writePng(const std::filesystem::path& path, int width, int height, int channels, int bitDepth,
              const void* samples, const std::vector<uint8_t>& icc) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) throw std::runtime_error("cannot write " + path.string());
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  static const int types[] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                              PNG_COLOR_TYPE_RGB_ALPHA};
  png_set_IHDR(png, info, width, height, bitDepth, types[channels], PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!icc.empty()) png_set_iCCP(png, info, "profile", 0, icc.data(), png_uint_32(icc.size()));
  png_write_info(png, info);
  if (bitDepth == 16) png_set_swap(png);
  size_t pitch = size_t(width) * channels * (bitDepth / 8);
  for (int y = 0; y < height; ++y) {
    png_write_row(png, static_cast<const uint8_t*>(samples) + pitch * y);
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(f);
}

namespace {

std::vector<uint8_t> savedProfile(cmsHPROFILE h, const std::string& description) {
  cmsMLU* mlu = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(mlu, "en", "US", description.c_str());
  cmsWriteTag(h, cmsSigProfileDescriptionTag, mlu);
  cmsMLUfree(mlu);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(h, nullptr, &size);
  std::vector<uint8_t> bytes(size);
  cmsSaveProfileToMem(h, bytes.data(), &size);
  cmsCloseProfile(h);
  return bytes;
}

}  // namespace

std::vector<uint8_t> makeRgbProfile(const double p[6], double gamma, const std::string& description) {
  cmsCIExyY white = {0.3127, 0.3290, 1.0};
  cmsCIExyYTRIPLE primaries = {{p[0], p[1], 1.0}, {p[2], p[3], 1.0}, {p[4], p[5], 1.0}};
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  cmsToneCurve* curves[3] = {curve, curve, curve};
  cmsHPROFILE h = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(curve);
  return savedProfile(h, description);
}

std::vector<uint8_t> makeGrayProfile(double gamma, const std::string& description) {
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  cmsHPROFILE h = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  cmsFreeToneCurve(curve);
  return savedProfile(h, description);
}

void embedIccProfile(const std::filesystem::path& path, const std::vector<uint8_t>& icc) {
  auto image = Exiv2::ImageFactory::open(path.string());
  image->readMetadata();
  Exiv2::DataBuf profile(icc.data(), long(icc.size()));
  image->setIccProfile(profile, /*bTestValid=*/true);
  image->writeMetadata();
}

void writeDng(const std::filesystem::path& path, int width, int height,
              const std::function<uint16_t(int, int)>& mosaicValue, int orientation, bool deflate,
              std::optional<double> baselineExposure) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (!tif) throw std::runtime_error("cannot write " + path.string());
  const uint8_t dngVersion[4] = {1, 4, 0, 0};
  const uint8_t backwardVersion[4] = {1, 1, 0, 0};
  const uint16_t cfaDim[2] = {2, 2};
  const uint8_t cfaPattern[4] = {0, 1, 1, 2};  // R G / G B
  const float colorMatrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const float neutral[3] = {1, 1, 1};
  const uint32_t white = 65535;
  const float black = 0;
  TIFFSetField(tif, TIFFTAG_SUBFILETYPE, 0);
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(width));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(height));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, deflate ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, 32803);  // colour filter array
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, uint16_t(orientation));
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(height));
  TIFFSetField(tif, TIFFTAG_MAKE, "Verdantglass");
  TIFFSetField(tif, TIFFTAG_MODEL, "Synthetic Bayer");
  TIFFSetField(tif, TIFFTAG_DNGVERSION, dngVersion);
  TIFFSetField(tif, TIFFTAG_DNGBACKWARDVERSION, backwardVersion);
  TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, "Verdantglass Synthetic Bayer");
  TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, cfaDim);
  TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, cfaPattern);
  TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, colorMatrix);
  TIFFSetField(tif, TIFFTAG_CALIBRATIONILLUMINANT1, 21);  // D65
  TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, neutral);
  TIFFSetField(tif, TIFFTAG_BLACKLEVEL, 1, &black);
  TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, &white);
  if (baselineExposure) TIFFSetField(tif, TIFFTAG_BASELINEEXPOSURE, *baselineExposure);
  std::vector<uint16_t> row(width);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) row[x] = mosaicValue(x, y);
    TIFFWriteScanline(tif, row.data(), uint32_t(y), 0);
  }
  TIFFClose(tif);
}

double maxDifference(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) return std::numeric_limits<double>::infinity();
  double worst = 0;
  for (int y = 0; y < a.height(); ++y) {
    const float* p = a.row(a.bounds().y + y);
    const float* q = b.row(b.bounds().y + y);
    for (int i = 0; i < a.width() * 4; ++i) worst = std::max(worst, double(std::fabs(p[i] - q[i])));
  }
  return worst;
}

double meanDifference(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) return std::numeric_limits<double>::infinity();
  double sum = 0;
  for (int y = 0; y < a.height(); ++y) {
    const float* p = a.row(a.bounds().y + y);
    const float* q = b.row(b.bounds().y + y);
    for (int x = 0; x < a.width(); ++x)
      for (int c = 0; c < 3; ++c) sum += std::fabs(p[x * 4 + c] - q[x * 4 + c]);
  }
  return sum / (double(a.width()) * a.height() * 3);
}

std::vector<double> channelMeans(const Image& image) {
  std::vector<double> sums(4, 0.0);
  for (int y = 0; y < image.height(); ++y) {
    const float* p = image.row(image.bounds().y + y);
    for (int x = 0; x < image.width(); ++x)
      for (int c = 0; c < 4; ++c) sums[c] += p[x * 4 + c];
  }
  for (auto& s : sums) s /= double(image.width()) * image.height();
  return sums;
}

}  // namespace vg::test
