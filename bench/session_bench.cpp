// The editor session on the 24 MP camera JPEG of the shared test set, as the
// window drives it: main-thread work on a manual queue, renders on a pool of
// two threads. Each benchmark times from the call on the main thread to the
// moment the picture reaches the main thread (manual time); cpu_ms is the
// CPU time all threads of the process spent meanwhile, the steadier figure
// on a busy machine.
// - SessionCommitPointSlider24MP: a point-slider change committed, to its
//   2400-pixel preview. Budget 16 ms.
// - SessionCommitHeavyRecipe24MP: the same with the heavy recipe
//   (bench_recipes.h). Budget 60 ms.
// - SessionViewport100Percent24MP: a 1600 x 1000 view at 100 % moved to a new
//   place, to its full-resolution render. Budget 40 ms.
// - SessionOpen24MP: opening the file, to its first preview. Budget 0.3 s.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <time.h>
#include <unistd.h>

#include "bench_recipes.h"
#include "session/editor_session.h"
#include "session/headless_host.h"
#include "shared_files.h"

namespace {

using namespace vg;
using bench::heavyRecipe;
using bench::pointRecipe;
using Clock = std::chrono::steady_clock;

// A scratch support folder, removed afterwards.
struct ScratchFolder {
  std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("vg-session-bench-" + std::to_string(::getpid()));
  ScratchFolder() { std::filesystem::create_directories(path); }
  ~ScratchFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
};

// A host with a two-thread pool over a scratch support folder.
struct Bench {
  ScratchFolder dir;
  HeadlessHost host{dir.path, 2};
};

// Opens the photograph and returns once everything has settled.
std::unique_ptr<EditorSession> openPhoto(Bench& b, const std::filesystem::path& file) {
  std::unique_ptr<EditorSession> session;
  EditorSession::open(file, b.host.services(false),
                      [&](std::unique_ptr<EditorSession> s, std::optional<std::string>) { session = std::move(s); });
  b.host.settle();
  return session;
}

double processCpuSeconds() {
  timespec t{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Times the iterations of one benchmark: wall time per iteration as its
// manual time, and the mean CPU time per iteration as cpu_ms.
struct Laps {
  benchmark::State& state;
  double cpuTotal = 0;
  Clock::time_point wallStart;
  double cpuStart = 0;
  void start() {
    wallStart = Clock::now();
    cpuStart = processCpuSeconds();
  }
  void stop() {
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - wallStart).count());
    cpuTotal += processCpuSeconds() - cpuStart;
  }
  ~Laps() {
    if (state.iterations() > 0) state.counters["cpu_ms"] = 1000 * cpuTotal / double(state.iterations());
  }
};

// Runs main-thread work, waiting on the pool in between, until `flag` is set.
void runUntil(HeadlessHost& host, const bool& flag) {
  while (!flag) {
    if (host.main().runReady() == 0 && !flag) host.pool().waitIdle();
  }
}

void timeCommits(benchmark::State& state, EditDocument (*recipe)(double)) {
  const auto file = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (file.empty()) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  Bench b;
  auto session = openPhoto(b, file);
  if (!session) return state.SkipWithError("the photograph did not open");
  bool ready = false;
  session->addObserver([&](EditorSession::Change c) { ready = ready || c == EditorSession::Change::previewImage; });
  int k = 0;
  Laps laps{state};
  for (auto _ : state) {
    ready = false;
    laps.start();
    session->setDocument(recipe(0.1 + 0.01 * (k++ % 50)));
    runUntil(b.host, ready);
    laps.stop();
    b.host.settle();  // the histogram that follows
  }
  session->close();
}

void SessionCommitPointSlider24MP(benchmark::State& state) { timeCommits(state, pointRecipe); }
BENCHMARK(SessionCommitPointSlider24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);

void SessionCommitHeavyRecipe24MP(benchmark::State& state) { timeCommits(state, heavyRecipe); }
BENCHMARK(SessionCommitHeavyRecipe24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);

void SessionViewport100Percent24MP(benchmark::State& state) {
  const auto file = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (file.empty()) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  Bench b;
  auto session = openPhoto(b, file);
  if (!session) return state.SkipWithError("the photograph did not open");
  session->setDocument(pointRecipe(0.3));
  b.host.settle();
  bool ready = false;
  session->addObserver([&](EditorSession::Change c) { ready = ready || c == EditorSession::Change::viewportImage; });
  ViewportState view;
  view.scale = 1;
  view.viewSize = {1600, 1000};
  int k = 0;
  Laps laps{state};
  for (auto _ : state) {
    ready = false;
    view.imageCenter = {1000.0 + 400 * (k % 10), 800.0 + 250 * (k % 7)};  // a new place every time
    ++k;
    laps.start();
    session->setViewport(view);
    runUntil(b.host, ready);
    laps.stop();
    b.host.settle();
  }
  session->close();
}
BENCHMARK(SessionViewport100Percent24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);

void SessionOpen24MP(benchmark::State& state) {
  const auto file = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (file.empty()) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  Bench b;
  Laps laps{state};
  for (auto _ : state) {
    std::unique_ptr<EditorSession> session;
    bool ready = false;
    laps.start();
    EditorSession::open(file, b.host.services(false), [&](std::unique_ptr<EditorSession> s, std::optional<std::string>) {
      session = std::move(s);
      if (!session) {
        ready = true;
        return;
      }
      session->addObserver([&](EditorSession::Change c) { ready = ready || c == EditorSession::Change::previewImage; });
    });
    runUntil(b.host, ready);
    if (!session) return state.SkipWithError("the photograph did not open");
    laps.stop();
    b.host.settle();  // the full decode behind it
    session.reset();
  }
}
BENCHMARK(SessionOpen24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);

}  // namespace
