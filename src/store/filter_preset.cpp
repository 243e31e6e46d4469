#include "store/filter_preset.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vg {
namespace {

ToneCurve curve(std::initializer_list<CurvePoint> points) {
  ToneCurve c;
  c.points = points;
  return c;
}

// Each look is written as a change of the default adjustments.
template <typename F>
FilterPreset look(std::string id, std::string name, F&& edit) {
  FilterPreset p{std::move(id), std::move(name), {}, std::nullopt};
  edit(p.adjustments);
  return p;
}

std::vector<FilterPreset> makeBuiltIns() {
  using A = GlobalAdjustments;
  std::vector<FilterPreset> list;
  list.push_back(look("vivid", "鲜艳", [](A& a) {
    a.contrast = 15;
    a.vibrance = 35;
    a.saturation = 10;
    a.clarity = 10;
    a.blacks = -5;
  }));
  list.push_back(look("soft-film", "柔和胶片", [](A& a) {
    a.contrast = -12;
    a.highlights = -20;
    a.shadows = 15;
    a.saturation = -10;
    a.grainAmount = 15;
    a.grainSize = 30;
    a.curves.rgb = curve({{0, 0.05}, {0.25, 0.24}, {0.75, 0.78}, {1, 0.96}});
    a.splitToning = {45, 12, 200, 8, 0};
  }));
  list.push_back(look("faded", "褪色", [](A& a) {
    a.contrast = -20;
    a.saturation = -25;
    a.curves.rgb = curve({{0, 0.12}, {0.5, 0.52}, {1, 0.92}});
  }));
  list.push_back(look("warm", "暖调", [](A& a) {
    a.temperature = 25;
    a.tint = 5;
    a.vibrance = 10;
  }));
  list.push_back(look("cool", "冷调", [](A& a) {
    a.temperature = -25;
    a.tint = -3;
    a.vibrance = 5;
  }));
  list.push_back(look("teal-orange", "电影青橙", [](A& a) {
    a.contrast = 15;
    a.saturation = -5;
    a.vignetteAmount = 15;
    a.hsl[HSLBandKind::orange] = {0, 15, 5};
    a.hsl[HSLBandKind::aqua] = {-10, 10, 0};
    a.hsl[HSLBandKind::blue] = {-15, 10, -5};
    a.splitToning = {35, 30, 190, 35, 10};
  }));
  list.push_back(look("bw-classic", "经典黑白", [](A& a) {
    a.monochrome = true;
    a.contrast = 15;
    a.clarity = 10;
  }));
  list.push_back(look("bw-high-contrast", "高反差黑白", [](A& a) {
    a.monochrome = true;
    a.monochromeRed = 60;  // a red filter: darker skies, brighter skin
    a.monochromeGreen = 30;
    a.monochromeBlue = 10;
    a.contrast = 45;
    a.whites = 15;
    a.blacks = -20;
    a.clarity = 20;
  }));
  list.push_back(look("high-key", "高调", [](A& a) {
    a.exposure = 0.6;
    a.contrast = -15;
    a.highlights = -20;
    a.shadows = 30;
    a.whites = 15;
    a.saturation = -10;
  }));
  list.push_back(look("low-key", "低调", [](A& a) {
    a.exposure = -0.5;
    a.contrast = 25;
    a.highlights = 10;
    a.shadows = -25;
    a.blacks = -20;
    a.vignetteAmount = 30;
  }));
  list.push_back(look("portrait-soft", "人像柔肤", [](A& a) {
    a.temperature = 5;
    a.texture = -25;
    a.clarity = -10;
    a.hsl[HSLBandKind::red] = {0, -5, 0};
    a.hsl[HSLBandKind::orange] = {0, -5, 10};
  }));
  list.push_back(look("landscape", "风光", [](A& a) {
    a.clarity = 25;
    a.dehaze = 15;
    a.vibrance = 30;
    a.sharpen = 30;
    a.hsl[HSLBandKind::green] = {0, 15, 0};
    a.hsl[HSLBandKind::blue] = {0, 15, -10};
  }));
  list.push_back(look("matte", "哑光", [](A& a) {
    a.contrast = -10;
    a.curves.rgb = curve({{0, 0.1}, {0.25, 0.25}, {0.75, 0.78}, {1, 0.95}});
  }));
  list.push_back(look("sepia", "复古棕褐", [](A& a) {
    // Saturation comes before split toning in the chain, so the toning
    // survives; monochrome would come after it and erase the tint.
    a.saturation = -100;
    a.contrast = 10;
    a.splitToning = {40, 35, 30, 45, -10};
  }));
  list.push_back(look("airy", "清新淡雅", [](A& a) {
    a.exposure = 0.35;
    a.contrast = -20;
    a.highlights = -25;
    a.shadows = 25;
    a.temperature = -10;
    a.saturation = -15;
    a.vibrance = 10;
    a.hsl[HSLBandKind::green] = {15, -10, 5};
  }));
  return list;
}

bool splitToningIsNeutral(const SplitToning& s) {
  return s.highlightSaturation == 0 && s.shadowSaturation == 0;
}

}  // namespace

std::span<const FilterPreset> builtInPresets() {
  static const std::vector<FilterPreset> presets = makeBuiltIns();
  return presets;
}

const FilterPreset* findBuiltInPreset(std::string_view id) {
  for (const auto& p : builtInPresets()) {
    if (p.id == id) return &p;
  }
  return nullptr;
}

GlobalAdjustments layPresetOver(const GlobalAdjustments& base, const GlobalAdjustments& look) {
  GlobalAdjustments target = base;
  for (const auto& field : scalarFields()) {
    if (look.*field.member != field.defaultValue) target.*field.member = look.*field.member;
  }
  if (look.monochrome) target.monochrome = true;
  for (CurveChannel c : kCurveChannels) {
    if (!look.curves[c].isIdentity()) target.curves[c] = look.curves[c];
  }
  target.hsl.normalize();
  for (size_t i = 0; i < kHSLBandCount && i < look.hsl.bands.size(); ++i) {
    if (look.hsl.bands[i] != HSLBand{}) target.hsl.bands[i] = look.hsl.bands[i];
  }
  if (!splitToningIsNeutral(look.splitToning)) target.splitToning = look.splitToning;
  return target;
}

EditDocument applyPreset(const EditDocument& doc, const FilterPreset& preset,
                         double strengthPercent) {
  double strength = std::isfinite(strengthPercent) ? std::clamp(strengthPercent, 0.0, 100.0) : 100.0;
  EditDocument out = doc;
  GlobalAdjustments base =
      doc.filterID && doc.preFilterAdjustments ? *doc.preFilterAdjustments : doc.adjustments;
  out.adjustments = interpolate(base, layPresetOver(base, preset.adjustments), strength / 100.0);
  out.preFilterAdjustments = base;
  out.filterID = preset.id;
  out.filterStrength = strength;
  if (preset.lut) {
    AppliedLUT lut = *preset.lut;
    lut.strength = std::clamp(lut.strength * strength / 100.0, 0.0, 100.0);
    out.lut = lut;
  }
  return out;
}

EditDocument removePreset(const EditDocument& doc, const FilterPreset* appliedPreset) {
  if (!doc.filterID) return doc;
  EditDocument out = doc;
  if (doc.preFilterAdjustments) out.adjustments = *doc.preFilterAdjustments;
  out.preFilterAdjustments.reset();
  out.filterID.reset();
  out.filterStrength = 100;
  if (appliedPreset && appliedPreset->lut && out.lut &&
      out.lut->filename == appliedPreset->lut->filename) {
    out.lut.reset();
  }
  return out;
}

}  // namespace vg
