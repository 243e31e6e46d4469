#include "app/qt_main_executor.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTimer>
#include <memory>

#include "model/log.h"

namespace vg::app {
namespace {

// A task that throws must not unwind through the Qt event loop (that ends
// the process): it is logged the way the background pool logs its failures.
void runGuarded(const Task& task) {
  try {
    task();
  } catch (const std::exception& e) {
    logLine(std::string("Verdantglass: 主线程任务失败 ") + e.what());
  } catch (...) {
    logLine("Verdantglass: 主线程任务失败");
  }
}

}  // namespace

QtMainExecutor::QtMainExecutor(QObject* parent) : QObject(parent) {
  if (QCoreApplication::instance()) moveToThread(QCoreApplication::instance()->thread());
}

void QtMainExecutor::post(Task task) {
  // std::function must be copyable for the queued functor; share the task.
  auto shared = std::make_shared<Task>(std::move(task));
  QMetaObject::invokeMethod(this, [shared] { runGuarded(*shared); }, Qt::QueuedConnection);
}

void QtMainExecutor::postAfter(std::chrono::nanoseconds delay, Task task) {
  using namespace std::chrono;
  const auto ms = delay <= nanoseconds::zero() ? milliseconds::zero() : ceil<milliseconds>(delay);
  auto shared = std::make_shared<Task>(std::move(task));
  // The timer is started from the GUI thread, which owns this object.
  QMetaObject::invokeMethod(
      this,
      [this, ms, shared] {
        QTimer::singleShot(ms, Qt::PreciseTimer, this, [shared] { runGuarded(*shared); });
      },
      Qt::QueuedConnection);
}

}  // namespace vg::app
