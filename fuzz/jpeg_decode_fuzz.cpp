// The JPEG decoder on arbitrary bytes, with every orientation, at full size
// or reduced: it must either refuse with DecodeError or return an upright
// image of the declared size (a reduced one no larger, and reaching the
// requested side unless the full image is smaller) whose alpha is 1
// everywhere and that says it is opaque.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "io/decode_limits.h"
#include "io/jpeg_decoder.h"
#include "io/load_error.h"

#include "fuzz_check.h"
#include "image_limits.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(vg::fuzz::kMaxPixels);
  int orientation = size > 0 ? 1 + data[size - 1] % 8 : 1;
  vg::DecodeOptions options{orientation};
  if (size > 1 && data[size - 2] % 2) options.minLongSide = data[size - 2];
  try {
    vg::DecodedImage d = vg::decodeJpeg({data, size}, options);
    check(d.image.width() >= 1 && d.image.height() >= 1);
    const int side = std::max(d.image.width(), d.image.height());
    const int fullSide = std::max(d.fullWidth, d.fullHeight);
    check(side <= fullSide && (side >= options.minLongSide || side == fullSide));
    // Turned the same way as the full size: DCT scaling rounds both sides
    // up, so a near-square image may come out square, but never across.
    check(!(d.image.width() > d.image.height() && d.fullWidth < d.fullHeight) &&
              !(d.image.width() < d.image.height() && d.fullWidth > d.fullHeight),
          "the reduced image is turned as the full one");
    check(d.opaque);
    for (int y = 0; y < d.image.height(); y += 7) {
      const float* p = d.image.row(y);
      for (int x = 0; x < d.image.width(); ++x) check(p[x * 4 + 3] == 1.0f && std::isfinite(p[x * 4]));
    }
  } catch (const vg::DecodeError&) {
  }
  return 0;
}
