#include "render/document_render.h"

#include <atomic>

namespace vg {

bool maskLayerActive(const MaskLayer& m) { return m.enabled && !(m.adjustments == GlobalAdjustments{}); }

bool maskLayerReadsColorStage(const MaskLayer& m) {
  return readsColorStage(m.kind) || std::any_of(m.subtracts.begin(), m.subtracts.end(), readsColorStage);
}

std::uint64_t nextColorStageId() {
  static std::atomic<std::uint64_t> counter{0};
  return ++counter;
}

MaskImages rasterizeMasks(const EditDocument& recipe, const Geometry& geometry, bool integral, const Image* colorStage,
                          MaskImageCache& cache, std::uint64_t colorStageId, std::vector<std::string>* errors) {
  MaskImages out;
  const GeometryParams params = geometryParams(recipe);
  for (const MaskLayer& m : recipe.masks) {
    if (!maskLayerActive(m)) continue;
    MaskFrame frame{&geometry, geometry.outputRect(), colorStage};
    std::string error;
    auto mask = cache.layerMask(m.renderData(), frame, params, integral, colorStageId, &error);
    if (mask) {
      out[m.id] = std::move(mask);
    } else if (errors) {
      errors->push_back(error);
    }
  }
  return out;
}

DocumentRender renderDocument(RenderEngine& engine, MaskImageCache& cache, const Image& source,
                              const EditDocument& recipe, const RenderOptions& options, const MaskImages& overrides) {
  DocumentRender result;
  Geometry geometry(source.bounds(), geometryParams(recipe), options.integralRect);
  bool needsColor = false, anyMask = false;
  for (const MaskLayer& m : recipe.masks) {
    if (!maskLayerActive(m) || overrides.count(m.id)) continue;
    anyMask = true;
    needsColor = needsColor || maskLayerReadsColorStage(m);
  }
  std::optional<ColorStage> colorStage;
  MaskImages masks;
  if (anyMask) {
    if (needsColor)
      colorStage = engine.colorStage(source, recipe, options.scale, options.integralRect, {}, options.sourceId,
                                      options.cancel);
    masks = rasterizeMasks(recipe, geometry, options.integralRect, colorStage ? colorStage->image.get() : nullptr, cache,
                           colorStage ? nextColorStageId() : 0, &result.maskErrors);
  }
  for (const auto& [id, mask] : overrides) masks[id] = mask;
  result.image = engine.render(source, recipe, masks, options, colorStage ? &*colorStage : nullptr);
  return result;
}

}  // namespace vg
