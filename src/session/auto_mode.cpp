#include "session/auto_mode.h"

namespace vg {

const std::array<AutoModeInfo, 8>& autoModes() {
  static constexpr std::array<AutoModeInfo, 8> modes{{
      {AutoMode::balanced, "balanced", "均衡", "智能分析，全面均衡优化"},
      {AutoMode::portrait, "portrait", "人像", "柔和肤色，自然通透"},
      {AutoMode::landscape, "landscape", "风光", "强化色彩，清晰锐利"},
      {AutoMode::nightScene, "nightScene", "夜景", "提亮暗部，控制噪点"},
      {AutoMode::highKey, "highKey", "高调", "明亮清新，轻盈透气"},
      {AutoMode::lowKey, "lowKey", "低调", "深邃浓郁，氛围感强"},
      {AutoMode::vivid, "vivid", "鲜艳", "浓烈色彩，视觉冲击"},
      {AutoMode::bw, "bw", "黑白", "丰富层次，经典黑白"},
  }};
  return modes;
}

const AutoModeInfo& autoModeInfo(AutoMode mode) { return autoModes()[static_cast<size_t>(mode)]; }

std::optional<AutoMode> autoModeFromKey(std::string_view key) {
  for (const AutoModeInfo& info : autoModes()) {
    if (info.key == key) return info.mode;
  }
  return std::nullopt;
}

std::string autoAdjustButtonTitle(AutoMode mode) {
  return "自动调整：" + std::string(autoModeInfo(mode).label);
}

}  // namespace vg
