#include "store/save_scheduler.h"

#include <string>

#include "model/log.h"

namespace vg {

namespace {
constexpr std::string_view kFlushFailedLog = "Verdantglass: 退出前编辑保存失败（磁盘满或目录不可写）";
}  // namespace

struct EditSaveScheduler::State {
  State(std::filesystem::path imagePath, EditStore& s, MainExecutor& m, Executor& b, FailureHandler f)
      : image(std::move(imagePath)), store(s), main(m), background(b), onFailure(std::move(f)) {}

  const std::filesystem::path image;
  EditStore& store;
  MainExecutor& main;
  Executor& background;
  FailureHandler onFailure;

  std::optional<EditDocument> pending;
  uint64_t saveNumber = 0;  // taken for the newest pending document
  bool flushed = false;
  // The burst timer. A posted timer cannot be taken back, so cancelling
  // disarms it and moves the generation on; a timer that fires with an old
  // generation, or disarmed, does nothing.
  bool timerArmed = false;
  uint64_t timerGeneration = 0;
};

EditSaveScheduler::EditSaveScheduler(std::filesystem::path image, EditStore& store,
                                     MainExecutor& main, Executor& background,
                                     FailureHandler onAutosaveFailure)
    : state_(std::make_shared<State>(std::move(image), store, main, background,
                                     std::move(onAutosaveFailure))) {}

// Timers and results still on their way hold only a weak reference: once the
// state is gone they do nothing.
EditSaveScheduler::~EditSaveScheduler() = default;

void EditSaveScheduler::schedule(EditDocument doc) {
  State& s = *state_;
  s.saveNumber = s.store.takeSaveNumber(s.image);  // older queued writes become stale
  s.flushed = false;
  s.pending = std::move(doc);
  if (s.timerArmed) return;  // this burst's timer writes whatever is pending then

  s.timerArmed = true;
  const uint64_t timer = ++s.timerGeneration;
  s.main.postAfter(kQuietPeriod, [weak = std::weak_ptr<State>(state_), timer] {
    saveAfterQuietPeriod(weak, timer);
  });
}

void EditSaveScheduler::saveAfterQuietPeriod(const std::weak_ptr<State>& weak, uint64_t timer) {
  auto s = weak.lock();
  if (!s || !s->timerArmed || s->timerGeneration != timer) return;
  s->timerArmed = false;  // a change from now on starts a new burst
  if (!s->pending) return;
  auto doc = std::make_shared<const EditDocument>(std::move(*s->pending));
  s->pending.reset();
  const uint64_t number = s->saveNumber;

  EditStore* store = &s->store;
  MainExecutor* main = &s->main;
  s->background.post([weak, doc, number, store, main, image = s->image] {
    const bool saved = store->save(*doc, image, number).get();
    if (saved) return;
    main->post([weak, doc, number] {
      auto s = weak.lock();
      if (!s) return;
      // Keep the document for the next try unless something newer replaced it.
      if (!s->pending && s->saveNumber == number) s->pending = *doc;
      if (s->onFailure) s->onFailure(kAutosaveFailedMessage);
    });
  });
}

bool EditSaveScheduler::flush() {
  State& s = *state_;
  s.timerArmed = false;
  ++s.timerGeneration;
  std::optional<EditDocument> doc = std::move(s.pending);
  s.pending.reset();
  s.flushed = true;
  s.saveNumber = s.store.takeSaveNumber(s.image);
  if (!doc) return true;

  if (isNoEdit(*doc)) {
    if (s.store.removeSidecars(s.image).get()) return true;
    s.pending = std::move(doc);
    return false;
  }
  if (s.store.save(*doc, s.image, s.saveNumber, /*unconditional=*/true).get()) return true;
  logLine(std::string(kFlushFailedLog) + s.image.filename().string());
  s.pending = std::move(doc);
  return false;
}

bool EditSaveScheduler::hasPending() const { return state_->pending.has_value(); }
bool EditSaveScheduler::isFlushed() const { return state_->flushed; }
const std::filesystem::path& EditSaveScheduler::image() const { return state_->image; }

}  // namespace vg
