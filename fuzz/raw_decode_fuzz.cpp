// Camera RAW development through LibRaw on arbitrary bytes: an
// ImageLoadError with one of the RAW codes, or an opaque non-empty image.
#include <cstdint>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "io/raw_developer.h"

#include "fuzz_check.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(4 << 20);
  vg::RAWDevelopSettings settings;
  if (size > 0) settings.decoderVersion = data[0] % 2 ? "linear-1" : "";  // keep demosaicing cheap half the time
  try {
    vg::DevelopedRaw raw = vg::developRaw({data, size}, settings, "fuzz.dng");
    check(raw.image.width() >= 1 && raw.image.height() >= 1);
    check(raw.image.at(0, 0)[3] == 1.0f);
  } catch (const vg::ImageLoadError& e) {
    check(e.code() >= 3 && e.code() <= 5);
  }
  return 0;
}
