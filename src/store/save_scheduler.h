// EditSaveScheduler: turns the stream of document changes of one editor
// window into few sidecar writes.
//
// schedule(doc) keeps only the newest document and writes it 0.6 s after the
// first change of a burst (later changes of the burst only replace what will
// be written; they do not push the write back). The wait is a timer on the
// main executor, so tests run it on fake time; the document is then encoded
// on the background executor and written on the store's write queue, and
// the outcome comes back on the main thread. A failed automatic save calls the
// failure handler with "自动保存失败：编辑可能未被记录" and keeps the document
// pending, so the next flush tries again.
//
// flush() cancels the timer and writes the newest document at once,
// synchronously and unconditionally. The newest document is the pending
// one, else the one the timer handed over whose result has not come back
// yet (whether it is still waiting for the background executor, queued on
// the store, being written or already written): flush leaves it on disk in
// every case, never relying on a write its own new save number makes stale. A no-edit document removes the image's
// sidecar under all three names instead. A failed flush is logged as
//   Verdantglass: 退出前编辑保存失败（磁盘满或目录不可写）<image file name>
// and returns false (the document stays pending for another try).
//
// Threading: schedule() and flush() run on the main thread, as do the timer
// and the failure handler. The store and both executors must outlive the
// scheduler and the work it started; destroying the scheduler cancels its
// timer, and a timer or result that arrives after that does nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "model/document.h"
#include "store/edit_store.h"
#include "store/executor.h"

namespace vg {

class EditSaveScheduler {
 public:
  static constexpr std::chrono::nanoseconds kQuietPeriod{600'000'000};
  static constexpr std::string_view kAutosaveFailedMessage = "自动保存失败：编辑可能未被记录";

  // Told (on the main thread) when an automatic save failed, with the message
  // to show the user.
  using FailureHandler = std::function<void(std::string_view message)>;

  EditSaveScheduler(std::filesystem::path image, EditStore& store, MainExecutor& main,
                    Executor& background, FailureHandler onAutosaveFailure = {});
  ~EditSaveScheduler();
  EditSaveScheduler(const EditSaveScheduler&) = delete;
  EditSaveScheduler& operator=(const EditSaveScheduler&) = delete;

  void schedule(EditDocument doc);

  // True when the newest document is safely on disk, or nothing was pending.
  bool flush();

  bool hasPending() const;
  bool isFlushed() const;
  const std::filesystem::path& image() const;

 private:
  struct State;
  static void saveAfterQuietPeriod(const std::weak_ptr<State>& weak, uint64_t timer);
  static void autosaveFinished(const std::weak_ptr<State>& weak, const std::shared_ptr<const EditDocument>& doc,
                               uint64_t number, bool saved);

  std::shared_ptr<State> state_;
};

}  // namespace vg
