#include "store/manual_executor.h"

#include <algorithm>

namespace vg {

ManualExecutor::ManualExecutor(const Clock& clock) : clock_(clock) {}

ManualExecutor::~ManualExecutor() = default;

void ManualExecutor::post(Task task) { postAfter(std::chrono::nanoseconds(0), std::move(task)); }

void ManualExecutor::postAfter(std::chrono::nanoseconds delay, Task task) {
  const auto due =
      clock_.now() + std::chrono::duration_cast<Clock::Duration>(std::max(delay, std::chrono::nanoseconds(0)));
  {
    std::lock_guard lock(mutex_);
    tasks_.emplace(Key{due, nextSequence_++}, std::move(task));
  }
  posted_.notify_all();
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

size_t ManualExecutor::waitAndRunReady(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  {
    std::unique_lock lock(mutex_);
    while (tasks_.empty() || tasks_.begin()->first.first > clock_.now()) {
      const auto steadyNow = std::chrono::steady_clock::now();
      if (steadyNow >= deadline) return 0;
      // Timers may fall due without any notification, so wake up regularly.
      const auto slice = std::min<std::chrono::steady_clock::duration>(deadline - steadyNow,
                                                                       std::chrono::milliseconds(5));
      posted_.wait_for(lock, slice);
    }
  }
  return runReady();
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
