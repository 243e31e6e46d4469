#include "session/preview_scheduler.h"

#include <cmath>

#include "session/preview_render.h"

namespace vg {

namespace {

// A render on the background: the picture at `scale`, or nothing when the
// request was superseded while it ran.
std::optional<PreviewFrame> renderFrame(RenderEngine& engine, MaskImageCache& masks, const Image& source,
                                        const EditDocument& doc, double scale, HealSourceId sourceId,
                                        std::optional<Rect> region, const AsyncCancelToken& token) {
  RenderOptions options;
  options.scale = scale;
  options.integralRect = true;
  options.region = region;
  options.sourceId = sourceId;
  options.cancel = &token;
  Image image = renderDocumentRegion(engine, masks, source, doc, options);
  if (token.isCancelled()) return std::nullopt;
  PreviewFrame frame;
  frame.scale = scale;
  frame.frame = Geometry(source.bounds(), geometryParams(doc), true).outputRect();
  frame.image = std::make_shared<const Image>(std::move(image));
  return frame;
}

// The visible rectangle in whole pixels, grown outwards.
Rect outwards(const RectF& r) {
  const int x0 = int(std::floor(r.x)), y0 = int(std::floor(r.y));
  const int x1 = int(std::ceil(r.right())), y1 = int(std::ceil(r.bottom()));
  return Rect{x0, y0, std::max(0, x1 - x0), std::max(0, y1 - y0)};
}

}  // namespace

EditDocument PreviewScheduler::originalDocument(const EditDocument& doc) {
  EditDocument original;
  original.crop = doc.crop;
  original.lens.distortion = doc.lens.distortion;
  return original;
}

PreviewScheduler::PreviewScheduler(MainExecutor& main, Executor& background, std::shared_ptr<RenderEngine> engine,
                                   std::shared_ptr<MaskImageCache> masks, Callbacks callbacks)
    : main_(main),
      engine_(std::move(engine)),
      masks_(std::move(masks)),
      callbacks_(std::move(callbacks)),
      preview_(main, background, callbacks_.previewBusy),
      histogram_(main, background),
      viewportLane_(main, background),
      original_(main, background) {}

void PreviewScheduler::setSources(PreviewSources sources) {
  sources_ = std::move(sources);
  originalRendered_.reset();
  requestPreview();
  requestViewport();
  requestOriginal();
}

void PreviewScheduler::setDocument(const EditDocument& doc) {
  document_ = doc;
  requestPreview();
  requestViewport();
  requestOriginal();
}

void PreviewScheduler::setViewport(std::optional<ViewportRequest> viewport) {
  if (viewport == viewport_) return;
  viewport_ = viewport;
  requestViewport();
}

void PreviewScheduler::setOriginalWanted(bool wanted) {
  originalWanted_ = wanted;
  requestOriginal();
}

void PreviewScheduler::cancelAll() {
  preview_.cancel();
  histogram_.cancel();
  viewportLane_.cancel();
  original_.cancel();
  originalRendered_.reset();
}

void PreviewScheduler::requestPreview() {
  if (!document_ || !sources_.preview) return;
  auto engine = engine_;
  auto masks = masks_;
  auto source = sources_.preview;
  const double scale = sources_.previewScale;
  const HealSourceId id = sources_.previewId;
  preview_.request(
      [engine, masks, source, doc = *document_, scale, id](const AsyncCancelToken& token) {
        return renderFrame(*engine, *masks, *source, doc, scale, id, std::nullopt, token);
      },
      [this](PreviewFrame frame) {
        frame.generation = preview_.generation();
        if (callbacks_.preview) callbacks_.preview(frame);
        histogram_.request([image = frame.image](const AsyncCancelToken&) -> std::optional<HistogramBins> {
          return HistogramComputer::compute(*image);
        },
                           [this](HistogramBins bins) {
                             if (callbacks_.histogram) callbacks_.histogram(bins);
                           });
      });
}

void PreviewScheduler::requestViewport() {
  const bool wanted = document_ && viewport_ && sources_.full &&
                      viewport_->displayScale > sources_.previewScale * (1 + 1e-9);
  if (!wanted) {
    if (!viewportShown_) return;
    viewportShown_ = false;
    viewportLane_.cancel();
    if (callbacks_.viewport) callbacks_.viewport(std::nullopt);
    return;
  }
  const Rect region = outwards(viewport_->visible);
  auto engine = engine_;
  auto masks = masks_;
  auto source = sources_.full;
  const HealSourceId id = sources_.fullId;
  viewportShown_ = true;
  viewportLane_.request(
      [engine, masks, source, doc = *document_, id, region](const AsyncCancelToken& token)
          -> std::optional<std::optional<PreviewFrame>> {
        auto frame = renderFrame(*engine, *masks, *source, doc, 1.0, id, region, token);
        if (!frame) return std::nullopt;
        return std::optional<PreviewFrame>(std::move(*frame));
      },
      [this](std::optional<PreviewFrame> frame) {
        if (frame) frame->generation = viewportLane_.generation();
        if (callbacks_.viewport) callbacks_.viewport(frame);
      });
}

void PreviewScheduler::requestOriginal() {
  if (!originalWanted_ || !document_ || !sources_.preview) return;
  EditDocument doc = originalDocument(*document_);
  if (originalRendered_ == doc) return;
  originalRendered_ = doc;
  auto engine = engine_;
  auto masks = masks_;
  auto source = sources_.preview;
  const double scale = sources_.previewScale;
  const HealSourceId id = sources_.previewId;
  original_.request(
      [engine, masks, source, doc, scale, id](const AsyncCancelToken& token) {
        return renderFrame(*engine, *masks, *source, doc, scale, id, std::nullopt, token);
      },
      [this](PreviewFrame frame) {
        frame.generation = original_.generation();
        if (callbacks_.original) callbacks_.original(frame);
      });
}

}  // namespace vg
