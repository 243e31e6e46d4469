#include "session/preview_render.h"

namespace vg {

Image renderDocumentRegion(RenderEngine& engine, MaskImageCache& cache, const Image& source,
                           const EditDocument& recipe, const RenderOptions& options) {
  if (!options.region) return renderDocument(engine, cache, source, recipe, options).image;
  const GeometryParams params = geometryParams(recipe);
  const Geometry geometry(source.bounds(), params, options.integralRect);
  const Rect target = options.region->intersected(geometry.outputRect());
  if (target.empty()) return Image(target);

  int halo = 0;
  bool needsColor = false;
  for (const MaskLayer& m : recipe.masks) {
    if (!maskLayerActive(m)) continue;
    halo += RenderEngine::chainHalo(m.adjustments, options.scale);
    needsColor = needsColor || maskLayerReadsColorStage(m);
  }
  const Rect work = target.grown(halo).intersected(geometry.outputRect());
  std::optional<ColorStage> colorStage;
  if (needsColor) {
    colorStage = engine.colorStage(source, recipe, options.scale, options.integralRect, work, options.sourceId,
                                   options.cancel);
  }
  const std::uint64_t colorStageId = colorStage ? nextColorStageId() : 0;
  MaskImages masks;
  for (const MaskLayer& m : recipe.masks) {
    if (!maskLayerActive(m)) continue;
    MaskFrame frame{&geometry, work, colorStage ? colorStage->image.get() : nullptr};
    if (auto mask = cache.layerMask(m.renderData(), frame, params, options.integralRect, colorStageId))
      masks[m.id] = std::move(mask);
  }
  return engine.render(source, recipe, masks, options, colorStage ? &*colorStage : nullptr);
}

}  // namespace vg
