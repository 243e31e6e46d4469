// EditorSession: automatic masks. Subject, sky and background masks, and the
// magic wand's selection from a click, are generated from the preview source
// in the background and come back as a new bitmap mask layer.
#include "model/log.h"
#include "render/geometry.h"
#include "session/editor_session.h"

namespace vg {

namespace {

constexpr std::string_view kWandDoneMessage = "已生成魔棒选区";

// The undo step of a new layer of each kind ("新建魔棒选区", "新建主体蒙版", ...).
std::string newMaskLabel(AutoMaskSource kind) { return "新建" + std::string(autoMaskLayerName(kind)); }

}  // namespace

void EditorSession::generateAutoMask(AutoMaskSource kind) {
  if (kind == AutoMaskSource::magicWand) return;  // the wand needs its click: magicWandClick
  AutoMaskRequest request;
  request.kind = kind;
  startAutoMask(std::move(request));
}

bool EditorSession::magicWandClick(PointF shown) {
  if (closed_ || !sources_.preview) return false;
  if (!(shown.x >= 0 && shown.x <= 1 && shown.y >= 0 && shown.y <= 1)) return false;
  // The point as shown (crop, turns, flips, straightening) back on the upright
  // source, which the mask raster covers.
  const Rect& b = sources_.preview->bounds();
  const Geometry g(b, geometryParams(previewDocument()), true);
  const Rect out = g.outputRect();
  const PointF s = g.toSource({out.x + shown.x * out.width, out.y + shown.y * out.height});
  const Point onSource{(s.x - b.x) / b.width, (s.y - b.y) / b.height};
  if (!(onSource.x >= 0 && onSource.x <= 1 && onSource.y >= 0 && onSource.y <= 1)) return false;

  AutoMaskRequest request;
  request.kind = AutoMaskSource::magicWand;
  request.wand = {onSource, magicWandTolerance_, magicWandFeather_};
  setMagicWand(false, magicWandTolerance_, magicWandFeather_);  // one click per arming
  startAutoMask(std::move(request));
  return true;
}

void EditorSession::startAutoMask(AutoMaskRequest request) {
  if (closed_ || !sources_.preview) return;
  request.image = sources_.preview;
  const AutoMaskSource kind = request.kind;
  auto segmenter = services_.subjectSegmenter ? services_.subjectSegmenter : SubjectSegmenter::shared();
  operation<AutoMaskOutcome>(BusyFlag::generatingAutoMask)
      .start(
          [request = std::move(request), segmenter](const AsyncCancelToken& token) {
            AutoMaskOutcome outcome;
            try {
              outcome.data = AutoMaskGenerator(segmenter).generate(request, &token);
            } catch (const std::exception& e) {  // AutoMaskError, SubjectModelError, no memory
              outcome.error = e.what();
            }
            return outcome;
          },
          [this, kind](AutoMaskOutcome outcome, bool stale) {
            const std::string name(autoMaskLayerName(kind));
            if (stale) {
              showToast("编辑已变化，" + name + "已丢弃", ToastMessage::Kind::warning);
              return;
            }
            if (!outcome.data) {
              logLine("Verdantglass: " + std::string(autoMaskFailureText(kind)) + "：" +
                      outcome.error.value_or("no result"));
              showToast(std::string(autoMaskFailureText(kind)), ToastMessage::Kind::error);
              return;
            }
            MaskLayer mask;
            mask.name = name;
            mask.kind = std::move(*outcome.data);
            const Uuid id = mask.id;
            applyEdit(newMaskLabel(kind), [&](EditDocument& doc) { doc.masks.push_back(std::move(mask)); });
            selectMask(id);
            if (kind == AutoMaskSource::magicWand) showToast(std::string(kWandDoneMessage), ToastMessage::Kind::success);
          });
}

}  // namespace vg
