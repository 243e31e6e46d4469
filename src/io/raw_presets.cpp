#include "io/raw_presets.h"

namespace vg {

const std::vector<RawPreset>& rawPresets() {
  // LibRaw 0.20 honours exactly these demosaic codes (5-10 fall back to AHD).
  static const std::vector<RawPreset> presets = {
      {"ahd-1", "AHD（标准）", 3, 0, false},
      {"dht-1", "DHT（细节）", 11, 0, false},
      {"aahd-1", "AAHD（低伪色）", 12, 0, false},
      {"dcb-1", "DCB（平滑）", 4, 2, true},
      {"vng-1", "VNG（柔和）", 1, 0, false},
      {"ppg-1", "PPG（快速）", 2, 0, false},
      {"linear-1", "双线性（最快）", 0, 0, false},
  };
  return presets;
}

const RawPreset& newestRawPreset() { return rawPresets().front(); }

const RawPreset* findRawPreset(std::string_view id) {
  for (const auto& p : rawPresets()) {
    if (p.id == id) return &p;
  }
  return nullptr;
}

}  // namespace vg
