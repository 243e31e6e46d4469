#include "store/thread_pool.h"

#include <pthread.h>

#include <algorithm>
#include <exception>

#include "model/log.h"

namespace vg {
namespace {
thread_local const ThreadPool* tCurrentPool = nullptr;
}  // namespace

ThreadPool::ThreadPool(std::string label, unsigned threads) : label_(std::move(label)) {
  if (threads == 0) threads = std::max(2u, std::thread::hardware_concurrency());
  workers_.reserve(threads);
  for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { run(); });
}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (auto& worker : workers_) worker.join();
}

void ThreadPool::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  changed_.notify_one();
}

bool ThreadPool::waitIdle() {
  if (isCurrent()) return false;
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return tasks_.empty() && running_ == 0; });
  return true;
}

bool ThreadPool::isCurrent() const { return tCurrentPool == this; }

void ThreadPool::run() {
  tCurrentPool = this;
  const std::string threadName = label_.size() > 15 ? label_.substr(label_.size() - 15) : label_;
  pthread_setname_np(pthread_self(), threadName.c_str());
  for (;;) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      if (tasks_.empty()) return;  // stopping, and everything queued has run
      task = std::move(tasks_.front());
      tasks_.pop_front();
      ++running_;
    }
    try {
      task();
    } catch (const std::exception& e) {
      logLine(std::string("Verdantglass: 后台任务失败 ") + e.what());
    } catch (...) {
      logLine("Verdantglass: 后台任务失败 (unknown exception)");
    }
    task = nullptr;  // release captures before reporting idle
    {
      std::lock_guard lock(mutex_);
      --running_;
    }
    // Idle waiters and workers share the condition: wake them all.
    changed_.notify_all();
  }
}

}  // namespace vg
