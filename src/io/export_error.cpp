#include "io/export_error.h"

namespace vg {

std::string_view ExportError::messageFor(Code code) {
  switch (code) {
    case kRenderFailed: return "渲染导出图像失败";
    case kCreateFailed: return "创建导出文件失败";
    case kWriteFailed: return "写入导出文件失败";
    case kInvalidSettings: return "导出尺寸或质量设置无效";
    case kWouldOverwriteSource: return "为保留原图，请选择其他文件名或导出位置";
  }
  return "渲染导出图像失败";
}

ExportError::ExportError(Code code, std::string detail)
    : std::runtime_error(std::string(messageFor(code))), code_(code), detail_(std::move(detail)) {}

}  // namespace vg
