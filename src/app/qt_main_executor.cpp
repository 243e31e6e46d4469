#include "app/qt_main_executor.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTimer>
#include <memory>

#include "model/log.h"
#include "model/sanitizers.h"

#ifdef VG_THREAD_SANITIZER
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#endif

namespace vg::app {
namespace {

// Qt's event queue hands a task to the GUI thread under its own futex-based
// lock, which ThreadSanitizer cannot see: the hand-off is declared to it, so
// that what the posting thread wrote before post() counts as seen by the task.
void handOver(const void* task) {
#ifdef VG_THREAD_SANITIZER
  __tsan_release(const_cast<void*>(task));
#else
  (void)task;
#endif
}

void takeOver(const void* task) {
#ifdef VG_THREAD_SANITIZER
  __tsan_acquire(const_cast<void*>(task));
#else
  (void)task;
#endif
}

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
  handOver(shared.get());
  QMetaObject::invokeMethod(
      this,
      [shared] {
        takeOver(shared.get());
        runGuarded(*shared);
      },
      Qt::QueuedConnection);
}

void QtMainExecutor::postAfter(std::chrono::nanoseconds delay, Task task) {
  using namespace std::chrono;
  const auto ms = delay <= nanoseconds::zero() ? milliseconds::zero() : ceil<milliseconds>(delay);
  auto shared = std::make_shared<Task>(std::move(task));
  handOver(shared.get());
  // The timer is started from the GUI thread, which owns this object.
  QMetaObject::invokeMethod(
      this,
      [this, ms, shared] {
        QTimer::singleShot(ms, Qt::PreciseTimer, this, [shared] {
          takeOver(shared.get());
          runGuarded(*shared);
        });
      },
      Qt::QueuedConnection);
}

}  // namespace vg::app
