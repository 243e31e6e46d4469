#include "io/document_band_source.h"

#include <algorithm>
#include <stdexcept>

#include "render/document_render.h"

namespace vg {

DocumentBandSource::DocumentBandSource(RenderEngine& engine, const Image& source, bool sourceOpaque,
                                       EditDocument recipe)
    : engine_(engine), source_(source), recipe_(std::move(recipe)) {
  Geometry geometry(source.bounds(), geometryParams(recipe_), false);
  output_ = geometry.outputRect();
  opaque_ = sourceOpaque && geometry.coversOutput();
  halo_ = RenderEngine::chainHalo(recipe_.adjustments, 1.0);
  for (const MaskLayer& m : recipe_.masks) {
    if (m.enabled) halo_ += RenderEngine::chainHalo(m.adjustments, 1.0);
  }

  bool anyMask = false, needsColor = false;
  for (const MaskLayer& m : recipe_.masks) {
    if (!m.enabled || m.adjustments == GlobalAdjustments{}) continue;
    anyMask = true;
    needsColor = needsColor || readsColorStage(m.kind) ||
                 std::any_of(m.subtracts.begin(), m.subtracts.end(), readsColorStage);
  }
  if (!anyMask) return;
  if (needsColor) colorStage_ = engine.colorStage(source, recipe_, 1.0, false);
  masks_ = rasterizeMasks(recipe_, geometry, false, colorStage_ ? colorStage_->image.get() : nullptr, maskCache_,
                          colorStage_ ? 1 : 0, &maskErrors_);
}

Image DocumentBandSource::renderBand(const Rect& rect) {
  if (!Rect{0, 0, output_.width, output_.height}.contains(rect)) throw std::out_of_range("band outside the picture");
  RenderOptions options;
  options.region = rect.translated(output_.x, output_.y);
  Image band = engine_.render(source_, recipe_, masks_, options, colorStage_ ? &*colorStage_ : nullptr);
  band.setOrigin(rect.x, rect.y);
  return band;
}

}  // namespace vg
