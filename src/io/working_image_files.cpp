#include "io/working_image_files.h"

#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include "io/export_temp_file.h"
#include "io/image_encoder.h"
#include "render/color_profiles.h"

namespace vg {

namespace {

std::string lowerExtension(const std::filesystem::path& path) {
  std::string e = path.extension().string();
  std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return e;
}

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& why) {
  throw std::runtime_error("cannot write " + path.string() + ": " + why);
}

void writeFloatTiff(const std::filesystem::path& file, const Image& image) {
  TIFF* tif = TIFFOpen(file.c_str(), "w");
  if (!tif) fail(file, "cannot create the file");
  std::unique_ptr<TIFF, void (*)(TIFF*)> guard(tif, TIFFClose);
  const uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(image.width()));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(image.height()));
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, uint16_t(4));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, uint16_t(32));
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, uint16_t(SAMPLEFORMAT_IEEEFP));
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, uint16_t(PHOTOMETRIC_RGB));
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, uint16_t(PLANARCONFIG_CONTIG));
  TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, uint16_t(1), extra);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, uint16_t(COMPRESSION_NONE));
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(std::max(1, 65536 / std::max(1, image.width() * 16))));
  std::vector<float> row(size_t(image.width()) * 4);
  for (int y = 0; y < image.height(); ++y) {
    const float* src = image.row(image.bounds().y + y);
    std::copy_n(src, row.size(), row.data());  // libtiff may scribble on the buffer
    if (TIFFWriteScanline(tif, row.data(), uint32_t(y), 0) < 0) fail(file, "write error");
  }
  if (!TIFFFlush(tif)) fail(file, "write error");
}

bool opaque(const Image& image) {
  for (int y = image.bounds().y; y < image.bounds().bottom(); ++y) {
    const float* p = image.row(y);
    for (int i = 0; i < image.width(); ++i)
      if (p[size_t(i) * 4 + 3] != 1.0f) return false;
  }
  return true;
}

void writeEncoded(const std::filesystem::path& file, const Image& image, ExportFormat format) {
  const OutputEncoding& enc = OutputEncoding::get(OutputColorSpace::sRGB);
  EncodeSpec spec;
  spec.width = image.width();
  spec.height = image.height();
  spec.channels = format == ExportFormat::png && !opaque(image) ? OutputChannels::rgba : OutputChannels::rgb;
  spec.quality = 0.92;
  spec.iccProfile = outputIccProfile(OutputColorSpace::sRGB);
  std::unique_ptr<ImageEncoder> encoder = makeEncoder(format, file, spec);
  const int n = spec.channels == OutputChannels::rgba ? 4 : 3;
  const size_t samples = size_t(image.width()) * size_t(n);
  for (int y = 0; y < image.height(); ++y) {
    const float* src = image.row(image.bounds().y + y);
    if (encoder->sampleLayout() == SampleLayout::u8) {
      std::vector<uint8_t> row(samples);
      encodeRow8(enc, src, image.width(), spec.channels, 0, y, false, row.data());
      encoder->writeRows(row.data(), row.size(), 1);
    } else {
      std::vector<uint16_t> row(samples);
      encodeRow16(enc, src, image.width(), spec.channels, 65535, row.data());
      encoder->writeRows(row.data(), row.size() * 2, 1);
    }
  }
  encoder->finish();
}

void writeGreyPngFile(const std::filesystem::path& file, const GreyImage& mask) {
  FILE* f = std::fopen(file.c_str(), "wb");
  if (!f) fail(file, "cannot create the file");
  std::unique_ptr<FILE, int (*)(FILE*)> fileGuard(f, std::fclose);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info) {
    png_destroy_write_struct(&png, nullptr);
    fail(file, "out of memory");
  }
  std::vector<uint8_t> row(size_t(std::max(0, mask.width())));
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    fail(file, "write error");
  }
  png_init_io(png, f);
  png_set_IHDR(png, info, png_uint_32(mask.width()), png_uint_32(mask.height()), 8, PNG_COLOR_TYPE_GRAY,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = mask.bounds().y; y < mask.bounds().bottom(); ++y) {
    const float* m = mask.row(y);
    for (int i = 0; i < mask.width(); ++i) {
      float v = std::isnan(m[i]) ? 0.0f : std::clamp(m[i], 0.0f, 1.0f);
      row[size_t(i)] = uint8_t(std::lround(v * 255.0f));
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (std::fflush(f) != 0) fail(file, "write error");
}

template <typename Write>
void writeAtomically(const std::filesystem::path& path, Write&& write) {
  if (path.empty()) throw std::runtime_error("cannot write: empty output path");
  std::string ext = path.extension().string();
  ExportTempFile temp(path, ext.empty() ? std::string_view("tmp") : std::string_view(ext).substr(1));
  write(temp.path());
  temp.commit();
}

}  // namespace

bool isWritableImageExtension(const std::filesystem::path& path) {
  std::string e = lowerExtension(path);
  return e == ".tif" || e == ".tiff" || e == ".png" || e == ".jpg" || e == ".jpeg";
}

void writeWorkingImage(const std::filesystem::path& path, const Image& image) {
  std::string e = lowerExtension(path);
  if (!isWritableImageExtension(path)) fail(path, "unsupported extension (use .tif, .png or .jpg)");
  if (image.empty()) fail(path, "the image is empty");
  writeAtomically(path, [&](const std::filesystem::path& tmp) {
    if (e == ".tif" || e == ".tiff")
      writeFloatTiff(tmp, image);
    else
      writeEncoded(tmp, image, e == ".png" ? ExportFormat::png : ExportFormat::jpeg);
  });
}

void writeGreyPng(const std::filesystem::path& path, const GreyImage& mask) {
  if (mask.empty()) fail(path, "the mask is empty");
  writeAtomically(path, [&](const std::filesystem::path& tmp) { writeGreyPngFile(tmp, mask); });
}

}  // namespace vg
