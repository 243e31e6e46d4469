// EditorSession: automatic adjustment and red-eye detection, background
// operations whose results come back as one undoable edit, and the red-eye
// manual mode's clicks.
#include <string>

#include "render/geometry.h"
#include "render/render_engine.h"
#include "session/auto_adjust.h"
#include "session/editor_session.h"
#include "session/red_eye_detector.h"
#include "session/red_eye_spots.h"

namespace vg {

namespace {

RedEyeDetectorFn builtInRedEyeDetector() {
  return [](const Image& previewSource, const AsyncCancelToken* cancel) {
    return RedEyeDetector::shared().detect(previewSource, cancel);
  };
}

// Faces are found the way up the picture is shown: a source the recipe turns
// by quarter turns is turned first (an exact copy of whole pixels) and the
// spots are carried back to the source, whose coordinates the recipe keeps.
std::optional<RedEyeDetectionOutcome> detectUpright(const RedEyeDetectorFn& detect, const Image& preview,
                                                    int quarterTurn, const AsyncCancelToken& token) {
  if ((quarterTurn & 3) == 0) return detect(preview, &token);
  GeometryParams params;
  params.quarterTurn = quarterTurn;
  const Geometry g(preview.bounds(), params, true);
  Image turned(g.outputRect());
  g.render(preview, turned);
  std::optional<RedEyeDetectionOutcome> outcome = detect(turned, &token);
  if (!outcome) return outcome;
  const Rect& out = g.outputRect();
  const Rect& src = preview.bounds();
  for (RedEyeSpot& spot : outcome->spots) {
    // Radii are fractions of the shorter side, which a quarter turn keeps.
    const PointF p = g.toSource({out.x + spot.center.x * out.width, out.y + spot.center.y * out.height});
    spot.center = {(p.x - src.x) / src.width, (p.y - src.y) / src.height};
  }
  return outcome;
}

}  // namespace

// ---- Automatic adjustment ----------------------------------------------------------------------

void EditorSession::autoAdjust(AutoMode mode) {
  if (closed_ || !sources_.preview) return;
  operation<std::optional<GlobalAdjustments>>(BusyFlag::autoAdjusting)
      .start(
          [preview = sources_.preview, recipe = document_, mode](const AsyncCancelToken&) {
            std::optional<AutoAdjust::ImageStats> stats = AutoAdjust::analyzeShown(*preview, recipe);
            return stats ? std::optional(AutoAdjust::adjustments(*stats, mode)) : std::nullopt;
          },
          [this, mode](std::optional<GlobalAdjustments> adjustments, bool stale) {
            if (stale) {
              showToast(std::string(kAutoAdjustStale), ToastMessage::Kind::warning);
            } else if (!adjustments) {
              showToast(std::string(kAutoAdjustFailed), ToastMessage::Kind::error);
            } else {
              // The mode's whole set: its curves, HSL and split toning are
              // neutral, like a fresh start in that style (one undo away).
              applyEdit(autoAdjustButtonTitle(mode), [&](EditDocument& doc) { doc.adjustments = *adjustments; });
              showToast("已应用「" + std::string(autoModeInfo(mode).label) + "」自动调整",
                        ToastMessage::Kind::success);
            }
          });
}

// ---- Red eyes -----------------------------------------------------------------------------------

void EditorSession::detectRedEyes() {
  if (closed_ || !sources_.preview) return;
  RedEyeDetectorFn detect = services_.detectRedEyes ? services_.detectRedEyes : builtInRedEyeDetector();
  operation<std::optional<RedEyeDetectionOutcome>>(BusyFlag::detectingRedEyes)
      .start(
          [detect, preview = sources_.preview, turn = document_.crop.quarterTurn](const AsyncCancelToken& token) {
            return detectUpright(detect, *preview, turn, token);
          },
          [this](std::optional<RedEyeDetectionOutcome> outcome, bool stale) {
            if (!outcome) return;  // cancelled on its way
            if (stale) {
              showToast(std::string(kRedEyeStale), ToastMessage::Kind::warning);
              return;
            }
            if (outcome->failed || outcome->spots.empty()) {
              showToast(outcome->message.value_or(std::string(RedEyeDetector::kNoFaceText)),
                        outcome->failed ? ToastMessage::Kind::error : ToastMessage::Kind::warning);
              return;
            }
            std::vector<RedEyeSpot> fresh =
                newRedEyeSpots(document_.redEyes, outcome->spots, pixelSize_.width, pixelSize_.height);
            if (fresh.empty()) {
              showToast(std::string(kNoNewRedEyes), ToastMessage::Kind::info);
              return;
            }
            for (RedEyeSpot& spot : fresh) spot.id = Uuid::random();
            const std::string count = std::to_string(fresh.size());
            applyEdit("红眼检测（" + count + " 处）", [&](EditDocument& doc) {
              doc.redEyes.insert(doc.redEyes.end(), fresh.begin(), fresh.end());
            });
            showToast("已修复 " + count + " 处红眼", ToastMessage::Kind::success);
          });
}

bool EditorSession::redEyeClick(PointF shown) {
  if (closed_ || !redEyeManualMode_ || !sources_.preview) return false;
  if (!(shown.x >= 0 && shown.x <= 1 && shown.y >= 0 && shown.y <= 1)) return false;
  const Rect& src = sources_.preview->bounds();
  const Geometry g(src, geometryParams(previewDocument()), true);
  const Rect& out = g.outputRect();
  const PointF s = g.toSource({out.x + shown.x * out.width, out.y + shown.y * out.height});
  const Point at{(s.x - src.x) / src.width, (s.y - src.y) / src.height};
  if (!(at.x >= 0 && at.x <= 1 && at.y >= 0 && at.y <= 1)) return false;  // the empty corner of a rotation
  if (std::optional<size_t> hit = redEyeSpotAt(document_.redEyes, at, pixelSize_.width, pixelSize_.height))
    return removeRedEyeSpot(document_.redEyes[*hit].id);
  addRedEyeSpot(at, kManualRadius);
  return true;
}

}  // namespace vg
