#include "session/editor_tool.h"

#include <array>
#include <cctype>

namespace vg {

namespace {
constexpr std::array<EditorToolInfo, 6> kTools{{
    {EditorTool::adjust, "adjust", "调整", 'A'},
    {EditorTool::crop, "crop", "裁剪", 'C'},
    {EditorTool::mask, "mask", "蒙版", 'M'},
    {EditorTool::heal, "heal", "修复", 'H'},
    {EditorTool::filter, "filter", "滤镜", 'F'},
    {EditorTool::history, "history", "历史", 'Y'},
}};
}  // namespace

std::span<const EditorToolInfo> editorTools() { return kTools; }

const EditorToolInfo& toolInfo(EditorTool tool) { return kTools[static_cast<size_t>(tool)]; }

std::optional<EditorTool> toolFromRawValue(std::string_view rawValue) {
  for (const auto& t : kTools)
    if (t.rawValue == rawValue) return t.tool;
  return std::nullopt;
}

std::optional<EditorTool> toolFromLetter(char letter) {
  const char upper = char(std::toupper(static_cast<unsigned char>(letter)));
  for (const auto& t : kTools)
    if (t.letter == upper) return t.tool;
  return std::nullopt;
}

}  // namespace vg
