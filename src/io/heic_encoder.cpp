// HEIC encoder (libheif + x265): 10-bit HEVC where the encoder supports it,
// otherwise 8-bit; RGB or RGBA.
//
// HEVC encodes the whole picture at once, so the rows are collected in the
// libheif image (6 or 8 bytes per pixel at 10-bit) and encoded in finish().
// Quality q in 0...1 is libheif's lossy quality round(100 q). x265's presets
// cost, measured here on a 24 MP 10-bit still: about 9.5 s of CPU for "fast",
// "faster" and "superfast" alike (the default "slow" far more), 2.4 s for
// "ultrafast". We use "ultrafast": an export should not take a minute. The ICC profile is attached as a "prof" colour profile; Exif and
// XMP (with the IPTC fields) go in as metadata items of the primary image.
#include <libheif/heif.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "io/export_error.h"
#include "io/export_metadata.h"
#include "io/image_encoder.h"

namespace vg {
namespace {

struct HeifImageDeleter {
  void operator()(heif_image* p) const { heif_image_release(p); }
};
using HeifImagePtr = std::unique_ptr<heif_image, HeifImageDeleter>;
struct HeifContextDeleter {
  void operator()(heif_context* p) const { heif_context_free(p); }
};
struct HeifEncoderDeleter {
  void operator()(heif_encoder* p) const { heif_encoder_release(p); }
};
struct HeifHandleDeleter {
  void operator()(heif_image_handle* p) const { heif_image_handle_release(p); }
};

HeifImagePtr makeImage(int width, int height, bool alpha, int bits) {
  heif_chroma chroma = bits > 8 ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
                                : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
  heif_image* img = nullptr;
  heif_error err = heif_image_create(width, height, heif_colorspace_RGB, chroma, &img);
  if (err.code != heif_error_Ok) return nullptr;
  HeifImagePtr out(img);
  err = heif_image_add_plane(img, heif_channel_interleaved, width, height, bits);
  if (err.code != heif_error_Ok) return nullptr;
  return out;
}

heif_error writeToFile(heif_context*, const void* data, size_t size, void* userdata) {
  auto* file = static_cast<std::FILE*>(userdata);
  if (std::fwrite(data, 1, size, file) != size) return {heif_error_Encoding_error, heif_suberror_Unspecified, "short write"};
  return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

class HeicEncoder final : public ImageEncoder {
 public:
  HeicEncoder(const std::filesystem::path& path, const EncodeSpec& spec) : path_(path), spec_(spec) {}

  ~HeicEncoder() override {
    if (file_) std::fclose(file_);
  }

  void open() {
    file_ = std::fopen(path_.c_str(), "wbx");
    if (!file_) throw ExportError(ExportError::kCreateFailed, "cannot create " + path_.string());
    image_ = makeImage(spec_.width, spec_.height, alpha(), 10);
    if (!image_) throw ExportError(ExportError::kCreateFailed, "HEIC: cannot allocate the picture");
    plane_ = heif_image_get_plane(image_.get(), heif_channel_interleaved, &planeStride_);
  }

  SampleLayout sampleLayout() const override { return SampleLayout::u10; }

  void writeRows(const void* rows, size_t strideBytes, int count) override {
    const size_t rowBytes = size_t(spec_.width) * (alpha() ? 4 : 3) * 2;
    auto* base = static_cast<const uint8_t*>(rows);
    for (int i = 0; i < count; ++i, ++row_)
      std::memcpy(plane_ + size_t(row_) * size_t(planeStride_), base + size_t(i) * strideBytes, rowBytes);
  }

  void finish() override {
    std::unique_ptr<heif_context, HeifContextDeleter> ctx(heif_context_alloc());
    heif_image_handle* rawHandle = nullptr;
    heif_error err = encode(ctx.get(), image_.get(), &rawHandle);
    if (err.code != heif_error_Ok) {
      // No 10-bit HEVC in this x265: encode the same picture at 8 bits.
      ctx.reset(heif_context_alloc());
      HeifImagePtr eight = toEightBit();
      err = encode(ctx.get(), eight.get(), &rawHandle);
    }
    image_.reset();
    if (err.code != heif_error_Ok) throw ExportError(ExportError::kWriteFailed, std::string("HEIC: ") + err.message);
    std::unique_ptr<heif_image_handle, HeifHandleDeleter> handle(rawHandle);

    if (spec_.metadata) {
      std::string exif = spec_.metadata->exifBlock();
      if (!exif.empty()) {
        err = heif_context_add_exif_metadata(ctx.get(), handle.get(), exif.data(), int(exif.size()));
        if (err.code != heif_error_Ok) throw ExportError(ExportError::kWriteFailed, std::string("HEIC Exif: ") + err.message);
      }
      std::string xmp = spec_.metadata->xmpPacket();
      if (!xmp.empty()) {
        err = heif_context_add_XMP_metadata(ctx.get(), handle.get(), xmp.data(), int(xmp.size()));
        if (err.code != heif_error_Ok) throw ExportError(ExportError::kWriteFailed, std::string("HEIC XMP: ") + err.message);
      }
    }

    heif_writer writer{};
    writer.writer_api_version = 1;
    writer.write = writeToFile;
    err = heif_context_write(ctx.get(), &writer, file_);
    bool ok = err.code == heif_error_Ok && std::fflush(file_) == 0 && !std::ferror(file_);
    ok = std::fclose(file_) == 0 && ok;
    file_ = nullptr;
    if (!ok) throw ExportError(ExportError::kWriteFailed, "cannot write " + path_.string());
  }

 private:
  bool alpha() const { return spec_.channels == OutputChannels::rgba; }

  heif_error encode(heif_context* ctx, heif_image* image, heif_image_handle** handle) {
    heif_encoder* raw = nullptr;
    heif_error err = heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &raw);
    if (err.code != heif_error_Ok) return err;
    std::unique_ptr<heif_encoder, HeifEncoderDeleter> encoder(raw);
    heif_encoder_set_lossy_quality(raw, int(std::lround(spec_.quality * 100.0)));
    heif_encoder_set_parameter_string(raw, "preset", "ultrafast");
    if (!spec_.iccProfile.empty()) {
      err = heif_image_set_raw_color_profile(image, "prof", spec_.iccProfile.data(), spec_.iccProfile.size());
      if (err.code != heif_error_Ok) return err;
    }
    heif_encoding_options* options = heif_encoding_options_alloc();
    options->save_alpha_channel = alpha() ? 1 : 0;
    err = heif_context_encode_image(ctx, image, raw, options, handle);
    heif_encoding_options_free(options);
    return err;
  }

  HeifImagePtr toEightBit() const {
    HeifImagePtr eight = makeImage(spec_.width, spec_.height, alpha(), 8);
    if (!eight) return nullptr;
    int stride = 0;
    uint8_t* dst = heif_image_get_plane(eight.get(), heif_channel_interleaved, &stride);
    const size_t samples = size_t(spec_.width) * (alpha() ? 4 : 3);
    for (int y = 0; y < spec_.height; ++y) {
      const auto* s = reinterpret_cast<const uint16_t*>(plane_ + size_t(y) * size_t(planeStride_));
      uint8_t* d = dst + size_t(y) * size_t(stride);
      for (size_t i = 0; i < samples; ++i) d[i] = uint8_t((uint32_t(s[i]) * 255 + 511) / 1023);
    }
    return eight;
  }

  std::filesystem::path path_;
  EncodeSpec spec_;
  std::FILE* file_ = nullptr;
  HeifImagePtr image_;
  uint8_t* plane_ = nullptr;
  int planeStride_ = 0;
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageEncoder> makeHeicEncoder(const std::filesystem::path& path, const EncodeSpec& spec) {
  auto encoder = std::make_unique<HeicEncoder>(path, spec);
  encoder->open();
  return encoder;
}

}  // namespace vg
