// A main-thread executor driven by hand: tasks run only inside runReady() or
// advance(), on the thread that calls them. Tests use it with a FakeClock to
// run timers on fake time.
//
// post() and postAfter() are thread-safe (background work posts its results
// back here); the run functions must be called from one thread only.
// Due tasks run in (due time, posting order).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "store/clock.h"
#include "store/executor.h"

namespace vg {

class ManualExecutor final : public MainExecutor {
 public:
  explicit ManualExecutor(const Clock& clock);
  ~ManualExecutor() override;
  ManualExecutor(const ManualExecutor&) = delete;
  ManualExecutor& operator=(const ManualExecutor&) = delete;

  void post(Task task) override;
  void postAfter(std::chrono::nanoseconds delay, Task task) override;

  // Runs every task that is due by the clock, including ones that those tasks
  // post, until nothing is due. Returns how many ran.
  size_t runReady();

  // Fake-time loop: moves `clock` (the clock this executor reads) forward by
  // `d`, stopping at the due time of each timer on the way to run it, so a
  // task sees now() equal to its due time.
  void advance(FakeClock& clock, Clock::Duration d);

  // Tasks posted but not yet run (due or not).
  size_t pendingCount() const;

 private:
  using Key = std::pair<Clock::TimePoint, uint64_t>;
  bool takeDue(Task& out);

  const Clock& clock_;
  mutable std::mutex mutex_;
  std::map<Key, Task> tasks_;
  uint64_t nextSequence_ = 0;
};

}  // namespace vg
