#include "app/editor_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QAbstractSpinBox>
#include <cmath>

#include "app/app_icon.h"
#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/canvas/toast_view.h"
#include "app/export_sheet.h"
#include "app/file_drop.h"
#include "app/history_panel.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/crop_panel.h"
#include "app/inspector/filter_panel.h"
#include "app/inspector/heal_panel.h"
#include "app/inspector/mask_panel.h"
#include "app/inspector/histogram_view.h"
#include "app/inspector/slider_row.h"
#include "render/geometry.h"
#include "store/preset_library.h"
#include "store/support_folder.h"

namespace vg::app {
namespace {

using Change = EditorSession::Change;
constexpr int kInspectorWidth = 330;
constexpr auto kEditedBadgeTime = std::chrono::milliseconds(1200);

QString text(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

ToastKind kindOf(ToastMessage::Kind k) {
  switch (k) {
    case ToastMessage::Kind::success: return ToastKind::success;
    case ToastMessage::Kind::info: return ToastKind::info;
    case ToastMessage::Kind::warning: return ToastKind::warning;
    case ToastMessage::Kind::error: return ToastKind::error;
  }
  return ToastKind::info;
}

ActionId toolAction(EditorTool tool) {
  switch (tool) {
    case EditorTool::adjust: return ActionId::toolAdjust;
    case EditorTool::crop: return ActionId::toolCrop;
    case EditorTool::mask: return ActionId::toolMask;
    case EditorTool::heal: return ActionId::toolHeal;
    case EditorTool::filter: return ActionId::toolFilter;
    case EditorTool::history: return ActionId::toolHistory;
  }
  return ActionId::toolAdjust;
}

// Keys typed into a text field belong to it, not to the canvas shortcuts.
bool typingInto(QWidget* w) {
  if (!w) return false;
  if (qobject_cast<QLineEdit*>(w) || qobject_cast<QAbstractSpinBox*>(w)) return true;
  auto* combo = qobject_cast<QComboBox*>(w);
  return combo && combo->isEditable();
}

}  // namespace

std::optional<GlobalAdjustments>& EditorWindow::adjustmentClipboard() {
  static std::optional<GlobalAdjustments> clipboard;
  return clipboard;
}

EditorWindow::EditorWindow(AppServices& services, std::filesystem::path image, QWidget* parent)
    : QMainWindow(parent), services_(services), image_(std::move(image)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowIcon(appIcon());
  setWindowTitle(QStringLiteral("%1 — Verdantglass").arg(QString::fromStdString(image_.filename().string())));
  setAcceptDrops(true);
  buildWidgets();
  qApp->installEventFilter(this);

  SessionServices s{services_.main, services_.background, SystemClock::shared(), services_.store,
                    services_.engine, services_.supportFolder};
  QPointer<EditorWindow> self(this);
  EditorSession::open(image_, s, [self](std::unique_ptr<EditorSession> session, std::optional<std::string> error) {
    if (!self) return;  // the window was closed while the image decoded
    if (!session) {
      emit self->openFailed(self->image_, QString::fromStdString(error.value_or("")));
      self->closing_ = true;
      self->close();
      return;
    }
    self->attach(std::move(session));
  });
}

EditorWindow::~EditorWindow() {
  qApp->removeEventFilter(this);
  if (session_) {
    session_->removeObserver(observer_);
    session_->close();
  }
}

void EditorWindow::buildWidgets() {
  actions_ = new ActionSet(this, true);
  actions_->populate(menuBar());
  connect(actions_, &ActionSet::triggered, this, &EditorWindow::onAction);

  auto* tools = addToolBar(QStringLiteral("工具"));
  tools->setObjectName("tools");
  tools->setMovable(false);
  tools->setToolButtonStyle(Qt::ToolButtonTextOnly);
  for (ActionId id : {ActionId::toolAdjust, ActionId::toolCrop, ActionId::toolMask, ActionId::toolHeal,
                      ActionId::toolFilter, ActionId::toolHistory})
    tools->addAction(actions_->action(id));
  tools->addSeparator();
  tools->addAction(actions_->action(ActionId::undo));
  tools->addAction(actions_->action(ActionId::redo));
  tools->addSeparator();
  QAction* original = actions_->action(ActionId::showOriginal);
  original->setToolTip(text(EditorSession::kShowOriginalShortcutHint) + "\n" +
                       text(EditorSession::kShowOriginalHelp));
  tools->addAction(original);
  QAction* split = actions_->action(ActionId::splitCompare);
  split->setToolTip(text(EditorSession::kSplitCompareHint));
  tools->addAction(split);
  tools->addSeparator();
  tools->addAction(actions_->action(ActionId::fit));
  tools->addAction(actions_->action(ActionId::actualSize));
  auto* spacer = new QWidget(tools);
  spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  tools->addWidget(spacer);
  tools->addAction(actions_->action(ActionId::exportImage));
  actions_->action(ActionId::displayProfile)
      ->setText(QStringLiteral("显示器配置文件：%1").arg(QString::fromStdString(services_.display->name())));

  auto* splitter = new QSplitter(Qt::Horizontal, this);
  splitter->setChildrenCollapsible(false);
  canvas_ = new CanvasView(splitter);
  toast_ = new ToastView(canvas_);
  inspector_ = new QStackedWidget(splitter);
  inspector_->setMinimumWidth(kInspectorWidth - 40);
  splitter->addWidget(canvas_);
  splitter->addWidget(inspector_);
  splitter->setStretchFactor(0, 1);
  splitter->setStretchFactor(1, 0);
  splitter->setSizes({1000, kInspectorWidth});
  setCentralWidget(splitter);

  adjust_ = new AdjustPanel([](EditDocument& d) { return &d.adjustments; }, {}, inspector_);
  crop_ = new CropPanel(inspector_);
  history_ = new HistoryPanel(inspector_);
  setToolPanel(EditorTool::adjust, adjust_);
  setToolPanel(EditorTool::crop, crop_);
  setToolPanel(EditorTool::history, history_);
  mask_ = new MaskPanel(inspector_);
  filter_ = new FilterPanel(inspector_);
  heal_ = new HealPanel(inspector_);
  setToolPanel(EditorTool::mask, mask_);
  setToolPanel(EditorTool::filter, filter_);
  setToolPanel(EditorTool::heal, heal_);

  facts_ = new QLabel(this);
  zoom_ = new QLabel(this);
  zoom_->setMinimumWidth(60);
  exportPhase_ = new QLabel(this);
  exportBar_ = new QProgressBar(this);
  exportBar_->setRange(0, 0);  // the exporter reports phases, not fractions
  exportBar_->setMaximumWidth(140);
  exportBar_->setMaximumHeight(14);
  exportPhase_->hide();
  exportBar_->hide();
  statusBar()->addWidget(facts_, 1);
  statusBar()->addPermanentWidget(exportPhase_);
  statusBar()->addPermanentWidget(exportBar_);
  statusBar()->addPermanentWidget(zoom_);
  facts_->setText(QStringLiteral("正在打开 %1…").arg(QString::fromStdString(image_.filename().string())));

  badgeTimer_ = new QTimer(this);
  badgeTimer_->setSingleShot(true);
  connect(badgeTimer_, &QTimer::timeout, this, &EditorWindow::refreshCompare);

  // Widgets' intents.
  connect(canvas_, &CanvasView::viewportChanged, this, &EditorWindow::pushViewport);
  connect(canvas_, &CanvasView::sampleRequested, this, [this](double x, double y) {
    const Viewport& v = canvas_->viewport();
    if (session_ && v.imageWidth > 0 && v.imageHeight > 0) session_->sampleAt({x / v.imageWidth, y / v.imageHeight});
  });
  connectPanel(adjust_);
  connect(crop_, &CropPanel::angleEdited, this, [this](double v) {
    if (session_) session_->setStraightenAngle(v);
  });
  connect(crop_, &CropPanel::angleFinished, this, [this](const QString& label) {
    if (session_) session_->recordStep(label.toStdString());
  });
  connect(crop_, &CropPanel::rotate, this, [this](bool cw) {
    if (session_) session_->rotate90(cw);
  });
  connect(crop_, &CropPanel::flip, this, [this](bool h) {
    if (session_) session_->flip(h);
  });
  connect(crop_, &CropPanel::autoStraighten, this, [this] {
    if (session_) session_->autoStraighten();
  });
  connect(crop_, &CropPanel::done, this, [this] {
    if (session_ && session_->cropSession()) session_->setActiveTool(session_->cropSession()->returnTool == EditorTool::crop
                                                                          ? EditorTool::adjust
                                                                          : session_->cropSession()->returnTool);
  });
  connect(crop_, &CropPanel::cancel, this, [this] {
    if (session_) session_->cancelCrop();
  });
  // The mask tool: new masks, selection, the selected mask's adjustments.
  connect(mask_, &MaskPanel::maskAdded, this, [this](MaskKindCase kind) {
    if (session_) session_->addMask(kind);
  });
  connect(mask_, &MaskPanel::maskSelected, this, [this](const std::optional<Uuid>& id) {
    if (session_) session_->selectMask(id);
  });
  connect(mask_, &MaskPanel::maskRemoved, this, [this](const Uuid& id) {
    if (session_) session_->removeMask(id);
  });
  connect(mask_, &MaskPanel::colorSamplingRequested, this, [this](const std::optional<Uuid>& id) {
    if (!session_) return;
    session_->armSampling(id ? SamplingMode{SamplingMode::Kind::colorRange, id}
                             : SamplingMode{SamplingMode::Kind::newColorRange, std::nullopt});
  });
  connect(mask_, &MaskPanel::maskEdited, this, [this](const DocumentEdit& edit, const QString& label) {
    if (session_) session_->applyEdit(label.toStdString(), edit);
  });
  connectPanel(mask_->adjustments());
  // The filter tool: presets at a strength, the applied LUT.
  connect(filter_, &FilterPanel::presetChosen, this, [this](const FilterPreset& preset, double strength) {
    if (session_) session_->applyFilterPreset(preset, strength);
  });
  connect(filter_, &FilterPanel::presetRemoved, this, [this] {
    if (session_ && session_->document().filterID) session_->removeFilterPreset();
  });
  connect(filter_, &FilterPanel::strengthEdited, this, [this](double v) {
    if (session_) session_->setFilterStrength(v);
  });
  connect(filter_, &FilterPanel::strengthFinished, this, [this](const QString& label) {
    if (session_) session_->recordStep(label.toStdString());
  });
  connect(filter_, &FilterPanel::lutStrengthEdited, this, [this](double v) {
    if (!session_ || !session_->document().lut) return;
    EditDocument doc = session_->document();
    doc.lut->strength = numberRow(appliedLUTFields(), "strength").clamp(v);
    session_->setDocument(std::move(doc));
  });
  connect(filter_, &FilterPanel::lutStrengthFinished, this, [this](const QString& label) {
    if (session_) session_->recordStep(label.toStdString());
  });
  connect(filter_, &FilterPanel::lutRemoved, this, [this] {
    if (session_) session_->removeLUT();
  });
  // The heal tool's list.
  connect(heal_, &HealPanel::strokeRemoved, this, [this](size_t index) {
    if (session_) session_->removeHealStroke(index);
  });
  connect(heal_, &HealPanel::allCleared, this, [this] {
    if (session_) session_->clearHealStrokes();
  });
  connect(history_, &HistoryPanel::jumpRequested, this, [this](const Uuid& id) {
    if (session_) session_->jumpToHistoryEntry(id);
  });
  refreshActions();
  resize(1400, 900);
}

void EditorWindow::connectPanel(AdjustPanel* panel) {
  connect(panel, &InspectorPanel::edited, this, [this](const DocumentEdit& edit) {
    if (!session_) return;
    EditDocument doc = session_->document();
    edit(doc);
    session_->setDocument(std::move(doc));
  });
  connect(panel, &InspectorPanel::finished, this, [this](const QString& label) {
    if (session_) session_->recordStep(label.toStdString());
  });
  connect(panel, &InspectorPanel::sectionToggled, this, [this](const QString& key, bool collapsed) {
    if (session_) session_->setSectionCollapsed(key.toStdString(), collapsed);
  });
  // The picker samples for the panel's own target: the picture or the selected mask.
  const bool global = panel == adjust_;
  connect(panel, &AdjustPanel::whiteBalanceSamplingRequested, this, [this, global] {
    if (!session_) return;
    session_->armSampling(SamplingMode{SamplingMode::Kind::whiteBalance,
                                       global ? std::nullopt : session_->selectedMaskID()});
  });
  if (global)
    connect(panel, &AdjustPanel::autoAdjustRequested, this, [this](AutoMode mode) {
      if (session_) session_->autoAdjust(mode);
    });
  panels_.push_back(panel);
}

void EditorWindow::setToolPanel(EditorTool tool, QWidget* panel) {
  if (inspector_->indexOf(panel) < 0) inspector_->addWidget(panel);
  toolPanels_[tool] = panel;
  if (session_ && session_->activeTool() == tool) inspector_->setCurrentWidget(panel);
}

QWidget* EditorWindow::toolPanel(EditorTool tool) const {
  auto it = toolPanels_.find(tool);
  return it == toolPanels_.end() ? nullptr : it->second;
}

void EditorWindow::attach(std::unique_ptr<EditorSession> session) {
  session_ = std::move(session);
  observer_ = session_->addObserver([this](Change c) { onChange(c); });
  adjust_->setRawDecoderOptions(session_->isRAW() ? session_->rawDecoderOptions()
                                                  : std::vector<ImageLoader::RAWDecoderOption>{});
  for (AdjustPanel* p : panels_) p->setCollapsedSections(session_->sectionCollapsed());
  filter_->setPresets(PresetLibrary(services_.supportFolder / "Presets").list());
  refreshDocument();
  refreshHistory();
  refreshTool();
  refreshCompare();
  refreshPicture();
  refreshStatus();
  refreshActions();
  emit opened(this);
}

void EditorWindow::onChange(Change change) {
  switch (change) {
    case Change::document: refreshDocument(); break;
    case Change::history: refreshHistory(); break;
    case Change::activeTool:
    case Change::cropSession: refreshTool(); break;
    case Change::compare: refreshCompare(); break;
    case Change::previewImage: refreshPicture(); break;
    case Change::viewportImage: refreshDetail(); break;
    case Change::originalImage: refreshOriginal(); break;
    case Change::histogram:
      if (session_->histogram()) adjust_->histogram()->setBins(*session_->histogram());
      break;
    case Change::toast: refreshToast(); break;
    case Change::exporting: refreshExporting(); break;
    case Change::sectionCollapsed:
      for (AdjustPanel* p : panels_) p->setCollapsedSections(session_->sectionCollapsed());
      break;
    case Change::selectedMask: mask_->refresh(session_->document(), session_->selectedMaskID()); break;
    case Change::sampling: refreshSampling(); break;
    case Change::canvasAction: applyCanvasAction(); break;
    case Change::exportSheet:
      if (session_->showExportSheet()) showExportSheet();
      break;
    case Change::busy:
      adjust_->setAutoAdjusting(session_->autoAdjusting());
      crop_->refresh(session_->document(), session_->detectingHorizon());
      heal_->refresh(session_->document(), session_->healing());
      refreshStatus();
      break;
    case Change::source: refreshStatus(); break;
    default: break;
  }
  refreshActions();
}

void EditorWindow::refreshActions() {
  ActionState s;
  s.editor = session_ != nullptr;
  if (session_) {
    s.canUndo = session_->canUndo();
    s.canRedo = session_->canRedo();
    s.canPaste = adjustmentClipboard().has_value();
    s.exporting = session_->exporting();
    s.hasEdits = !(session_->document() == EditDocument{});
  }
  actions_->refresh(s);
  if (session_) {
    actions_->action(toolAction(session_->activeTool()))->setChecked(true);
    actions_->action(ActionId::showOriginal)->setChecked(session_->showOriginal());
    actions_->action(ActionId::splitCompare)->setChecked(session_->splitCompare());
  }
}

void EditorWindow::refreshDocument() {
  const EditDocument& doc = session_->document();
  adjust_->refresh(doc);
  crop_->refresh(doc, session_->detectingHorizon());
  mask_->refresh(doc, session_->selectedMaskID());
  filter_->refresh(doc);
  heal_->refresh(doc, session_->healing());
  const Rect f = fullFrame();
  canvas_->setFrameSize(f.width, f.height);
}

void EditorWindow::refreshHistory() {
  history_->setEntries(session_->history().entries(), session_->history().currentIndex());
}

void EditorWindow::refreshTool() {
  const EditorTool tool = session_->activeTool();
  if (QWidget* panel = toolPanel(tool)) inspector_->setCurrentWidget(panel);
  const Rect f = fullFrame();
  canvas_->setFrameSize(f.width, f.height);
}

void EditorWindow::refreshCompare() {
  canvas_->setShowOriginal(session_->showOriginal());
  canvas_->setSplitCompare(session_->splitCompare());
  QString badge;
  if (session_->showOriginal()) badge = text(EditorSession::kShowingOriginal);
  else if (badgeTimer_->isActive()) badge = text(EditorSession::kShowingEdited);
  else if (session_->splitCompare()) badge = text(EditorSession::kSplitCompareHint);
  canvas_->setBadge(badge);
}

Rect EditorWindow::fullFrame() const {
  if (!session_) return {};
  const auto size = session_->originalPixelSize();
  EditDocument doc = session_->document();
  if (session_->activeTool() == EditorTool::crop) doc.crop.rect.reset();  // the tool shows the whole frame
  const Rect source{0, 0, int(std::lround(size.width)), int(std::lround(size.height))};
  return Geometry(source, geometryParams(doc), true).outputRect();
}

namespace {

// The part of the frame a render covers, in full-resolution frame pixels.
ViewRect coverage(const PreviewFrame& frame) {
  const Rect b = frame.image->bounds();
  const double s = frame.scale;
  return {(b.x - frame.frame.x) / s, (b.y - frame.frame.y) / s, b.width / s, b.height / s};
}

// The size a render is shown at by `viewport`: the converted picture is made
// at that size, so the painter draws it one to one.
QSize shownSize(const ViewRect& covers, const Viewport& viewport) {
  if (!(viewport.scale > 0)) return {};
  return QSize(int(std::lround(covers.width * viewport.scale)), int(std::lround(covers.height * viewport.scale)));
}

}  // namespace

void EditorWindow::refreshPicture() {
  const auto& frame = session_->previewImage();
  if (!frame || !frame->image) return;
  const ViewRect covers = coverage(*frame);
  pictureSize_ = shownSize(covers, canvas_->viewport());
  CanvasPicture picture =
      makeCanvasPicture(*frame->image, *services_.display, covers, pictureSize_.width(), pictureSize_.height());
  picture.generation = frame->generation;
  canvas_->setPicture(std::move(picture));
}

void EditorWindow::refreshDetail() {
  const auto& frame = session_->viewportImage();
  if (!frame || !frame->image) {
    canvas_->setDetail({});
    return;
  }
  CanvasPicture detail = makeCanvasPicture(*frame->image, *services_.display, coverage(*frame));
  detail.generation = frame->generation;
  canvas_->setDetail(std::move(detail));
}

void EditorWindow::refreshOriginal() {
  const auto& frame = session_->splitOriginalImage();
  if (!frame || !frame->image) return;
  const ViewRect covers = coverage(*frame);
  const QSize size = shownSize(covers, canvas_->viewport());
  canvas_->setOriginal(makeCanvasPicture(*frame->image, *services_.display, covers, size.width(), size.height()),
                       frame->frame.width / frame->scale, frame->frame.height / frame->scale);
}

void EditorWindow::refreshToast() {
  const auto& t = session_->toast();
  if (!t) {
    toast_->dismiss();
    return;
  }
  toast_->showToast(QString::fromStdString(t->text), kindOf(t->kind),
                    t->actionTitle ? QString::fromStdString(*t->actionTitle) : QString(), t->action);
}

void EditorWindow::refreshExporting() {
  const bool on = session_->exporting();
  exportPhase_->setText(QString::fromStdString(session_->exportPhase()));
  exportPhase_->setVisible(on);
  exportBar_->setVisible(on);
}

void EditorWindow::refreshSampling() {
  const auto& mode = session_->samplingMode();
  canvas_->setSamplingPrompt(mode ? text(samplingPrompt(*mode)) : QString());
}

void EditorWindow::refreshStatus() {
  if (!session_) return;
  const auto size = session_->originalPixelSize();
  QString facts = QStringLiteral("%1 · %2 × %3 · %4 · %5")
                      .arg(QString::fromStdString(image_.filename().string()))
                      .arg(qint64(size.width))
                      .arg(qint64(size.height))
                      .arg(QString::fromStdString(session_->fileFormat()),
                           QString::fromStdString(session_->colorSpaceName()));
  if (session_->isBusy(EditorSession::BusyFlag::loading)) facts += QStringLiteral(" · 正在载入全分辨率…");
  if (session_->rawDecoding()) facts += QStringLiteral(" · RAW 显影中…");
  facts_->setText(facts);
  zoom_->setText(QStringLiteral("%1%").arg(int(std::lround(canvas_->viewport().scale * 100))));
}

void EditorWindow::applyCanvasAction() {
  const auto action = session_->takeCanvasAction();
  if (!action) return;
  switch (*action) {
    case EditorSession::CanvasAction::fitToWindow: canvas_->fitToWindow(); break;
    case EditorSession::CanvasAction::actualSize: canvas_->actualSize(); break;
    case EditorSession::CanvasAction::zoomIn: canvas_->zoomBy(1.25); break;
    case EditorSession::CanvasAction::zoomOut: canvas_->zoomBy(0.8); break;
  }
}

void EditorWindow::pushViewport() {
  refreshStatus();
  if (!session_) return;
  const Viewport& v = canvas_->viewport();
  const Rect f = fullFrame();
  ViewportState state;
  state.scale = v.valid() ? v.scale : 0;
  state.imageCenter = {f.x + v.center.x, f.y + v.center.y};
  state.viewSize = {v.viewWidth, v.viewHeight};
  state.imageExtent = {double(f.x), double(f.y), double(f.width), double(f.height)};
  session_->setViewport(state);
  // A zoom change alters the size the whole-frame picture is shown at.
  const auto& frame = session_->previewImage();
  if (frame && frame->image && canvas_->hasPicture()) {
    const QSize wanted = shownSize(coverage(*frame), v);
    const QSize full(frame->image->width(), frame->image->height());
    const bool bothFull = wanted.width() >= full.width() && pictureSize_.width() >= full.width();
    if (wanted != pictureSize_ && !bothFull) {
      refreshPicture();
      if (session_->splitOriginalImage()) refreshOriginal();
    }
  }
}

void EditorWindow::onAction(ActionId id) {
  emit actionTriggered(id);
  if (!session_) return;
  switch (id) {
    case ActionId::undo: session_->undo(); break;
    case ActionId::redo: session_->redo(); break;
    case ActionId::copyAdjustments:
      adjustmentClipboard() = session_->document().adjustments;
      session_->showToast("已拷贝调整参数", ToastMessage::Kind::info);
      break;
    case ActionId::pasteAdjustments:
      if (adjustmentClipboard()) session_->pasteAdjustments(*adjustmentClipboard());
      break;
    case ActionId::resetAll: confirmResetAll(); break;
    case ActionId::rotateLeft: session_->rotate90(false); break;
    case ActionId::rotateRight: session_->rotate90(true); break;
    case ActionId::fit: session_->requestCanvasAction(EditorSession::CanvasAction::fitToWindow); break;
    case ActionId::actualSize: session_->requestCanvasAction(EditorSession::CanvasAction::actualSize); break;
    case ActionId::zoomIn: session_->requestCanvasAction(EditorSession::CanvasAction::zoomIn); break;
    case ActionId::zoomOut: session_->requestCanvasAction(EditorSession::CanvasAction::zoomOut); break;
    case ActionId::showOriginal:
      gesture_.setToggled(actions_->action(ActionId::showOriginal)->isChecked());
      session_->setShowOriginal(gesture_.showingOriginal());
      break;
    case ActionId::splitCompare: session_->setSplitCompare(!session_->splitCompare()); break;
    case ActionId::exportImage: session_->setShowExportSheet(true); break;
    case ActionId::closeWindow: close(); break;
    case ActionId::toolAdjust: session_->setActiveTool(EditorTool::adjust); break;
    case ActionId::toolCrop: session_->setActiveTool(EditorTool::crop); break;
    case ActionId::toolMask: session_->setActiveTool(EditorTool::mask); break;
    case ActionId::toolHeal: session_->setActiveTool(EditorTool::heal); break;
    case ActionId::toolFilter: session_->setActiveTool(EditorTool::filter); break;
    case ActionId::toolHistory: session_->setActiveTool(EditorTool::history); break;
    default: break;  // open, quit, about: the application's
  }
}

void EditorWindow::confirmResetAll() {
  QMessageBox box(QMessageBox::Warning, text(EditorSession::kResetAllTitle),
                  text(EditorSession::kResetAllConfirmation), QMessageBox::NoButton, this);
  QPushButton* reset = box.addButton(QStringLiteral("复位"), QMessageBox::DestructiveRole);
  box.addButton(QStringLiteral("取消"), QMessageBox::RejectRole);
  box.setWindowModality(Qt::WindowModal);
  box.exec();
  if (box.clickedButton() == reset && session_) session_->resetAll();
}

void EditorWindow::showExportSheet() {
  if (sheet_) {
    sheet_->raise();
    return;
  }
  sheet_ = new ExportSheet(image_, loadExportSettings(services_.settings), this);
  sheet_->setAttribute(Qt::WA_DeleteOnClose);
  const QString folder = services_.settings.value("window/lastExportFolder").toString();
  if (!folder.isEmpty()) sheet_->setStartFolder(folder.toStdString());
  connect(sheet_, &ExportSheet::exportRequested, this,
          [this](const std::filesystem::path& destination, const ExportSheetValues& values) {
            saveExportSettings(services_.settings, values);
            services_.settings.setValue("window/lastExportFolder",
                                        QString::fromStdString(destination.parent_path().string()));
            if (session_) session_->startExport(destination, values.toOptions(image_));
          });
  connect(sheet_, &QDialog::finished, this, [this] {
    if (session_) session_->setShowExportSheet(false);
  });
  sheet_->show();
}

ExportSheet* EditorWindow::exportSheet() const { return sheet_.data(); }

bool EditorWindow::flushEdits() { return session_ ? session_->flushEdits() : true; }

void EditorWindow::closeForQuit() {
  closing_ = true;
  close();
}

void EditorWindow::closeEvent(QCloseEvent* e) {
  if (!closing_ && session_ && !session_->flushEdits()) {
    const auto answer = QMessageBox::warning(
        this, QStringLiteral("编辑未能保存"),
        QStringLiteral("退出前编辑保存失败（磁盘满或目录不可写）%1\n仍要关闭此窗口吗？")
            .arg(QString::fromStdString(image_.filename().string())),
        QMessageBox::Close | QMessageBox::Cancel, QMessageBox::Cancel);
    if (answer != QMessageBox::Close) {
      e->ignore();
      return;
    }
  }
  if (session_) {
    session_->removeObserver(observer_);
    session_->close();
    // Gone now, while the executors and the store it uses are certainly alive.
    session_.reset();
  }
  emit closed(this);
  e->accept();
}

bool EditorWindow::handleKey(QKeyEvent* e, bool pressed) {
  if (!session_ || e->isAutoRepeat() || typingInto(QApplication::focusWidget())) return false;
  if (e->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return false;
  const auto now = std::chrono::steady_clock::now();
  switch (e->key()) {
    case Qt::Key_Backslash: {
      const bool wasShowing = gesture_.showingOriginal();
      const bool showing = pressed ? gesture_.press(now) : gesture_.release(now);
      if (wasShowing && !showing) badgeTimer_->start(kEditedBadgeTime);
      session_->setShowOriginal(showing);
      refreshCompare();
      return true;
    }
    case Qt::Key_Space:
      canvas_->setSpacePan(pressed);
      return true;
    case Qt::Key_Escape:
      if (pressed) return session_->handleEscape();
      return false;
    case Qt::Key_Return:
    case Qt::Key_Enter:
      if (pressed && session_->cropSession()) {
        const EditorTool back = session_->cropSession()->returnTool;
        session_->setActiveTool(back == EditorTool::crop ? EditorTool::adjust : back);
        return true;
      }
      return false;
    default: return false;
  }
}

bool EditorWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease) {
    auto* w = qobject_cast<QWidget*>(watched);
    if (w && w->window() == this && handleKey(static_cast<QKeyEvent*>(event), event->type() == QEvent::KeyPress))
      return true;
  }
  return QMainWindow::eventFilter(watched, event);
}

void EditorWindow::dragEnterEvent(QDragEnterEvent* e) {
  if (e->mimeData()->hasUrls()) e->acceptProposedAction();
}

void EditorWindow::dropEvent(QDropEvent* e) {
  const DroppedFiles files = sortDroppedUrls(e->mimeData()->urls());
  if (const QString refusal = refusalMessage(files); !refusal.isEmpty() && session_)
    session_->showToast(refusal.toStdString(), ToastMessage::Kind::warning);
  if (files.images.empty()) return;
  e->acceptProposedAction();
  emit filesDropped(files.images);
}

}  // namespace vg::app
