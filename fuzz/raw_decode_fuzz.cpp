// Camera RAW development through LibRaw on arbitrary bytes, full or as the
// quick preview (embedded thumbnail or half-size development): an
// ImageLoadError with one of the RAW codes, or an opaque non-empty image.
#include <cstdint>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "io/raw_developer.h"
#include "io/raw_preview.h"

#include "fuzz_check.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(4 << 20);
  vg::RAWDevelopSettings settings;
  if (size > 0) settings.decoderVersion = data[0] % 2 ? "linear-1" : "";  // keep demosaicing cheap half the time
  try {
    vg::Image image;
    if (size > 1 && data[1] % 2) {
      vg::RawPreview preview = vg::previewRaw({data, size}, settings, "fuzz.dng", 64);
      check(preview.fullWidth >= 1 && preview.fullHeight >= 1);
      image = std::move(preview.image);
    } else {
      image = std::move(vg::developRaw({data, size}, settings, "fuzz.dng").image);
    }
    check(image.width() >= 1 && image.height() >= 1);
    check(image.at(0, 0)[3] == 1.0f);
  } catch (const vg::ImageLoadError& e) {
    check(e.code() >= 3 && e.code() <= 5);
  }
  return 0;
}
