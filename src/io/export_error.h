// ExportError: every failure of the image exporter, in the domain
// "Verdantglass.Exporter" with a small code and the user's message.
//
//   1 "渲染导出图像失败"   resize, colour space, memory budget or bitmap render
//   2 "创建导出文件失败"   the encoder or its temporary file could not be made
//   3 "写入导出文件失败"   writing or finalising the encoded file failed
//   4 "导出尺寸或质量设置无效"   quality or long edge out of range
//   5 "为保留原图，请选择其他文件名或导出位置"   destination is the source
//
// what() is the message; detail() carries the technical reason (library or
// system error) for the log, never shown in place of the message.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vg {

class ExportError : public std::runtime_error {
 public:
  enum Code : int {
    kRenderFailed = 1,
    kCreateFailed = 2,
    kWriteFailed = 3,
    kInvalidSettings = 4,
    kWouldOverwriteSource = 5,
  };
  static constexpr std::string_view kDomain = "Verdantglass.Exporter";

  explicit ExportError(Code code, std::string detail = {});

  std::string_view domain() const { return kDomain; }
  Code code() const { return code_; }
  const std::string& detail() const { return detail_; }

  static std::string_view messageFor(Code code);

 private:
  Code code_;
  std::string detail_;
};

}  // namespace vg
