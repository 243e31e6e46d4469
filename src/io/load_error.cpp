#include "io/load_error.h"

namespace vg {

ImageLoadError ImageLoadError::make(Code code, std::string_view fileName) {
  std::string name(fileName);
  switch (code) {
    case kUndecodable:
      return {code, "无法解码图片：" + name};
    case kNotLocalFile:
      return {code, "只能打开本机图片文件"};
    case kRawDecoderUnavailable:
      return {code, "无法创建 RAW 解码器，系统可能不支持该相机格式：" + name};
    case kRawDecodeFailed:
      return {code, "RAW 解码失败（所选解码器版本可能不受支持）：" + name};
    case kRawInvalidSize:
      return {code, "RAW 解码输出尺寸无效：" + name};
  }
  return {kUndecodable, "无法解码图片：" + name};
}

}  // namespace vg
