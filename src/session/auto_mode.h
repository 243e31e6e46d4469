// AutoMode: the eight styles of automatic adjustment, in menu order, each
// with its stable key (saved and typed on the command line), its label and a
// one-line description for the chooser.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace vg {

enum class AutoMode { balanced, portrait, landscape, nightScene, highKey, lowKey, vivid, bw };

struct AutoModeInfo {
  AutoMode mode;
  std::string_view key;          // "nightScene"
  std::string_view label;        // "夜景"
  std::string_view description;  // "提亮暗部，控制噪点"
};

// Every mode, in the order the chooser lists them.
const std::array<AutoModeInfo, 8>& autoModes();
const AutoModeInfo& autoModeInfo(AutoMode mode);
std::optional<AutoMode> autoModeFromKey(std::string_view key);

// The chooser's title, and the button that runs a mode: "自动调整：均衡".
inline constexpr std::string_view kAutoModeChooserTitle = "选择自动调整模式";
std::string autoAdjustButtonTitle(AutoMode mode);

}  // namespace vg
