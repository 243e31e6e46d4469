#include "session/toast.h"

#include <algorithm>
#include <chrono>

namespace vg {

std::string_view toastKindName(ToastMessage::Kind kind) {
  switch (kind) {
    case ToastMessage::Kind::success: return "success";
    case ToastMessage::Kind::info: return "info";
    case ToastMessage::Kind::warning: return "warning";
    case ToastMessage::Kind::error: return "error";
  }
  return "info";
}

size_t characterCount(std::string_view utf8) {
  // Every byte that does not continue a sequence starts a character.
  return size_t(std::count_if(utf8.begin(), utf8.end(),
                              [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

double toastDisplaySeconds(std::string_view text, ToastMessage::Kind kind, bool hasAction) {
  double t = std::max(1.2 + 0.12 * double(characterCount(text)), 2.2);
  if (kind == ToastMessage::Kind::error) t += 2.0;
  if (hasAction) t += 2.5;
  return std::min(t, 10.0);
}

double ToastMessage::displaySeconds() const {
  return toastDisplaySeconds(text, kind, actionTitle.has_value() || bool(action));
}

struct ToastPresenter::State {
  MainExecutor& main;
  std::function<void()> onChange;
  std::optional<ToastMessage> current;
};

ToastPresenter::ToastPresenter(MainExecutor& main, std::function<void()> onChange)
    : state_(std::make_shared<State>(State{main, std::move(onChange), std::nullopt})) {}

ToastPresenter::~ToastPresenter() = default;

Uuid ToastPresenter::show(ToastMessage message) {
  message.id = Uuid::random();
  const Uuid id = message.id;
  const auto delay = std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::duration<double>(message.displaySeconds()));
  state_->current = std::move(message);
  if (state_->onChange) state_->onChange();
  state_->main.postAfter(delay, [weak = std::weak_ptr<State>(state_), id] {
    auto s = weak.lock();
    if (!s || !s->current || s->current->id != id) return;
    s->current.reset();
    if (s->onChange) s->onChange();
  });
  return id;
}

Uuid ToastPresenter::show(std::string text, ToastMessage::Kind kind) {
  ToastMessage message;
  message.text = std::move(text);
  message.kind = kind;
  return show(std::move(message));
}

void ToastPresenter::dismiss() {
  if (!state_->current) return;
  state_->current.reset();
  if (state_->onChange) state_->onChange();
}

const std::optional<ToastMessage>& ToastPresenter::current() const { return state_->current; }

}  // namespace vg
