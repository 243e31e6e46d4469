// PreviewScheduler: the session's live pictures, rendered in the background
// with the newest request winning (session/newest_wins.h).
//
// Four lanes, each with its own generation:
// - preview: the whole document on the preview source (at most 2400 pixels)
//   at the preview's render scale, with the integral output rectangle;
// - histogram: follows every delivered preview, measured on it;
// - viewport: when the view is zoomed in beyond the preview's scale and the
//   full-resolution source is there, only the visible part of the output
//   frame, rendered from the full source at render scale 1 (the canvas draws
//   it at its display scale); otherwise the lane delivers "none" once and the
//   preview serves the view;
// - original: the unedited picture in the edited frame (the document's crop
//   and lens distortion only), for show-original and the split view; only
//   while wanted, and again only when that frame changes.
// A new document or new sources request the preview (and the viewport and
// original when they apply). A request supersedes the lane's outdated render,
// which stops at its next pass (RenderOptions::cancel); results reach the
// main thread only while they are the newest of their lane.
//
// Main thread only; renders run on the background executor and share only
// the engine (its own lock) and the mask cache (its own lock).
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "model/document.h"
#include "render/geometry.h"
#include "render/histogram.h"
#include "render/mask_rasterizer.h"
#include "render/render_engine.h"
#include "session/newest_wins.h"
#include "store/executor.h"

namespace vg {

struct PreviewSources {
  std::shared_ptr<const Image> preview;  // the reduced source
  double previewScale = 1;               // preview size / full-resolution size
  std::shared_ptr<const Image> full;     // absent while it is still being decoded
  HealSourceId previewId = 0;            // heal-cache identities of the two
  HealSourceId fullId = 0;
};

// A rendered picture in output-frame pixels at render scale `scale`.
struct PreviewFrame {
  std::shared_ptr<const Image> image;  // premultiplied linear RGBA; covers all of `frame` or a part
  double scale = 1;
  Rect frame;                          // the whole output rectangle at that scale
  uint64_t generation = 0;
};

struct ViewportRequest {
  double displayScale = 0;  // screen pixels per full-resolution output pixel
  RectF visible;            // the visible part of the output frame, in full-resolution pixels
  bool operator==(const ViewportRequest&) const = default;
};

class PreviewScheduler {
 public:
  struct Callbacks {
    std::function<void(const PreviewFrame&)> preview;
    std::function<void(const HistogramBins&)> histogram;
    std::function<void(const std::optional<PreviewFrame>&)> viewport;  // none: the preview serves the view
    std::function<void(const PreviewFrame&)> original;
    std::function<void(bool)> previewBusy;  // the preview lane has a live request
  };

  PreviewScheduler(MainExecutor& main, Executor& background, std::shared_ptr<RenderEngine> engine,
                   std::shared_ptr<MaskImageCache> masks, Callbacks callbacks);
  PreviewScheduler(const PreviewScheduler&) = delete;
  PreviewScheduler& operator=(const PreviewScheduler&) = delete;

  void setSources(PreviewSources sources);
  void setDocument(const EditDocument& doc);
  void setViewport(std::optional<ViewportRequest> viewport);
  void setOriginalWanted(bool wanted);
  void cancelAll();

  bool rendering() const { return preview_.busy(); }
  const PreviewSources& sources() const { return sources_; }

  // The document the original lane renders for `doc`: its frame only.
  static EditDocument originalDocument(const EditDocument& doc);

 private:
  void requestPreview();
  void requestViewport();
  void requestOriginal();

  MainExecutor& main_;
  std::shared_ptr<RenderEngine> engine_;
  std::shared_ptr<MaskImageCache> masks_;
  Callbacks callbacks_;
  PreviewSources sources_;
  std::optional<EditDocument> document_;
  std::optional<ViewportRequest> viewport_;
  bool viewportShown_ = false;
  bool originalWanted_ = false;
  std::optional<EditDocument> originalRendered_;  // the frame document of the last original request
  NewestWins<PreviewFrame> preview_;
  NewestWins<HistogramBins> histogram_;
  NewestWins<std::optional<PreviewFrame>> viewportLane_;
  NewestWins<PreviewFrame> original_;
};

}  // namespace vg
