#include "app_test_support.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include "app/canvas/canvas_view.h"
#include "app/editor_window.h"

namespace vg::app::test {

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > timeoutMs) return done();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(2);
  }
  return true;
}

EditorWindow* AppFixture::open(const std::filesystem::path& file, int width, int height) {
  app->openFiles({file});
  EditorWindow* w = app->windowFor(file);
  EXPECT_TRUE(w) << file;
  if (!w) return nullptr;
  w->resize(width, height);
  if (!waitUntil([&] { return w->isOpen() && w->canvas()->hasPicture(); })) return nullptr;
  return w;
}

std::filesystem::path AppFixture::rocket(const char* name) {
  const std::filesystem::path copy = dir / name;
  if (!std::filesystem::exists(copy))
    std::filesystem::copy_file(std::filesystem::path(VG_SOURCE_DIR) / "samples" / "rocket.jpg", copy);
  return copy;
}

}  // namespace vg::app::test
