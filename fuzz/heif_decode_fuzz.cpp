// The HEIF decoder (container, primary image or a thumbnail of it, colour,
// Exif block) on arbitrary bytes: DecodeError, or a non-empty image of
// finite values with alpha in [0, 1], called opaque exactly when every alpha
// is 1, smaller than the primary image when it is a thumbnail and the
// primary's full size when none was asked for, and the same Exif block
// heifExifBlock() finds without decoding.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "io/decode_limits.h"
#include "io/heif_decoder.h"
#include "io/load_error.h"
#include "io/metadata_reader.h"

#include "fuzz_check.h"
#include "image_checks.h"
#include "image_limits.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(vg::fuzz::kMaxPixels);
  try {
    const double minLongSide = size > 0 && data[size - 1] % 2 ? data[size - 1] : 0;
    const vg::HeifDecoded d = vg::decodeHeif({data, size}, minLongSide);
    const vg::Image& image = d.decoded.image;
    check(image.width() >= 1 && image.height() >= 1, "a decoded image has pixels");
    check(std::max(image.width(), image.height()) <= std::max(d.decoded.fullWidth, d.decoded.fullHeight),
          "a thumbnail is no larger than the primary image");
    check(minLongSide > 0 || (image.width() == d.decoded.fullWidth && image.height() == d.decoded.fullHeight),
          "the full decode has the full size");
    for (int y = 0; y < image.height(); ++y) {
      const float* p = image.row(y);
      for (int x = 0; x < image.width(); ++x, p += 4) {
        check(p[3] >= 0.0f && p[3] <= 1.0f, "alpha in [0, 1]");
        for (int c = 0; c < 3; ++c) check(std::isfinite(p[c]), "finite colour");
      }
    }
    vg::fuzz::checkOpaqueFlag(d.decoded);
    check(vg::heifExifBlock({data, size}) == d.exif, "the same Exif block with or without decoding");
    if (!d.exif.empty()) vg::readExifBlock(d.exif);
  } catch (const vg::DecodeError&) {
  }
  return 0;
}
