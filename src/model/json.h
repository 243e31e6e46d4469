// The JSON form of a recipe: lenient decoding and compact encoding.
//
// Decoding never rejects a document because of one bad value. Every key is
// optional; a missing, null or ill-typed value takes the field's default;
// numbers are clamped into their ranges (a value <= the lower bound becomes
// the lower bound, one above the upper bound becomes the upper bound) and a
// non-finite number is replaced by the field's default. Unknown keys are
// ignored. The one failure is a top level that is not a JSON object (or text
// that is not JSON at all).
//
// Encoding writes objects with their keys in field order, every field of a
// record (absent optionals are omitted, never written as null), points as
// [x, y], a crop rectangle as [[x, y], [width, height]], bytes as base64 text
// and UUIDs in their upper-case 8-4-4-4-12 form. A mask shape is an object with
// one key, its case name, holding {"_0": value}.
//
// Lists (masks, heals, red-eye spots, subtract shapes and their IDs, brush
// strokes, curve points, HSL bands) are decoded as a whole: one element that
// does not decode as its type makes the whole list take its default at the
// enclosing level, and the rest of the enclosing record is kept. Elements
// that do decode still get their own repairs (clamps, stroke points beyond
// the limits dropped one by one).
//
// Per-record decoders return nullopt only when the value does not have the
// record's JSON shape at all (for most records: not an object); callers then
// use the default at their own level. They are public so presets and tools can
// read and write parts of a recipe with exactly the same rules.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "model/adjustments.h"
#include "model/document.h"
#include "model/masks.h"

namespace vg {

// ---- Whole documents ----------------------------------------------------------

// nullopt exactly when the text is not JSON or its top level is not an object.
std::optional<EditDocument> decodeEditDocument(std::string_view jsonText);
// The same for text held in a std::string or a C string (these overloads keep
// a string argument from converting to a JSON string value).
inline std::optional<EditDocument> decodeEditDocument(const std::string& jsonText) {
  return decodeEditDocument(std::string_view(jsonText));
}
inline std::optional<EditDocument> decodeEditDocument(const char* jsonText) {
  return decodeEditDocument(std::string_view(jsonText));
}
// An already parsed value: nullopt exactly when it is not an object.
std::optional<EditDocument> decodeEditDocument(const nlohmann::json& value);
// Compact JSON text (no whitespace), keys in field order.
std::string encodeEditDocument(const EditDocument& doc);
nlohmann::ordered_json toJson(const EditDocument& doc);

// ---- Adjustment records ---------------------------------------------------------

std::optional<CurvePoint> decodeCurvePoint(const nlohmann::json& value);
std::optional<ToneCurve> decodeToneCurve(const nlohmann::json& value);
std::optional<CurveSet> decodeCurveSet(const nlohmann::json& value);
std::optional<HSLBand> decodeHSLBand(const nlohmann::json& value);
std::optional<HSLAdjustments> decodeHSLAdjustments(const nlohmann::json& value);
std::optional<SplitToning> decodeSplitToning(const nlohmann::json& value);
std::optional<GlobalAdjustments> decodeGlobalAdjustments(const nlohmann::json& value);
std::optional<RAWDevelopSettings> decodeRAWDevelopSettings(const nlohmann::json& value);
std::optional<LensCorrectionSettings> decodeLensCorrectionSettings(const nlohmann::json& value);
std::optional<CropSettings> decodeCropSettings(const nlohmann::json& value);
std::optional<AppliedLUT> decodeAppliedLUT(const nlohmann::json& value);

nlohmann::ordered_json toJson(const CurvePoint& v);
nlohmann::ordered_json toJson(const ToneCurve& v);
nlohmann::ordered_json toJson(const CurveSet& v);
nlohmann::ordered_json toJson(const HSLBand& v);
nlohmann::ordered_json toJson(const HSLAdjustments& v);
nlohmann::ordered_json toJson(const SplitToning& v);
nlohmann::ordered_json toJson(const GlobalAdjustments& v);
nlohmann::ordered_json toJson(const RAWDevelopSettings& v);
nlohmann::ordered_json toJson(const LensCorrectionSettings& v);
nlohmann::ordered_json toJson(const CropSettings& v);
nlohmann::ordered_json toJson(const AppliedLUT& v);

// The last path component of a stored LUT file name; "" for "", ".", ".."
// and names made only of slashes. Keeps a recipe from pointing outside the
// LUT folder.
std::string bareLUTFileName(std::string_view storedName);

// ---- Mask records ------------------------------------------------------------------

// A point is a JSON array whose first two elements are numbers.
std::optional<Point> decodePoint(const nlohmann::json& value);
std::optional<RadialMaskGeometry> decodeRadialMaskGeometry(const nlohmann::json& value);
std::optional<LinearMaskGeometry> decodeLinearMaskGeometry(const nlohmann::json& value);
std::optional<LuminanceMaskGeometry> decodeLuminanceMaskGeometry(const nlohmann::json& value);
std::optional<ColorRangeGeometry> decodeColorRangeGeometry(const nlohmann::json& value);
std::optional<BrushStroke> decodeBrushStroke(const nlohmann::json& value);
std::optional<BitmapMaskData> decodeBitmapMaskData(const nlohmann::json& value);
// On failure, *error (when given) receives the reason; an object with other
// than one key gives "Invalid number of keys found, expected one.".
std::optional<MaskKind> decodeMaskKind(const nlohmann::json& value, std::string* error = nullptr);
// nullopt also when the mask's shape is absent or undecodable: a mask is not
// given an invented shape, so the list holding it falls back to empty.
std::optional<MaskLayer> decodeMaskLayer(const nlohmann::json& value);
std::optional<HealStroke> decodeHealStroke(const nlohmann::json& value);
std::optional<RedEyeSpot> decodeRedEyeSpot(const nlohmann::json& value);

nlohmann::ordered_json toJson(const Point& v);
nlohmann::ordered_json toJson(const RadialMaskGeometry& v);
nlohmann::ordered_json toJson(const LinearMaskGeometry& v);
nlohmann::ordered_json toJson(const LuminanceMaskGeometry& v);
nlohmann::ordered_json toJson(const ColorRangeGeometry& v);
nlohmann::ordered_json toJson(const BrushStroke& v);
nlohmann::ordered_json toJson(const BitmapMaskData& v);
nlohmann::ordered_json toJson(const MaskKind& v);
nlohmann::ordered_json toJson(const MaskLayer& v);
nlohmann::ordered_json toJson(const HealStroke& v);
nlohmann::ordered_json toJson(const RedEyeSpot& v);

// Compact text of any encoded value; invalid UTF-8 in strings is replaced,
// never thrown on.
std::string dumpCompact(const nlohmann::ordered_json& value);

}  // namespace vg
