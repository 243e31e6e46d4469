// EditorSession: the discrete edits, each one committed step with its label,
// and click-to-sample.
#include <algorithm>
#include <cmath>

#include "model/json.h"
#include "render/srgb.h"
#include "session/editor_session.h"
#include "store/preset_library.h"

namespace vg {

namespace {

// A new mask of each kind the mask panel offers: its undo label and name.
struct NewMaskKind {
  MaskKindCase kind;
  std::string_view label;
  std::string_view name;
};
constexpr NewMaskKind kNewMasks[] = {
    {MaskKindCase::radial, "新建径向蒙版", "径向蒙版"},
    {MaskKindCase::linear, "新建渐变蒙版", "渐变蒙版"},
    {MaskKindCase::brush, "新建画笔蒙版", "画笔蒙版"},
    {MaskKindCase::luminosity, "新建亮度蒙版", "亮度蒙版"},
};
constexpr std::string_view kColorRangeMaskName = "颜色范围蒙版";
constexpr std::string_view kColorRangeSampleLabel = "颜色范围取样";

MaskKind defaultShape(MaskKindCase kind) {
  switch (kind) {
    case MaskKindCase::linear: return LinearMaskGeometry{};
    case MaskKindCase::brush: return std::vector<BrushStroke>{};
    case MaskKindCase::luminosity: return LuminanceMaskGeometry{};
    default: return RadialMaskGeometry{};
  }
}

MaskLayer* findMask(EditDocument& doc, const std::optional<Uuid>& id) {
  if (!id) return nullptr;
  auto it = std::find_if(doc.masks.begin(), doc.masks.end(), [&](const MaskLayer& m) { return m.id == *id; });
  return it == doc.masks.end() ? nullptr : &*it;
}

std::string quoted(std::string_view before, std::string_view name, std::string_view after = "」") {
  return std::string(before) + std::string(name) + std::string(after);
}

}  // namespace

MaskLayer* EditorSession::selectedMask(EditDocument& doc) const { return findMask(doc, selectedMaskID_); }

// ---- Copy and paste -----------------------------------------------------------------

void EditorSession::pasteAdjustments(const GlobalAdjustments& adjustments) {
  if (closed_) return;
  EditDocument doc = document_;
  doc.adjustments = adjustments;
  doc.adjustments.hsl.normalize();
  replaceDocument(std::move(doc));
  recordStep("粘贴调整参数");
  showToast("已粘贴调整参数", ToastMessage::Kind::success);
}

std::optional<GlobalAdjustments> EditorSession::copyMaskAdjustments(const Uuid& maskID) {
  EditDocument doc = document_;
  const MaskLayer* mask = findMask(doc, maskID);
  if (!mask) return std::nullopt;
  copiedMaskAdjustments_ = mask->adjustments;
  showToast(quoted("已复制「", mask->name, "」的局部调整参数"), ToastMessage::Kind::success);
  return copiedMaskAdjustments_;
}

bool EditorSession::pasteMaskAdjustments(const GlobalAdjustments& adjustments) {
  if (closed_) return false;
  EditDocument doc = document_;
  MaskLayer* mask = selectedMask(doc);
  if (!mask) {
    showToast("请先选择要粘贴到的蒙版", ToastMessage::Kind::warning);
    return false;
  }
  mask->adjustments = adjustments;
  mask->adjustments.hsl.normalize();
  const std::string name = mask->name;
  replaceDocument(std::move(doc));
  recordStep("粘贴蒙版参数");
  showToast(quoted("已粘贴到「", name), ToastMessage::Kind::success);
  return true;
}

bool EditorSession::pasteMaskAdjustments() {
  if (!copiedMaskAdjustments_) {
    showToast("没有已复制的蒙版参数", ToastMessage::Kind::warning);
    return false;
  }
  return pasteMaskAdjustments(*copiedMaskAdjustments_);
}

// ---- Masks ---------------------------------------------------------------------------------

void EditorSession::selectMask(std::optional<Uuid> maskID) {
  if (maskID == selectedMaskID_) return;
  selectedMaskID_ = maskID;
  notify(Change::selectedMask);
}

std::optional<Uuid> EditorSession::addMask(MaskKindCase kind) {
  auto it = std::find_if(std::begin(kNewMasks), std::end(kNewMasks), [&](const auto& k) { return k.kind == kind; });
  if (it == std::end(kNewMasks) || closed_) return std::nullopt;
  MaskLayer mask;
  mask.name = std::string(it->name);
  mask.kind = defaultShape(kind);
  const Uuid id = mask.id;
  applyEdit(std::string(it->label), [&](EditDocument& doc) { doc.masks.push_back(std::move(mask)); });
  selectMask(id);
  return id;
}

bool EditorSession::removeMask(const Uuid& maskID) {
  const bool removed = applyEdit("删除蒙版", [&](EditDocument& doc) {
    std::erase_if(doc.masks, [&](const MaskLayer& m) { return m.id == maskID; });
  });
  if (removed && selectedMaskID_ == maskID) selectMask(std::nullopt);
  return removed;
}

bool EditorSession::addSubtractShape(MaskKind shape) {
  return applyEdit("添加减去形状", [&](EditDocument& doc) {
    if (MaskLayer* mask = selectedMask(doc)) {
      mask->subtracts.push_back(std::move(shape));
      mask->subtractIDs.push_back(Uuid::random());
    }
  });
}

bool EditorSession::removeSubtractShape(const Uuid& subtractID) {
  return applyEdit("移除减去形状", [&](EditDocument& doc) {
    MaskLayer* mask = selectedMask(doc);
    if (!mask) return;
    mask->repairSubtractIDs();
    auto it = std::find(mask->subtractIDs.begin(), mask->subtractIDs.end(), subtractID);
    if (it == mask->subtractIDs.end()) return;
    const auto index = it - mask->subtractIDs.begin();
    mask->subtracts.erase(mask->subtracts.begin() + index);
    mask->subtractIDs.erase(it);
  });
}

bool EditorSession::clearSubtractShapes() {
  return applyEdit("清除减去区域", [&](EditDocument& doc) {
    if (MaskLayer* mask = selectedMask(doc)) {
      mask->subtracts.clear();
      mask->subtractIDs.clear();
    }
  });
}

// ---- Healing and red eyes --------------------------------------------------------------------

void EditorSession::addHealStroke(HealStroke stroke) {
  applyEdit("修复笔触", [&](EditDocument& doc) { doc.heals.push_back(std::move(stroke)); });
}

bool EditorSession::removeHealStroke(size_t index) {
  return applyEdit("移除修复笔触", [&](EditDocument& doc) {
    if (index < doc.heals.size()) doc.heals.erase(doc.heals.begin() + std::ptrdiff_t(index));
  });
}

bool EditorSession::clearHealStrokes() {
  return applyEdit("清除全部修复", [](EditDocument& doc) { doc.heals.clear(); });
}

Uuid EditorSession::addRedEyeSpot(Point center, double radius) {
  RedEyeSpot spot;
  spot.center = center;
  spot.radius = std::isfinite(radius) ? std::clamp(radius, 0.0, 1.0) : 0.0;
  applyEdit("添加红眼点", [&](EditDocument& doc) { doc.redEyes.push_back(spot); });
  return spot.id;
}

bool EditorSession::removeRedEyeSpot(const Uuid& spotID) {
  const auto& spots = document_.redEyes;
  auto it = std::find_if(spots.begin(), spots.end(), [&](const RedEyeSpot& s) { return s.id == spotID; });
  if (it == spots.end()) return false;
  const auto number = (it - spots.begin()) + 1;
  return applyEdit("移除红眼点 " + std::to_string(number), [&](EditDocument& doc) {
    std::erase_if(doc.redEyes, [&](const RedEyeSpot& s) { return s.id == spotID; });
  });
}

// ---- Crop ----------------------------------------------------------------------------------------

void EditorSession::rotate90(bool clockwise) {
  applyEdit(clockwise ? "顺时针旋转 90°" : "逆时针旋转 90°",
            [&](EditDocument& doc) { doc.crop = rotatedQuarter(doc.crop, clockwise); });
}

void EditorSession::flip(bool horizontal) {
  applyEdit(horizontal ? "水平翻转" : "垂直翻转",
            [&](EditDocument& doc) { doc.crop = mirroredOnScreen(doc.crop, horizontal); });
}

void EditorSession::setStraightenAngle(double degrees) {
  EditDocument doc = document_;
  doc.crop = straightened(doc.crop, degrees, pixelSize_.width, pixelSize_.height);
  commit(std::move(doc));
}

// ---- Sampling ------------------------------------------------------------------------------------

void EditorSession::armSampling(SamplingMode mode) {
  if (samplingMode_ == mode) return;
  samplingMode_ = mode;
  notify(Change::sampling);
}

void EditorSession::disarmSampling() {
  if (!samplingMode_) return;
  samplingMode_.reset();
  notify(Change::sampling);
}

std::optional<std::array<float, 4>> EditorSession::sampleSource(PointF outputPoint, const Geometry& g) const {
  const Image& source = *sources_.preview;
  const PointF s = g.toSource(outputPoint);
  const Rect& b = source.bounds();
  if (!(s.x >= b.x && s.x < b.right() && s.y >= b.y && s.y < b.bottom())) return std::nullopt;
  const int cx = int(std::floor(s.x)), cy = int(std::floor(s.y));
  std::array<float, 4> sum{};
  int n = 0;
  for (int y = std::max(b.y, cy - 1); y <= std::min(b.bottom() - 1, cy + 1); ++y) {
    for (int x = std::max(b.x, cx - 1); x <= std::min(b.right() - 1, cx + 1); ++x, ++n) {
      const float* p = source.at(x, y);
      for (int c = 0; c < 4; ++c) sum[c] += p[c];
    }
  }
  for (float& v : sum) v /= float(n);
  return sum;
}

std::optional<std::array<float, 4>> EditorSession::sampleColorStage(const EditDocument& doc,
                                                                     PointF outputPoint) const {
  const Geometry g(sources_.preview->bounds(), geometryParams(doc), true);
  const Rect area = Rect{int(std::floor(outputPoint.x)) - 1, int(std::floor(outputPoint.y)) - 1, 3, 3}.intersected(
      g.outputRect());
  if (area.empty()) return std::nullopt;
  const ColorStage stage = services_.engine->colorStage(*sources_.preview, doc, sources_.previewScale, true, area,
                                                        sources_.previewId);
  const Rect covered = stage.image->bounds().intersected(area);
  if (covered.empty()) return std::nullopt;
  std::array<float, 4> sum{};
  for (int y = covered.y; y < covered.bottom(); ++y) {
    for (int x = covered.x; x < covered.right(); ++x) {
      const float* p = stage.image->at(x, y);
      for (int c = 0; c < 4; ++c) sum[c] += p[c];
    }
  }
  for (float& v : sum) v /= float(covered.area());
  return sum;
}

EditorSession::SampleOutcome EditorSession::sampleAt(PointF p) {
  if (!samplingMode_ || !sources_.preview || closed_) return SampleOutcome::notArmed;
  const SamplingMode mode = *samplingMode_;
  auto refuse = [&](SampleRejection rejection) {
    showToast(std::string(rejectionMessage(rejection)), ToastMessage::Kind::warning);
    return rejection == SampleRejection::transparent ? SampleOutcome::transparent : SampleOutcome::badlyExposed;
  };
  if (!(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1)) return refuse(SampleRejection::transparent);

  const EditDocument shown = previewDocument();
  const Geometry g(sources_.preview->bounds(), geometryParams(shown), true);
  const Rect out = g.outputRect();
  const PointF at{out.x + std::min(p.x * out.width, out.width - 0.5), out.y + std::min(p.y * out.height, out.height - 0.5)};
  // The global white balance reads the source as decoded; a mask's white
  // balance and colours read the picture as the masks see it.
  const bool globalBalance = mode.kind == SamplingMode::Kind::whiteBalance && !mode.maskID;
  const auto pixel = globalBalance ? sampleSource(at, g) : sampleColorStage(shown, at);
  if (!pixel) return refuse(SampleRejection::transparent);
  if (auto rejection = judgeSample(pixel->data(), mode.kind == SamplingMode::Kind::whiteBalance))
    return refuse(*rejection);
  const float a = (*pixel)[3];
  const double r = (*pixel)[0] / a, gr = (*pixel)[1] / a, b = (*pixel)[2] / a;

  if (mode.kind == SamplingMode::Kind::whiteBalance) {
    const WhiteBalanceValues wb = whiteBalanceFromLinear(r, gr, b);
    EditDocument doc = document_;
    GlobalAdjustments* target = &doc.adjustments;
    if (mode.maskID) {
      MaskLayer* mask = findMask(doc, mode.maskID);
      if (!mask) {
        disarmSampling();
        return SampleOutcome::notArmed;
      }
      target = &mask->adjustments;
    }
    target->temperature = wb.temperature;
    target->tint = wb.tint;
    commit(std::move(doc));
    recordStep("白平衡取样");
  } else {
    ColorRangeGeometry colour;
    auto encoded = [](double v) { return std::clamp(double(srgb::encode(float(v))), 0.0, 1.0); };
    colour.red = encoded(r);
    colour.green = encoded(gr);
    colour.blue = encoded(b);
    if (mode.kind == SamplingMode::Kind::newColorRange) {
      MaskLayer mask;
      mask.name = std::string(kColorRangeMaskName);
      mask.kind = colour;
      const Uuid id = mask.id;
      applyEdit(std::string(kColorRangeSampleLabel), [&](EditDocument& doc) { doc.masks.push_back(std::move(mask)); });
      selectMask(id);
    } else {
      EditDocument doc = document_;
      MaskLayer* mask = findMask(doc, mode.maskID);
      auto* geometry = mask ? std::get_if<ColorRangeGeometry>(&mask->kind) : nullptr;
      if (!geometry) {
        disarmSampling();
        return SampleOutcome::notArmed;
      }
      geometry->red = colour.red;
      geometry->green = colour.green;
      geometry->blue = colour.blue;
      commit(std::move(doc));
      recordStep(std::string(kColorRangeSampleLabel));
    }
  }
  disarmSampling();
  return SampleOutcome::applied;
}

// ---- Filters and LUTs ------------------------------------------------------------------------------

std::optional<FilterPreset> EditorSession::findPreset(std::string_view id) const {
  return PresetLibrary(presetsFolder_).find(id);
}

void EditorSession::applyFilterPreset(const FilterPreset& preset, double strength) {
  applyEdit(quoted("应用滤镜「", preset.name), [&](EditDocument& doc) { doc = applyPreset(doc, preset, strength); });
}

bool EditorSession::setFilterStrength(double strength) {
  if (!document_.filterID || closed_) return false;
  const auto preset = findPreset(*document_.filterID);
  if (!preset) return false;
  commit(applyPreset(document_, *preset, strength));
  return true;
}

void EditorSession::removeFilterPreset() {
  if (!document_.filterID) return;
  const auto preset = findPreset(*document_.filterID);
  applyEdit("移除滤镜", [&](EditDocument& doc) { doc = removePreset(doc, preset ? &*preset : nullptr); });
}

void EditorSession::applyLUT(AppliedLUT lut) {
  lut.filename = bareLUTFileName(lut.filename);
  lut.strength = std::isfinite(lut.strength) ? std::clamp(lut.strength, 0.0, 100.0) : 100.0;
  if (lut.filename.empty()) return;
  const std::string name = lut.name.empty() ? lut.filename : lut.name;
  applyEdit(quoted("应用 LUT「", name), [&](EditDocument& doc) { doc.lut = lut; });
}

void EditorSession::removeLUT() {
  applyEdit("移除 LUT", [](EditDocument& doc) { doc.lut.reset(); });
}

}  // namespace vg
