// The PNG decoder on arbitrary bytes: DecodeError or an image of finite
// colour with alpha in [0, 1], called opaque exactly when every alpha is 1.
#include <cmath>
#include <cstdint>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "io/png_decoder.h"

#include "fuzz_check.h"
#include "image_checks.h"
#include "image_limits.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(vg::fuzz::kMaxPixels);
  int orientation = size > 0 ? 1 + data[size - 1] % 8 : 1;
  try {
    vg::DecodedImage d = vg::decodePng({data, size}, vg::DecodeOptions{orientation});
    check(d.image.width() >= 1 && d.image.height() >= 1);
    for (int y = 0; y < d.image.height(); y += 5) {
      const float* p = d.image.row(y);
      for (int x = 0; x < d.image.width(); ++x) {
        float a = p[x * 4 + 3];
        check(a >= 0.0f && a <= 1.0f);
        for (int c = 0; c < 3; ++c) check(std::isfinite(p[x * 4 + c]));
      }
    }
    vg::fuzz::checkOpaqueFlag(d, 5);
  } catch (const vg::DecodeError&) {
  }
  return 0;
}
