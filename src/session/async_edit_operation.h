// AsyncEditOperation<T>: one kind of background edit (automatic adjustment,
// straightening, red-eye detection, automatic masks) that computes a T from a
// snapshot while the user keeps editing.
//
// start(work, onResult):
//  1. a run still going is cancelled (its token is set; its result is dropped);
//  2. `generation` goes up by one: the new value is this run's number;
//  3. if not busy, busy becomes true and setBusyFlag(true) is called;
//  4. replacementCount() is read and kept as this run's snapshot;
//  5. work(token) runs on the background executor with a fresh cancel token;
//  6. its result hops back through the main executor. There it is dropped
//     silently when the run was cancelled, when the operation is gone, or when
//     `generation` moved on (a newer start or a cancel). Otherwise busy
//     becomes false, setBusyFlag(false) is called and onResult(result, stale)
//     runs, stale being true exactly when replacementCount() differs from the
//     snapshot: the document was replaced while the work computed.
// cancel(): sets the running token, forgets the run, raises `generation` and,
// if busy, clears busy and calls setBusyFlag(false) at once.
// Destroying the operation cancels its run; nothing is called afterwards.
//
// A work function that throws is logged and ends its run as if cancelled
// (busy is cleared when it is still the newest run). A generation counter
// that would overflow stops the process: it is a programming error.
//
// The operation and its callbacks belong to the main thread; `work` runs
// elsewhere, must not touch the session, and should poll its token between
// stages (once set, whatever it returns is dropped).
#pragma once

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "model/log.h"
#include "render/cancel_token.h"
#include "store/executor.h"

namespace vg {

template <class T>
class AsyncEditOperation {
 public:
  using Work = std::function<T(const AsyncCancelToken&)>;
  using OnResult = std::function<void(T result, bool stale)>;

  AsyncEditOperation(MainExecutor& main, Executor& background, std::function<void(bool)> setBusyFlag,
                     std::function<int64_t()> replacementCount)
      : state_(std::make_shared<State>(main, background, std::move(setBusyFlag), std::move(replacementCount))) {}

  ~AsyncEditOperation() {
    if (state_->token) state_->token->cancel();
  }
  AsyncEditOperation(const AsyncEditOperation&) = delete;
  AsyncEditOperation& operator=(const AsyncEditOperation&) = delete;

  void start(Work work, OnResult onResult) {
    State& s = *state_;
    if (s.token) s.token->cancel();
    const int64_t run = s.advance();
    if (!s.busy) s.setBusy(true);
    const int64_t snapshot = s.replacementCount ? s.replacementCount() : 0;
    auto token = std::make_shared<AsyncCancelToken>();
    s.token = token;
    s.background.post([weak = std::weak_ptr<State>(state_), main = &s.main, token, run, snapshot,
                       work = std::move(work), onResult = std::move(onResult)]() mutable {
      auto result = std::make_shared<std::optional<T>>();
      if (!token->isCancelled()) {
        try {
          result->emplace(work(*token));
        } catch (const std::exception& e) {
          logLine(std::string("Verdantglass: 后台任务失败 ") + e.what());
        } catch (...) {
          logLine("Verdantglass: 后台任务失败 (unknown exception)");
        }
      }
      if (token->isCancelled()) return;  // cancelled: dropped without a word
      main->post([weak, token, run, snapshot, result, onResult = std::move(onResult)] {
        auto s = weak.lock();
        if (!s || token->isCancelled() || s->generation != run) return;
        s->token.reset();
        s->setBusy(false);
        if (!*result) return;  // the work failed; it was logged
        const bool stale = (s->replacementCount ? s->replacementCount() : 0) != snapshot;
        onResult(std::move(**result), stale);
      });
    });
  }

  void cancel() {
    State& s = *state_;
    if (s.token) s.token->cancel();
    s.token.reset();
    s.advance();
    if (s.busy) s.setBusy(false);
  }

  bool busy() const { return state_->busy; }
  int64_t generation() const { return state_->generation; }

 private:
  struct State {
    State(MainExecutor& m, Executor& b, std::function<void(bool)> flag, std::function<int64_t()> count)
        : main(m), background(b), setBusyFlag(std::move(flag)), replacementCount(std::move(count)) {}

    int64_t advance() {
      if (generation == std::numeric_limits<int64_t>::max()) {
        logLine("Verdantglass: AsyncEditOperation generation overflow");
        std::abort();
      }
      return ++generation;
    }
    void setBusy(bool value) {
      busy = value;
      if (setBusyFlag) setBusyFlag(value);
    }

    MainExecutor& main;
    Executor& background;
    std::function<void(bool)> setBusyFlag;
    std::function<int64_t()> replacementCount;
    int64_t generation = 0;
    bool busy = false;
    std::shared_ptr<AsyncCancelToken> token;  // of the run in flight
  };

  std::shared_ptr<State> state_;
};

}  // namespace vg
