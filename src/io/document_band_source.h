// DocumentBandSource: a recipe rendered on demand, band by band, as the
// exporter pulls it (band_source.h). The picture is the same as
// renderDocument() gives at render scale 1, within the render engine's
// sub-rectangle tolerance; only the band being encoded is ever held.
//
// Set-up (constructor): the geometry and output rectangle of the recipe; the
// mask images of the active layers, rasterised once over the output frame
// (layers that read the colour stage get it computed once, whole); mask
// errors are logged and listed in maskErrors(), as renderDocument does.
// Band coordinates are relative to the output rectangle's top-left corner.
//
// opaque(): true when every output pixel has alpha 1: the source is opaque
// (sourceOpaque, which the loader learnt while decoding) and the geometry
// covers the output rectangle with source pixels (Geometry::coversOutput:
// a straightened crop past the turned picture, or lens distortion, can
// leave transparent corners). No stage after the geometry changes alpha.
//
// The engine and source must outlive the band source.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/document.h"
#include "render/band_source.h"
#include "render/geometry.h"
#include "render/mask_rasterizer.h"
#include "render/render_engine.h"

namespace vg {

class DocumentBandSource final : public BandSource {
 public:
  DocumentBandSource(RenderEngine& engine, const Image& source, bool sourceOpaque, EditDocument recipe);

  int width() const override { return output_.width; }
  int height() const override { return output_.height; }
  bool opaque() const override { return opaque_; }
  Image renderBand(const Rect& rect) override;
  // The reach of the recipe's neighbourhood stages (blurs, clarity), global
  // and in the masks' own adjustments.
  int haloRows() const override { return halo_; }

  const std::vector<std::string>& maskErrors() const { return maskErrors_; }

 private:
  RenderEngine& engine_;
  const Image& source_;
  EditDocument recipe_;
  Rect output_;
  bool opaque_ = true;
  int halo_ = 0;
  MaskImageCache maskCache_;
  MaskImages masks_;
  std::optional<ColorStage> colorStage_;
  std::vector<std::string> maskErrors_;
};

}  // namespace vg
