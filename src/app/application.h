// Application: the desktop application's shell. It owns what every window
// shares (the Qt main executor, the background pool, the edit store, the
// monitor profile, the settings), the welcome window and one editor window
// per open image.
//
// - Files from the command line, the open dialog, drops and the recent list
//   open each in its own window; an image that is already open brings its
//   window to the front instead. A file that fails to open is reported on
//   the welcome window and opens nothing.
// - The welcome window shows while no image is open (and on request).
// - Quitting flushes the save scheduler of every open session first; when a
//   flush fails, the user is warned and may stay (nothing is lost) or quit.
#pragma once

#include <QObject>
#include <QSettings>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "app/display_profile.h"
#include "app/qt_main_executor.h"
#include "store/thread_pool.h"

class QWidget;

namespace vg {
class EditStore;
class RenderEngine;
}

namespace vg::app {

class EditorWindow;
class WelcomeWindow;

// What every editor window is built with.
struct AppServices {
  MainExecutor& main;
  Executor& background;
  EditStore& store;
  std::shared_ptr<RenderEngine> engine;  // shared by every window (its caches serve them all)
  std::filesystem::path supportFolder;
  std::shared_ptr<const DisplayTransform> display;
  std::string displaySource;  // "colord", "X11" or empty (sRGB assumed)
  QSettings& settings;
};

class Application : public QObject {
  Q_OBJECT
 public:
  // `store` defaults to the application's shared edit store.
  explicit Application(EditStore* store = nullptr, QObject* parent = nullptr);
  ~Application() override;

  // Opens the files given (each in a window) or shows the welcome window.
  void start(const std::vector<std::filesystem::path>& files);
  void openFiles(const std::vector<std::filesystem::path>& files);
  void showOpenDialog(QWidget* parent);
  void showWelcome();
  // Flushes every session; on failure asks whether to quit anyway. True when
  // the application is quitting.
  bool requestQuit();

  // Replaces the question asked when a flush fails before quitting (tests).
  using QuitQuestion = std::function<bool(QWidget* parent, const QStringList& failedImages)>;
  void setQuitQuestion(QuitQuestion question) { quitQuestion_ = std::move(question); }

  AppServices& services() { return *services_; }
  const std::vector<EditorWindow*>& windows() const { return windows_; }
  WelcomeWindow* welcome() const { return welcome_; }
  EditorWindow* windowFor(const std::filesystem::path& image) const;

 signals:
  void windowOpened(vg::app::EditorWindow* window);

 private:
  void adopt(EditorWindow* window);
  void windowClosed(EditorWindow* window);
  void refreshWelcome();
  void handleAction(int id, QWidget* parent);

  QSettings settings_;
  QtMainExecutor main_;
  ThreadPool pool_;
  std::unique_ptr<AppServices> services_;
  WelcomeWindow* welcome_ = nullptr;
  std::vector<EditorWindow*> windows_;
  QuitQuestion quitQuestion_;
  bool quitting_ = false;
};

}  // namespace vg::app
