// EditorSession: building, the commit path, history, tools, compare, toasts,
// pictures and closing. The discrete edits are in editor_session_edits.cpp,
// the background work (decodes, thumbnails, export, straightening) in
// editor_session_background.cpp.
#include "session/editor_session.h"

#include <algorithm>
#include <cmath>

#include "model/log.h"

namespace vg {

namespace {

constexpr std::string_view kOpenedLabel = "打开图片";
constexpr std::string_view kRestoredLabel = "恢复上次编辑";
constexpr std::string_view kResetAllLabel = "复位全部调整";

// The parts of a document whose change makes the rasterised masks useless:
// every mask is drawn in the output frame.
bool sameGeometry(const EditDocument& a, const EditDocument& b) {
  return a.crop == b.crop && a.lens.distortion == b.lens.distortion;
}

bool sameHealInputs(const EditDocument& a, const EditDocument& b) {
  return a.heals == b.heals && sameGeometry(a, b);
}

}  // namespace

EditorSession::EditorSession(SessionServices services, OpenedImage opened)
    : services_(std::move(services)),
      history_(services_.clock),
      toasts_(services_.main, [this] { notify(Change::toast); }),
      decodes_(services_.main, services_.background,
               [this](bool on) {
                 if (on) return;  // startDecode() says which flag the decode raises
                 setBusy(BusyFlag::loading, false);
                 setBusy(BusyFlag::rawDecoding, false);
               }),
      thumbnails_(services_.main, services_.background) {
  const ImageLoader::Loaded& loaded = opened.loaded;
  sourceURL_ = loaded.url;
  sourceAccess_ = loaded.access;
  pixelSize_ = loaded.pixelSize;
  sourceOpaque_ = loaded.opaque;
  fileFormat_ = loaded.fileFormat;
  colorSpaceName_ = loaded.colorSpaceName;
  isRAW_ = loaded.isRAW;
  rawDecoderOptions_ = std::move(opened.rawDecoderOptions);
  metadata_ = loaded.meta;
  lutFolder_ = services_.supportFolder / "LUTs";
  presetsFolder_ = services_.supportFolder / "Presets";

  sources_.full = loaded.image;
  sources_.fullId = loaded.image ? nextHealSourceId() : 0;
  sources_.preview = opened.previewSource ? opened.previewSource : loaded.image;
  sources_.previewId = nextHealSourceId();
  if (sources_.preview && pixelSize_.width > 0) sources_.previewScale = sources_.preview->width() / pixelSize_.width;

  if (services_.persist) {
    saveScheduler_ = std::make_unique<EditSaveScheduler>(
        sourceURL_, services_.store, services_.main, services_.background,
        [this](std::string_view message) { showToast(std::string(message), ToastMessage::Kind::error); });
  }
  previews_ = std::make_unique<PreviewScheduler>(
      services_.main, services_.background, services_.engine, maskCache_,
      PreviewScheduler::Callbacks{
          [this](const PreviewFrame& frame) {
            previewImage_ = frame;
            if (previewRequested_) healRendered_ = *previewRequested_;
            setBusy(BusyFlag::healing, false);
            notify(Change::previewImage);
          },
          [this](const HistogramBins& bins) {
            if (histogram_ == bins) return;
            histogram_ = bins;
            notify(Change::histogram);
          },
          [this](const std::optional<PreviewFrame>& frame) {
            viewportImage_ = frame;
            notify(Change::viewportImage);
          },
          [this](const PreviewFrame& frame) {
            splitOriginalImage_ = frame;
            notify(Change::originalImage);
          },
          [this](bool on) { setBusy(BusyFlag::rendering, on); }});

  // The untouched image first, so that undo can return to it.
  history_.reset(document_, std::string(kOpenedLabel));
  if (opened.savedRecipe) {
    ++documentReplacementCount_;
    document_ = std::move(*opened.savedRecipe);
    history_.push(document_, std::string(kRestoredLabel));
  }
  requestedDevelopment_ = document_.raw;
  didFinishInit_ = true;

  previews_->setSources(sources_);
  schedulePreview();
  if (!sources_.full) startDecode(document_.raw);
}

EditorSession::~EditorSession() { close(); }

void EditorSession::open(std::filesystem::path file, SessionServices services, OpenCallback done) {
  MainExecutor* main = &services.main;
  services.background.post([file = std::move(file), services, main, done = std::move(done)] {
    try {
      auto opened = std::make_shared<OpenedImage>(loadImageForSession(file, services.store));
      main->post([services, opened, done] { done(std::make_unique<EditorSession>(services, std::move(*opened)), {}); });
    } catch (const ImageLoadError& e) {
      main->post([done, message = std::string(e.what())] { done(nullptr, message); });
    } catch (const std::exception& e) {
      logLine(std::string("Verdantglass: 打开图片失败 ") + e.what());
      main->post([done, name = file.filename().string()] {
        done(nullptr, std::string(ImageLoadError::make(ImageLoadError::kUndecodable, name).what()));
      });
    }
  });
}

// ---- Observers ----------------------------------------------------------------

uint64_t EditorSession::addObserver(Observer observer) {
  observers_.emplace_back(++nextObserver_, std::move(observer));
  return nextObserver_;
}

void EditorSession::removeObserver(uint64_t token) {
  std::erase_if(observers_, [token](const auto& o) { return o.first == token; });
}

void EditorSession::notify(Change change) {
  const auto observers = observers_;  // an observer may remove itself
  for (const auto& [token, observer] : observers) observer(change);
}

void EditorSession::setBusy(BusyFlag flag, bool on) {
  bool& current = busy_[flag];
  if (current == on) return;
  current = on;
  notify(Change::busy);
}

bool EditorSession::isBusy(BusyFlag flag) const {
  auto it = busy_.find(flag);
  return it != busy_.end() && it->second;
}

std::function<void(std::function<void()>)> EditorSession::mainHop() const {
  return [main = &services_.main, alive = std::weak_ptr<char>(alive_)](std::function<void()> fn) {
    main->post([alive, fn = std::move(fn)] {
      if (!alive.expired()) fn();
    });
  };
}

// ---- The commit path ----------------------------------------------------------------

void EditorSession::setDocument(EditDocument doc) { commit(std::move(doc)); }

void EditorSession::commit(EditDocument doc) {
  if (doc == document_ || closed_) return;
  EditDocument old = std::exchange(document_, std::move(doc));
  if (!didFinishInit_) return;
  if (saveScheduler_) saveScheduler_->schedule(document_);
  if (!sameGeometry(old, document_)) maskCache_->clear();
  if (isRAW_ && document_.raw != requestedDevelopment_) startDecode(document_.raw);
  schedulePreview();
  notify(Change::document);
}

void EditorSession::replaceDocument(EditDocument doc) {
  if (doc == document_ || closed_) return;
  ++documentReplacementCount_;
  commit(std::move(doc));
}

void EditorSession::recordStep(std::string label) {
  if (closed_) return;
  const size_t before = history_.entries().size();
  const auto current = history_.currentEntryID();
  history_.push(document_, std::move(label));
  if (history_.entries().size() != before || history_.currentEntryID() != current) notify(Change::history);
}

bool EditorSession::applyEdit(std::string label, const std::function<void(EditDocument&)>& edit) {
  if (closed_) return false;
  EditDocument doc = document_;
  edit(doc);
  if (doc == document_) return false;
  commit(std::move(doc));
  recordStep(std::move(label));
  return true;
}

bool EditorSession::undo() {
  if (closed_) return false;
  auto doc = history_.undo();
  if (!doc) return false;
  replaceDocument(std::move(*doc));
  notify(Change::history);
  return true;
}

bool EditorSession::redo() {
  if (closed_) return false;
  auto doc = history_.redo();
  if (!doc) return false;
  replaceDocument(std::move(*doc));
  notify(Change::history);
  return true;
}

bool EditorSession::jumpToHistoryEntry(const Uuid& entryID) {
  if (closed_) return false;
  auto doc = history_.jump(entryID);
  if (!doc) return false;
  replaceDocument(std::move(*doc));
  notify(Change::history);
  return true;
}

void EditorSession::resetAll() {
  if (closed_ || document_ == EditDocument{}) return;
  replaceDocument(EditDocument{});
  selectMask(std::nullopt);
  recordStep(std::string(kResetAllLabel));
}

void EditorSession::applyRecipe(EditDocument doc) {
  if (closed_ || doc == document_) return;
  replaceDocument(std::move(doc));
  recordStep("应用配方");
}

// ---- Tools ---------------------------------------------------------------------------------

void EditorSession::setActiveTool(EditorTool tool) {
  if (tool == activeTool_) return;
  const EditorTool previous = activeTool_;
  activeTool_ = tool;
  if (tool == EditorTool::crop) {
    cropSession_ = CropSessionSnapshot{document_.crop, history_.currentEntryID(), previous};
    notify(Change::cropSession);
  } else if (cropSession_) {
    cropSession_.reset();
    notify(Change::cropSession);
  }
  if ((previous == EditorTool::crop) != (tool == EditorTool::crop)) schedulePreview();
  notify(Change::activeTool);
}

bool EditorSession::handleEscape() {
  if (samplingMode_) {
    disarmSampling();
    return true;
  }
  if (cropSession_) {
    cancelCrop();
    return true;
  }
  return false;
}

void EditorSession::cancelCrop() {
  if (!cropSession_) return;
  const CropSessionSnapshot snapshot = *cropSession_;
  EditDocument restored = document_;
  restored.crop = snapshot.crop;
  if (!(restored == document_)) {
    // Back to the step the tool opened on when it holds exactly this
    // document: the crop session's steps then stay reachable by redo.
    const auto& entries = history_.entries();
    auto it = std::find_if(entries.begin(), entries.end(),
                           [&](const HistoryEntry& e) { return snapshot.historyEntryID == e.id; });
    if (it != entries.end() && it->document == restored) {
      jumpToHistoryEntry(it->id);
    } else {
      commit(std::move(restored));
      recordStep("取消裁剪");
    }
  }
  setActiveTool(snapshot.returnTool == EditorTool::crop ? EditorTool::adjust : snapshot.returnTool);
}

// ---- Compare and pictures -------------------------------------------------------------------

void EditorSession::setShowOriginal(bool on) {
  if (on == showOriginal_) return;
  showOriginal_ = on;
  previews_->setOriginalWanted(showOriginal_ || splitCompare_);
  notify(Change::compare);
}

void EditorSession::setSplitCompare(bool on) {
  if (on == splitCompare_) return;
  splitCompare_ = on;
  previews_->setOriginalWanted(showOriginal_ || splitCompare_);
  notify(Change::compare);
}

void EditorSession::setViewport(ViewportState viewport) {
  if (viewport == viewport_) return;
  viewport_ = viewport;
  std::optional<ViewportRequest> request;
  if (viewport.scale > 0 && viewport.viewSize.x > 0 && viewport.viewSize.y > 0) {
    const double w = viewport.viewSize.x / viewport.scale, h = viewport.viewSize.y / viewport.scale;
    request = ViewportRequest{viewport.scale,
                              RectF{viewport.imageCenter.x - w / 2, viewport.imageCenter.y - h / 2, w, h}};
  }
  previews_->setViewport(request);
  notify(Change::viewport);
}

EditDocument EditorSession::previewDocument() const {
  if (activeTool_ != EditorTool::crop) return document_;
  EditDocument doc = document_;
  doc.crop.rect.reset();
  return doc;
}

void EditorSession::schedulePreview() {
  if (closed_) return;
  EditDocument doc = previewDocument();
  if (!doc.heals.empty() && !(healRendered_ && sameHealInputs(*healRendered_, doc))) {
    setBusy(BusyFlag::healing, true);
  }
  previewRequested_ = doc;
  previews_->setDocument(doc);
}

// ---- Toasts ---------------------------------------------------------------------------------

void EditorSession::showToast(std::string text, ToastMessage::Kind kind, std::optional<std::string> actionTitle,
                              std::function<void()> action) {
  ToastMessage message;
  message.text = std::move(text);
  message.kind = kind;
  message.actionTitle = std::move(actionTitle);
  message.action = std::move(action);
  toasts_.show(std::move(message));
}

void EditorSession::dismissToast() { toasts_.dismiss(); }

// ---- Panels, canvas and window ------------------------------------------------------------------

bool EditorSession::isSectionCollapsed(const std::string& key) const {
  auto it = sectionCollapsed_.find(key);
  return it != sectionCollapsed_.end() && it->second;
}

void EditorSession::setSectionCollapsed(const std::string& key, bool collapsed) {
  if (isSectionCollapsed(key) == collapsed && sectionCollapsed_.count(key)) return;
  sectionCollapsed_[key] = collapsed;
  notify(Change::sectionCollapsed);
}

void EditorSession::requestCanvasAction(CanvasAction action) {
  canvasAction_ = action;
  notify(Change::canvasAction);
}

std::optional<EditorSession::CanvasAction> EditorSession::takeCanvasAction() {
  return std::exchange(canvasAction_, std::nullopt);
}

void EditorSession::setShowExportSheet(bool show) {
  if (show == showExportSheet_) return;
  showExportSheet_ = show;
  notify(Change::exportSheet);
}

void EditorSession::setMagicWand(bool active, double tolerance, int feather) {
  tolerance = std::isnan(tolerance) ? MagicWandSettings::kDefaultTolerance : std::clamp(tolerance, 0.0, 100.0);
  feather = std::clamp(feather, 0, MagicWandSettings::kMaxFeather);
  if (active == magicWandActive_ && tolerance == magicWandTolerance_ && feather == magicWandFeather_) return;
  magicWandActive_ = active;
  magicWandTolerance_ = tolerance;
  magicWandFeather_ = feather;
  notify(Change::magicWand);
}

void EditorSession::setBrush(BrushSettings brush) {
  if (brush == brush_) return;
  brush_ = brush;
  notify(Change::brush);
}

void EditorSession::setRedEyeManualMode(bool on) {
  if (on == redEyeManualMode_) return;
  redEyeManualMode_ = on;
  notify(Change::redEyeManualMode);
  if (on) showToast(std::string(kRedEyeManualModeOn), ToastMessage::Kind::info);
}

// ---- Closing ------------------------------------------------------------------------------------

bool EditorSession::flushEdits() {
  if (closed_ || !saveScheduler_) return true;
  return saveScheduler_->flush();
}

bool EditorSession::close() {
  if (closed_) return true;
  const bool stored = saveScheduler_ ? saveScheduler_->flush() : true;
  closed_ = true;
  previews_->cancelAll();
  decodes_.cancel();
  thumbnails_.cancel();
  cancelExport();
  for (auto& [flag, slot] : operations_) slot.cancel();
  toasts_.dismiss();
  sourceAccess_.reset();
  return stored;
}

}  // namespace vg
