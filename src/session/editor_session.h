// EditorSession: the controller of one open image, and the one place where
// its recipe changes. Panels, canvas, automatic tools and the command line
// all edit through it; it records undo steps, republishes the document so
// the preview is rebuilt, and schedules the sidecar write.
//
// Published state is read through plain getters; observers (addObserver) are
// told after each change which property changed (Change), on the main
// thread. The desktop window adapts them to signals; nothing here knows Qt.
//
// The commit path, setDocument(doc):
//  - an equal document does nothing: no write is scheduled, no step recorded;
//  - before didFinishInit() (while the session is being built) an assignment
//    has no side effect at all;
//  - otherwise the save scheduler is told, the mask cache is dropped when the
//    geometry changed, a RAW re-development starts when the RAW settings
//    changed, a preview is requested, and observers hear Change::document.
// Undo steps are not taken there: recordStep(label) takes one, so a slider
// drag makes many commits and one step. Every discrete edit the session
// makes itself records its own step with its label. Whole-document
// replacements (undo, redo, history jumps, the restore on open, reset, paste)
// raise documentReplacementCount() first; background results started under
// an older count arrive stale and are not applied.
//
// Opening: a saved recipe becomes the document with one step "恢复上次编辑"
// after the untouched image's first entry "打开图片", so undo returns to the
// untouched image. didFinishInit() turns true last.
//
// Background work (renders, decodes, thumbnails, export, analyses) runs on
// the background executor and reaches the session only through the main
// executor, checked against its generation and against the session still
// being alive. close() flushes the sidecar and cancels everything without
// waiting for any of it on the main thread; the destructor closes.
//
// Main thread only.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeindex>
#include <vector>

#include "io/image_exporter.h"
#include "io/image_loader.h"
#include "model/document.h"
#include "render/histogram.h"
#include "render/mask_rasterizer.h"
#include "session/async_edit_operation.h"
#include "session/auto_mask_generator.h"
#include "session/auto_mode.h"
#include "session/crop_session.h"
#include "session/editor_tool.h"
#include "session/newest_wins.h"
#include "session/preview_scheduler.h"
#include "session/sampling.h"
#include "session/session_services.h"
#include "session/toast.h"
#include "store/filter_preset.h"
#include "store/history_engine.h"
#include "store/save_scheduler.h"

namespace vg {

struct BrushSettings {
  double size = 0.05;      // diameter, a fraction of the image width
  double hardness = 50;    // 0...100
  double flow = 100;       // 0...100
  bool erasing = false;    // the brush removes from the mask
  bool operator==(const BrushSettings&) const = default;
};

// Zoom and pan of the canvas. Coordinates are full-resolution pixels of the
// output frame (the picture as edited: cropped, turned, straightened).
struct ViewportState {
  double scale = 0;   // screen pixels per full-resolution pixel; 0: not laid out yet
  PointF imageCenter; // the output-frame point at the centre of the view
  PointF viewSize;    // width (x) and height (y) of the view in screen pixels
  RectF imageExtent;  // the output frame at full resolution
  bool operator==(const ViewportState&) const = default;
};

class EditorSession {
 public:
  enum class Change {
    document,          // the recipe
    history,           // entries or the current step
    activeTool,
    cropSession,
    compare,           // showOriginal or splitCompare
    previewImage,
    viewportImage,
    originalImage,     // splitOriginalImage
    histogram,
    toast,
    exporting,         // exporting or exportPhase
    sectionCollapsed,
    selectedMask,
    brush,
    busy,              // one of the BusyFlag values
    sampling,
    filterThumbnails,
    source,            // a new full-resolution or preview source
    canvasAction,
    exportSheet,
    magicWand,         // magicWandActive, tolerance or feather
    redEyeManualMode,
    viewport,
  };
  using Observer = std::function<void(Change)>;

  // The published busy flags; the automatic tools' operations mirror theirs.
  enum class BusyFlag {
    loading,            // the full-resolution source is being decoded
    rendering,          // a preview render is outstanding
    healing,            // a render with new heal work is outstanding
    rawDecoding,        // a RAW re-development is running
    autoAdjusting,
    detectingHorizon,
    detectingRedEyes,
    generatingAutoMask,
  };

  enum class CanvasAction { fitToWindow, actualSize, zoomIn, zoomOut };

  enum class SampleOutcome { applied, transparent, badlyExposed, notArmed };

  struct ExportOutcome {
    std::filesystem::path destination;
    bool written = false;
    bool cancelled = false;
    std::optional<std::string> error;  // the user-facing reason
  };

  // Texts of the compare controls.
  static constexpr std::string_view kShowOriginalShortcutHint = "按住查看原图（快捷键 \\）";
  static constexpr std::string_view kShowOriginalHelp = "按住查看原图，松开恢复；点按两下在两者间切换";
  static constexpr std::string_view kShowingOriginal = "正在显示原图";
  static constexpr std::string_view kShowingEdited = "正在显示编辑后";
  static constexpr std::string_view kSplitCompareHint = "分屏对比：左侧原图，拖动分割线调整范围";
  static constexpr std::string_view kCropHint = "拖框调整 · 框外拖动新建 · Esc 取消本次裁剪";
  static constexpr std::string_view kResetAllTitle = "复位全部调整…";
  static constexpr std::string_view kAutoAdjustStale = "编辑已变化，自动调整结果已丢弃";
  static constexpr std::string_view kAutoAdjustFailed = "自动调整失败：无法分析图像";
  static constexpr std::string_view kRedEyeStale = "编辑已变化，红眼检测结果已丢弃";
  static constexpr std::string_view kNoNewRedEyes = "没有发现新的红眼";
  static constexpr std::string_view kRedEyeManualModeOn =
      "手动模式已开启：点击画布瞳孔位置放置红眼点（消除笔暂时停用，关闭后恢复）";
  static constexpr std::string_view kRedEyeSpotHelp = "手动模式下点击移除该红眼点；也可在右侧列表移除";
  static constexpr std::string_view kRedEyeListHint = "点按两下移除";
  static constexpr std::string_view kResetAllConfirmation =
      "将清除所有调整、蒙版、裁剪与修复，回到打开图片时的原始状态。此操作可撤销。";

  EditorSession(SessionServices services, OpenedImage opened);
  ~EditorSession();
  EditorSession(const EditorSession&) = delete;
  EditorSession& operator=(const EditorSession&) = delete;

  // Decodes `file` on the background executor and builds its session on the
  // main thread: done(session, nullopt), or done(nullptr, the loader's message).
  using OpenCallback = std::function<void(std::unique_ptr<EditorSession>, std::optional<std::string> error)>;
  static void open(std::filesystem::path file, SessionServices services, OpenCallback done);

  // ---- The image ------------------------------------------------------------
  const Uuid& id() const { return id_; }
  const std::filesystem::path& sourceURL() const { return sourceURL_; }
  // The full-resolution source; null while it is still being decoded.
  const std::shared_ptr<const Image>& source() const { return sources_.full; }
  const std::shared_ptr<const Image>& previewSource() const { return sources_.preview; }
  double previewScale() const { return sources_.previewScale; }
  ImageLoader::PixelSize originalPixelSize() const { return pixelSize_; }
  const std::string& fileFormat() const { return fileFormat_; }
  const std::string& colorSpaceName() const { return colorSpaceName_; }
  bool isRAW() const { return isRAW_; }
  const std::vector<ImageLoader::RAWDecoderOption>& rawDecoderOptions() const { return rawDecoderOptions_; }
  const PhotoMetadata& metadata() const { return metadata_; }
  bool didFinishInit() const { return didFinishInit_; }

  uint64_t addObserver(Observer observer);
  void removeObserver(uint64_t token);

  // ---- Document and history ---------------------------------------------------
  const EditDocument& document() const { return document_; }
  void setDocument(EditDocument doc);  // the commit path
  void recordStep(std::string label);
  // Commits `edit` applied to a copy of the document and records `label`
  // when it changed anything. True when it did.
  bool applyEdit(std::string label, const std::function<void(EditDocument&)>& edit);
  int64_t documentReplacementCount() const { return documentReplacementCount_; }

  const HistoryEngine& history() const { return history_; }
  bool canUndo() const { return history_.canUndo(); }
  bool canRedo() const { return history_.canRedo(); }
  bool undo();
  bool redo();
  bool jumpToHistoryEntry(const Uuid& entryID);
  // Back to the untouched image ("复位全部调整…"), one undoable step.
  void resetAll();
  // A whole recipe in place of the document, one undoable step "应用配方".
  void applyRecipe(EditDocument doc);

  // ---- Copy and paste -----------------------------------------------------------
  // Replaces the global adjustments: step "粘贴调整参数", toast "已粘贴调整参数".
  void pasteAdjustments(const GlobalAdjustments& adjustments);
  // Keeps the mask's local adjustments for pasting; toast "已复制「name」的局部调整参数".
  std::optional<GlobalAdjustments> copyMaskAdjustments(const Uuid& maskID);
  const std::optional<GlobalAdjustments>& copiedMaskAdjustments() const { return copiedMaskAdjustments_; }
  // Into the selected mask, geometry kept: step "粘贴蒙版参数", toast "已粘贴到「name」".
  // False (with a warning toast) when no mask is selected or nothing was copied.
  bool pasteMaskAdjustments(const GlobalAdjustments& adjustments);
  bool pasteMaskAdjustments();

  // ---- Masks ------------------------------------------------------------------------
  const std::optional<Uuid>& selectedMaskID() const { return selectedMaskID_; }
  void selectMask(std::optional<Uuid> maskID);
  // A new radial, linear, brush or luminosity mask, selected, with its step
  // ("新建径向蒙版", ...). Nothing for the other kinds (they come from
  // sampling and the automatic masks).
  std::optional<Uuid> addMask(MaskKindCase kind);
  bool removeMask(const Uuid& maskID);  // "删除蒙版"
  // Subtract shapes of the selected mask: "添加减去形状", "移除减去形状", "清除减去区域".
  bool addSubtractShape(MaskKind shape);
  bool removeSubtractShape(const Uuid& subtractID);
  bool clearSubtractShapes();

  const BrushSettings& brush() const { return brush_; }
  void setBrush(BrushSettings brush);

  // ---- Healing and red eyes -------------------------------------------------------
  void addHealStroke(HealStroke stroke);     // "修复笔触"
  bool removeHealStroke(size_t index);       // "移除修复笔触"
  bool clearHealStrokes();                   // "清除全部修复"
  Uuid addRedEyeSpot(Point center, double radius);  // "添加红眼点"
  bool removeRedEyeSpot(const Uuid& spotID);        // "移除红眼点 <n>"
  bool redEyeManualMode() const { return redEyeManualMode_; }
  // Turning it on says how it works (kRedEyeManualModeOn).
  void setRedEyeManualMode(bool on);
  // A click in manual mode at a point of the picture as shown, normalised
  // (0...1 across, y from the top): removes the spot it hits (redEyeSpotAt,
  // step "移除红眼点 n"), else places one of kManualRadius ("添加红眼点").
  // False (nothing done) outside manual mode or off the picture.
  bool redEyeClick(PointF shown);
  // Finds the pupils in the background (red_eye_detector.h) on the preview
  // source turned as the recipe turns it. New spots (not duplicates of the
  // document's, red_eye_spots.h) are one step "红眼检测（n 处）" with the
  // toast "已修复 n 处红眼"; none new: the info toast kNoNewRedEyes; no face:
  // its warning; a failed detection: its error; the document replaced
  // meanwhile: kRedEyeStale and nothing applied.
  void detectRedEyes();
  bool detectingRedEyes() const { return isBusy(BusyFlag::detectingRedEyes); }

  // ---- Automatic adjustment ----------------------------------------------------------
  // Measures the picture as framed in the background and replaces the
  // global adjustments by those of `mode` (auto_adjust.h): one step named
  // like the button ("自动调整：均衡"), the toast "已应用「均衡」自动调整";
  // kAutoAdjustFailed when the picture cannot be measured; kAutoAdjustStale
  // when the document was replaced meanwhile.
  void autoAdjust(AutoMode mode);
  bool autoAdjusting() const { return isBusy(BusyFlag::autoAdjusting); }

  // ---- Tools and crop --------------------------------------------------------------
  EditorTool activeTool() const { return activeTool_; }
  // Opening the crop tool takes the snapshot Esc restores; leaving it keeps
  // the crop and drops the snapshot. While it is open the preview shows the
  // whole straightened frame (the crop rectangle is the overlay's).
  void setActiveTool(EditorTool tool);
  const std::optional<CropSessionSnapshot>& cropSession() const { return cropSession_; }
  // Esc: disarms sampling, else cancels the crop session. True when it did.
  bool handleEscape();
  // The crop as the tool opened, and back to the tool before it.
  void cancelCrop();
  void rotate90(bool clockwise);  // "顺时针旋转 90°" / "逆时针旋转 90°"
  void flip(bool horizontal);     // as seen on screen: "水平翻转" / "垂直翻转"
  // Commits the straightening angle with the rectangle refitted (no step:
  // the slider records "拉直" when the drag ends).
  void setStraightenAngle(double degrees);
  // Detects the horizon in the background; "自动拉直" or the toast
  // "未检测到可用的地平线".
  void autoStraighten();

  // ---- Compare -------------------------------------------------------------------------
  bool showOriginal() const { return showOriginal_; }
  void setShowOriginal(bool on);
  bool splitCompare() const { return splitCompare_; }
  void setSplitCompare(bool on);
  std::string_view compareStatusText() const { return showOriginal_ ? kShowingOriginal : kShowingEdited; }

  // ---- Pictures ---------------------------------------------------------------------------
  // The last preview of the whole picture (absent until the first arrives).
  const std::optional<PreviewFrame>& previewImage() const { return previewImage_; }
  // The visible part at full resolution while zoomed in beyond the preview.
  const std::optional<PreviewFrame>& viewportImage() const { return viewportImage_; }
  // The unedited picture in the edited frame, while showOriginal or splitCompare is on.
  const std::optional<PreviewFrame>& splitOriginalImage() const { return splitOriginalImage_; }
  const std::optional<HistogramBins>& histogram() const { return histogram_; }
  const ViewportState& viewport() const { return viewport_; }
  void setViewport(ViewportState viewport);

  // ---- Toasts ----------------------------------------------------------------------------
  const std::optional<ToastMessage>& toast() const { return toasts_.current(); }
  void showToast(std::string text, ToastMessage::Kind kind, std::optional<std::string> actionTitle = {},
                 std::function<void()> action = {});
  void dismissToast();

  // ---- Sampling -----------------------------------------------------------------------------
  const std::optional<SamplingMode>& samplingMode() const { return samplingMode_; }
  void armSampling(SamplingMode mode);
  void disarmSampling();
  // The armed mode applied at a point of the picture as shown, normalised
  // (0...1 across, y from the top). A refused sample shows its warning toast,
  // changes nothing and keeps the mode armed; an applied one disarms it.
  SampleOutcome sampleAt(PointF normalised);

  // ---- Panels, canvas and window --------------------------------------------------------
  const std::map<std::string, bool>& sectionCollapsed() const { return sectionCollapsed_; }
  bool isSectionCollapsed(const std::string& key) const;
  void setSectionCollapsed(const std::string& key, bool collapsed);
  const std::optional<CanvasAction>& canvasAction() const { return canvasAction_; }
  void requestCanvasAction(CanvasAction action);
  std::optional<CanvasAction> takeCanvasAction();  // the canvas consumes the request
  bool showExportSheet() const { return showExportSheet_; }
  void setShowExportSheet(bool show);
  std::optional<int> windowNumber() const { return windowNumber_; }
  void setWindowNumber(std::optional<int> number) { windowNumber_ = number; }
  bool magicWandActive() const { return magicWandActive_; }
  double magicWandTolerance() const { return magicWandTolerance_; }
  int magicWandFeather() const { return magicWandFeather_; }
  // tolerance 0...100 (percent of the largest colour distance), feather in
  // pixels of the 1024-pixel raster, each clamped.
  void setMagicWand(bool active, double tolerance, int feather);

  bool isBusy(BusyFlag flag) const;
  bool healing() const { return isBusy(BusyFlag::healing); }
  bool rawDecoding() const { return isBusy(BusyFlag::rawDecoding); }
  bool detectingHorizon() const { return isBusy(BusyFlag::detectingHorizon); }
  uint64_t rawDecodeGeneration() const { return decodes_.generation(); }

  // ---- Filters and LUTs ------------------------------------------------------------------
  // The preset laid over the manual adjustments at `strength` percent:
  // step "应用滤镜「name」".
  void applyFilterPreset(const FilterPreset& preset, double strength);
  // The applied preset again at a new strength (no step: the slider records
  // "滤镜强度"). False when no preset is applied or it no longer exists.
  bool setFilterStrength(double strength);
  void removeFilterPreset();  // "移除滤镜"
  // A LUT of the LUT folder: step "应用 LUT「name」"; removeLUT: "移除 LUT".
  void applyLUT(AppliedLUT lut);
  void removeLUT();
  // The preset looked up by id among the built-in and the user presets.
  std::optional<FilterPreset> findPreset(std::string_view id) const;
  const std::filesystem::path& lutFolder() const { return lutFolder_; }

  // Thumbnails of `presets` applied to the current document, rendered from
  // the preview source in the background; published only while their
  // request is the newest. Nothing is rendered again for an unchanged
  // document and preset list.
  void requestFilterThumbnails(std::vector<FilterPreset> presets);
  const std::map<std::string, std::shared_ptr<const Image>>& filterThumbnails() const { return filterThumbnails_; }
  uint64_t thumbnailGeneration() const { return thumbnails_.generation(); }
  // Identifies the picture the thumbnails were made from (computed once).
  const std::string& thumbnailFingerprint();

  // ---- Export ---------------------------------------------------------------------------
  // Renders the document at full resolution and writes `destination`. False
  // (and the toast "已有导出正在进行中") while an export runs, or with the
  // exporter's message when the destination or options are refused at once.
  // Phases: "等待 RAW 显影…" while a RAW development runs, then
  // "正在导出全分辨率图像…". The outcome comes on the main thread, with a
  // toast ("已导出：name" or "导出失败：reason"). Options without a metadata
  // source take the session's photograph, which is never overwritten.
  bool startExport(std::filesystem::path destination, ImageExporter::Options options,
                   std::function<void(const ExportOutcome&)> done = {});
  bool exporting() const { return exporting_; }
  const std::string& exportPhase() const { return exportPhase_; }
  void cancelExport();

  // ---- Automatic masks ------------------------------------------------------------------
  // A subject, sky or background mask generated from the preview source in
  // the background (generatingAutoMask() meanwhile, shown as
  // kGeneratingAutoMask). It arrives as a new bitmap mask layer named after
  // its kind ("主体蒙版", ...), selected, with the step "新建主体蒙版" (and so
  // on). A run started again replaces the one in flight; a result computed
  // before the document was replaced is dropped with "编辑已变化，<name>已丢弃";
  // a failure shows the kind's text ("主体分割失败", ...) and logs the reason.
  static constexpr std::string_view kGeneratingAutoMask = "正在生成蒙版，请稍候…";
  void generateAutoMask(AutoMaskSource kind);
  // The magic wand seeded at a point of the picture as shown, normalised
  // (0...1 across, y from the top), with the current tolerance and feather;
  // disarms the wand. The layer "魔棒选区" comes with the step "新建魔棒选区"
  // and the toast "已生成魔棒选区"; a failure shows "魔棒选区生成失败". False
  // (nothing started) for a point off the picture.
  bool magicWandClick(PointF shown);
  bool generatingAutoMask() const { return isBusy(BusyFlag::generatingAutoMask); }

  // ---- Background operations of the automatic tools ----------------------------------
  // The lazily created operation whose busy flag mirrors into `flag`; one
  // per flag, always asked for with the same result type.
  template <class T>
  AsyncEditOperation<T>& operation(BusyFlag flag);

  // ---- Closing --------------------------------------------------------------------------
  // Writes the newest document to its sidecar now, without closing (the
  // application does this for every window before it quits, so a failure
  // can still be answered by staying). True when it is safely stored.
  bool flushEdits();
  // Flushes the sidecar (when the session persists) and cancels every
  // running task. True when the newest document is safely stored. Later
  // edits are ignored. Idempotent.
  bool close();
  bool isClosed() const { return closed_; }

 private:
  struct DecodedSource {
    std::shared_ptr<const Image> full;
    std::shared_ptr<const Image> preview;
    ImageLoader::PixelSize pixelSize;
    bool opaque = true;
    std::optional<std::string> error;  // the loader's message
  };
  struct Export {
    std::filesystem::path destination;
    ImageExporter::Options options;
    EditDocument document;
    std::function<void(const ExportOutcome&)> done;
    std::shared_ptr<AsyncCancelToken> token = std::make_shared<AsyncCancelToken>();
    bool running = false;  // false while it waits for the source
  };

  void notify(Change change);
  void commit(EditDocument doc);
  void replaceDocument(EditDocument doc);
  void setBusy(BusyFlag flag, bool on);
  EditDocument previewDocument() const;
  void schedulePreview();
  void startDecode(RAWDevelopSettings settings);
  void adoptDecoded(DecodedSource decoded);
  void launchExport();
  void startAutoMask(AutoMaskRequest request);
  void finishExport(ExportOutcome outcome);
  MaskLayer* selectedMask(EditDocument& doc) const;
  std::optional<std::array<float, 4>> sampleSource(PointF outputPoint, const Geometry& g) const;
  std::optional<std::array<float, 4>> sampleColorStage(const EditDocument& doc, PointF outputPoint) const;
  // Posts `fn` to run on the main thread only while this session lives.
  std::function<void(std::function<void()>)> mainHop() const;

  SessionServices services_;
  const Uuid id_ = Uuid::random();
  std::filesystem::path sourceURL_;
  std::shared_ptr<const ScopedFileAccess> sourceAccess_;
  ImageLoader::PixelSize pixelSize_;
  bool sourceOpaque_ = true;  // the loader's word: no pixel of the source is transparent
  std::string fileFormat_;
  std::string colorSpaceName_;
  bool isRAW_ = false;
  std::vector<ImageLoader::RAWDecoderOption> rawDecoderOptions_;
  PhotoMetadata metadata_;
  std::filesystem::path lutFolder_;
  std::filesystem::path presetsFolder_;

  EditDocument document_;
  bool didFinishInit_ = false;
  bool closed_ = false;
  int64_t documentReplacementCount_ = 0;
  HistoryEngine history_;
  std::unique_ptr<EditSaveScheduler> saveScheduler_;

  EditorTool activeTool_ = EditorTool::adjust;
  std::optional<CropSessionSnapshot> cropSession_;
  bool showOriginal_ = false;
  bool splitCompare_ = false;
  ViewportState viewport_;
  std::optional<SamplingMode> samplingMode_;
  std::optional<Uuid> selectedMaskID_;
  BrushSettings brush_;
  std::optional<GlobalAdjustments> copiedMaskAdjustments_;
  std::map<std::string, bool> sectionCollapsed_;
  std::optional<CanvasAction> canvasAction_;
  bool showExportSheet_ = false;
  std::optional<int> windowNumber_;
  bool redEyeManualMode_ = false;
  bool magicWandActive_ = false;
  double magicWandTolerance_ = MagicWandSettings::kDefaultTolerance;
  int magicWandFeather_ = MagicWandSettings::kDefaultFeather;
  std::map<BusyFlag, bool> busy_;

  std::shared_ptr<MaskImageCache> maskCache_ = std::make_shared<MaskImageCache>();
  PreviewSources sources_;
  std::optional<PreviewFrame> previewImage_;
  std::optional<PreviewFrame> viewportImage_;
  std::optional<PreviewFrame> splitOriginalImage_;
  std::optional<HistogramBins> histogram_;
  std::optional<EditDocument> previewRequested_;  // the document of the newest preview request
  std::optional<EditDocument> healRendered_;      // heal inputs of the last delivered preview

  RAWDevelopSettings requestedDevelopment_;  // what the newest decode develops with
  std::map<std::string, std::shared_ptr<const Image>> filterThumbnails_;
  std::optional<std::size_t> thumbnailKey_;
  std::optional<std::string> thumbnailFingerprint_;

  bool exporting_ = false;
  std::string exportPhase_;
  std::unique_ptr<Export> export_;

  struct OperationSlot {
    std::shared_ptr<void> op;
    std::type_index type = typeid(void);
    std::function<void()> cancel;
  };
  std::map<BusyFlag, OperationSlot> operations_;

  std::vector<std::pair<uint64_t, Observer>> observers_;
  uint64_t nextObserver_ = 0;

  // Declared last, destroyed first: their late results find nothing to call.
  std::shared_ptr<char> alive_ = std::make_shared<char>();
  ToastPresenter toasts_;
  std::unique_ptr<PreviewScheduler> previews_;
  NewestWins<std::shared_ptr<DecodedSource>> decodes_;
  NewestWins<std::map<std::string, std::shared_ptr<const Image>>> thumbnails_;
};

template <class T>
AsyncEditOperation<T>& EditorSession::operation(BusyFlag flag) {
  OperationSlot& slot = operations_[flag];
  if (!slot.op) {
    auto op = std::make_shared<AsyncEditOperation<T>>(
        services_.main, services_.background, [this, flag](bool on) { setBusy(flag, on); },
        [this] { return documentReplacementCount_; });
    slot.type = typeid(T);
    slot.cancel = [raw = op.get()] { raw->cancel(); };
    slot.op = std::move(op);
  } else if (slot.type != std::type_index(typeid(T))) {
    logLine("Verdantglass: operation asked for with another result type");
    std::abort();
  }
  return *static_cast<AsyncEditOperation<T>*>(slot.op.get());
}

}  // namespace vg
