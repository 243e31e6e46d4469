#include "store/serial_queue.h"

#include <pthread.h>

#include <future>

namespace vg {
namespace {
// The queue whose worker is the current thread, if any.
thread_local const SerialQueue* tCurrentQueue = nullptr;
}  // namespace

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
  worker_ = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  worker_.join();
}

void SerialQueue::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  changed_.notify_all();
}

bool SerialQueue::drain() {
  if (isCurrent()) return false;
  std::promise<void> done;
  auto finished = done.get_future();
  post([&done] { done.set_value(); });
  finished.wait();
  return true;
}

bool SerialQueue::isCurrent() const { return tCurrentQueue == this; }

size_t SerialQueue::pendingCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

void SerialQueue::run() {
  tCurrentQueue = this;
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
    }
    task();
  }
}

}  // namespace vg
