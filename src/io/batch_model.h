// BatchModel: the observable state of one batch window (and of the
// command-line batch): phase, progress, the failure list and the files to
// retry. It lives on the main thread; its work runs on worker threads of its
// own, which only post results back through the main executor.
//
// A run: scan the folder, plan the outputs (collisions fail at once), choose
// one or two workers, then process the files in order, each exactly once.
// Every finished file (any outcome) raises `completed` and sets
// `currentFile`; a failure appends the file to failedURLs and its message to
// `failures` — at most 50 messages, then the line "……失败条目过多，其余省略"
// once, after which messages are dropped (the count stays exact). The end of
// the run enters done(total, failed, skipped). cancel() enters
// cancelled(completed) at once; files in progress stop at their next check and
// nothing they would have reported is shown.
//
// The worker threads are joined before the next run starts and when the
// model is destroyed; nothing outlives it.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
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

  BatchModel(MainExecutor& main, FileProcessor processor);
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
  void launch(std::function<std::vector<std::filesystem::path>(const std::function<bool()>&)> sources,
              BatchEngine::Config config);
  void joinWorkers();
  void recordOutcome(uint64_t generation, const std::filesystem::path& source, BatchOutcome outcome,
                     const std::string& message);
  void finish(uint64_t generation, int total, int skipped);
  void changed();

  MainExecutor& main_;
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
  std::thread coordinator_;
  // Lets late posts from workers see that the model is gone.
  std::shared_ptr<BatchModel*> self_;
};

// The status line of a phase; `foldersChosen` matters while idle,
// `hasFailures` when a run ended with nothing processed.
std::string formatStatus(const BatchModel::Phase& phase, int completed, const std::string& currentFile,
                         bool foldersChosen, bool hasFailures);

}  // namespace vg
