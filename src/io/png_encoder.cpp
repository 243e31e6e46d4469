// PNG encoder (libpng): 16-bit RGB or RGBA (straight alpha), row by row.
//
// zlib level 6 with libpng's adaptive filter choice; the ICC profile goes into
// iCCP, the resolution into pHYs (pixels per metre). Exif, IPTC and XMP are
// written by the metadata policy after the image data is complete.
#include <png.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <string>

#include "io/export_error.h"
#include "io/export_metadata.h"
#include "io/image_encoder.h"
#include "render/color_profiles.h"

namespace vg {
namespace {

[[noreturn]] void throwOnError(png_structp, png_const_charp message) {
  throw ExportError(ExportError::kWriteFailed, std::string("PNG: ") + message);
}
void ignoreWarning(png_structp, png_const_charp) {}

class PngEncoder final : public ImageEncoder {
 public:
  PngEncoder(const std::filesystem::path& path, const EncodeSpec& spec) : path_(path), spec_(spec) {}

  ~PngEncoder() override {
    if (png_) png_destroy_write_struct(&png_, &info_);
    if (file_) std::fclose(file_);
  }

  void open() {
    file_ = std::fopen(path_.c_str(), "wbx");
    if (!file_) throw ExportError(ExportError::kCreateFailed, "cannot create " + path_.string());
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, throwOnError, ignoreWarning);
    if (png_) info_ = png_create_info_struct(png_);
    if (!png_ || !info_) throw ExportError(ExportError::kCreateFailed, "PNG: out of memory");
    try {
      png_init_io(png_, file_);
      png_set_compression_level(png_, 6);
      const bool alpha = spec_.channels == OutputChannels::rgba;
      png_set_IHDR(png_, info_, png_uint_32(spec_.width), png_uint_32(spec_.height), 16,
                   alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                   PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
      if (!spec_.iccProfile.empty()) {
        png_set_iCCP(png_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, spec_.iccProfile.data(),
                     png_uint_32(spec_.iccProfile.size()));
      }
      if (spec_.dpiX && spec_.dpiY) {
        auto perMetre = [](double dpi) { return png_uint_32(std::min(std::lround(dpi / 0.0254), 0x7FFFFFFFL)); };
        png_set_pHYs(png_, info_, perMetre(*spec_.dpiX), perMetre(*spec_.dpiY), PNG_RESOLUTION_METER);
      }
      png_write_info(png_, info_);
      if constexpr (std::endian::native == std::endian::little) png_set_swap(png_);
    } catch (const ExportError& e) {
      throw ExportError(ExportError::kCreateFailed, e.detail());
    }
  }

  SampleLayout sampleLayout() const override { return SampleLayout::u16; }

  void writeRows(const void* rows, size_t strideBytes, int count) override {
    auto* base = static_cast<const unsigned char*>(rows);
    for (int i = 0; i < count; ++i)
      png_write_row(png_, const_cast<png_bytep>(base + size_t(i) * strideBytes));
  }

  void finish() override {
    png_write_end(png_, info_);
    bool ok = std::fflush(file_) == 0 && !std::ferror(file_);
    ok = std::fclose(file_) == 0 && ok;
    file_ = nullptr;
    if (!ok) throw ExportError(ExportError::kWriteFailed, "cannot write " + path_.string());
    if (spec_.metadata) spec_.metadata->writeInto(path_);
  }

 private:
  std::filesystem::path path_;
  EncodeSpec spec_;
  std::FILE* file_ = nullptr;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

}  // namespace

std::unique_ptr<ImageEncoder> makePngEncoder(const std::filesystem::path& path, const EncodeSpec& spec) {
  auto encoder = std::make_unique<PngEncoder>(path, spec);
  encoder->open();
  return encoder;
}

}  // namespace vg
