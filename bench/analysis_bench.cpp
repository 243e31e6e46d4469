// One-click analyses on the 24 MP camera JPEG of the shared test set (a dusk
// skyline), each from the 2400-pixel preview source the editor keeps.
// - HorizonDetect24MP: automatic straightening. Budget 150 ms.
// - AutoAnalyze24MP: the statistics of automatic adjustment. Budget 30 ms.
// - RedEyeDetect24MP: faces and pupils, the preview reduced to 1200 px, with
//   the landmark model already read. Budget 0.5 s.
// - RedEyeModelLoad: reading the 68-point landmark model (once per process).
#include <benchmark/benchmark.h>

#include "io/image_loader.h"
#include "session/auto_adjust.h"
#include "session/horizon_detector.h"
#include "session/red_eye_detector.h"
#include "shared_files.h"

namespace {

using namespace vg;

// The preview source of the 24 MP photograph, decoded once; null when the
// shared test set is not beside the repository.
std::shared_ptr<const Image> previewSource24MP() {
  static const std::shared_ptr<const Image> preview = []() -> std::shared_ptr<const Image> {
    std::filesystem::path file = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
    if (file.empty()) return nullptr;
    return ImageLoader::downscaled(ImageLoader::load(file).image, ImageLoader::kPreviewMaxDimension);
  }();
  return preview;
}

void HorizonDetect24MP(benchmark::State& state) {
  auto preview = previewSource24MP();
  if (!preview) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  bool found = false;
  for (auto _ : state) found = detectHorizonAngle(*preview, {}).has_value();
  state.counters["found"] = found;
}
BENCHMARK(HorizonDetect24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void AutoAnalyze24MP(benchmark::State& state) {
  auto preview = previewSource24MP();
  if (!preview) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  const EditDocument recipe;
  for (auto _ : state) benchmark::DoNotOptimize(AutoAdjust::analyzeShown(*preview, recipe));
}
BENCHMARK(AutoAnalyze24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void RedEyeDetect24MP(benchmark::State& state) {
  auto preview = previewSource24MP();
  if (!preview) return state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
  if (auto error = RedEyeDetector::shared().load()) return state.SkipWithError(error->c_str());
  for (auto _ : state) benchmark::DoNotOptimize(RedEyeDetector::shared().detect(*preview));
}
BENCHMARK(RedEyeDetect24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

void RedEyeModelLoad(benchmark::State& state) {
  for (auto _ : state) {
    RedEyeDetector detector;
    if (auto error = detector.load()) return state.SkipWithError(error->c_str());
  }
}
BENCHMARK(RedEyeModelLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
