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
  // The document the last timer handed to the store, until its result is
  // back: flush() must not take it for written before then.
  struct InFlight {
    std::shared_ptr<const EditDocument> doc;
    uint64_t saveNumber = 0;
  };
  std::optional<InFlight> inFlight;
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
  s->inFlight = State::InFlight{doc, number};

  EditStore* store = &s->store;
  MainExecutor* main = &s->main;
  // Encoding runs on the background executor; the store reports back from
  // its write queue, so nobody waits for the disk.
  s->background.post([weak, doc, number, store, main, image = s->image] {
    store->save(*doc, image, number, /*unconditional=*/false, [weak, doc, number, main](bool saved) {
      main->post([weak, doc, number, saved] { autosaveFinished(weak, doc, number, saved); });
    });
  });
}

void EditSaveScheduler::autosaveFinished(const std::weak_ptr<State>& weak,
                                         const std::shared_ptr<const EditDocument>& doc, uint64_t number,
                                         bool saved) {
  auto s = weak.lock();
  if (!s) return;
  if (s->inFlight && s->inFlight->saveNumber == number) s->inFlight.reset();
  if (saved) return;
  // Keep the document for the next try unless something newer replaced it.
  if (!s->pending && s->saveNumber == number) s->pending = *doc;
  if (s->onFailure) s->onFailure(kAutosaveFailedMessage);
}

bool EditSaveScheduler::flush() {
  State& s = *state_;
  s.timerArmed = false;
  ++s.timerGeneration;
  std::optional<EditDocument> doc = std::move(s.pending);
  s.pending.reset();
  // Nothing newer pending: the newest document may still be on its way to
  // the store (handed over, queued, being written, or written with the
  // result not back yet). The fresh number below makes that write stale if
  // it has not run, so it is written here again.
  if (!doc && s.inFlight) doc = *s.inFlight->doc;
  s.inFlight.reset();
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
