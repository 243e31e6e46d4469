// TIFF encoder (libtiff): 16-bit RGB or RGBA (unassociated alpha), strips of
// about 256 KiB, compression none (1), LZW (5) or Deflate (8); the compressed
// kinds use the horizontal predictor, which suits photographs well.
//
// libtiff's predictor works in place on the buffer it is given, so every row
// is copied into a scratch row first: the caller's band stays intact.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "io/export_error.h"
#include "io/export_metadata.h"
#include "io/image_encoder.h"

namespace vg {
namespace {

int collectError(TIFF*, void* user, const char* module, const char* fmt, va_list ap) {
  char buf[512];
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  auto* out = static_cast<std::string*>(user);
  if (out->empty()) *out = std::string(module ? module : "TIFF") + ": " + buf;
  return 1;  // handled: keep libtiff from printing
}
int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

class TiffEncoder final : public ImageEncoder {
 public:
  TiffEncoder(const std::filesystem::path& path, const EncodeSpec& spec) : path_(path), spec_(spec) {}

  ~TiffEncoder() override {
    if (tif_) TIFFClose(tif_);
  }

  void open() {
    // libtiff's "w" would truncate an existing file: refuse to reuse a name.
    if (std::FILE* f = std::fopen(path_.c_str(), "wbx")) {
      std::fclose(f);
    } else {
      throw ExportError(ExportError::kCreateFailed, "cannot create " + path_.string());
    }
    TIFFOpenOptions* opts = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(opts, collectError, &error_);
    TIFFOpenOptionsSetWarningHandlerExtR(opts, ignoreWarning, nullptr);
    tif_ = TIFFOpenExt(path_.c_str(), "w", opts);
    TIFFOpenOptionsFree(opts);
    if (!tif_) throw ExportError(ExportError::kCreateFailed, error_);

    const int samples = spec_.channels == OutputChannels::rgba ? 4 : 3;
    rowBytes_ = size_t(spec_.width) * samples * 2;
    const uint32_t rowsPerStrip = uint32_t(std::clamp<size_t>((256 * 1024) / rowBytes_, 1, 1024));
    bool ok = TIFFSetField(tif_, TIFFTAG_IMAGEWIDTH, uint32_t(spec_.width)) &&
              TIFFSetField(tif_, TIFFTAG_IMAGELENGTH, uint32_t(spec_.height)) &&
              TIFFSetField(tif_, TIFFTAG_BITSPERSAMPLE, 16) &&
              TIFFSetField(tif_, TIFFTAG_SAMPLESPERPIXEL, samples) &&
              TIFFSetField(tif_, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
              TIFFSetField(tif_, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
              TIFFSetField(tif_, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(tif_, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
              TIFFSetField(tif_, TIFFTAG_ROWSPERSTRIP, rowsPerStrip) &&
              TIFFSetField(tif_, TIFFTAG_COMPRESSION, uint16_t(spec_.compression));
    if (ok && samples == 4) {
      uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
      ok = TIFFSetField(tif_, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (ok && spec_.compression != TIFFCompression::none)
      ok = TIFFSetField(tif_, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (ok && !spec_.iccProfile.empty())
      ok = TIFFSetField(tif_, TIFFTAG_ICCPROFILE, uint32_t(spec_.iccProfile.size()), spec_.iccProfile.data());
    if (ok && spec_.dpiX && spec_.dpiY)
      ok = TIFFSetField(tif_, TIFFTAG_XRESOLUTION, float(*spec_.dpiX)) &&
           TIFFSetField(tif_, TIFFTAG_YRESOLUTION, float(*spec_.dpiY)) &&
           TIFFSetField(tif_, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (ok) ok = TIFFSetField(tif_, TIFFTAG_SOFTWARE, "Verdantglass");
    if (!ok) throw ExportError(ExportError::kCreateFailed, error_.empty() ? "TIFF: bad field" : error_);
    scratch_.resize(rowBytes_);
  }

  SampleLayout sampleLayout() const override { return SampleLayout::u16; }

  void writeRows(const void* rows, size_t strideBytes, int count) override {
    auto* base = static_cast<const unsigned char*>(rows);
    for (int i = 0; i < count; ++i, ++row_) {
      std::memcpy(scratch_.data(), base + size_t(i) * strideBytes, rowBytes_);
      if (TIFFWriteScanline(tif_, scratch_.data(), row_, 0) < 0)
        throw ExportError(ExportError::kWriteFailed, error_.empty() ? "TIFF: cannot write row" : error_);
    }
  }

  void finish() override {
    bool ok = TIFFFlush(tif_) == 1;
    TIFFClose(tif_);
    tif_ = nullptr;
    if (!ok || !error_.empty())
      throw ExportError(ExportError::kWriteFailed, error_.empty() ? "TIFF: cannot finish" : error_);
    if (spec_.metadata) spec_.metadata->writeInto(path_);
  }

 private:
  std::filesystem::path path_;
  EncodeSpec spec_;
  TIFF* tif_ = nullptr;
  std::string error_;
  size_t rowBytes_ = 0;
  uint32_t row_ = 0;
  std::vector<unsigned char> scratch_;
};

}  // namespace

std::unique_ptr<ImageEncoder> makeTiffEncoder(const std::filesystem::path& path, const EncodeSpec& spec) {
  auto encoder = std::make_unique<TiffEncoder>(path, spec);
  encoder->open();
  return encoder;
}

}  // namespace vg
