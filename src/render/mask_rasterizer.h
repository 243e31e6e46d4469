// Mask rasterisation: each mask layer's shape becomes a GreyImage in the
// output frame, 1 where the layer's adjustments apply fully and 0 where not,
// with its feather, inversion and subtracted shapes already combined.
//
// Every shape is evaluated where it was drawn: an output pixel centre is
// mapped back to the upright source by Geometry::toSource, so masks follow
// flips, turns, straightening and lens distortion exactly like the pixels.
// Positions are normalised to the upright source (x by its width, y by its
// height); direction-free lengths (linear ramp length, brush diameter) are
// fractions of the source width; a radial mask's radiusX is a fraction of the
// width and radiusY of the height. Angles are degrees, clockwise on screen.
//
// - radial: an ellipse with semi-axes radiusX, radiusY rotated by `angle`;
//   with d the elliptical distance (1 on the ellipse) the value is 1 for
//   d <= 1 - 0.95 max(feather/100, 0.001) and falls linearly to 0 at d = 1.
// - linear: a band across the line through `center` at `angle` (0: the line is
//   horizontal); the value rises linearly from 0 to 1 over a ramp of
//   half-width max(feather/100, 0.02) x length, 1 on the side above the line
//   (the side the angle's up-vector (sin a, -cos a) points to).
// - brush: round dabs every quarter radius along each stroke's polyline;
//   diameter `size`, flat core over `hardness`% of the radius then a smooth
//   fall to 0, opacity `flow`% per dab; painting composites m + a(1 - m),
//   erasing strokes m (1 - a); strokes in order, starting from 0.
// - bitmap: the LZFSE raster (width x height bytes, row 0 at the top, 0...255)
//   stretched over the upright source, sampled bilinearly; a raster that does
//   not decompress to exactly that size is reported as "蒙版数据损坏".
// - luminosity: luminanceRangeMaskKernel on the luma of the colour-stage
//   pixel, L(clamp01(rgb)) sRGB-encoded, with ramp = feather/100 x 0.5.
// - colorRange: colorRangeMaskKernel comparing the sRGB-encoded colour-stage
//   pixel (clamped to 0...1) with the target colour, which is stored sRGB-
//   encoded (as the colour picker sampled it on screen).
// - invert flags give 1 - value; each subtracted shape s multiplies the
//   layer's mask by (1 - s).
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/masks.h"
#include "render/geometry.h"
#include "render/grey_image.h"
#include "render/image.h"

namespace vg {

inline constexpr std::string_view kCorruptMaskMessage = "蒙版数据损坏";

// Where a mask is drawn.
struct MaskFrame {
  const Geometry* geometry = nullptr;  // source <-> output mapping
  Rect region;                         // the part of the output frame to fill
  // Colour-stage pixels covering `region`; needed only by the luminosity
  // and colour-range kinds (without it they rasterise to 0).
  const Image* colorStage = nullptr;
};

// True when the kind reads colour-stage pixels (luminosity, colour range).
bool readsColorStage(const MaskKind& kind);

// One shape with its own invert flag. Nullopt (and *error set to
// kCorruptMaskMessage) when a bitmap does not decompress.
std::optional<GreyImage> rasterizeShape(const MaskKind& kind, const MaskFrame& frame,
                                        std::string* error = nullptr);

// A whole layer: its kind, minus every subtracted shape. A layer whose shape
// or one of whose subtracted shapes is corrupt is skipped (nullopt).
std::optional<GreyImage> rasterizeLayer(const MaskLayer::RenderData& layer, const MaskFrame& frame,
                                        std::string* error = nullptr);

// The cache key of one rasterised layer: everything its pixels depend on.
struct MaskCacheKey {
  MaskKind kind;
  std::vector<MaskKind> subtracts;
  Rect sourceExtent;
  GeometryParams geometry;
  bool integral = false;
  Rect region;
  // Identifies the colour-stage pixels (0 when no shape reads them).
  std::uint64_t colorStageId = 0;
  bool operator==(const MaskCacheKey&) const = default;
};
std::size_t hashValue(const MaskCacheKey& key);

// MaskImageCache: rasterised layers by value key, bounded by entry count and
// bytes, oldest entry dropped first. Thread-safe (one mutex). Rasterising
// happens outside the lock; two threads may rasterise the same key once each.
class MaskImageCache {
 public:
  explicit MaskImageCache(std::size_t maxEntries = 16, std::size_t maxBytes = std::size_t(768) << 20);

  std::shared_ptr<const GreyImage> find(const MaskCacheKey& key) const;
  void insert(const MaskCacheKey& key, std::shared_ptr<const GreyImage> mask);

  // The layer's mask from the cache, rasterised and stored on a miss.
  // `geometryParams`/`integral` must be those `frame.geometry` was built from.
  // Null when the layer is corrupt (the message is logged and put in *error).
  std::shared_ptr<const GreyImage> layerMask(const MaskLayer::RenderData& layer, const MaskFrame& frame,
                                             const GeometryParams& geometryParams, bool integral,
                                             std::uint64_t colorStageId, std::string* error = nullptr);

  std::size_t size() const;
  std::size_t bytes() const;
  void clear();

 private:
  struct Hash {
    std::size_t operator()(const MaskCacheKey& k) const { return hashValue(k); }
  };
  mutable std::mutex lock_;
  std::size_t maxEntries_, maxBytes_, bytes_ = 0;
  std::unordered_map<MaskCacheKey, std::shared_ptr<const GreyImage>, Hash> entries_;
  std::list<MaskCacheKey> order_;  // oldest first
};

}  // namespace vg
