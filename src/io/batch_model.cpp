#include "io/batch_model.h"

#include <condition_variable>
#include <mutex>

namespace vg {

// Everything a run's background tasks use, shared with them: the model may
// be gone while a task is still queued.
struct BatchModel::Run {
  Run(uint64_t g, FileProcessor p, BatchEngine::Config c, MainExecutor& m, Executor& b,
      std::weak_ptr<BatchModel*> model)
      : generation(g), processor(std::move(p)), config(std::move(c)), main(m), background(b),
        model(std::move(model)) {}

  const uint64_t generation;
  const FileProcessor processor;
  const BatchEngine::Config config;
  MainExecutor& main;
  Executor& background;
  const std::weak_ptr<BatchModel*> model;

  // Tasks touch the processor and the executors only between enter() and
  // leave(); once cancelled, enter() refuses, and the model's destructor
  // waits for the active ones to leave.
  bool enter() {
    std::lock_guard lock(mutex);
    if (cancelled) return false;
    ++active;
    return true;
  }
  void leave() {
    std::lock_guard lock(mutex);
    if (--active == 0) idle.notify_all();
  }
  void cancel() { cancelled = true; }
  void waitIdle() {
    std::unique_lock lock(mutex);
    idle.wait(lock, [this] { return active == 0; });
  }
  bool isIdle() {
    std::lock_guard lock(mutex);
    return active == 0;
  }
  bool isCancelled() const { return cancelled; }

  // Runs `fn` on the main thread, unless the model is gone by then.
  void post(std::function<void(BatchModel&)> fn) {
    main.post([weak = model, fn = std::move(fn)] {
      if (auto self = weak.lock()) fn(**self);
    });
  }

  // Set by prepare() before the workers are posted.
  std::vector<std::filesystem::path> files;
  int total = 0;
  std::atomic<size_t> next{0};
  std::atomic<int> skipped{0};
  std::atomic<int> workersLeft{0};

 private:
  std::atomic<bool> cancelled{false};
  std::mutex mutex;
  std::condition_variable idle;
  int active = 0;
};

BatchModel::BatchModel(MainExecutor& main, Executor& background, FileProcessor processor)
    : main_(main), background_(background), processor_(std::move(processor)),
      self_(std::make_shared<BatchModel*>(this)) {}

BatchModel::~BatchModel() {
  self_.reset();  // tasks still queued on the main executor now do nothing
  if (run_) earlier_.push_back(std::move(run_));
  for (const auto& run : earlier_) run->cancel();
  for (const auto& run : earlier_) run->waitIdle();
}

void BatchModel::changed() {
  if (onChange_) onChange_();
}

void BatchModel::start(const std::filesystem::path& sourceFolder, BatchEngine::Config config) {
  std::string suffix = config.nameSuffix;
  launch(
      [sourceFolder, suffix](const std::function<bool()>& isCancelled) {
        return BatchEngine::scanFolder(sourceFolder, suffix, isCancelled);
      },
      std::move(config));
}

void BatchModel::retryFailed(BatchEngine::Config config) {
  auto urls = failedURLs_;
  launch([urls](const std::function<bool()>&) { return urls; }, std::move(config));
}

void BatchModel::cancel() {
  if (!isRunning()) return;
  if (run_) run_->cancel();
  ++generation_;  // whatever the workers still report is dropped
  phase_ = {Phase::Kind::cancelled, 0, 0, 0, completed_};
  changed();
}

void BatchModel::launch(Sources sources, BatchEngine::Config config) {
  if (run_) {
    run_->cancel();
    earlier_.push_back(std::move(run_));
  }
  std::erase_if(earlier_, [](const std::shared_ptr<Run>& run) { return run->isIdle(); });
  const uint64_t generation = ++generation_;
  completed_ = 0;
  failedCount_ = 0;
  currentFile_.clear();
  failures_.clear();
  failedURLs_.clear();
  phase_ = {Phase::Kind::running, 0, 0, 0, 0};
  changed();

  run_ = std::make_shared<Run>(generation, processor_, std::move(config), main_, background_, self_);
  background_.post([run = run_, earlier = earlier_, sources = std::move(sources)] {
    prepare(run, earlier, sources);
  });
}

// Scan, plan and the number of workers, then the workers themselves.
void BatchModel::prepare(const std::shared_ptr<Run>& run, const std::vector<std::shared_ptr<Run>>& earlier,
                         const Sources& sources) {
  if (!run->enter()) return;
  // A cancelled run before this one may still be finishing a file (an
  // export of the very file about to be retried): let it end first.
  for (const auto& e : earlier) e->waitIdle();
  const uint64_t generation = run->generation;
  auto isCancelled = [run = run.get()] { return run->isCancelled(); };
  auto fail = [&](const std::string& message) {
    run->post([generation, message](BatchModel& m) { m.endBeforeStarting(generation, message); });
    run->leave();
  };

  std::vector<BatchEngine::PlannedFile> planned;
  try {
    std::vector<std::filesystem::path> found = sources(isCancelled);
    if (isCancelled()) return run->leave();
    planned = BatchEngine::plan(found, run->config);
  } catch (const std::exception& e) {
    return fail(e.what());
  } catch (...) {
    return fail("未知错误");
  }

  run->total = int(planned.size());
  run->post([generation, total = run->total](BatchModel& m) {
    if (generation != m.generation_) return;
    m.phase_ = {Phase::Kind::running, total, 0, 0, 0};
    m.changed();
  });
  for (auto& p : planned) {
    if (p.failure) {
      run->post([generation, source = p.source, message = *p.failure](BatchModel& m) {
        m.recordOutcome(generation, source, BatchOutcome::failed, message);
      });
    } else {
      run->files.push_back(std::move(p.source));
    }
  }

  int workers = 0;
  if (!run->files.empty()) {
    try {
      workers = BatchEngine::workerCount(run->files);
    } catch (...) {
      workers = 1;  // sizes unknown: the cautious choice
    }
  }
  if (workers == 0) {
    run->post([generation, total = run->total](BatchModel& m) { m.finish(generation, total, 0); });
  } else {
    run->workersLeft = workers;
    for (int w = 0; w < workers; ++w) run->background.post([run] { work(run); });
  }
  run->leave();
}

// One worker: takes the next file until none is left; the last worker to
// end reports the end of the run.
void BatchModel::work(const std::shared_ptr<Run>& run) {
  if (!run->enter()) return;
  for (size_t i = run->next++; i < run->files.size() && !run->isCancelled(); i = run->next++) {
    processOne(*run, run->files[i]);
  }
  if (--run->workersLeft == 0 && !run->isCancelled()) {
    run->post([generation = run->generation, total = run->total, skipped = run->skipped.load()](BatchModel& m) {
      m.finish(generation, total, skipped);
    });
  }
  run->leave();
}

void BatchModel::processOne(Run& run, const std::filesystem::path& source) {
  const uint64_t generation = run.generation;
  run.post([generation, name = source.filename().string()](BatchModel& m) {
    if (generation != m.generation_) return;
    m.currentFile_ = name;
    m.changed();
  });
  BatchOutcome outcome;
  std::string message;
  try {
    const bool wrote = run.processor(source, run.config, [&run] { return run.isCancelled(); });
    outcome = wrote ? BatchOutcome::wrote : BatchOutcome::skipped;
  } catch (const BatchCancelled&) {
    outcome = BatchOutcome::cancelled;
  } catch (const std::exception& e) {
    outcome = BatchOutcome::failed;
    message = BatchEngine::failureMessage(source, e.what());
  } catch (...) {
    outcome = BatchOutcome::failed;
    message = BatchEngine::failureMessage(source, "未知错误");
  }
  if (outcome == BatchOutcome::cancelled) return;
  if (outcome == BatchOutcome::skipped) ++run.skipped;
  run.post([generation, source, outcome, message](BatchModel& m) {
    m.recordOutcome(generation, source, outcome, message);
  });
}

void BatchModel::endBeforeStarting(uint64_t generation, const std::string& message) {
  if (generation != generation_) return;
  failures_.push_back(message);
  phase_ = {Phase::Kind::done, 0, 0, 0, 0};
  changed();
}

void BatchModel::recordOutcome(uint64_t generation, const std::filesystem::path& source,
                               BatchOutcome outcome, const std::string& message) {
  if (generation != generation_ || outcome == BatchOutcome::cancelled) return;
  ++completed_;
  currentFile_ = source.filename().string();
  if (outcome == BatchOutcome::failed) {
    ++failedCount_;
    failedURLs_.push_back(source);
    if (failures_.size() < kMaxFailureMessages) {
      failures_.push_back(message);
    } else if (failures_.size() == kMaxFailureMessages) {
      failures_.push_back(std::string(kFailureOverflowLine));
    }
  }
  changed();
}

void BatchModel::finish(uint64_t generation, int total, int skipped) {
  if (generation != generation_) return;
  phase_ = {Phase::Kind::done, total, failedCount_, skipped, 0};
  changed();
}

std::string BatchModel::statusText(bool foldersChosen) const {
  return formatStatus(phase_, completed_, currentFile_, foldersChosen, !failures_.empty());
}

std::string BatchModel::failureFooter() const {
  if (failedCount_ == 0) return {};
  return "…共 " + std::to_string(failedCount_) + " 个失败";
}

std::string formatStatus(const BatchModel::Phase& phase, int completed, const std::string& currentFile,
                         bool foldersChosen, bool hasFailures) {
  using Kind = BatchModel::Phase::Kind;
  auto n = [](int v) { return std::to_string(v); };
  switch (phase.kind) {
    case Kind::idle:
      return foldersChosen ? "已就绪，点击「开始批处理」" : "选择源/输出文件夹后开始";
    case Kind::running:
      return "正在处理 " + n(completed) + "/" + n(phase.total) + " · " + currentFile;
    case Kind::cancelled:
      return "已取消（完成 " + n(phase.completed) + " 张）";
    case Kind::done:
      break;
  }
  if (phase.total == 0) {
    return hasFailures ? "批处理无法开始，请查看下方错误" : "未找到可处理的图片";
  }
  if (phase.failed == 0 && phase.skipped == 0) return "完成：" + n(phase.total) + " 张全部导出";
  if (phase.failed == 0) {
    return "完成：" + n(phase.total - phase.skipped) + " 张导出，" + n(phase.skipped) +
           " 张已存在跳过（可关闭下方开关重跑）";
  }
  if (phase.skipped == 0) {
    return "完成：" + n(phase.total - phase.failed) + " 张导出，" + n(phase.failed) + " 失败";
  }
  return "完成：" + n(phase.total - phase.failed - phase.skipped) + " 张导出，" + n(phase.failed) +
         " 失败，" + n(phase.skipped) + " 已存在跳过";
}

}  // namespace vg
