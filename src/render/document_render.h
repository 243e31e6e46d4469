// renderDocument: the whole picture of a recipe in one call, for the tools
// that have a source and a recipe and want the edited image (command line,
// export, batch): the colour stage, each mask layer rasterised in the output
// frame (through the mask cache; luminosity and colour-range layers read the
// colour stage), then the local pass and finishing.
//
// A mask layer whose bitmap does not decompress is skipped; its message
// ("蒙版数据损坏") is logged and returned in maskErrors. `overrides` replace the
// rasterised mask of the layers they name (by id).
#pragma once

#include <string>
#include <vector>

#include "render/mask_rasterizer.h"
#include "render/render_engine.h"

namespace vg {

struct DocumentRender {
  Image image;
  std::vector<std::string> maskErrors;
};

// A layer changes the picture when it is enabled and has adjustments.
bool maskLayerActive(const MaskLayer& m);
// The layer's mask, or one of its subtracts, reads the colour stage.
bool maskLayerReadsColorStage(const MaskLayer& m);
// A new identity for a colour stage a render computes: the mask cache keys
// colour-dependent masks by it, so it never serves one made from other pixels.
std::uint64_t nextColorStageId();

// The mask images of every layer that needs one, over the whole output frame
// (integral: the output rectangle was made integral, as `geometry` was built).
// colorStage: the colour stage over the output rectangle (read by luminosity
// and colour-range layers; may be null when no layer reads it).
MaskImages rasterizeMasks(const EditDocument& recipe, const Geometry& geometry, bool integral, const Image* colorStage,
                          MaskImageCache& cache, std::uint64_t colorStageId, std::vector<std::string>* errors);

DocumentRender renderDocument(RenderEngine& engine, MaskImageCache& cache, const Image& source,
                              const EditDocument& recipe, const RenderOptions& options,
                              const MaskImages& overrides = {});

}  // namespace vg
