// The RAW decoder versions we offer: frozen LibRaw demosaic/processing
// presets with stable identifiers. A document stores the identifier; a saved
// identifier that is no longer offered (or does not apply to the file) is
// ignored and the newest preset develops the file.
//
// Identifiers never change meaning: a preset that needs different
// processing gets a new identifier.
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
};

// In menu order; the first is the newest and develops files whose document
// names no (or an unknown) preset.
const std::vector<RawPreset>& rawPresets();
const RawPreset& newestRawPreset();
// The preset with this identifier, or null.
const RawPreset* findRawPreset(std::string_view id);

}  // namespace vg
