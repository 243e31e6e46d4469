// ThreadPool: the background executor. A fixed set of worker threads takes
// posted tasks first in, first out, several at a time. Decoding, preview and
// export renders, analyses, healing and batch files run here; their results
// go back to the main thread through the MainExecutor, never by touching
// main-thread state from a worker.
//
// - post() is thread-safe, also from a task of the same pool.
// - A task that throws is logged ("Verdantglass: 后台任务失败 <what>") and the
//   worker goes on; an exception never ends the process from a worker.
// - waitIdle() blocks until nothing is queued or running (the command-line
//   tool and tests use it to wait for background work). From a worker of
//   the pool it would wait for itself: it returns false at once instead.
// - The destructor runs the tasks still queued, then joins every worker; no
//   thread outlives the pool.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "store/executor.h"

namespace vg {

class ThreadPool final : public Executor {
 public:
  // `threads` 0 means the machine's hardware threads (at least 2).
  // `label` names the workers (its last 15 bytes, the kernel's limit).
  explicit ThreadPool(std::string label, unsigned threads = 0);
  ~ThreadPool() override;
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  void post(Task task) override;

  // True once the queue is empty and no task is running; false without
  // waiting when called from one of the pool's own workers.
  bool waitIdle();

  bool isCurrent() const;
  unsigned threadCount() const { return unsigned(workers_.size()); }

 private:
  void run();

  const std::string label_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  unsigned running_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace vg
