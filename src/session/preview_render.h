// renderDocumentRegion: renderDocument (render/document_render.h) for a part
// of the output frame. The masks are rasterised only over the part the local
// pass reads (the region grown by the reach of the mask layers' own
// neighbourhood stages), and a colour stage that colour-reading masks need is
// computed over that part only, so a 1600 x 1000 view of a 24-megapixel
// picture costs a 1600 x 1000 render. Without options.region it is
// renderDocument itself. The pixels equal the same crop of a whole render
// within the engine's region tolerance (render_engine.h).
#pragma once

#include "render/document_render.h"

namespace vg {

Image renderDocumentRegion(RenderEngine& engine, MaskImageCache& cache, const Image& source,
                           const EditDocument& recipe, const RenderOptions& options);

}  // namespace vg
