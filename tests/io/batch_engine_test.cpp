#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "io/batch_engine.h"
#include "io/batch_model.h"
#include "store/clock.h"
#include "store/manual_executor.h"
#include "store/thread_pool.h"
#include "support/test_support.h"

namespace vg {
namespace {

using test::TempDir;
namespace fs = std::filesystem;

void touch(const fs::path& p, std::string_view bytes = "x") { test::writeFile(p, bytes); }

TEST(BatchEngine, SuffixSanitising) {
  EXPECT_EQ(BatchEngine::sanitizedSuffix("///"), "---");
  EXPECT_EQ(BatchEngine::sanitizedSuffix(""), "-已编辑");
  EXPECT_EQ(BatchEngine::sanitizedSuffix(R"(a\b:c?d%e*f|g"h<i>j)"), "a-b-c-d-e-f-g-h-i-j");
  EXPECT_EQ(BatchEngine::sanitizedSuffix("-edit"), "-edit");
}

TEST(BatchEngine, OutputNamesFollowFormatAndSuffix) {
  BatchEngine::Config config;
  config.outputFolder = "/out";
  EXPECT_EQ(BatchEngine::outputURL("/in/photo.NEF", config), fs::path("/out/photo-已编辑.jpg"));
  config.options.format = ExportFormat::tiff;
  config.nameSuffix = "/x";
  EXPECT_EQ(BatchEngine::outputURL("/in/a.b.png", config), fs::path("/out/a.b-x.tiff"));
  config.options.format = ExportFormat::heic;
  EXPECT_EQ(BatchEngine::outputURL("/in/a", config).filename(), "a-x.heic");
}

TEST(BatchEngine, ScanKeepsSupportedFilesSortedAndSkipsEarlierOutputs) {
  TempDir dir;
  for (auto name : {"b.jpg", "a.JPG", "C.png", ".hidden.tif", "notes.txt", "x-已编辑.jpg",
                    "photo.dat", "z.heic"}) {
    touch(dir / name);
  }
  fs::create_directory(dir / "folder.jpg");
  auto found = BatchEngine::scanFolder(dir.path(), "-已编辑");
  std::vector<std::string> names;
  for (const auto& p : found) names.push_back(p.filename().string());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden.tif", "C.png", "a.JPG", "b.jpg", "z.heic"}));

  EXPECT_TRUE(BatchEngine::scanFolder(dir.path(), "-已编辑", [] { return true; }).empty());
  try {
    BatchEngine::scanFolder(dir / "missing", "");
    FAIL() << "an unreadable folder must throw";
  } catch (const BatchError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("无法读取文件夹：", 0), 0u);
  }
}

TEST(BatchEngine, PlanningFailsLaterCaseInsensitiveCollisions) {
  BatchEngine::Config config;
  config.outputFolder = "/out";
  auto planned = BatchEngine::plan({"/in/a.JPG", "/in/a.jpg", "/in/b.png", "/in/B.tif"}, config);
  ASSERT_EQ(planned.size(), 4u);
  EXPECT_FALSE(planned[0].failure);
  ASSERT_TRUE(planned[1].failure);
  EXPECT_EQ(*planned[1].failure, "a.jpg：输出文件名与其他图片冲突");
  EXPECT_FALSE(planned[2].failure);
  EXPECT_TRUE(planned[3].failure);
}

TEST(BatchEngine, StatusTexts) {
  using Kind = BatchModel::Phase::Kind;
  auto status = [](BatchModel::Phase p, bool failures = false) {
    return formatStatus(p, 3, "c.jpg", true, failures);
  };
  EXPECT_EQ(formatStatus({}, 0, "", false, false), "选择源/输出文件夹后开始");
  EXPECT_EQ(status({}), "已就绪，点击「开始批处理」");
  EXPECT_EQ(status({Kind::running, 10}), "正在处理 3/10 · c.jpg");
  EXPECT_EQ(status({Kind::done, 0}), "未找到可处理的图片");
  EXPECT_EQ(status({Kind::done, 0}, true), "批处理无法开始，请查看下方错误");
  EXPECT_EQ(status({Kind::done, 5}), "完成：5 张全部导出");
  EXPECT_EQ(status({Kind::done, 5, 0, 2}), "完成：3 张导出，2 张已存在跳过（可关闭下方开关重跑）");
  EXPECT_EQ(status({Kind::done, 5, 1, 0}), "完成：4 张导出，1 失败");
  EXPECT_EQ(status({Kind::done, 5, 1, 2}), "完成：2 张导出，1 失败，2 已存在跳过");
  EXPECT_EQ(status({Kind::cancelled, 0, 0, 0, 4}), "已取消（完成 4 张）");
}

// Drives the model's main executor until the run leaves the running phase.
void runUntilSettled(ManualExecutor& main, BatchModel& model) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (model.isRunning() && std::chrono::steady_clock::now() < deadline) {
    if (main.runReady() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  main.runReady();
}

TEST(BatchModel, SixtyFailuresAreCappedButAllRetried) {
  TempDir dir;
  for (int i = 0; i < 70; ++i) touch(dir / ("img" + std::to_string(100 + i) + ".jpg"));
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.test.batch", 2);
  std::atomic<int> calls{0};
  std::atomic<bool> retrying{false};
  std::mutex m;
  std::set<fs::path> retried;
  BatchModel model(main, pool, [&](const fs::path& src, const BatchEngine::Config&, const auto&) -> bool {
    ++calls;
    if (retrying) {
      std::lock_guard lock(m);
      retried.insert(src);
      return true;
    }
    if (src.stem().string() < "img160") throw std::runtime_error("坏文件");
    return src.stem().string() != "img169";  // one skipped as existing
  });
  BatchEngine::Config config;
  config.outputFolder = dir / "out";
  model.start(dir.path(), config);
  runUntilSettled(main, model);

  EXPECT_EQ(calls.load(), 70);
  EXPECT_EQ(model.phase(), (BatchModel::Phase{BatchModel::Phase::Kind::done, 70, 60, 1, 0}));
  EXPECT_EQ(model.completed(), 70);
  ASSERT_EQ(model.failures().size(), 51u);
  // Two workers finish in either order; each message names one failed file.
  std::set<std::string> messages(model.failures().begin(), model.failures().begin() + 50);
  EXPECT_EQ(messages.size(), 50u);
  for (const auto& m : messages) {
    EXPECT_TRUE(m.rfind("img1", 0) == 0 && m.find(".jpg：坏文件") == 6 && m < "img160") << m;
  }
  EXPECT_EQ(model.failures()[50], "……失败条目过多，其余省略");
  EXPECT_EQ(model.failedURLs().size(), 60u);
  EXPECT_EQ(model.failureFooter(), "…共 60 个失败");
  EXPECT_EQ(model.statusText(), "完成：9 张导出，60 失败，1 已存在跳过");

  retrying = true;
  model.retryFailed(config);
  runUntilSettled(main, model);
  EXPECT_EQ(model.phase(), (BatchModel::Phase{BatchModel::Phase::Kind::done, 60, 0, 0, 0}));
  EXPECT_EQ(retried.size(), 60u);
  EXPECT_FALSE(retried.count(dir / "img165.jpg")) << "only the failed files run again";
  EXPECT_TRUE(model.failedURLs().empty());
}

TEST(BatchModel, FailuresBeforeTheFirstFileEndTheRunNotTheProcess) {
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.test.batch", 2);
  std::atomic<int> calls{0};
  BatchModel model(main, pool, [&](const auto&, const auto&, const auto&) { return ++calls > 0; });
  BatchEngine::Config config;
  model.start("/no/such/folder", config);
  runUntilSettled(main, model);
  EXPECT_EQ(model.phase().kind, BatchModel::Phase::Kind::done);
  ASSERT_EQ(model.failures().size(), 1u);
  EXPECT_EQ(model.failures()[0].rfind("无法读取文件夹：", 0), 0u);
  EXPECT_EQ(model.statusText(), "批处理无法开始，请查看下方错误");

  // Planning a relative output folder needs the working folder; when that
  // has been deleted under the process, planning throws.
  TempDir sources, scratch;
  touch(sources / "a.jpg");
  const fs::path saved = fs::current_path();
  fs::create_directory(scratch / "cwd");
  fs::current_path(scratch / "cwd");
  fs::remove(scratch / "cwd");
  config.outputFolder = "out";
  model.start(sources.path(), config);
  runUntilSettled(main, model);
  fs::current_path(saved);
  EXPECT_EQ(model.phase(), (BatchModel::Phase{BatchModel::Phase::Kind::done, 0, 0, 0, 0}));
  ASSERT_EQ(model.failures().size(), 1u);
  EXPECT_EQ(model.statusText(), "批处理无法开始，请查看下方错误");
  EXPECT_NE(model.failures()[0].find("absolute path"), std::string::npos) << model.failures()[0];
  EXPECT_EQ(calls.load(), 0);
}

TEST(BatchModel, StartingAgainNeverWaitsAndNeverOverlapsTheFileInProgress) {
  TempDir dir;
  touch(dir / "only.jpg");
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.test.batch", 3);
  std::promise<void> gate;
  std::shared_future<void> opened = gate.get_future().share();
  std::atomic<bool> released{false};
  std::atomic<int> calls{0}, inside{0}, mostInside{0};
  BatchModel model(main, pool, [&](const auto&, const auto&, const std::function<bool()>& isCancelled) {
    mostInside = std::max(mostInside.load(), ++inside);
    if (++calls == 1) opened.wait();  // the first run's file is slow
    --inside;
    if (isCancelled()) throw BatchCancelled();
    return true;
  });
  BatchEngine::Config config;
  config.outputFolder = dir / "out";
  model.start(dir.path(), config);
  while (calls.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));

  // A watchdog, so that a start() that waits cannot hang the test.
  std::promise<void> returned;
  std::thread watchdog([&, back = returned.get_future()] {
    if (back.wait_for(std::chrono::seconds(3)) == std::future_status::timeout && !released.exchange(true)) {
      gate.set_value();
    }
  });
  model.start(dir.path(), config);
  returned.set_value();
  watchdog.join();
  EXPECT_FALSE(released.load()) << "start() waited for the file in progress";
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(calls.load(), 1) << "the second run must wait for the first run's file";
  if (!released.exchange(true)) gate.set_value();

  runUntilSettled(main, model);
  EXPECT_EQ(model.phase(), (BatchModel::Phase{BatchModel::Phase::Kind::done, 1, 0, 0, 0}));
  EXPECT_EQ(calls.load(), 2);
  EXPECT_EQ(mostInside.load(), 1);
}

TEST(BatchModel, NothingRunsOnceTheModelIsGone) {
  TempDir dir;
  for (int i = 0; i < 5; ++i) touch(dir / ("f" + std::to_string(i) + ".png"));
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.test.batch", 2);
  std::atomic<int> calls{0};
  std::atomic<bool> gone{false}, sawCancel{false}, calledLate{false};
  {
    BatchModel model(main, pool, [&](const auto&, const auto&, const std::function<bool()>& isCancelled) {
      if (gone) calledLate = true;
      ++calls;
      while (!isCancelled()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      sawCancel = true;
      throw BatchCancelled();
      return true;
    });
    BatchEngine::Config config;
    config.outputFolder = dir / "out";
    model.start(dir.path(), config);
    while (calls.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  gone = true;
  EXPECT_TRUE(sawCancel.load()) << "the destructor returns after the file in progress stopped";
  const int callsAtDestruction = calls.load();
  pool.waitIdle();
  main.runReady();
  EXPECT_EQ(calls.load(), callsAtDestruction);
  EXPECT_FALSE(calledLate.load());
}

TEST(BatchModel, CancelStopsBetweenFilesAndDropsLateResults) {
  TempDir dir;
  for (int i = 0; i < 20; ++i) touch(dir / ("f" + std::to_string(10 + i) + ".png"));
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.test.batch", 2);
  std::atomic<int> started{0};
  BatchModel model(main, pool, [&](const auto&, const auto&, const std::function<bool()>& isCancelled) {
    ++started;
    for (int i = 0; i < 200 && !isCancelled(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (isCancelled()) throw BatchCancelled();
    return true;
  });
  BatchEngine::Config config;
  config.outputFolder = dir / "out";
  model.start(dir.path(), config);
  while (model.completed() < 1) {
    if (main.runReady() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  model.cancel();
  const int completedAtCancel = model.completed();
  EXPECT_EQ(model.phase().kind, BatchModel::Phase::Kind::cancelled);
  EXPECT_EQ(model.statusText(), "已取消（完成 " + std::to_string(completedAtCancel) + " 张）");
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  main.runReady();
  EXPECT_EQ(model.completed(), completedAtCancel) << "late results are dropped";
  EXPECT_LT(started.load(), 20);
}

}  // namespace
}  // namespace vg
