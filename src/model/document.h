// EditDocument: the complete, non-destructive edit recipe of one image.
//
// A plain value, copied, compared (exact, field by field in order) and hashed
// freely. Its JSON form is in model/json.h. Documents that come out of the
// decoder hold no NaN or infinite number anywhere, every value lies in its
// range, and every GlobalAdjustments inside has exactly 8 HSL bands.
//
// `filterID` and `preFilterAdjustments` belong together: when a filter preset
// is applied, the manual adjustments in force are kept in
// `preFilterAdjustments`, `filterID` names the preset, and `adjustments`
// holds their blend at `filterStrength`. Without a filter both are absent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/adjustments.h"
#include "model/field_table.h"
#include "model/hashing.h"
#include "model/masks.h"

namespace vg {

inline constexpr std::int64_t kCurrentSchemaVersion = 1;

struct EditDocument {
  GlobalAdjustments adjustments;
  std::vector<MaskLayer> masks;
  CropSettings crop;
  RAWDevelopSettings raw;
  LensCorrectionSettings lens;
  std::vector<HealStroke> heals;
  std::vector<RedEyeSpot> redEyes;
  std::optional<std::string> filterID;  // the applied filter preset
  double filterStrength = 100;          // percent, 0...100
  std::optional<GlobalAdjustments> preFilterAdjustments;
  // Version tag of the convention mask, heal and red-eye positions are stored
  // in; carried through unchanged (the editor migrates older conventions).
  std::optional<std::int64_t> coordinateSpace;
  std::int64_t schemaVersion = kCurrentSchemaVersion;
  std::optional<AppliedLUT> lut;

  // The render-relevant subset of a document: two documents with equal
  // signatures render the same pixels, so it keys render and thumbnail
  // caches. Left out: filterID, filterStrength and preFilterAdjustments (the
  // filter is already folded into adjustments), coordinateSpace,
  // schemaVersion, and each mask's name and subtract IDs.
  struct RenderSignature {
    GlobalAdjustments adjustments;
    std::vector<MaskLayer::RenderData> masks;
    CropSettings crop;
    RAWDevelopSettings raw;
    LensCorrectionSettings lens;
    std::vector<HealStroke> heals;
    std::vector<RedEyeSpot> redEyes;
    std::optional<AppliedLUT> lut;
    bool operator==(const RenderSignature&) const = default;
  };

  bool operator==(const EditDocument&) const = default;
};

// The document's own plain field: filterStrength.
const FieldTable<EditDocument>& documentFields();

EditDocument::RenderSignature renderSignature(const EditDocument& doc);

// True when the document changes nothing, so no sidecar needs to exist:
// default adjustments; no masks, heals, red-eye spots, LUT or filter; a crop
// with no angle, turn, rectangle or flip (an aspect lock alone is no edit);
// RAW settings at their defaults; no lens distortion or vignetting
// compensation. filterStrength, preFilterAdjustments, coordinateSpace,
// schemaVersion and the lens vignette midpoint and feather are not looked at.
bool isNoEdit(const EditDocument& doc);

void hashAppend(Hasher& h, const EditDocument& v);
void hashAppend(Hasher& h, const EditDocument::RenderSignature& v);

}  // namespace vg

VG_STD_HASH(vg::EditDocument);
VG_STD_HASH(vg::EditDocument::RenderSignature);
