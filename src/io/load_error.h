// ImageLoadError: the one way a load fails, as the user sees it.
//
// Every failure carries the component domain "Verdantglass.ImageLoader", a
// small code and the Chinese message shown to the user (what()). The code
// that detects the failure builds the message with the file's last path
// component; callers pass the error on unchanged.
//
//   1 "无法解码图片：%@"                                plain decode gave nothing usable
//   2 "只能打开本机图片文件"                            not a local file
//   3 "无法创建 RAW 解码器，系统可能不支持该相机格式：%@"  RAW decoder cannot open the file
//   4 "RAW 解码失败（所选解码器版本可能不受支持）：%@"     RAW development gave no output
//   5 "RAW 解码输出尺寸无效：%@"                          RAW output has an invalid size
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vg {

class ImageLoadError : public std::runtime_error {
 public:
  static constexpr std::string_view kDomain = "Verdantglass.ImageLoader";

  enum Code : int {
    kUndecodable = 1,
    kNotLocalFile = 2,
    kRawDecoderUnavailable = 3,
    kRawDecodeFailed = 4,
    kRawInvalidSize = 5,
  };

  ImageLoadError(Code code, std::string message)
      : std::runtime_error(std::move(message)), code_(code) {}

  // The error for `code`, its message filled with fileName where it has a
  // placeholder.
  static ImageLoadError make(Code code, std::string_view fileName);

  Code code() const { return code_; }
  std::string_view domain() const { return kDomain; }

 private:
  Code code_;
};

// A decoder's own failure (corrupt data, unsupported layout, absurd size),
// with an English detail for the log. The loader turns it into the
// user-facing ImageLoadError of its path.
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace vg
