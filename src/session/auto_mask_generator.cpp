// Automatic mask rasters: reduction, drawing, the kinds, compression.
// See auto_mask_generator.h.
#include "session/auto_mask_generator.h"

#include <algorithm>
#include <new>

#include "codec/lzfse.h"
#include "io/image_loader.h"
#include "render/heal_bitmap.h"

namespace vg {
namespace {

// The largest raster a stored bitmap may claim (as the rasterizer allows).
constexpr std::int64_t kMaxRasterPixels = std::int64_t(1) << 28;

// A subject needs at least one pixel the network holds more likely in than out.
constexpr std::uint8_t kSubjectPresence = 128;

bool cancelled(const AsyncCancelToken* token) { return token && token->isCancelled(); }

struct KindTexts {
  AutoMaskSource kind;
  std::string_view failure;    // the toast of a failed run
  std::string_view layerName;  // the new mask layer's name
};
constexpr KindTexts kKindTexts[] = {
    {AutoMaskSource::magicWand, "魔棒选区生成失败", "魔棒选区"},
    {AutoMaskSource::subject, "主体分割失败", "主体蒙版"},
    {AutoMaskSource::sky, "天空检测失败", "天空蒙版"},
    {AutoMaskSource::background, "背景分割失败", "背景蒙版"},
};

const KindTexts& textsOf(AutoMaskSource kind) {
  for (const KindTexts& t : kKindTexts)
    if (t.kind == kind) return t;
  return kKindTexts[0];
}

}  // namespace

AutoMaskError::AutoMaskError(Code code) : std::runtime_error(std::string(message(code))), code_(code) {}

std::string_view AutoMaskError::message(Code code) {
  // In the order of the codes.
  static constexpr std::string_view kMessages[] = {"图像无效", "渲染失败", "未检测到可分割的区域", "蒙版数据损坏"};
  return kMessages[std::size_t(code)];
}

std::string_view autoMaskFailureText(AutoMaskSource kind) { return textsOf(kind).failure; }

std::string_view autoMaskLayerName(AutoMaskSource kind) { return textsOf(kind).layerName; }

AutoMaskGenerator::AutoMaskGenerator(std::shared_ptr<SubjectSegmenter> segmenter) : segmenter_(std::move(segmenter)) {}

Rgba8Bitmap AutoMaskGenerator::drawReduced(const std::shared_ptr<const Image>& image, double maxDimension) {
  if (!image || image->empty()) throw AutoMaskError(AutoMaskError::Code::invalidImage);
  try {
    std::shared_ptr<const Image> reduced = ImageLoader::downscaled(image, maxDimension);
    if (!reduced || reduced->empty()) throw AutoMaskError(AutoMaskError::Code::renderFailed);
    Rgba8Bitmap bitmap = encodeHealBitmap(*reduced);
    for (std::size_t i = 0; i < bitmap.pixels.size(); i += 4) {
      const unsigned a = bitmap.pixels[i + 3];
      if (a == 255) continue;
      for (int c = 0; c < 3; ++c) bitmap.pixels[i + c] = std::uint8_t((bitmap.pixels[i + c] * a + 127) / 255);
    }
    return bitmap;
  } catch (const std::bad_alloc&) {
    throw AutoMaskError(AutoMaskError::Code::renderFailed);
  }
}

std::optional<MaskRaster> AutoMaskGenerator::raster(const AutoMaskRequest& request,
                                                    const AsyncCancelToken* cancel) const {
  const AutoMaskSource kind = request.kind;
  const bool region = kind == AutoMaskSource::sky || kind == AutoMaskSource::magicWand;
  Rgba8Bitmap bitmap = drawReduced(request.image, region ? kRegionMaxDimension : kSubjectMaxDimension);
  if (cancelled(cancel)) return std::nullopt;
  if (kind == AutoMaskSource::sky) return skyRaster(bitmap);
  if (kind == AutoMaskSource::magicWand) {
    return magicWandRaster(bitmap, request.wand.point, request.wand.tolerance, request.wand.feather);
  }
  if (!segmenter_) throw SubjectModelError("no subject model was configured");
  MaskRaster subject = segmenter_->probabilities(bitmap);
  if (cancelled(cancel)) return std::nullopt;
  const bool found = std::any_of(subject.values.begin(), subject.values.end(),
                                 [](std::uint8_t v) { return v >= kSubjectPresence; });
  if (!found) throw AutoMaskError(AutoMaskError::Code::noResult);
  if (kind == AutoMaskSource::background) {
    for (std::uint8_t& v : subject.values) v = std::uint8_t(255 - v);
  }
  return subject;
}

std::optional<BitmapMaskData> AutoMaskGenerator::generate(const AutoMaskRequest& request,
                                                          const AsyncCancelToken* cancel) const {
  std::optional<MaskRaster> r = raster(request, cancel);
  if (!r) return std::nullopt;
  return compressMaskRaster(*r, request.kind);
}

BitmapMaskData compressMaskRaster(const MaskRaster& raster, AutoMaskSource source) {
  BitmapMaskData data;
  data.compressedData = encodeLzfse(raster.values);
  data.width = raster.width;
  data.height = raster.height;
  data.source = source;
  data.id = Uuid::random();
  return data;
}

MaskRaster decompressMaskRaster(const BitmapMaskData& data) {
  if (data.width <= 0 || data.height <= 0 || data.width > kMaxRasterPixels / data.height) {
    throw AutoMaskError(AutoMaskError::Code::decompressFailed);
  }
  MaskRaster raster(int(data.width), int(data.height));
  if (decodeLzfseInto(data.compressedData, raster.values)) throw AutoMaskError(AutoMaskError::Code::decompressFailed);
  return raster;
}

}  // namespace vg
