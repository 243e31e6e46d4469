// ToastMessage: the one way short feedback reaches the user, and
// ToastPresenter, which keeps the one toast on screen and takes it down again.
//
// Display time, in seconds, for a text of n characters (Unicode code points):
//   t = max(1.2 + 0.12 n, 2.2), + 2.0 for an error, + 2.5 with an action,
//   at most 10.0.
//
// ToastPresenter::show() replaces whatever is on screen by a new message with
// a fresh id and arms a timer on the main executor for its display time. The
// timer clears the toast only if the toast on screen still has the id it was
// armed for: a newer toast is never removed by an older timer. Timers hold the
// presenter weakly; one that fires after the presenter is gone does nothing.
//
// Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "model/uuid.h"
#include "store/executor.h"

namespace vg {

struct ToastMessage {
  enum class Kind { success, info, warning, error };

  Uuid id = Uuid::random();
  std::string text;
  Kind kind = Kind::info;
  std::optional<std::string> actionTitle;
  std::function<void()> action;  // run on the main thread when the action is chosen

  // Seconds the toast stays on screen (rule above).
  double displaySeconds() const;
};

// "success", "info", "warning", "error".
std::string_view toastKindName(ToastMessage::Kind kind);

// Unicode code points in UTF-8 text (a stray byte counts as one).
size_t characterCount(std::string_view utf8);

double toastDisplaySeconds(std::string_view text, ToastMessage::Kind kind, bool hasAction);

class ToastPresenter {
 public:
  // `onChange` runs (on the main thread) whenever the toast on screen changes.
  ToastPresenter(MainExecutor& main, std::function<void()> onChange);
  ~ToastPresenter();
  ToastPresenter(const ToastPresenter&) = delete;
  ToastPresenter& operator=(const ToastPresenter&) = delete;

  // Puts `message` on screen with a fresh id; returns that id.
  Uuid show(ToastMessage message);
  Uuid show(std::string text, ToastMessage::Kind kind);
  // Takes the toast down now (whichever it is).
  void dismiss();

  const std::optional<ToastMessage>& current() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vg
