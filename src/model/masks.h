// Local adjustments and retouching records of a recipe.
//
// A MaskLayer is a shape that selects part of the image (MaskKind), its own
// GlobalAdjustments applied through that selection, and shapes subtracted
// from it. HealStroke and RedEyeSpot are the retouching records a document
// keeps beside its masks.
//
// Positions and lengths are normalised to the image: (0, 0)...(1, 1) spans
// it, and shapes may reach outside within the clamps decoding applies.
// All records are plain values with exact equality and field-order hashing;
// a MaskKind hashes its case index first (radial 0 ... colorRange 5).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "model/adjustments.h"
#include "model/hashing.h"
#include "model/uuid.h"

namespace vg {

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

// An ellipse with a feathered edge.
struct RadialMaskGeometry {
  Point center{0.5, 0.5};  // each coordinate -4...4
  double radiusX = 0.3;    // 0.001...4
  double radiusY = 0.3;    // 0.001...4
  double angle = 0;        // degrees, remainder by 360 keeping its sign
  double feather = 50;     // 0...100
  bool invert = false;
  bool operator==(const RadialMaskGeometry&) const = default;
};

// A graduated band across the image.
struct LinearMaskGeometry {
  Point center{0.5, 0.5};  // each coordinate -4...4
  double angle = 0;        // degrees, remainder by 360 keeping its sign
  double length = 0.7;     // width of the transition, 0.001...4
  double feather = 50;     // 0...100
  bool invert = false;
  bool operator==(const LinearMaskGeometry&) const = default;
};

// Selects by luminance between low and high.
struct LuminanceMaskGeometry {
  double low = 0;       // 0...1
  double high = 1;      // low...1
  double feather = 20;  // 0...100
  bool invert = false;
  bool operator==(const LuminanceMaskGeometry&) const = default;
};

// Selects colours near a sampled colour.
struct ColorRangeGeometry {
  double red = 0.5;  // the sampled colour, each 0...1
  double green = 0.5;
  double blue = 0.5;
  double tolerance = 0.25;  // 0...1
  double feather = 0.15;    // 0...1
  bool invert = false;
  bool operator==(const ColorRangeGeometry&) const = default;
};

struct BrushStroke {
  std::vector<Point> points;  // finite, |coordinate| <= 1,000,000
  double size = 0;            // diameter, 0...4
  double hardness = 100;      // 0...100
  double flow = 100;          // 0...100
  bool erase = false;         // an erasing stroke
  bool operator==(const BrushStroke&) const = default;
};

// Where a bitmap mask came from.
enum class AutoMaskSource { magicWand, subject, sky, background };
std::string_view autoMaskSourceName(AutoMaskSource s);
std::optional<AutoMaskSource> autoMaskSourceFromName(std::string_view name);

// A rasterised mask (automatic masks, magic wand), kept LZFSE-compressed.
struct BitmapMaskData {
  std::vector<std::uint8_t> compressedData;
  std::int64_t width = 0;  // pixel size of the raster
  std::int64_t height = 0;
  AutoMaskSource source = AutoMaskSource::magicWand;
  Uuid id;  // identifies the raster (a cache key of the rasterizer)
  bool operator==(const BitmapMaskData&) const = default;
};

// The selecting shape of a mask; the case order is part of the format (it is
// the hash's case index) and of the JSON case names below.
using MaskKind = std::variant<RadialMaskGeometry, LinearMaskGeometry, std::vector<BrushStroke>,
                              BitmapMaskData, LuminanceMaskGeometry, ColorRangeGeometry>;
enum class MaskKindCase { radial, linear, brush, bitmap, luminosity, colorRange };
inline MaskKindCase kindCase(const MaskKind& k) { return static_cast<MaskKindCase>(k.index()); }
std::string_view maskKindCaseName(MaskKindCase c);  // "radial", "linear", ...

// The user-visible identity of one subtract shape in the mask panel.
struct SubtractRow {
  std::size_t index = 0;
  Uuid id;
  bool operator==(const SubtractRow&) const = default;
};

inline constexpr std::string_view kDefaultMaskName = "蒙版";

struct MaskLayer {
  Uuid id = Uuid::random();
  std::string name{kDefaultMaskName};
  bool enabled = true;
  MaskKind kind = RadialMaskGeometry{};
  GlobalAdjustments adjustments;
  std::vector<MaskKind> subtracts;  // shapes removed from the selection
  std::vector<Uuid> subtractIDs;    // parallel to subtracts

  // The part of a mask that changes pixels: no name, no subtract IDs.
  struct RenderData {
    Uuid id;
    bool enabled = true;
    MaskKind kind;
    GlobalAdjustments adjustments;
    std::vector<MaskKind> subtracts;
    bool operator==(const RenderData&) const = default;
  };
  RenderData renderData() const;

  // Makes subtractIDs exactly as long as subtracts: missing IDs are filled
  // with fresh ones, surplus IDs are dropped from the end.
  void repairSubtractIDs();
  std::vector<SubtractRow> subtractRows() const;

  bool operator==(const MaskLayer&) const = default;
};

// One object-removal stroke.
struct HealStroke {
  std::vector<Point> points;  // filtered as for brush strokes
  double size = 0;            // 0...4
  bool operator==(const HealStroke&) const = default;
};

struct RedEyeSpot {
  Uuid id = Uuid::random();
  Point center;
  double radius = 0;  // 0...1
  bool operator==(const RedEyeSpot&) const = default;
};

void hashAppend(Hasher& h, const Point& v);
void hashAppend(Hasher& h, const RadialMaskGeometry& v);
void hashAppend(Hasher& h, const LinearMaskGeometry& v);
void hashAppend(Hasher& h, const LuminanceMaskGeometry& v);
void hashAppend(Hasher& h, const ColorRangeGeometry& v);
void hashAppend(Hasher& h, const BrushStroke& v);
void hashAppend(Hasher& h, const BitmapMaskData& v);
void hashAppend(Hasher& h, const MaskKind& v);
void hashAppend(Hasher& h, const MaskLayer& v);
void hashAppend(Hasher& h, const MaskLayer::RenderData& v);
void hashAppend(Hasher& h, const HealStroke& v);
void hashAppend(Hasher& h, const RedEyeSpot& v);

}  // namespace vg

VG_STD_HASH(vg::MaskLayer);
VG_STD_HASH(vg::MaskLayer::RenderData);
VG_STD_HASH(vg::HealStroke);
VG_STD_HASH(vg::RedEyeSpot);
