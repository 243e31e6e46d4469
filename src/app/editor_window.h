// EditorWindow: one open image. Tool bar (the six tools, undo/redo, compare,
// zoom, export), the canvas in the middle with its toasts, the inspector of
// the active tool on the right, and a status line (file facts, zoom, the
// running export).
//
// The window owns the image's EditorSession and is its only view: it
// observes the session's published state (EditorSession::Change) and mirrors
// it into the widgets; every widget emits intents that the window hands to
// the session, which alone changes the document. Keys the window reads
// itself: \ (hold or double tap: show original), space (hold: pan), Esc
// (disarm sampling, cancel the crop), Enter (keep the crop).
//
// Opening is asynchronous: the window shows at once and gets its session when
// the image has been decoded; a failure closes it and is reported through
// openFailed().
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QSize>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>

#include "app/actions.h"
#include "app/canvas/show_original_gesture.h"
#include "session/editor_session.h"

class QLabel;
class QProgressBar;
class QStackedWidget;
class QTimer;

namespace vg::app {

struct AppServices;
class AdjustPanel;
class CanvasView;
class CropPanel;
class FilterPanel;
class HealPanel;
class MaskPanel;
class ExportSheet;
class HistoryPanel;
class ToastView;

class EditorWindow : public QMainWindow {
  Q_OBJECT
 public:
  EditorWindow(AppServices& services, std::filesystem::path image, QWidget* parent = nullptr);
  ~EditorWindow() override;

  const std::filesystem::path& image() const { return image_; }
  EditorSession* session() const { return session_.get(); }
  bool isOpen() const { return session_ != nullptr; }

  // Writes the newest document to its sidecar now; false when that failed.
  bool flushEdits();
  // Closes without asking (quitting has already flushed).
  void closeForQuit();

  // Places a tool's inspector page (the tools' own panels replace the
  // defaults); the page shows while that tool is active.
  void setToolPanel(EditorTool tool, QWidget* panel);
  QWidget* toolPanel(EditorTool tool) const;

  CanvasView* canvas() const { return canvas_; }
  ToastView* toastView() const { return toast_; }
  AdjustPanel* adjustPanel() const { return adjust_; }
  HistoryPanel* historyPanel() const { return history_; }
  MaskPanel* maskPanel() const { return mask_; }
  FilterPanel* filterPanel() const { return filter_; }
  ActionSet* actions() const { return actions_; }
  ExportSheet* exportSheet() const;
  const ShowOriginalGesture& showOriginalGesture() const { return gesture_; }

  // The adjustments copied by "拷贝调整参数", shared by every window.
  static std::optional<GlobalAdjustments>& adjustmentClipboard();

 signals:
  void opened(vg::app::EditorWindow* window);
  void openFailed(const std::filesystem::path& image, const QString& message);
  void closed(vg::app::EditorWindow* window);
  void actionTriggered(vg::app::ActionId id);
  void filesDropped(const std::vector<std::filesystem::path>& images);

 protected:
  void closeEvent(QCloseEvent* e) override;
  bool eventFilter(QObject* watched, QEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* e) override;
  void dropEvent(QDropEvent* e) override;

 private:
  void buildWidgets();
  void connectPanel(AdjustPanel* panel);
  void attach(std::unique_ptr<EditorSession> session);
  void onChange(EditorSession::Change change);
  void onAction(ActionId id);
  void refreshActions();
  void refreshDocument();
  void refreshHistory();
  void refreshTool();
  void refreshCompare();
  void refreshPicture();
  void refreshDetail();
  void refreshOriginal();
  void refreshToast();
  void refreshExporting();
  void refreshSampling();
  void refreshStatus();
  void applyCanvasAction();
  void pushViewport();
  void showExportSheet();
  void confirmResetAll();
  bool handleKey(QKeyEvent* e, bool pressed);
  // Full-resolution output frame of the document as previewed.
  Rect fullFrame() const;

  AppServices& services_;
  std::filesystem::path image_;
  std::unique_ptr<EditorSession> session_;
  uint64_t observer_ = 0;

  ActionSet* actions_ = nullptr;
  CanvasView* canvas_ = nullptr;
  ToastView* toast_ = nullptr;
  QStackedWidget* inspector_ = nullptr;
  std::map<EditorTool, QWidget*> toolPanels_;
  AdjustPanel* adjust_ = nullptr;
  CropPanel* crop_ = nullptr;
  MaskPanel* mask_ = nullptr;
  FilterPanel* filter_ = nullptr;
  HealPanel* heal_ = nullptr;
  std::vector<AdjustPanel*> panels_;  // the global panel and the mask panel's
  HistoryPanel* history_ = nullptr;
  QPointer<ExportSheet> sheet_;
  QLabel* facts_ = nullptr;
  QLabel* zoom_ = nullptr;
  QLabel* exportPhase_ = nullptr;
  QProgressBar* exportBar_ = nullptr;
  QTimer* badgeTimer_ = nullptr;
  QSize pictureSize_;  // the size the whole-frame picture was converted at
  ShowOriginalGesture gesture_;
  bool closing_ = false;
};

}  // namespace vg::app
