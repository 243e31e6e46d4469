// RenderEngine: turns a decoded source image and an edit recipe into the
// edited picture. One pure chain serves the preview, export and batch alike.
//
// The chain, in order (every stage skipped at its neutral value):
// 1. colour stage (a ColorStage value callers may keep and pass back):
//    geometry and the output rectangle (geometry.h), lens vignette, red-eye
//    spots, the adjustment chain with the global adjustments, the LUT;
// 2. local-adjustment pass: per enabled mask layer with non-default
//    adjustments and a mask image, the adjustment chain with the layer's own
//    adjustments, blended over the running image through the mask;
// 3. finishing: post-crop vignette, grain, dither (on request), the crop to
//    the output rectangle.
// The adjustment chain (adjustment_chain.h) is one list of sixteen stages
// shared by the global adjustments and every mask.
//
// Execution. The recipe is turned into a list of stages; consecutive point
// stages run fused, row by row in parallel bands, while the row is in cache;
// neighbourhood stages (blurs, the clarity and dehaze low-passes) are the
// only full passes over the region. A full pass replaces the image in place
// as its blur streams (gaussian_blur.h) and runs the point stages after it on
// each finished row. A mask layer whose chain has neighbourhood stages adjusts
// a copy of only the part its mask touches (grown by the chain's reach). Every
// pixel is computed by the same arithmetic whatever the band split, so
// results are bit-identical for any thread count. Working buffers come from
// the image pool (image.h), so repeated renders of one size allocate nothing.
//
// Regions. A sub-rectangle R of the output rectangle is rendered over R grown
// by the reach (halo) of its active neighbourhood stages, clipped to the
// output rectangle; blurs clamp at that region's edges, which are the output
// rectangle's own edges wherever it touches them. The result equals the same
// crop of a full render within float tolerance (1e-4; 2e-3 with clarity or a
// dehaze blur of 6 px and more, whose low-passes are computed at reduced size
// on a grid anchored to the output rectangle: clarity at 12 %, the dark
// channel at 1/2 or 1/4). Blur radii and insets scale with the render scale s.
//
// Failure never escapes a render: a stage that cannot run (for example when
// memory runs out) passes its input on and logs
// "CIKernel 应用失败（参数数量/类型与内核签名不匹配？），该调整被跳过".
//
// Caches (curve look-up tables, HSL parameters, parsed LUTs) are keyed by
// value, bounded, evicted oldest first, and guarded by one mutex, cacheLock.
// Heal strokes: the heal stage (heal_stage.h) applies the geometry itself,
// heals the cropped frame (cached in the heal cache under the same lock), and
// the healed frame enters the colour stage with its geometry marked applied.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/document.h"
#include "model/uuid.h"
#include "render/cancel_token.h"
#include "render/geometry.h"
#include "render/grey_image.h"
#include "render/image.h"
#include "render/kernels.h"
#include "render/heal_cache.h"
#include "render/lut_loader.h"

namespace vg {

inline constexpr const char* kKernelApplyFailed =
    "CIKernel 应用失败（参数数量/类型与内核签名不匹配？），该调整被跳过";

// The colour stage's result: `image` covers (a region of) the output frame
// whose full extent is `outputRect`.
struct ColorStage {
  std::shared_ptr<const Image> image;
  Rect outputRect;
};

// Rasterised mask images by mask id, in the output frame.
using MaskImages = std::unordered_map<Uuid, std::shared_ptr<const GreyImage>>;

struct RenderOptions {
  double scale = 1.0;          // render scale s: working size / full-resolution size
  bool integralRect = false;   // the preview's outward-rounded output rectangle
  bool dither = false;         // add the 8-bit dither before quantising output
  std::optional<Rect> region;  // part of the output rectangle; absent: all of it
  // Identifies the source image for the heal cache: every distinct source
  // (full image, each preview scale, each re-development) needs its own.
  HealSourceId sourceId = 0;
  // Checked between passes, bands and heal dabs: once it is set the render
  // stops early and returns an unfinished image, which the caller drops.
  const AsyncCancelToken* cancel = nullptr;
};

// The geometric part of a recipe (crop and lens distortion).
GeometryParams geometryParams(const EditDocument& recipe);

class RenderEngine {
 public:
  // lutFolder: where AppliedLUT file names are looked up.
  explicit RenderEngine(std::filesystem::path lutFolder = {});

  // The whole chain; the result covers options.region (or the output
  // rectangle) in output-frame coordinates. `colorStage`, when given, is
  // reused as is (it must cover the region plus the masks' halo, else it is
  // recomputed).
  Image render(const Image& source, const EditDocument& recipe, const MaskImages& masks,
               const RenderOptions& options, const ColorStage* colorStage = nullptr);

  // The colour stage over `region` (default: the whole output rectangle).
  // geometryApplied: `source` is already geometry-corrected and cropped; its
  // bounds are the output rectangle (recipe positions still map through the
  // recipe's geometry of `originalExtent`, the upright source's extent).
  ColorStage colorStage(const Image& source, const EditDocument& recipe, double scale, bool integralRect,
                        std::optional<Rect> region = {}, HealSourceId sourceId = 0,
                        const AsyncCancelToken* cancel = nullptr);
  ColorStage colorStageGeometryApplied(const Image& healed, const Rect& originalExtent, const EditDocument& recipe,
                                       double scale, bool integralRect, std::optional<Rect> region = {});

  // The adjustment chain alone over an image (same extent), for tests and tools.
  Image applyAdjustments(const Image& image, const GlobalAdjustments& adjustments, double scale);

  // How far (in pixels) the active neighbourhood stages of a chain reach.
  static int chainHalo(const GlobalAdjustments& adjustments, double scale);

  // Cache bounds (entries); LUTs are also bounded by bytes.
  static constexpr std::size_t kCurveCacheLimit = 16;
  static constexpr std::size_t kHslCacheLimit = 16;
  static constexpr std::size_t kLutCacheLimit = 8;
  static constexpr std::size_t kLutCacheBytes = std::size_t(256) << 20;
  // Working memory of one render pass: regions whose halo-grown rows would
  // need more (counting the running image and the full-size buffers its
  // stages hold at once: a mask layer's adjusted copy, a dark channel, a
  // recursive blur and its intermediate) are rendered in bands.
  static constexpr std::size_t kWorkBudgetBytes = std::size_t(800) << 20;
  // Full-size RGBA buffers a chain holds besides the running image at its peak.
  static int chainExtraBuffers(const GlobalAdjustments& adjustments, double scale);
  void setWorkBudget(std::size_t bytes) { workBudget_ = bytes; }

  // Cache introspection (tests).
  std::size_t curveCacheSize() const;
  std::size_t hslCacheSize() const;
  std::size_t lutCacheSize() const;
  HealCache& healCache() { return healCache_; }

  struct Stage;  // one step of a compiled chain (render_engine.cpp)

 private:
  friend struct ChainBuilder;
  struct LUTCacheEntry {
    std::shared_ptr<const ParsedLUT> lut;  // null when the file could not be parsed
    std::optional<std::filesystem::file_time_type> modifiedAt;
    std::size_t bytes = 0;
  };

  std::shared_ptr<const kernels::CurvesPrepared> curvesFor(const CurveSet& curves);
  std::shared_ptr<const kernels::HslParams> hslFor(const HSLAdjustments& hsl);
  std::shared_ptr<const ParsedLUT> lutFor(const AppliedLUT& lut);

  void appendChain(std::vector<Stage>& stages, const GlobalAdjustments& a, double s, const Rect& outputRect);
  void appendColorStage(std::vector<Stage>& stages, const EditDocument& recipe, const Geometry& g,
                        const Rect& outputRect, double s);
  ColorStage colorStageImpl(const Image& source, bool geometryApplied, const Geometry& g,
                            const EditDocument& recipe, double s, std::optional<Rect> region);

  std::filesystem::path lutFolder_;
  std::size_t workBudget_ = kWorkBudgetBytes;

  mutable std::mutex cacheLock;
  std::unordered_map<CurveSet, std::shared_ptr<const kernels::CurvesPrepared>> curveCache;
  std::list<CurveSet> curveCacheOrder;
  std::unordered_map<HSLAdjustments, std::shared_ptr<const kernels::HslParams>> hslCache;
  std::list<HSLAdjustments> hslCacheOrder;
  std::map<std::string, LUTCacheEntry> lutCache;
  std::list<std::string> lutCacheOrder;
  std::size_t lutCacheBytes = 0;
  HealCache healCache_{cacheLock};  // healCache, healFailedKeys, healPrefix
};

// The 8-bit HSL parameter texels: per band (red ... magenta) R, G, B =
// trunc((value + 100)/200 x 255) clamped to 0...255, alpha 255.
std::array<uint8_t, 32> hslTexels(const HSLAdjustments& hsl);

}  // namespace vg
