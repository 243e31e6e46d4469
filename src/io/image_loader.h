// ImageLoader: turns a file on the local disk into the upright working image
// plus the facts the rest of the system shows: pixel size, format label,
// colour-space label, PhotoMetadata and whether it is a camera RAW.
//
// Stateless; every operation may run on any thread.
//
// load(file, settings):
//  - a location with a URL scheme other than file:// (or a special file such
//    as a pipe or device) fails with code 2; "file://" URLs are accepted and
//    percent-decoded;
//  - a camera RAW extension (image_formats.h) takes the RAW path: the file is
//    developed with the document's RAWDevelopSettings (raw_developer.h),
//    failures are codes 3-5;
//  - everything else takes the plain path: the decoder is chosen by the
//    file's leading bytes (JPEG, PNG, TIFF, HEIF), the image is turned
//    upright from its EXIF orientation (TIFF: its own tag; HEIF: the
//    container's rotation and mirror) and converted through its ICC profile;
//    any failure is code 1 "无法解码图片：<name>";
//  - colorSpaceName is the embedded profile's description, else the colour
//    model when it is not RGB ("Gray", "CMYK"), else "sRGB";
//  - opaque says whether every pixel has alpha 1: false only for a file with
//    an alpha channel (PNG, TIFF extra sample, HEIF alpha plane) that uses
//    it; camera RAW and JPEG are always opaque. The decoders learn it while
//    converting, so asking costs nothing.
// A failed load leaves nothing behind.
//
// loadPreview(file, maxDimension, settings): the quick first picture of a
// file, for opening it fast: downscaled(image, maxDimension) of a reduced
// decode, upright and in working colour, with url, pixelSize, fileFormat,
// colorSpaceName, meta and isRAW exactly as load() reports them (pixelSize
// is the full image's, not the preview's). The reduced decode:
//  - JPEG: libjpeg's DCT scaling, the smallest n/8 whose longer side still
//    reaches maxDimension (EXIF orientation applied as by load());
//  - camera RAW: the embedded preview when it is at least maxDimension / 2
//    on its longer side, else a half-size development with `settings`
//    (raw_preview.h); a RAW preview can be smaller than maxDimension;
//  - HEIF: the primary image's smallest thumbnail that reaches
//    maxDimension, else the primary image;
//  - PNG and TIFF: no reduced mode; the full decode, then downscaled.
// The errors are load()'s, except that a RAW file whose embedded preview
// is used shows a development failure (codes 4, 5) only when load() runs.
// A limit that is not a positive finite number gives the full image.
//
// downscaled(image, maxDimension): the shared shrink: halving Lanczos passes
// while the remaining scale is below 0.25, then one pass with what remains.
// Returns the same image when it already fits or the limit is not a positive
// finite number.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "io/load_error.h"
#include "io/photo_metadata.h"
#include "model/adjustments.h"
#include "render/image.h"

namespace vg {

// Access to a file for as long as a loaded image is in use. Linux has no
// security scopes: it only records the location.
struct ScopedFileAccess {
  std::filesystem::path url;
  bool started = false;
};

class ImageLoader {
 public:
  static constexpr double kPreviewMaxDimension = 2400;
  static constexpr double kThumbnailMaxDimension = 192;

  struct PixelSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
  };

  struct Loaded {
    std::filesystem::path url;
    std::shared_ptr<const Image> image;
    PixelSize pixelSize;
    std::string fileFormat;
    std::string colorSpaceName;
    PhotoMetadata meta;
    bool isRAW = false;
    bool opaque = true;
    std::shared_ptr<const ScopedFileAccess> access;
  };

  struct RAWDecoderOption {
    std::string id;     // stable identifier; empty = the newest decoder
    std::string title;  // shown to the user
    friend bool operator==(const RAWDecoderOption&, const RAWDecoderOption&) = default;
  };

  // Throws ImageLoadError.
  static Loaded load(const std::filesystem::path& file, const RAWDevelopSettings& settings = {});

  // Throws ImageLoadError.
  static Loaded loadPreview(const std::filesystem::path& file, double maxDimension,
                            const RAWDevelopSettings& settings = {});

  // "最新" first, then the decoder versions that apply to this file; empty
  // when the file cannot be opened as a camera RAW.
  static std::vector<RAWDecoderOption> rawDecoderOptions(const std::filesystem::path& file);

  static std::shared_ptr<const Image> downscaled(std::shared_ptr<const Image> image, double maxDimension);

  // The scales of the successive Lanczos passes downscaled() makes for an
  // image whose longer side is `longest` (empty when nothing is to be done).
  static std::vector<double> downscalePasses(double longest, double maxDimension);
};

}  // namespace vg
