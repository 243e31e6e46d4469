// The TIFF decoder on arbitrary bytes: DecodeError or a non-empty image,
// called opaque exactly when every alpha is 1. (Float TIFFs may
// legitimately carry any colour value, NaN included.)
#include <cstdint>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "io/tiff_decoder.h"

#include "fuzz_check.h"
#include "image_checks.h"
#include "image_limits.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(vg::fuzz::kMaxPixels);
  try {
    vg::DecodedImage d = vg::decodeTiff({data, size});
    check(d.image.width() >= 1 && d.image.height() >= 1);
    vg::fuzz::checkOpaqueFlag(d, 3);
  } catch (const vg::DecodeError&) {
  }
  return 0;
}
