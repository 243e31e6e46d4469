// ImageExporter: writes one finished image to disk.
//
// exportImage(image, destination, options, isCancelled), in order:
//  1. Source protection: when options.metadataSourceURL names the same file as
//     destination — equal absolute, symlink-resolved paths, or (both existing)
//     the same device and inode, which catches hard links — fail with code 5.
//  2. Validation: quality finite in 0...1, longEdge (when set) >= 1, else code
//     4; an image without pixels is a render failure (code 1).
//  3. Long-edge resize, never enlarging: only when the longer side exceeds
//     longEdge. Landscape: width = longEdge, height = round(height x longEdge /
//     width); portrait or square the other way round (each side at least 1).
//     Lanczos-3 (export_stages.h).
//  4. Output sharpening after the resize, so its radius is in output pixels.
//  5.-6. Conversion to the output colour space and bit depth (JPEG 8-bit
//     dithered; PNG and TIFF 16-bit; HEIC 10-bit, 8-bit where the encoder has
//     no 10-bit path), ICC profile embedded. Each side at most 1,000,000
//     pixels and width x height x (4 for JPEG, 8 otherwise) bytes within the
//     budget min(physical memory / 4, 2 GiB), else code 1.
//  7. Metadata from the source by the policy of export_metadata.h, when
//     includeMetadata and a source are given.
//  8.-9. Encoding into ".verdantglass-export-<UUID>.<ext>" in a private folder
//     beside the destination (export_temp_file.h); ext is the destination's own
//     extension, else the format's. Codes 2 and 3 on failure.
// 10. isCancelled() is asked after encoding: when true the temporary file is
//     dropped and the destination left alone (result `cancelled`).
// 11. Atomic rename over the destination (std::system_error passed on).
// 12. The temporary folder is removed whatever happened.
//
// The image is pulled in horizontal bands (band_source.h) and encoded row by
// row, so memory stays at a few bands whatever the image size (HEIC keeps the
// encoded-sample picture, as HEVC needs it whole). Nothing is shared between
// calls; exports may run concurrently on different destinations.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "io/export_error.h"
#include "io/export_options.h"
#include "render/band_source.h"
#include "render/image.h"

namespace vg {

class ImageExporter : public ImageExporterTypes {
 public:
  enum class Result { written, cancelled };

  static Result exportImage(BandSource& image, const std::filesystem::path& destination, const Options& options,
                            const std::function<bool()>& isCancelled = {});
  static Result exportImage(const Image& image, const std::filesystem::path& destination, const Options& options,
                            const std::function<bool()>& isCancelled = {});

  // Steps 1 and 2 alone (source protection, then validation), so a caller
  // can refuse a bad export before it decodes or renders anything.
  static void preflight(const std::filesystem::path& destination, const Options& options);

  // The pieces of the path above, for callers that need them on their own.
  static bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b);
  // Throws ExportError code 4 when quality or longEdge are out of range.
  static void validate(const Options& options);
  // The size after the long-edge rule (unchanged when no resize applies).
  struct Size {
    int64_t width = 0;
    int64_t height = 0;
    friend bool operator==(const Size&, const Size&) = default;
  };
  static Size targetSize(int64_t width, int64_t height, const std::optional<int64_t>& longEdge);
  // min(physical memory / 4, 2 GiB).
  static uint64_t memoryBudget();
  static constexpr int64_t kMaxSide = 1'000'000;
};

}  // namespace vg
