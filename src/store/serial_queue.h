// A serial queue: one worker thread that runs posted tasks one at a time, in
// the order they were posted. Used for sidecar writes, so writes land in the
// order saves were requested and two writes never interleave.
//
// post() is thread-safe. drain() blocks until every task posted before it has
// finished; calling it from a task of the same queue would wait for itself, so
// that is refused (it returns at once and reports false). The destructor runs
// the tasks still queued, then joins the worker.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "store/executor.h"

namespace vg {

class SerialQueue final : public Executor {
 public:
  // `label` names the worker thread (its last 15 bytes, the kernel's limit).
  explicit SerialQueue(std::string label);
  ~SerialQueue() override;
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void post(Task task) override;

  // Waits until every task posted so far has run. False (without waiting)
  // when called on the queue's own thread.
  bool drain();

  // True when the caller is running on this queue's worker thread.
  bool isCurrent() const;

  // Tasks posted and not yet started (the one running is not counted).
  size_t pendingCount() const;

  const std::string& label() const { return label_; }

 private:
  void run();

  const std::string label_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  bool stopping_ = false;
  std::thread worker_;
};

}  // namespace vg
