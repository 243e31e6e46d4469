// The editor window's live loop, measured inside the application on the
// offscreen platform: from a slider step (the same intent a drag emits) to
// the canvas having painted the re-rendered picture, on the 24 MP camera
// photograph of the shared test set.
// - SliderToCanvasFit24MP: the view fitted; budget 30 ms (median).
// - SliderToCanvas100Percent24MP: the view at 100 %, where the visible part
//   is rendered from the full-resolution source; budget 60 ms (median).
// - OpenToFirstFrame24MP: from asking to open the photograph to the new
//   window's canvas having painted its first picture.
// Each reports step_median_ms, the median of its single steps.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QSlider>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <vector>

#include "../shared_files.h"
#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/editor_window.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/slider_row.h"
#include "store/edit_store.h"

namespace {

namespace fs = std::filesystem;
using namespace vg;
using namespace vg::app;

bool waitFor(const std::function<bool()>& done, int timeoutMs = 60000) {
  QElapsedTimer t;
  t.start();
  while (!done()) {
    if (t.elapsed() > timeoutMs) return false;
    // Waits for events rather than spinning, so the wait costs no CPU of its own.
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
  }
  return true;
}

struct Editor {
  QTemporaryDir home;
  EditStore store{fs::path(home.path().toStdString()) / "Edits"};
  Application app{&store};
  EditorWindow* window = nullptr;

  explicit Editor(const fs::path& photo) {
    app.openFiles({photo});
    window = app.windowFor(photo);
    window->resize(1440, 900);
    waitFor([&] {
      EditorSession* s = window->session();
      return s && s->source() && s->previewImage() && !s->isBusy(EditorSession::BusyFlag::rendering);
    });
  }
};

Editor* editor() {
  static Editor* e = [] {
    const fs::path photo = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
    return photo.empty() ? nullptr : new Editor(photo);
  }();
  return e;
}

// One slider step and the wait for its paint; returns seconds.
double step(EditorWindow* w, QSlider* slider, bool detail) {
  CanvasView* canvas = w->canvas();
  const uint64_t before = detail ? canvas->paintedDetailGeneration() : canvas->paintedGeneration();
  const auto start = std::chrono::steady_clock::now();
  slider->setValue(slider->value() == slider->maximum() / 2 + 40 ? slider->maximum() / 2 + 20
                                                                  : slider->maximum() / 2 + 40);
  waitFor([&] {
    return (detail ? canvas->paintedDetailGeneration() : canvas->paintedGeneration()) > before;
  });
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double medianMs(std::vector<double> seconds) {
  if (seconds.empty()) return 0;
  auto mid = seconds.begin() + std::ptrdiff_t(seconds.size() / 2);
  std::nth_element(seconds.begin(), mid, seconds.end());
  return *mid * 1e3;
}

double processCpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

void run(benchmark::State& state, bool actualSize) {
  Editor* e = editor();
  if (!e) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  EditorWindow* w = e->window;
  w->actions()->action(actualSize ? ActionId::actualSize : ActionId::fit)->trigger();
  waitFor([&] { return !w->session()->isBusy(EditorSession::BusyFlag::rendering); });
  QSlider* slider = w->adjustPanel()->slider("exposure")->slider();
  step(w, slider, actualSize);  // warm the caches and buffers
  const double cpu0 = processCpuSeconds();
  std::vector<double> steps;
  for (auto _ : state) {
    steps.push_back(step(w, slider, actualSize));
    state.SetIterationTime(steps.back());
  }
  state.counters["step_median_ms"] = medianMs(steps);
  // CPU of every thread per step (the wait loop on the main thread included):
  // on a loaded machine the wall time above stretches, this does much less.
  state.counters["cpu_ms_per_step"] = (processCpuSeconds() - cpu0) * 1e3 / double(state.iterations());
  state.counters["scale"] = w->canvas()->viewport().scale;
}

void OpenToFirstFrame24MP(benchmark::State& state) {
  const fs::path photo = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (photo.empty()) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  QTemporaryDir home;
  EditStore store{fs::path(home.path().toStdString()) / "Edits"};
  Application app{&store};
  std::vector<double> opens;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    app.openFiles({photo});
    EditorWindow* w = app.windowFor(photo);
    w->resize(1440, 900);
    waitFor([&] { return w->canvas()->paintedGeneration() > 0; });
    opens.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    state.SetIterationTime(opens.back());
    w->close();
    waitFor([&] { return app.windows().empty(); });
  }
  state.counters["step_median_ms"] = medianMs(opens);
}

void SliderToCanvasFit24MP(benchmark::State& state) { run(state, false); }
void SliderToCanvas100Percent24MP(benchmark::State& state) { run(state, true); }

BENCHMARK(OpenToFirstFrame24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(7);
BENCHMARK(SliderToCanvasFit24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(40)->Repetitions(3)
    ->ReportAggregatesOnly(true);
BENCHMARK(SliderToCanvas100Percent24MP)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(40)
    ->Repetitions(3)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QTemporaryDir home;
  qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toUtf8());
  qputenv("VERDANTGLASS_DATA_DIR", (home.path() + "/data").toUtf8());
  QApplication qt(argc, argv);
  QCoreApplication::setOrganizationName("VerdantglassBench");
  QCoreApplication::setApplicationName("VerdantglassBench");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
