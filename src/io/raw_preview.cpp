#include "io/raw_preview.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <optional>

#include "io/input_color.h"
#include "io/jpeg_decoder.h"
#include "io/libraw_file.h"
#include "io/load_error.h"
#include "io/raw_developer.h"
#include "io/upright_writer.h"

namespace vg {
namespace {

constexpr double kShapeTolerance = 0.02;  // relative difference of aspect ratios

// The embedded preview decoded upright into the working space, or nothing
// when the file has none we can read.
std::optional<Image> embeddedPreview(LibRaw& raw, double maxDimension) {
  if (raw.unpack_thumb() != LIBRAW_SUCCESS) return std::nullopt;
  const libraw_thumbnail_t& t = raw.imgdata.thumbnail;
  if (!t.thumb || t.tlength == 0) return std::nullopt;
  const int orientation = orientationOfFlip(raw.imgdata.sizes.flip);
  const std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(t.thumb), t.tlength);
  try {
    if (t.tformat == LIBRAW_THUMBNAIL_JPEG) {
      DecodeOptions options{orientation};
      options.minLongSide = maxDimension;
      return decodeJpeg(bytes, options).image;
    }
    if (t.tformat == LIBRAW_THUMBNAIL_BITMAP && (t.tcolors == 3 || t.tcolors == 1) && t.twidth > 0 &&
        t.theight > 0 && size_t(t.twidth) * t.theight * size_t(t.tcolors) == bytes.size()) {
      SourceFormat format;
      format.model = t.tcolors == 3 ? ColorModel::rgb : ColorModel::gray;
      const InputColor color = InputColor::fromIcc({}, format);
      UprightWriter writer(t.twidth, t.theight, orientation, color);
      writer.writeAll(bytes.data(), size_t(t.twidth) * size_t(t.tcolors));
      return writer.take();
    }
  } catch (const DecodeError&) {
  } catch (const std::bad_alloc&) {
  }
  return std::nullopt;
}

bool sameShape(int w1, int h1, int w2, int h2) {
  if (w1 < 1 || h1 < 1 || w2 < 1 || h2 < 1) return false;
  const double a = double(w1) / h1, b = double(w2) / h2;
  return std::fabs(a / b - 1.0) <= kShapeTolerance;
}

}  // namespace

int orientationOfFlip(int flip) {
  // LibRaw's flip: bit 4 swaps the axes, bit 2 mirrors top-bottom, bit 1
  // left-right, applied to the stored raster (the inverse of its own
  // EXIF-to-flip table "50132467").
  static constexpr int kOrientation[8] = {1, 2, 4, 3, 5, 8, 6, 7};
  return flip >= 0 && flip < 8 ? kOrientation[flip] : 1;
}

std::optional<Image> rawEmbeddedPreview(std::span<const uint8_t> bytes, double minLongSide) {
  LibRawPtr raw = openRaw(bytes);
  if (!raw) return std::nullopt;
  return embeddedPreview(*raw, minLongSide);
}

RawPreview previewRaw(std::span<const uint8_t> bytes, const RAWDevelopSettings& settings,
                      std::string_view fileName, double maxDimension) {
  LibRawPtr raw = openRaw(bytes);
  if (!raw) throw ImageLoadError::make(ImageLoadError::kRawDecoderUnavailable, fileName);

  RawPreview preview;
  preview.facts = rawFacts(*raw);
  const bool limited = maxDimension > 0 && std::isfinite(maxDimension);
  std::optional<Image> embedded = limited ? embeddedPreview(*raw, maxDimension) : std::nullopt;
  // The size of the full development: pixel aspect, camera orientation
  // and Fuji's rotated layouts applied (this changes the object's sizes,
  // so it comes after the thumbnail).
  raw->adjust_sizes_info_only();
  preview.fullWidth = raw->imgdata.sizes.iwidth;
  preview.fullHeight = raw->imgdata.sizes.iheight;
  raw.reset();

  if (embedded && std::max(embedded->width(), embedded->height()) >= maxDimension / 2 &&
      sameShape(embedded->width(), embedded->height(), preview.fullWidth, preview.fullHeight)) {
    preview.image = std::move(*embedded);
    preview.embedded = true;
    return preview;
  }
  embedded.reset();
  const bool half = limited && std::max(preview.fullWidth, preview.fullHeight) > maxDimension;
  DevelopedRaw developed = developRaw(bytes, settings, fileName, half ? RawScale::half : RawScale::full);
  preview.image = std::move(developed.image);
  if (!half) {
    preview.fullWidth = preview.image.width();
    preview.fullHeight = preview.image.height();
  }
  return preview;
}

}  // namespace vg
