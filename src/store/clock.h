// Wall-clock time as an injected service. Controllers that date things or wait
// for a quiet period (sidecar touch dates, corrupt-copy names, history entry
// dates, the autosave delay) read the time through a Clock they were given, so
// tests drive them on fake time instead of sleeping.
//
// Thread-safe: now() may be called from any thread, including the write queue.
#pragma once

#include <atomic>
#include <chrono>

namespace vg {

class Clock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using Duration = std::chrono::system_clock::duration;

  virtual ~Clock() = default;
  virtual TimePoint now() const = 0;
};

// The system's real-time clock.
class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }

  // One instance for the whole process (the clock has no state).
  static SystemClock& shared();
};

// A clock that only moves when told to. Starts at a fixed, recognisable
// instant (2024-01-01 00:00:00 UTC) unless given another.
class FakeClock final : public Clock {
 public:
  static constexpr TimePoint kDefaultStart =
      TimePoint(std::chrono::seconds(1'704'067'200));

  explicit FakeClock(TimePoint start = kDefaultStart) : now_(start.time_since_epoch().count()) {}

  TimePoint now() const override {
    return TimePoint(Duration(now_.load(std::memory_order_acquire)));
  }
  void set(TimePoint t) { now_.store(t.time_since_epoch().count(), std::memory_order_release); }
  void advance(Duration d) { now_.fetch_add(d.count(), std::memory_order_acq_rel); }

 private:
  std::atomic<Duration::rep> now_;
};

}  // namespace vg
