// EditorTool: the tools of the editor window, in tool-bar order, with the
// raw value stored for them, their titles and their shortcut letters.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace vg {

enum class EditorTool { adjust, crop, mask, heal, filter, history };

struct EditorToolInfo {
  EditorTool tool;
  std::string_view rawValue;  // "adjust", ...
  std::string_view title;     // "调整", ...
  char letter;                // the shortcut key
};

// Every tool, in the order of the tool bar.
std::span<const EditorToolInfo> editorTools();
const EditorToolInfo& toolInfo(EditorTool tool);
std::optional<EditorTool> toolFromRawValue(std::string_view rawValue);
std::optional<EditorTool> toolFromLetter(char letter);  // either case

}  // namespace vg
