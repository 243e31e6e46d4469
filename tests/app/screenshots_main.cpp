// vg_app_screenshots DIR: renders the main states of the application into
// DIR as PNG files, for people to look at (make screenshots runs it under
// Xvfb). It drives real windows and sessions over a photograph: the 24 MP
// camera photo of the shared test set when it is beside the repository,
// else the bundled samples/rocket.jpg; settings and edits stay in a private
// temporary folder.
#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QToolButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QThread>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <utility>

#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/editor_window.h"
#include "app/export_sheet.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/collapsible_section.h"
#include "app/welcome_window.h"
#include "model/json.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using namespace vg;
using namespace vg::app;

bool waitFor(const std::function<bool()>& done, int timeoutMs = 30000) {
  QElapsedTimer t;
  t.start();
  while (!done()) {
    if (t.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(5);
  }
  return true;
}

void settle(int ms = 300) { waitFor([] { return false; }, ms); }

bool idle(EditorWindow* w) {
  EditorSession* s = w->session();
  return s && s->previewImage() && !s->isBusy(EditorSession::BusyFlag::rendering) &&
         !s->isBusy(EditorSession::BusyFlag::loading);
}

fs::path sharedPhoto() {
  for (fs::path root : {fs::path(VG_SOURCE_DIR) / ".." / "shared", fs::path(VG_SOURCE_DIR) / ".." / ".." / "shared"}) {
    fs::path p = root / "testdata" / "jpeg" / "sony-alpha-6000.jpg";
    if (fs::exists(p)) return p;
  }
  return {};
}

int failures = 0;

void save(QWidget* w, const fs::path& dir, const char* name) {
  settle(150);
  const fs::path file = dir / name;
  if (!w->grab().save(QString::fromStdString(file.string()))) {
    std::fprintf(stderr, "vg_app_screenshots: cannot write %s\n", file.c_str());
    ++failures;
  } else {
    std::printf("%s\n", file.c_str());
  }
}

EditorWindow* openAndWait(Application& app, const fs::path& image) {
  app.openFiles({image});
  EditorWindow* w = app.windowFor(image);
  if (!w) return nullptr;
  w->resize(1440, 900);
  if (!waitFor([&] { return w->isOpen() && idle(w) && w->canvas()->hasPicture(); })) {
    std::fprintf(stderr, "vg_app_screenshots: %s did not open\n", image.c_str());
    return nullptr;
  }
  return w;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: vg_app_screenshots DIR\n");
    return 2;
  }
  const fs::path out = fs::absolute(argv[1]);
  fs::create_directories(out);
  vg::test::TempDir home;
  qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((home.path() / "config").string()));
  qputenv("VERDANTGLASS_DATA_DIR", QByteArray::fromStdString((home.path() / "data").string()));
  QApplication qt(argc, argv);
  QCoreApplication::setOrganizationName("Verdantglass");
  QCoreApplication::setApplicationName("Verdantglass");

  const fs::path rocket = fs::path(VG_SOURCE_DIR) / "samples" / "rocket.jpg";
  const fs::path shared = sharedPhoto();
  const fs::path photo = shared.empty() ? rocket : shared;
  const fs::path raw = fs::path(VG_SOURCE_DIR) / "tests" / "data" / "raw" / "lg-g4-h815-acr-lossy-linear.dng";

  EditStore store(home / "data" / "Edits");
  Application app(&store);
  {
    QSettings& s = app.services().settings;
    QStringList recent;
    for (const fs::path& p : {photo, rocket, raw}) recent << QString::fromStdString(p.string());
    s.setValue("recentImages", recent);
  }

  // 1. The welcome window with its recent images.
  app.start({});
  app.welcome()->resize(900, 620);
  settle(2500);
  save(app.welcome(), out, "01-welcome.png");

  // 2. The editor at fit, with the sample recipe.
  EditorWindow* w = openAndWait(app, photo);
  if (!w) return 1;
  EditorSession& s = *w->session();
  {
    std::ifstream in(fs::path(VG_SOURCE_DIR) / "samples" / "sample-recipe.json");
    std::stringstream text;
    text << in.rdbuf();
    if (auto recipe = decodeEditDocument(text.str())) s.applyRecipe(*recipe);
  }
  waitFor([&] { return idle(w); });
  save(w, out, "02-editor-fit.png");

  // 3. 100 %: the visible part at full resolution.
  w->actions()->action(ActionId::actualSize)->trigger();
  waitFor([&] { return idle(w) && (s.viewportImage().has_value() || s.previewScale() >= 1); });
  save(w, out, "03-editor-100.png");

  // 4. Split compare at fit; 5. holding \ to see the original.
  w->actions()->action(ActionId::fit)->trigger();
  w->actions()->action(ActionId::splitCompare)->trigger();
  waitFor([&] { return s.splitOriginalImage().has_value() && idle(w); });
  w->canvas()->setSplitPosition(0.45);
  save(w, out, "04-split-compare.png");
  w->actions()->action(ActionId::splitCompare)->trigger();
  w->actions()->action(ActionId::showOriginal)->trigger();
  save(w, out, "05-show-original.png");
  w->actions()->action(ActionId::showOriginal)->trigger();

  // 6. Each section of the adjust inspector open on its own.
  AdjustPanel* panel = w->adjustPanel();
  auto showSection = [&](EditorWindow* window, AdjustPanel* p, const QString& key, const std::string& name) {
    for (CollapsibleSection* section : p->sections())
      window->session()->setSectionCollapsed(section->key().toStdString(), section->key() != key);
    settle(100);
    if (CollapsibleSection* section = p->section(key)) p->ensureWidgetVisible(section->header(), 0, 0);
    save(window, out, name.c_str());
  };
  int index = 0;
  for (CollapsibleSection* section : panel->sections()) {
    if (section->key() == "raw") continue;  // shown with a RAW file below
    char name[64];
    std::snprintf(name, sizeof name, "06-%02d-section-%s.png", ++index, section->key().toUtf8().constData());
    showSection(w, panel, section->key(), name);
  }
  for (CollapsibleSection* section : panel->sections()) s.setSectionCollapsed(section->key().toStdString(), false);

  // 7. The export sheet, and the window while an export runs.
  w->actions()->action(ActionId::exportImage)->trigger();
  waitFor([&] { return w->exportSheet() && w->exportSheet()->isVisible(); });
  save(w->exportSheet(), out, "07-export-sheet.png");
  w->exportSheet()->setDestinationChooser(
      [&](QWidget*, const fs::path&, ExportFormat) { return std::optional<fs::path>(home / "export.jpg"); });
  w->exportSheet()->exportButton()->click();
  waitFor([&] { return s.exporting(); }, 2000);
  save(w, out, "08-exporting.png");
  waitFor([&] { return !s.exporting(); }, 60000);
  save(w, out, "09-export-done-toast.png");

  // 8. The other tools' inspectors (the mask tool with a radial mask).
  const std::pair<ActionId, const char*> tools[] = {{ActionId::toolCrop, "10-crop-tool.png"},
                                                    {ActionId::toolMask, "11-mask-tool.png"},
                                                    {ActionId::toolFilter, "12-filter-tool.png"},
                                                    {ActionId::toolHeal, "13-heal-tool.png"},
                                                    {ActionId::toolHistory, "14-history.png"}};
  for (const auto& [tool, file] : tools) {
    w->actions()->action(tool)->trigger();
    if (tool == ActionId::toolMask) s.addMask(MaskKindCase::radial);
    waitFor([&] { return idle(w); });
    save(w, out, file);
  }
  w->actions()->action(ActionId::toolAdjust)->trigger();

  // 9. A camera RAW file: the RAW development section.
  if (EditorWindow* r = openAndWait(app, raw)) {
    showSection(r, r->adjustPanel(), "raw", "15-section-raw.png");
  }
  std::printf("%d screenshots failed\n", failures);
  return failures ? 1 : 0;
}
