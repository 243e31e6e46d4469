// Where work runs, as an injected service. Controllers never start threads of
// their own: they are handed executors and post closures to them.
//
// - Executor: runs posted tasks, each exactly once, in an order the concrete
//   executor documents. post() is thread-safe for every executor.
// - MainExecutor: the executor of the thread that owns the user-facing state
//   (the Qt event loop in the application, a ManualExecutor in tests and in
//   the command-line tool). Tasks run one at a time on that thread, in the
//   order they become due; postAfter() also gives timers, measured on the
//   executor's Clock, so a quiet period can be waited out on fake time.
#pragma once

#include <chrono>
#include <functional>

namespace vg {

using Task = std::function<void()>;

class Executor {
 public:
  virtual ~Executor() = default;
  virtual void post(Task task) = 0;
};

class MainExecutor : public Executor {
 public:
  // Runs `task` on the main thread once `delay` has passed on the executor's
  // clock. Tasks with the same due time run in the order they were posted.
  virtual void postAfter(std::chrono::nanoseconds delay, Task task) = 0;
};

}  // namespace vg
