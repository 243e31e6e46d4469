#include "io/batch_model.h"

#include <mutex>

namespace vg {

struct BatchModel::Run {
  std::atomic<bool> cancelled{false};
};

BatchModel::BatchModel(MainExecutor& main, FileProcessor processor)
    : main_(main), processor_(std::move(processor)), self_(std::make_shared<BatchModel*>(this)) {}

BatchModel::~BatchModel() {
  self_.reset();  // tasks still queued on the main executor now do nothing
  if (run_) run_->cancelled = true;
  joinWorkers();
}

void BatchModel::joinWorkers() {
  if (coordinator_.joinable()) coordinator_.join();
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
  if (run_) run_->cancelled = true;
  ++generation_;  // whatever the workers still report is dropped
  phase_ = {Phase::Kind::cancelled, 0, 0, 0, completed_};
  changed();
}

void BatchModel::launch(
    std::function<std::vector<std::filesystem::path>(const std::function<bool()>&)> sources,
    BatchEngine::Config config) {
  if (run_) run_->cancelled = true;
  joinWorkers();
  const uint64_t generation = ++generation_;
  completed_ = 0;
  failedCount_ = 0;
  currentFile_.clear();
  failures_.clear();
  failedURLs_.clear();
  phase_ = {Phase::Kind::running, 0, 0, 0, 0};
  changed();

  auto run = std::make_shared<Run>();
  run_ = run;
  std::weak_ptr<BatchModel*> weak = self_;
  MainExecutor* main = &main_;
  FileProcessor processor = processor_;
  // Runs `fn` on the main thread, unless the model is gone by then.
  auto post = [main, weak](std::function<void(BatchModel&)> fn) {
    main->post([weak, fn = std::move(fn)] {
      if (auto self = weak.lock()) fn(**self);
    });
  };

  coordinator_ = std::thread([run, generation, post, processor, sources = std::move(sources),
                              config = std::move(config)] {
    auto isCancelled = [run] { return run->cancelled.load(); };
    std::vector<std::filesystem::path> files;
    try {
      files = sources(isCancelled);
    } catch (const std::exception& e) {
      std::string message = e.what();
      post([generation, message](BatchModel& m) {
        if (generation != m.generation_) return;
        m.failures_.push_back(message);
        m.phase_ = {Phase::Kind::done, 0, 0, 0, 0};
        m.changed();
      });
      return;
    }
    if (isCancelled()) return;

    const int total = int(files.size());
    auto planned = BatchEngine::plan(files, config);
    post([generation, total](BatchModel& m) {
      if (generation != m.generation_) return;
      m.phase_ = {Phase::Kind::running, total, 0, 0, 0};
      m.changed();
    });

    std::vector<std::filesystem::path> toProcess;
    for (const auto& p : planned) {
      if (p.failure) {
        post([generation, p](BatchModel& m) {
          m.recordOutcome(generation, p.source, BatchOutcome::failed, *p.failure);
        });
      } else {
        toProcess.push_back(p.source);
      }
    }

    std::atomic<size_t> next{0};
    std::atomic<int> skipped{0};
    auto worker = [&] {
      for (size_t i = next++; i < toProcess.size(); i = next++) {
        if (isCancelled()) return;
        const auto& source = toProcess[i];
        post([generation, name = source.filename().string()](BatchModel& m) {
          if (generation != m.generation_) return;
          m.currentFile_ = name;
          m.changed();
        });
        BatchOutcome outcome;
        std::string message;
        try {
          outcome = processor(source, config, isCancelled) ? BatchOutcome::wrote : BatchOutcome::skipped;
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
        if (outcome == BatchOutcome::skipped) ++skipped;
        post([generation, source, outcome, message](BatchModel& m) {
          m.recordOutcome(generation, source, outcome, message);
        });
      }
    };
    const int workers = toProcess.empty() ? 0 : BatchEngine::workerCount(toProcess);
    std::vector<std::thread> extra;
    for (int w = 1; w < workers; ++w) extra.emplace_back(worker);
    if (workers > 0) worker();
    for (auto& t : extra) t.join();
    if (isCancelled()) return;
    post([generation, total, skippedCount = skipped.load()](BatchModel& m) {
      m.finish(generation, total, skippedCount);
    });
  });
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
