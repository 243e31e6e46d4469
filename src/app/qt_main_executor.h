// QtMainExecutor: the MainExecutor of the desktop application, running tasks
// on the Qt event loop of the GUI thread.
//
// - post() is thread-safe: a worker hands its result back by posting a task,
//   which runs later on the GUI thread, in posting order.
// - postAfter() starts a precise single-shot timer on the GUI thread (the
//   request itself may come from any thread). Delays are measured on the
//   system clock, in whole milliseconds rounded up, so a quiet period is
//   never cut short. Timers with the same delay fire in posting order.
// - Tasks still pending when the executor is destroyed never run: the
//   executor is the context object of every queued call and timer, and Qt
//   drops those of a destroyed context.
#pragma once

#include <QObject>

#include "store/executor.h"

namespace vg::app {

class QtMainExecutor final : public QObject, public MainExecutor {
  Q_OBJECT
 public:
  // Must be created on the GUI thread (the thread of QCoreApplication).
  explicit QtMainExecutor(QObject* parent = nullptr);

  void post(Task task) override;
  void postAfter(std::chrono::nanoseconds delay, Task task) override;
};

}  // namespace vg::app
