#include "store/manual_executor.h"

#include <algorithm>

namespace vg {

ManualExecutor::ManualExecutor(const Clock& clock) : clock_(clock) {}

ManualExecutor::~ManualExecutor() = default;

void ManualExecutor::post(Task task) { postAfter(std::chrono::nanoseconds(0), std::move(task)); }

void ManualExecutor::postAfter(std::chrono::nanoseconds delay, Task task) {
  const auto due =
      clock_.now() + std::chrono::duration_cast<Clock::Duration>(std::max(delay, std::chrono::nanoseconds(0)));
  std::lock_guard lock(mutex_);
  tasks_.emplace(Key{due, nextSequence_++}, std::move(task));
}

bool ManualExecutor::takeDue(Task& out) {
  std::lock_guard lock(mutex_);
  if (tasks_.empty() || tasks_.begin()->first.first > clock_.now()) return false;
  out = std::move(tasks_.begin()->second);
  tasks_.erase(tasks_.begin());
  return true;
}

size_t ManualExecutor::runReady() {
  size_t ran = 0;
  Task task;
  while (takeDue(task)) {
    task();
    task = nullptr;  // release captures before the next task runs
    ++ran;
  }
  return ran;
}

void ManualExecutor::advance(FakeClock& clock, Clock::Duration d) {
  const auto target = clock.now() + d;
  runReady();
  for (;;) {
    Clock::TimePoint due;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) break;
      due = tasks_.begin()->first.first;
    }
    if (due > target) break;
    if (due > clock.now()) clock.set(due);
    runReady();
  }
  clock.set(target);
  runReady();
}

size_t ManualExecutor::pendingCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

}  // namespace vg
