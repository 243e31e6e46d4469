#include "app/application.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

#include "app/editor_window.h"
#include "app/file_drop.h"
#include "app/welcome_view.h"
#include "app/welcome_window.h"
#include "render/render_engine.h"
#include "store/edit_store.h"
#include "store/recent_images.h"
#include "store/support_folder.h"

namespace vg::app {
namespace {

namespace fs = std::filesystem;

constexpr int kThumbnail = 224;

bool askQuitAnyway(QWidget* parent, const QStringList& failed) {
  QMessageBox box(QMessageBox::Warning, QStringLiteral("编辑未能保存"),
                  QStringLiteral("退出前编辑保存失败（磁盘满或目录不可写）%1").arg(failed.join(QStringLiteral("、"))),
                  QMessageBox::NoButton, parent);
  box.setInformativeText(QStringLiteral("这些图片最近的编辑可能没有记录。留在应用中可以稍后再试。"));
  QPushButton* quit = box.addButton(QStringLiteral("仍然退出"), QMessageBox::DestructiveRole);
  box.addButton(QStringLiteral("取消"), QMessageBox::RejectRole);
  box.exec();
  return box.clickedButton() == quit;
}

// The recent images as the settings keep them: a list of absolute paths.
constexpr const char* kRecentImagesKey = "recentImages";

RecentImages loadRecentImages(const QSettings& settings) {
  std::vector<std::string> stored;
  for (const QString& entry : settings.value(kRecentImagesKey).toStringList()) stored.push_back(entry.toStdString());
  return RecentImages(stored);
}

void storeRecentImages(QSettings& settings, const RecentImages& recent) {
  QStringList list;
  for (const std::string& entry : recent.toStrings()) list << QString::fromStdString(entry);
  settings.setValue(kRecentImagesKey, list);
}

fs::path canonicalOrAbsolute(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(p, ec);
  return ec ? fs::absolute(p).lexically_normal() : c;
}

}  // namespace

Application::Application(EditStore* store, QObject* parent)
    : QObject(parent),
      settings_(QCoreApplication::organizationName(), QCoreApplication::applicationName()),
      pool_("vg-work"),
      quitQuestion_(askQuitAnyway) {
  const DisplayProfile display = detectDisplayProfile();
  const fs::path support = supportFolder();
  services_.reset(new AppServices{main_, pool_, store ? *store : EditStore::shared(),
                                  std::make_shared<RenderEngine>(support / "LUTs"), support, display.transform,
                                  display.source, settings_});
  QApplication::setQuitOnLastWindowClosed(false);
}

Application::~Application() {
  // Windows go now, not at the next turn of the event loop: their sessions
  // use the executors and the store this object owns.
  quitting_ = true;
  for (EditorWindow* w : std::vector<EditorWindow*>(windows_)) {
    w->closeForQuit();
    delete w;
  }
  delete welcome_;
  pool_.waitIdle();
}

void Application::start(const std::vector<fs::path>& files) {
  if (files.empty()) showWelcome();
  else openFiles(files);
}

EditorWindow* Application::windowFor(const fs::path& image) const {
  const fs::path key = canonicalOrAbsolute(image);
  for (EditorWindow* w : windows_)
    if (canonicalOrAbsolute(w->image()) == key) return w;
  return nullptr;
}

void Application::openFiles(const std::vector<fs::path>& files) {
  for (const fs::path& file : files) {
    if (EditorWindow* open = windowFor(file)) {
      open->show();
      open->raise();
      open->activateWindow();
      continue;
    }
    auto* window = new EditorWindow(*services_, fs::absolute(file).lexically_normal());
    adopt(window);
    window->show();
  }
}

void Application::adopt(EditorWindow* window) {
  windows_.push_back(window);
  connect(window, &EditorWindow::opened, this, [this](EditorWindow* w) {
    RecentImages recent = loadRecentImages(settings_);
    recent.noteOpened(w->image());
    storeRecentImages(settings_, recent);
    if (welcome_) welcome_->hide();
    emit windowOpened(w);
  });
  connect(window, &EditorWindow::openFailed, this, [this](const fs::path&, const QString& message) {
    showWelcome();
    welcome_->view()->setMessage(message);
  });
  connect(window, &EditorWindow::closed, this, [this](EditorWindow* w) { windowClosed(w); });
  connect(window, &EditorWindow::filesDropped, this, [this](const std::vector<fs::path>& f) { openFiles(f); });
  connect(window, &EditorWindow::actionTriggered, this, [this, window](ActionId id) { handleAction(int(id), window); });
}

void Application::windowClosed(EditorWindow* window) {
  std::erase(windows_, window);
  if (windows_.empty() && !quitting_) showWelcome();
}

void Application::showWelcome() {
  if (!welcome_) {
    welcome_ = new WelcomeWindow;
    connect(welcome_->view(), &WelcomeView::openRequested, this, [this] { showOpenDialog(welcome_); });
    connect(welcome_->view(), &WelcomeView::filesOpened, this, [this](const std::vector<fs::path>& f) { openFiles(f); });
    connect(welcome_->actions(), &ActionSet::triggered, this, [this](ActionId id) { handleAction(int(id), welcome_); });
    connect(welcome_, &WelcomeWindow::closeRequested, this, [this] {
      if (windows_.empty()) requestQuit();
      else welcome_->hide();
    });
  }
  refreshWelcome();
  welcome_->show();
  welcome_->raise();
}

void Application::refreshWelcome() {
  RecentImages recent = loadRecentImages(settings_);
  if (recent.pruneMissing()) storeRecentImages(settings_, recent);
  const std::vector<fs::path> images = recent.images();
  welcome_->view()->setRecentImages(images);
  QPointer<WelcomeView> view(welcome_->view());
  auto display = services_->display;
  for (const fs::path& image : images) {
    pool_.post([this, view, image, display] {
      QImage thumb = makeThumbnail(image, kThumbnail, *display);
      main_.post([view, image, thumb] {
        if (view) view->setThumbnail(image, thumb);
      });
    });
  }
}

void Application::showOpenDialog(QWidget* parent) {
  const QString folder = settings_.value("window/lastOpenFolder").toString();
  const QStringList files =
      QFileDialog::getOpenFileNames(parent, QStringLiteral("打开图片"), folder, openDialogFilter());
  if (files.isEmpty()) return;
  std::vector<fs::path> paths;
  for (const QString& f : files) paths.emplace_back(f.toStdString());
  settings_.setValue("window/lastOpenFolder", QString::fromStdString(paths.front().parent_path().string()));
  openFiles(paths);
}

bool Application::requestQuit() {
  QStringList failed;
  for (EditorWindow* w : windows_)
    if (!w->flushEdits()) failed << QString::fromStdString(w->image().filename().string());
  QWidget* parent = windows_.empty() ? static_cast<QWidget*>(welcome_) : windows_.front();
  if (!failed.isEmpty() && !quitQuestion_(parent, failed)) return false;
  quitting_ = true;
  for (EditorWindow* w : std::vector<EditorWindow*>(windows_)) w->closeForQuit();
  if (welcome_) welcome_->hide();
  QCoreApplication::quit();
  return true;
}

void Application::handleAction(int id, QWidget* parent) {
  switch (ActionId(id)) {
    case ActionId::open: showOpenDialog(parent); break;
    case ActionId::quit: requestQuit(); break;
    case ActionId::about:
      QMessageBox::about(parent, QStringLiteral("关于 Verdantglass"),
                         QStringLiteral("<b>Verdantglass</b> %1<br>非破坏性照片编辑器：编辑记录在独立的配方中，原图始终保持不变。"
                                        "<br><br>显示器配置文件：%2")
                             .arg(QStringLiteral(VG_VERSION),
                                  QString::fromStdString(services_->display->name()).toHtmlEscaped()));
      break;
    default: break;
  }
}

}  // namespace vg::app
