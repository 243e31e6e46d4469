// Camera RAW development through LibRaw on arbitrary bytes, full or as the
// quick preview (embedded thumbnail or half-size development). The last
// byte chooses how (a decoder version or the newest, gamut mapping on or
// off, full development or preview), the byte before it the exposure,
// shadow boost and noise reduction: a file's last bytes seldom matter to
// LibRaw, so each seed is developed every way.
//
// It must end in an ImageLoadError with one of the RAW codes, or in an
// opaque image of finite values; a development with gamut mapping on has no
// negative component, and a file that develops is offered the decoder menu.
#include <cmath>
#include <cstdint>
#include <string>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "io/raw_developer.h"
#include "io/raw_presets.h"
#include "io/raw_preview.h"

#include "fuzz_check.h"
#include "image_limits.h"

using vg::fuzz::check;

namespace {

vg::RAWDevelopSettings settingsFor(uint8_t how, uint8_t amount) {
  vg::RAWDevelopSettings s;
  const auto& presets = vg::rawPresets();
  const size_t choice = (how & 0x0F) % (presets.size() + 1);
  if (choice < presets.size()) s.decoderVersion = std::string(presets[choice].id);
  s.gamutMapping = (how & 0x80) == 0;
  s.exposure = (amount % 9) * 0.5 - 2.0;
  s.shadowBoost = (amount >> 4) * 100.0 / 15.0;
  s.noiseReduction = (amount & 0x08) ? 100.0 : (amount % 8) * 14.0;
  return s;
}

// Gamut mapping leaves the smallest component at zero, up to rounding.
void checkPixels(const vg::Image& image, bool mapped) {
  check(image.width() >= 1 && image.height() >= 1, "an image has pixels");
  const float floor = mapped ? -1e-5f : -INFINITY;
  for (int y = 0; y < image.height(); ++y) {
    const float* p = image.row(y);
    for (int x = 0; x < image.width(); ++x, p += 4) {
      check(p[3] == 1.0f, "opaque");
      for (int c = 0; c < 3; ++c) check(std::isfinite(p[c]) && p[c] >= floor, "finite, in gamut when mapped");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(vg::fuzz::kMaxPixels);
  const uint8_t how = size > 0 ? data[size - 1] : 0, amount = size > 1 ? data[size - 2] : 0;
  const vg::RAWDevelopSettings settings = settingsFor(how, amount);
  try {
    if (how & 0x40) {
      const vg::RawPreview preview = vg::previewRaw({data, size}, settings, "fuzz.dng", 64);
      check(preview.fullWidth >= 1 && preview.fullHeight >= 1, "the full size is known");
      checkPixels(preview.image, settings.gamutMapping && !preview.embedded);
    } else {
      checkPixels(vg::developRaw({data, size}, settings, "fuzz.dng").image, settings.gamutMapping);
      check(vg::rawPresetsFor({data, size}).has_value(), "a file that develops opens");
    }
  } catch (const vg::ImageLoadError& e) {
    check(e.code() >= 3 && e.code() <= 5, "a RAW error code");
  }
  return 0;
}
