// The RAW decoder versions we offer: frozen LibRaw demosaic/processing
// presets with stable identifiers. A document stores the identifier; a saved
// identifier that is no longer offered is ignored and the newest preset
// develops the file.
//
// Identifiers never change meaning: a preset that needs different
// processing gets a new identifier. Two generations exist:
// - 1 ("ahd-1", ...): the linear development, exactly as it always was;
// - 2 ("ahd-2", ...): the same demosaicing, then the camera's baseline
//   exposure and the base tone curve (raw_tone.h), so a file opens looking
//   like a photograph. The newest preset is of this generation.
// Files without a Bayer mosaic have no demosaic choice: an identifier saved
// for one still selects its generation (its "ahd" preset).
#pragma once

#include <string_view>
#include <vector>

namespace vg {

struct RawPreset {
  std::string_view id;     // stable, saved in documents
  std::string_view title;  // shown in the decoder-version menu
  int demosaic;            // LibRaw user_qual: 0 linear, 1 VNG, 2 PPG, 3 AHD, 4 DCB, 11 DHT, 12 AAHD
  int dcbIterations;       // DCB refinement passes (DCB only)
  bool dcbEnhance;         // DCB colour enhancement (DCB only)
  int generation;          // 1: linear development; 2: baseline exposure and base tone curve
};

// In menu order: the newest generation first, its first preset the newest,
// which develops files whose document names no (or an unknown) preset.
const std::vector<RawPreset>& rawPresets();
const RawPreset& newestRawPreset();
// The first (AHD) preset of a generation: what a file without a mosaic
// develops with when its document names a preset of that generation.
const RawPreset& firstRawPresetOf(int generation);
// The preset with this identifier, or null.
const RawPreset* findRawPreset(std::string_view id);

}  // namespace vg
