// ImageEncoder: writes one image to a file, row band by row band, so that an
// export never holds more than a band of encoded samples (HEIC excepted: the
// HEVC encoder needs the whole picture).
//
// Contract shared by every encoder:
// - makeEncoder() creates the file at `path` (which must not exist yet) and
//   prepares the format; failure throws ExportError code 2 ("创建导出文件失败").
// - writeRows() is called with consecutive rows, top to bottom, in the sample
//   layout sampleLayout() names; finish() is called once after the last row,
//   embeds the ICC profile, the resolution and the metadata, and flushes the
//   file. A failure in either throws ExportError code 3 ("写入导出文件失败").
// - Samples are interleaved R, G, B[, A] in native byte order; alpha, when
//   present, is straight (not premultiplied).
// - The encoder never fsyncs or renames: the caller owns the file's fate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "io/export_options.h"
#include "render/color_profiles.h"

namespace vg {

class ExportMetadata;

// How the encoder wants its rows: 8-bit samples, 16-bit samples using the full
// range, or 10-bit codes (0...1023) in 16-bit words.
enum class SampleLayout { u8, u16, u10 };

struct EncodeSpec {
  int width = 0;
  int height = 0;
  OutputChannels channels = OutputChannels::rgb;
  double quality = 0.9;  // JPEG and HEIC
  TIFFCompression compression = TIFFCompression::none;
  std::span<const uint8_t> iccProfile;
  // Written in the format's own resolution field (JFIF density, pHYs, TIFF
  // resolution tags); absent leaves the format's default.
  std::optional<double> dpiX, dpiY;
  const ExportMetadata* metadata = nullptr;  // may be null: no source metadata
};

class ImageEncoder {
 public:
  virtual ~ImageEncoder() = default;
  virtual SampleLayout sampleLayout() const = 0;
  virtual void writeRows(const void* rows, size_t strideBytes, int count) = 0;
  virtual void finish() = 0;
};

std::unique_ptr<ImageEncoder> makeEncoder(ExportFormat format, const std::filesystem::path& path,
                                          const EncodeSpec& spec);

// Format-specific makers behind makeEncoder().
std::unique_ptr<ImageEncoder> makeJpegEncoder(const std::filesystem::path& path, const EncodeSpec& spec);
std::unique_ptr<ImageEncoder> makePngEncoder(const std::filesystem::path& path, const EncodeSpec& spec);
std::unique_ptr<ImageEncoder> makeTiffEncoder(const std::filesystem::path& path, const EncodeSpec& spec);
std::unique_ptr<ImageEncoder> makeHeicEncoder(const std::filesystem::path& path, const EncodeSpec& spec);

}  // namespace vg
