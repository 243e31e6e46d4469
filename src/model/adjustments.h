// The global adjustment records of a recipe: the slider values, tone curves,
// HSL bands and split toning of `GlobalAdjustments`, and the records an
// EditDocument keeps beside them (RAW development, lens correction, crop,
// applied LUT).
//
// Every record is a plain value: defaults are written inline, equality is
// exact (floating-point ==, lists element by element), and `hashAppend` feeds
// every field in declaration order (see model/hashing.h). Values are on the
// slider scale (mostly -100...100 or 0...100, exposure in stops); the render
// pipeline does its own scaling.
//
// The plain fields of every record here are described once, in its field
// table (model/field_table.h): key, range, default, step, caption and label.
// The tables drive JSON decoding and encoding, range clamping, hashing,
// interpolation, the label lookup used to name a changed field and the
// inspector panels. The 28 scalar sliders of GlobalAdjustments keep a fixed
// row order: 25 labelled rows, then 3 unlabelled ones.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/field_table.h"
#include "model/hashing.h"

namespace vg {

// ---- Tone curves -----------------------------------------------------------

// One control point: input level x, output level y, both 0...1.
struct CurvePoint {
  double x = 0;
  double y = 0;
  bool operator==(const CurvePoint&) const = default;
};

// The control points of one curve, in stored order. Decoding clamps each
// coordinate but neither sorts nor de-duplicates; the curve evaluator does.
struct ToneCurve {
  std::vector<CurvePoint> points{{0, 0}, {1, 1}};

  static ToneCurve identity() { return {}; }
  // Exactly the two points (0, 0) and (1, 1).
  bool isIdentity() const;
  bool operator==(const ToneCurve&) const = default;
};

enum class CurveChannel { rgb, red, green, blue };
inline constexpr std::array<CurveChannel, 4> kCurveChannels = {
    CurveChannel::rgb, CurveChannel::red, CurveChannel::green, CurveChannel::blue};
std::string_view curveChannelKey(CurveChannel c);

// The master curve and the three per-channel curves; each defaults to identity.
struct CurveSet {
  ToneCurve rgb;
  ToneCurve red;
  ToneCurve green;
  ToneCurve blue;

  ToneCurve& operator[](CurveChannel c);
  const ToneCurve& operator[](CurveChannel c) const;
  // Every curve is the identity (by points), so the curve stage can be skipped.
  bool isIdentity() const;
  bool operator==(const CurveSet&) const = default;
};

// ---- HSL ----------------------------------------------------------------------

enum class HSLBandKind { red, orange, yellow, green, aqua, blue, purple, magenta };
inline constexpr std::size_t kHSLBandCount = 8;

// A band's key (its case name) and the Chinese name of its colour.
struct HSLBandName {
  HSLBandKind kind;
  std::string_view key;
  std::string_view title;
};
// The eight bands in HSLBandKind order.
std::span<const HSLBandName> hslBandNames();
std::string_view hslBandKey(HSLBandKind k);

// Per-band shifts, each -100...100.
struct HSLBand {
  double hue = 0;
  double saturation = 0;
  double luminance = 0;
  bool operator==(const HSLBand&) const = default;
};

// One band per HSLBandKind, in that order. Decoding and interpolation always
// leave exactly kHSLBandCount entries; `normalize()` re-establishes that.
struct HSLAdjustments {
  std::vector<HSLBand> bands = std::vector<HSLBand>(kHSLBandCount);

  // Keeps the first 8 bands, or appends zero bands up to 8.
  void normalize() { bands.resize(kHSLBandCount); }
  HSLBand& operator[](HSLBandKind k) { return bands[static_cast<std::size_t>(k)]; }
  const HSLBand& operator[](HSLBandKind k) const { return bands[static_cast<std::size_t>(k)]; }
  bool operator==(const HSLAdjustments&) const = default;
};

// ---- Split toning ---------------------------------------------------------------

struct SplitToning {
  double highlightHue = 0;         // degrees, 0...360
  double highlightSaturation = 0;  // 0...100
  double shadowHue = 0;            // degrees, 0...360
  double shadowSaturation = 0;     // 0...100
  double balance = 0;              // -100...100
  bool operator==(const SplitToning&) const = default;
};

// ---- Global adjustments ------------------------------------------------------

struct GlobalAdjustments {
  double exposure = 0;  // stops
  double contrast = 0;
  double highlights = 0;
  double shadows = 0;
  double whites = 0;
  double blacks = 0;
  double temperature = 0;  // relative to the source's white balance
  double tint = 0;
  double saturation = 0;
  double vibrance = 0;
  bool monochrome = false;
  double monochromeRed = 30;  // black-and-white mix weights in percent (luma weights)
  double monochromeGreen = 59;
  double monochromeBlue = 11;
  double texture = 0;
  double clarity = 0;
  double dehaze = 0;
  double sharpen = 0;        // amount
  double denoise = 0;        // luminance noise
  double colorDenoise = 0;   // chroma noise
  double defringe = 0;
  double sharpenRadius = 1.5;  // pixels
  double sharpenDetail = 50;
  double sharpenMasking = 0;
  double vignetteAmount = 0;  // post-crop vignette
  double vignetteMidpoint = 50;
  double vignetteFeather = 50;
  double grainAmount = 0;
  double grainSize = 25;
  CurveSet curves;
  HSLAdjustments hsl;
  SplitToning splitToning;

  bool operator==(const GlobalAdjustments&) const = default;
};

// One scalar slider of GlobalAdjustments.
using ScalarField = NumberField<GlobalAdjustments>;

inline constexpr std::size_t kLabelledFieldCount = 25;
inline constexpr std::size_t kUnlabelledFieldCount = 3;

// The 28 scalar sliders (the 25 labelled ones in their fixed order, then the
// 3 unlabelled ones) and the monochrome switch.
const FieldTable<GlobalAdjustments>& adjustmentFields();
std::span<const ScalarField> scalarFields();      // adjustmentFields().numbers()
std::span<const ScalarField> labelledFields();    // the first 25
std::span<const ScalarField> unlabelledFields();  // the last 3
const ScalarField* findScalarField(std::string_view key);
// The label of a labelled scalar field ("曝光" for "exposure"); nullopt for
// unlabelled or unknown keys.
std::optional<std::string_view> labelForKey(std::string_view key);

// hue, saturation, luminance of one band.
const FieldTable<HSLBand>& hslBandFields();
const FieldTable<SplitToning>& splitToningFields();

// A blend from a towards b: a at t = 0, b at t = 1. Scalars are linear and not
// clamped; monochrome switches at t = 0.5; curves are blended through their
// evaluated shapes; HSL band by band (then normalised to 8 bands); split-
// toning hues along the shorter arc of the colour circle.
GlobalAdjustments interpolate(const GlobalAdjustments& a, const GlobalAdjustments& b, double t);
ToneCurve interpolate(const ToneCurve& a, const ToneCurve& b, double t);

// ---- Records beside the adjustments --------------------------------------------

// Applied while the RAW decoder develops a RAW source; ignored otherwise.
struct RAWDevelopSettings {
  double exposure = 0;          // stops, -2...2
  double shadowBoost = 0;       // 0...100
  double noiseReduction = 100;  // 0...100
  std::string decoderVersion;   // empty: the current decoder version
  bool gamutMapping = true;
  bool operator==(const RAWDevelopSettings&) const = default;
};

struct LensCorrectionSettings {
  double distortion = 0;         // -100...100
  double vignette = 0;           // compensation, 0...100
  double vignetteMidpoint = 50;  // 0...100
  double vignetteFeather = 50;   // 0...100
  bool operator==(const LensCorrectionSettings&) const = default;
};

// A rectangle in normalised source coordinates (the image spans 0...1).
struct NormalizedRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const NormalizedRect&) const = default;
};

struct CropSettings {
  double angle = 0;                    // straightening, degrees, -45...45
  int quarterTurn = 0;                 // number of 90° turns, 0...3
  std::optional<double> aspectLock;    // width/height, 0.001...1000; absent: free
  std::optional<NormalizedRect> rect;  // inside the unit square; absent: whole image
  bool flipHorizontal = false;
  bool flipVertical = false;
  bool operator==(const CropSettings&) const = default;
};

inline constexpr double kMinAspectLock = 0.001;
inline constexpr double kMaxAspectLock = 1000;

// exposure, shadowBoost, noiseReduction, decoderVersion, gamutMapping.
const FieldTable<RAWDevelopSettings>& rawDevelopFields();
// All four fields.
const FieldTable<LensCorrectionSettings>& lensCorrectionFields();
// angle and the two flips; quarterTurn (two lowest bits kept), aspectLock
// (kMinAspectLock...kMaxAspectLock, else absent) and rect (cut to the unit
// square) have repairs of their own.
const FieldTable<CropSettings>& cropFields();

// A .cube file from the LUT library applied at a strength.
struct AppliedLUT {
  std::string filename;  // a bare file name inside the LUT folder, never a path
  std::string name;      // display name
  double strength = 100; // percent, 0...100
  bool operator==(const AppliedLUT&) const = default;
};

// filename, name, strength.
const FieldTable<AppliedLUT>& appliedLUTFields();

// ---- Hashing ----------------------------------------------------------------------

void hashAppend(Hasher& h, const CurvePoint& v);
void hashAppend(Hasher& h, const ToneCurve& v);
void hashAppend(Hasher& h, const CurveSet& v);
void hashAppend(Hasher& h, const HSLBand& v);
void hashAppend(Hasher& h, const HSLAdjustments& v);
void hashAppend(Hasher& h, const SplitToning& v);
void hashAppend(Hasher& h, const GlobalAdjustments& v);
void hashAppend(Hasher& h, const RAWDevelopSettings& v);
void hashAppend(Hasher& h, const LensCorrectionSettings& v);
void hashAppend(Hasher& h, const NormalizedRect& v);
void hashAppend(Hasher& h, const CropSettings& v);
void hashAppend(Hasher& h, const AppliedLUT& v);

}  // namespace vg

VG_STD_HASH(vg::ToneCurve);
VG_STD_HASH(vg::CurveSet);
VG_STD_HASH(vg::HSLAdjustments);
VG_STD_HASH(vg::SplitToning);
VG_STD_HASH(vg::GlobalAdjustments);
VG_STD_HASH(vg::RAWDevelopSettings);
VG_STD_HASH(vg::LensCorrectionSettings);
VG_STD_HASH(vg::CropSettings);
VG_STD_HASH(vg::AppliedLUT);
