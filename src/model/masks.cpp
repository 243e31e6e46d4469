#include "model/masks.h"

namespace vg {

std::string_view autoMaskSourceName(AutoMaskSource s) {
  switch (s) {
    case AutoMaskSource::magicWand: return "magicWand";
    case AutoMaskSource::subject: return "subject";
    case AutoMaskSource::sky: return "sky";
    case AutoMaskSource::background: return "background";
  }
  return "magicWand";
}

std::optional<AutoMaskSource> autoMaskSourceFromName(std::string_view name) {
  for (auto s : {AutoMaskSource::magicWand, AutoMaskSource::subject, AutoMaskSource::sky,
                 AutoMaskSource::background}) {
    if (autoMaskSourceName(s) == name) return s;
  }
  return std::nullopt;
}

std::string_view maskKindCaseName(MaskKindCase c) {
  switch (c) {
    case MaskKindCase::radial: return "radial";
    case MaskKindCase::linear: return "linear";
    case MaskKindCase::brush: return "brush";
    case MaskKindCase::bitmap: return "bitmap";
    case MaskKindCase::luminosity: return "luminosity";
    case MaskKindCase::colorRange: return "colorRange";
  }
  return "radial";
}

MaskLayer::RenderData MaskLayer::renderData() const {
  return RenderData{id, enabled, kind, adjustments, subtracts};
}

void MaskLayer::repairSubtractIDs() {
  if (subtractIDs.size() > subtracts.size()) subtractIDs.resize(subtracts.size());
  while (subtractIDs.size() < subtracts.size()) subtractIDs.push_back(Uuid::random());
}

std::vector<SubtractRow> MaskLayer::subtractRows() const {
  std::vector<SubtractRow> rows;
  rows.reserve(subtracts.size());
  for (std::size_t i = 0; i < subtracts.size(); ++i) {
    rows.push_back({i, i < subtractIDs.size() ? subtractIDs[i] : Uuid{}});
  }
  return rows;
}

void hashAppend(Hasher& h, const Point& v) {
  h.addDouble(v.x);
  h.addDouble(v.y);
}

void hashAppend(Hasher& h, const RadialMaskGeometry& v) {
  hashAppend(h, v.center);
  h.addDouble(v.radiusX);
  h.addDouble(v.radiusY);
  h.addDouble(v.angle);
  h.addDouble(v.feather);
  h.addBool(v.invert);
}

void hashAppend(Hasher& h, const LinearMaskGeometry& v) {
  hashAppend(h, v.center);
  h.addDouble(v.angle);
  h.addDouble(v.length);
  h.addDouble(v.feather);
  h.addBool(v.invert);
}

void hashAppend(Hasher& h, const LuminanceMaskGeometry& v) {
  h.addDouble(v.low);
  h.addDouble(v.high);
  h.addDouble(v.feather);
  h.addBool(v.invert);
}

void hashAppend(Hasher& h, const ColorRangeGeometry& v) {
  h.addDouble(v.red);
  h.addDouble(v.green);
  h.addDouble(v.blue);
  h.addDouble(v.tolerance);
  h.addDouble(v.feather);
  h.addBool(v.invert);
}

void hashAppend(Hasher& h, const BrushStroke& v) {
  hashAppend(h, v.points);
  h.addDouble(v.size);
  h.addDouble(v.hardness);
  h.addDouble(v.flow);
  h.addBool(v.erase);
}

void hashAppend(Hasher& h, const BitmapMaskData& v) {
  // An empty vector's data() may be null, which memcpy must never see.
  static constexpr std::uint8_t kNoBytes[1] = {0};
  h.addBytes(v.compressedData.empty() ? kNoBytes : v.compressedData.data(),
             v.compressedData.size());
  h.addInt(v.width);
  h.addInt(v.height);
  h.addInt(static_cast<std::int64_t>(v.source));
  hashAppend(h, v.id);
}

void hashAppend(Hasher& h, const MaskKind& v) {
  h.addCount(v.index());
  std::visit([&](const auto& carried) { hashAppend(h, carried); }, v);
}

void hashAppend(Hasher& h, const MaskLayer& v) {
  hashAppend(h, v.id);
  h.addString(v.name);
  h.addBool(v.enabled);
  hashAppend(h, v.kind);
  hashAppend(h, v.adjustments);
  hashAppend(h, v.subtracts);
  hashAppend(h, v.subtractIDs);
}

void hashAppend(Hasher& h, const MaskLayer::RenderData& v) {
  hashAppend(h, v.id);
  h.addBool(v.enabled);
  hashAppend(h, v.kind);
  hashAppend(h, v.adjustments);
  hashAppend(h, v.subtracts);
}

void hashAppend(Hasher& h, const HealStroke& v) {
  hashAppend(h, v.points);
  h.addDouble(v.size);
}

void hashAppend(Hasher& h, const RedEyeSpot& v) {
  hashAppend(h, v.id);
  hashAppend(h, v.center);
  h.addDouble(v.radius);
}

}  // namespace vg
