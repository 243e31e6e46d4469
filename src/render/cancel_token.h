// AsyncCancelToken: the cancellation flag a long background computation polls
// while the main thread may set it.
//
// - Shared between threads by std::shared_ptr; the flag is guarded by its own
//   mutex, so reading it in a worker loop and setting it from the main thread
//   is never a data race.
// - The flag only ever goes from false to true: a cancelled token stays
//   cancelled. A new computation gets a fresh token.
// - A computation that holds a token checks it between stages (the healer:
//   before every dab) and, once it is set, ends without a result. Cancellation
//   is not an error and produces no message.
#pragma once

#include <mutex>

namespace vg {

class AsyncCancelToken {
 public:
  AsyncCancelToken() = default;
  AsyncCancelToken(const AsyncCancelToken&) = delete;
  AsyncCancelToken& operator=(const AsyncCancelToken&) = delete;

  void cancel() {
    std::lock_guard<std::mutex> guard(lock_);
    cancelled_ = true;
  }

  bool isCancelled() const {
    std::lock_guard<std::mutex> guard(lock_);
    return cancelled_;
  }

 private:
  mutable std::mutex lock_;
  bool cancelled_ = false;
};

}  // namespace vg
