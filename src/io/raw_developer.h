// Camera RAW development with LibRaw (thread-safe libraw_r), mapping the
// document's RAWDevelopSettings onto it:
//
// - decoderVersion: a preset of raw_presets.h (for a file without a Bayer
//   mosaic only its generation counts); anything else develops with the
//   newest preset.
// - exposure (EV, -2...2): generation 1, LibRaw's exposure shift 2^EV before
//   demosaicing, with highlight preservation (0.8) so positive shifts roll
//   off instead of clipping; generation 2, a gain 2^(baseline + EV) in front
//   of the base tone curve (raw_tone.h), the baseline being the file's DNG
//   BaselineExposure (0 without one, kept within -4...4).
// - shadowBoost (0...100): boost amount b = shadowBoost / 100 + 1. Generation
//   1 lifts the developed linear image's shadows,
//   y = x (1 + (b - 1)(1 - smoothstep(0, 0.5, x))): up to ×b in the deepest
//   shadows, none from mid-grey up, monotonic. Generation 2 lifts the
//   shadows going into the base curve the same way, below RawTone::kShadowKnee.
//   b = 1 changes nothing.
// - noiseReduction (0...100): below 100, amount a = noiseReduction / 100
//   sets both the luminance reduction (wavelet threshold 500 a) and the
//   colour reduction (round(3 a) median passes on the colour differences).
//   At 100, the automatic position, the ISO-based default applies: none up
//   to ISO 400, then a threshold rising 60 per doubling (at most 300) and one
//   colour pass from ISO 1600.
// - gamutMapping: on, clipped highlights are blended back from the channels
//   that did not clip (LibRaw highlight mode 2) and colours outside the
//   working gamut are pulled in along their line to grey at equal
//   luminance; off, highlights clip to white and out-of-gamut values stay as
//   they are (negative components survive in the working space).
//
// LibRaw develops to linear 16-bit ProPhoto RGB (wide enough to keep
// out-of-gamut colours) with camera white balance, its own black and white
// levels and no automatic brightening; we convert that to the linear working
// space (and, in generation 2, give it its tone). LibRaw applies the
// camera's orientation (flip), so the result is upright.
//
// Failures throw ImageLoadError: 3 when LibRaw cannot open the file (unknown
// camera, not a RAW, absurd sizes, more raw data declared than the file
// holds), 4 when unpacking or processing fails, 5 when the output has no
// pixels.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "io/photo_metadata.h"
#include "io/raw_presets.h"
#include "model/adjustments.h"
#include "render/image.h"

namespace vg {

struct DevelopedRaw {
  Image image;
  PhotoMetadata facts;  // LibRaw's own facts, with rawSummary (libraw_file.h)
};

// half: LibRaw's half-size development (one output pixel per 2×2 cell of
// the mosaic, no demosaicing; files without a mosaic develop at full size),
// for quick previews. Everything else is the same development.
enum class RawScale { full, half };

DevelopedRaw developRaw(std::span<const uint8_t> bytes, const RAWDevelopSettings& settings,
                        std::string_view fileName, RawScale scale = RawScale::full);

// The presets that apply to this file (all of them for Bayer sensors, none
// for X-Trans or linear files), or nothing when LibRaw cannot open it.
std::optional<std::vector<const RawPreset*>> rawPresetsFor(std::span<const uint8_t> bytes);

// The LibRaw parameters of a development, exposed for tests.
struct RawProcessing {
  const RawPreset* preset = nullptr;
  float exposureShift = 1;     // LibRaw's linear factor, 2^EV (generation 1; else 1)
  float highlightPreserve = 0; // LibRaw exp_preser
  double toneGain = 1;         // 2^(baseline + EV) in front of the base curve (generation 2)
  float boostAmount = 1;       // shadow boost b
  bool noiseReductionSet = false;  // false: the automatic default
  float luminanceNoiseReduction = 0;  // amount 0...1 when set
  float colorNoiseReduction = 0;
  int highlightMode = 0;       // LibRaw highlight: 0 clip, 2 blend
  bool mapGamut = true;
};
// baselineExposure: the file's DNG BaselineExposure in EV (0 without one).
RawProcessing rawProcessingFor(const RAWDevelopSettings& settings, bool bayer, double baselineExposure = 0);

// The shadow lift of shadowBoost on one linear value, fading out at `knee`.
float shadowLift(float x, float boostAmount, float knee = 0.5f);

}  // namespace vg
