#include "app_test_support.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

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

}  // namespace vg::app::test
