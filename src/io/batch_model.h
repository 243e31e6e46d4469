// BatchModel: the observable state of one batch window (and of the
// command-line batch): phase, progress, the failure list and the files to
// retry. It lives on the main thread; its work runs as tasks on the injected
// background executor (the shared ThreadPool), which only post results back
// through the main executor.
//
// A run: scan the folder, plan the outputs (collisions fail at once), choose
// one or two workers, then process the files in order, each exactly once.
// A scan, plan or header reading that throws ends the run before it starts,
// done(0) with the error's text as the only failure line (a failed header
// read only costs the second worker); nothing a run does can end the process.
// Every finished file (any outcome) raises `completed` and sets
// `currentFile`; a failure appends the file to failedURLs and its message to
// `failures` — at most 50 messages, then the line "……失败条目过多，其余省略"
// once, after which messages are dropped (the count stays exact). The end of
// the run enters done(total, failed, skipped). cancel() enters
// cancelled(completed) at once; files in progress stop at their next check and
// nothing they would have reported is shown.
//
// start(), retryFailed() and cancel() never wait: a new run cancels the one
// before and its workers begin only once the file steps of that run still
// in progress have ended (on the background executor, not the main thread).
// The destructor cancels the run and waits for the file steps in progress
// to notice (the processor checks between load, render and export); queued
// tasks that start later do nothing. After it returns, nothing of the model
// runs and the processor is not called again, so what the processor
// refers to may go; the executors must outlive the model.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/batch_engine.h"
#include "store/executor.h"

namespace vg {

class BatchModel {
 public:
  struct Phase {
    enum class Kind { idle, running, done, cancelled };
    Kind kind = Kind::idle;
    int total = 0;      // running, done
    int failed = 0;     // done
    int skipped = 0;    // done
    int completed = 0;  // cancelled
    friend bool operator==(const Phase&, const Phase&) = default;
  };

  static constexpr size_t kMaxFailureMessages = 50;
  static constexpr std::string_view kFailureOverflowLine = "……失败条目过多，其余省略";

  // Develops one file: true when written, false when skipped as existing.
  // Throws BatchCancelled when it noticed cancellation, anything else on
  // failure (its what() becomes the description in the failure message).
  using FileProcessor = std::function<bool(const std::filesystem::path& source,
                                           const BatchEngine::Config& config,
                                           const std::function<bool()>& isCancelled)>;

  BatchModel(MainExecutor& main, Executor& background, FileProcessor processor);
  ~BatchModel();
  BatchModel(const BatchModel&) = delete;
  BatchModel& operator=(const BatchModel&) = delete;

  void start(const std::filesystem::path& sourceFolder, BatchEngine::Config config);
  void retryFailed(BatchEngine::Config config);
  void cancel();

  const Phase& phase() const { return phase_; }
  int completed() const { return completed_; }
  const std::string& currentFile() const { return currentFile_; }
  const std::vector<std::string>& failures() const { return failures_; }
  const std::vector<std::filesystem::path>& failedURLs() const { return failedURLs_; }
  bool isRunning() const { return phase_.kind == Phase::Kind::running; }

  // Called on the main thread after every change of the state above.
  void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

  // The status line for the current phase; `foldersChosen` describes the
  // window while idle.
  std::string statusText(bool foldersChosen = true) const;
  // "…共 N 个失败", empty when nothing failed.
  std::string failureFooter() const;

 private:
  struct Run;
  using Sources = std::function<std::vector<std::filesystem::path>(const std::function<bool()>&)>;
  void launch(Sources sources, BatchEngine::Config config);
  // Background tasks of a run.
  static void prepare(const std::shared_ptr<Run>& run, const std::vector<std::shared_ptr<Run>>& earlier,
                      const Sources& sources);
  static void work(const std::shared_ptr<Run>& run);
  static void processOne(Run& run, const std::filesystem::path& source);
  // Main-thread updates posted by them.
  void endBeforeStarting(uint64_t generation, const std::string& message);
  void recordOutcome(uint64_t generation, const std::filesystem::path& source, BatchOutcome outcome,
                     const std::string& message);
  void finish(uint64_t generation, int total, int skipped);
  void changed();

  MainExecutor& main_;
  Executor& background_;
  FileProcessor processor_;
  std::function<void()> onChange_;

  Phase phase_;
  int completed_ = 0;
  int failedCount_ = 0;
  std::string currentFile_;
  std::vector<std::string> failures_;
  std::vector<std::filesystem::path> failedURLs_;

  uint64_t generation_ = 0;
  std::shared_ptr<Run> run_;
  std::vector<std::shared_ptr<Run>> earlier_;  // cancelled runs that may still be ending a file
  // Lets late posts from workers see that the model is gone.
  std::shared_ptr<BatchModel*> self_;
};

// The status line of a phase; `foldersChosen` matters while idle,
// `hasFailures` when a run ended with nothing processed.
std::string formatStatus(const BatchModel::Phase& phase, int completed, const std::string& currentFile,
                         bool foldersChosen, bool hasFailures);

}  // namespace vg
