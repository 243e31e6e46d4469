#include "io/raw_presets.h"

namespace vg {

const std::vector<RawPreset>& rawPresets() {
  // LibRaw 0.20 honours exactly these demosaic codes (5-10 fall back to AHD).
  static const std::vector<RawPreset> presets = {
      {"ahd-2", "AHD（标准）", 3, 0, false, 2},
      {"dht-2", "DHT（细节）", 11, 0, false, 2},
      {"aahd-2", "AAHD（低伪色）", 12, 0, false, 2},
      {"dcb-2", "DCB（平滑）", 4, 2, true, 2},
      {"vng-2", "VNG（柔和）", 1, 0, false, 2},
      {"ppg-2", "PPG（快速）", 2, 0, false, 2},
      {"linear-2", "双线性（最快）", 0, 0, false, 2},
      {"ahd-1", "AHD（标准，旧版线性）", 3, 0, false, 1},
      {"dht-1", "DHT（细节，旧版线性）", 11, 0, false, 1},
      {"aahd-1", "AAHD（低伪色，旧版线性）", 12, 0, false, 1},
      {"dcb-1", "DCB（平滑，旧版线性）", 4, 2, true, 1},
      {"vng-1", "VNG（柔和，旧版线性）", 1, 0, false, 1},
      {"ppg-1", "PPG（快速，旧版线性）", 2, 0, false, 1},
      {"linear-1", "双线性（最快，旧版线性）", 0, 0, false, 1},
  };
  return presets;
}

const RawPreset& newestRawPreset() { return rawPresets().front(); }

const RawPreset& firstRawPresetOf(int generation) {
  for (const auto& p : rawPresets()) {
    if (p.generation == generation) return p;
  }
  return newestRawPreset();
}

const RawPreset* findRawPreset(std::string_view id) {
  for (const auto& p : rawPresets()) {
    if (p.id == id) return &p;
  }
  return nullptr;
}

}  // namespace vg
