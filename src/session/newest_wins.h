// NewestWins<T>: a background lane for work where only the newest request
// counts (preview renders, histograms, RAW development, thumbnails), in the
// manner of a render thread that always restarts on the newest request.
//
// - request(work, deliver) takes a new generation number. At most one work
//   runs at a time: a request made while one runs sets the running work's
//   cancel token and waits as the single pending request (a newer request
//   replaces it). When the running work comes back, the pending one starts.
// - deliver(result) runs on the main thread only for the newest generation
//   and only when work returned a value and its token was not set; every
//   outdated or cancelled result is dropped silently.
// - cancel() drops the pending request and sets the running token; the lane
//   reports idle at once.
// - onBusyChanged(bool) is called on the main thread when the lane goes from
//   idle to having a live request and back.
// - Destroying the lane cancels it; results arriving later are dropped.
//
// Main thread only, except `work`, which runs on the background executor and
// must not touch main-thread state. A work that throws is logged and treated
// as one that returned nothing.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "model/log.h"
#include "render/cancel_token.h"
#include "store/executor.h"

namespace vg {

template <class T>
class NewestWins {
 public:
  using Work = std::function<std::optional<T>(const AsyncCancelToken&)>;
  using Deliver = std::function<void(T)>;

  NewestWins(MainExecutor& main, Executor& background, std::function<void(bool)> onBusyChanged = {})
      : state_(std::make_shared<State>(main, background, std::move(onBusyChanged))) {}
  ~NewestWins() {
    if (state_->runningToken) state_->runningToken->cancel();
  }
  NewestWins(const NewestWins&) = delete;
  NewestWins& operator=(const NewestWins&) = delete;

  uint64_t request(Work work, Deliver deliver) {
    State& s = *state_;
    const bool wasBusy = s.busy();
    Job job{++s.generation, std::move(work), std::move(deliver)};
    if (s.running) {
      s.runningToken->cancel();
      s.pending = std::move(job);
    } else {
      launch(state_, std::move(job));
    }
    if (!wasBusy) s.busyChanged(true);
    return s.generation;
  }

  void cancel() {
    State& s = *state_;
    const bool wasBusy = s.busy();
    ++s.generation;
    s.pending.reset();
    if (s.runningToken) s.runningToken->cancel();
    if (wasBusy) s.busyChanged(false);
  }

  // A request is running or waiting and has not been cancelled or superseded
  // by cancel().
  bool busy() const { return state_->busy(); }
  uint64_t generation() const { return state_->generation; }

 private:
  struct Job {
    uint64_t generation = 0;
    Work work;
    Deliver deliver;
  };
  struct State {
    State(MainExecutor& m, Executor& b, std::function<void(bool)> f)
        : main(m), background(b), onBusyChanged(std::move(f)) {}
    bool busy() const { return pending.has_value() || (running && runningGeneration == generation); }
    void busyChanged(bool value) {
      if (onBusyChanged) onBusyChanged(value);
    }

    MainExecutor& main;
    Executor& background;
    std::function<void(bool)> onBusyChanged;
    uint64_t generation = 0;
    bool running = false;
    uint64_t runningGeneration = 0;
    std::shared_ptr<AsyncCancelToken> runningToken;
    std::optional<Job> pending;
  };

  static void launch(const std::shared_ptr<State>& state, Job job) {
    State& s = *state;
    s.running = true;
    s.runningGeneration = job.generation;
    auto token = std::make_shared<AsyncCancelToken>();
    s.runningToken = token;
    auto result = std::make_shared<std::optional<T>>();
    s.background.post([weak = std::weak_ptr<State>(state), main = &s.main, token, result, job = std::move(job)] {
      if (!token->isCancelled()) {
        try {
          *result = job.work(*token);
        } catch (const std::exception& e) {
          logLine(std::string("Verdantglass: 后台任务失败 ") + e.what());
        } catch (...) {
          logLine("Verdantglass: 后台任务失败 (unknown exception)");
        }
      }
      main->post([weak, token, result, generation = job.generation, deliver = job.deliver] {
        auto s = weak.lock();
        if (!s) return;
        s->running = false;
        s->runningToken.reset();
        const bool current = !token->isCancelled() && generation == s->generation;
        if (s->pending) {
          Job next = std::move(*s->pending);
          s->pending.reset();
          launch(s, std::move(next));
        } else if (generation == s->generation) {
          s->busyChanged(false);  // the newest request is done
        }
        if (current && *result) deliver(std::move(**result));
      });
    });
  }

  std::shared_ptr<State> state_;
};

}  // namespace vg
