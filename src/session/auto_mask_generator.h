// AutoMaskGenerator: the raster of an automatic mask layer, as bitmap mask
// data (LZFSE-compressed, one byte per pixel, row 0 at the top) that the
// rasterizer stretches over the upright source.
//
// Kinds:
// - subject: the image reduced to at most 2048 pixels on its longer side
//   (the loader's shared shrink), drawn as 8-bit RGBA, segmented by
//   SubjectSegmenter; a map without a single pixel of at least half
//   probability has found no subject (noResult).
// - background: the subject raster with every byte v turned into 255 - v.
// - sky and magic wand: the image reduced to at most 1024 pixels, drawn as
//   8-bit RGBA, then region_masks.h. A sky without bright top pixels is an
//   empty mask, not a failure.
// The raster has the reduced image's size.
//
// Drawing: the working pixels (linear, premultiplied) become sRGB-encoded
// bytes of their straight colour, which are then premultiplied again
// (colour x alpha / 255, rounded), as a premultiplied-alpha-last bitmap holds
// them. An image whose extent is empty is invalidImage; a drawing that cannot
// be made (no memory) is renderFailed.
//
// Failures throw AutoMaskError, whose what() is the user message; a subject
// model that cannot be used throws SubjectModelError (an English cause for
// the log; the user sees the kind's failure text). The generator touches no
// session state and may run on any thread; runs with a cancel token check it
// between stages and end with nullopt once it is set.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "model/masks.h"
#include "render/cancel_token.h"
#include "render/image.h"
#include "session/region_masks.h"
#include "session/subject_segmenter.h"

namespace vg {

class AutoMaskError : public std::runtime_error {
 public:
  enum class Code { invalidImage, renderFailed, noResult, decompressFailed };
  explicit AutoMaskError(Code code);
  Code code() const { return code_; }
  // "图像无效", "渲染失败", "未检测到可分割的区域", "蒙版数据损坏".
  static std::string_view message(Code code);

 private:
  Code code_;
};

// What the user is told when a run of this kind fails: "主体分割失败",
// "天空检测失败", "背景分割失败", "魔棒选区生成失败".
std::string_view autoMaskFailureText(AutoMaskSource kind);

// The name a new mask layer of this kind receives: "主体蒙版", "天空蒙版",
// "背景蒙版", "魔棒选区".
std::string_view autoMaskLayerName(AutoMaskSource kind);

struct MagicWandSettings {
  static constexpr double kDefaultTolerance = 20;
  static constexpr int kDefaultFeather = 2;
  static constexpr int kMaxFeather = 512;  // half the raster's longer side: wider changes nothing
  Point point{0.5, 0.5};  // normalised to the image, y from the top
  double tolerance = kDefaultTolerance;  // 0...100, percent of the largest RGB distance
  int feather = kDefaultFeather;        // pixels of the reduced image
};

struct AutoMaskRequest {
  AutoMaskSource kind = AutoMaskSource::subject;
  std::shared_ptr<const Image> image;  // the upright source, any size
  MagicWandSettings wand;              // read for magicWand only
};

// What a background run hands back to the session: the mask data, or the
// reason it failed (for the log; the user sees the kind's failure text).
struct AutoMaskOutcome {
  std::optional<BitmapMaskData> data;
  std::optional<std::string> error;
};

class AutoMaskGenerator {
 public:
  static constexpr double kSubjectMaxDimension = 2048;
  static constexpr double kRegionMaxDimension = 1024;

  explicit AutoMaskGenerator(std::shared_ptr<SubjectSegmenter> segmenter = SubjectSegmenter::shared());

  // The uncompressed raster. Throws AutoMaskError or SubjectModelError.
  std::optional<MaskRaster> raster(const AutoMaskRequest& request, const AsyncCancelToken* cancel = nullptr) const;

  // The raster compressed, with a fresh id and the kind as its source.
  std::optional<BitmapMaskData> generate(const AutoMaskRequest& request,
                                         const AsyncCancelToken* cancel = nullptr) const;

  // The image reduced to maxDimension and drawn as 8-bit RGBA. Throws
  // AutoMaskError (invalidImage, renderFailed).
  static Rgba8Bitmap drawReduced(const std::shared_ptr<const Image>& image, double maxDimension);

 private:
  std::shared_ptr<SubjectSegmenter> segmenter_;
};

BitmapMaskData compressMaskRaster(const MaskRaster& raster, AutoMaskSource source);

// The raster stored in `data`. Throws AutoMaskError(decompressFailed) when
// the sizes are impossible or the bytes do not decompress to exactly
// width x height.
MaskRaster decompressMaskRaster(const BitmapMaskData& data);

}  // namespace vg
