// Automatic mask benchmarks on the 24 MP camera JPEG of the shared test set
// (skipped when the set is not beside the repository).
// - AutoMaskReduce24MP/1024 and /2048: the shared shrink of the 6000 x 4000
//   source to the sizes the masks work on (the region kinds and the subject).
// - AutoMaskReducePreview/1024 and /2048: the same from the 2400-pixel
//   preview source, which is what the editor hands the generator.
// - AutoMaskSky, AutoMaskWand: a whole generate() on the reduced 1024 image:
//   drawing to 8-bit RGBA, the region algorithm, LZFSE compression. The wand
//   is seeded in the sky and grows over a third of the picture.
// - AutoMaskSubject: a whole generate() on a 2048-pixel image: drawing, the
//   320 x 320 input, the network, resizing the map back, compression. The
//   camera photo has no subject the network sees (a skyline at dusk), so the
//   dahlia of the tests, enlarged to 6000 x 4000 and reduced again, stands in.
//   AutoMaskSubjectNetwork times the network's run alone, on a bitmap of its
//   input size.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "io/image_loader.h"
#include "render/resample.h"
#include "session/auto_mask_generator.h"
#include "shared_files.h"

namespace vg {
namespace {

// The 24 MP source, its 2400-pixel preview, and its reductions; loaded once.
struct Sources {
  std::shared_ptr<const Image> full, preview, region;
};

const Sources* sources(benchmark::State& state) {
  static const Sources s = [] {
    Sources out;
    std::filesystem::path file = bench::sharedTestFile("jpeg/sony-alpha-6000.jpg");
    if (file.empty()) return out;
    out.full = ImageLoader::load(file).image;
    out.preview = ImageLoader::downscaled(out.full, ImageLoader::kPreviewMaxDimension);
    out.region = ImageLoader::downscaled(out.full, AutoMaskGenerator::kRegionMaxDimension);
    return out;
  }();
  if (!s.full) {
    state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
    return nullptr;
  }
  return &s;
}

void reduce(benchmark::State& state, bool fromPreview) {
  const Sources* s = sources(state);
  if (!s) return;
  for (auto _ : state) {
    auto reduced = ImageLoader::downscaled(fromPreview ? s->preview : s->full, double(state.range(0)));
    benchmark::DoNotOptimize(reduced);
  }
}

void AutoMaskReduce24MP(benchmark::State& state) { reduce(state, false); }
void AutoMaskReducePreview(benchmark::State& state) { reduce(state, true); }

void generate(benchmark::State& state, AutoMaskRequest request, std::shared_ptr<SubjectSegmenter> segmenter) {
  AutoMaskGenerator generator(std::move(segmenter));
  for (auto _ : state) {
    std::optional<BitmapMaskData> data = generator.generate(request);
    benchmark::DoNotOptimize(data);
  }
}

void AutoMaskSky(benchmark::State& state) {
  const Sources* s = sources(state);
  if (!s) return;
  generate(state, {AutoMaskSource::sky, s->region, {}}, nullptr);
}

void AutoMaskWand(benchmark::State& state) {
  const Sources* s = sources(state);
  if (!s) return;
  generate(state, {AutoMaskSource::magicWand, s->region, {{0.5, 0.05}, 20, 2}}, nullptr);
}

void AutoMaskSubject(benchmark::State& state) {
  static const std::shared_ptr<const Image> flower = [] {
    auto small = ImageLoader::load(std::filesystem::path(VG_SOURCE_DIR) / "tests/data/jpeg/flower.jpg").image;
    auto large = std::make_shared<const Image>(lanczosResize(*small, 6000, 4000));
    return ImageLoader::downscaled(large, AutoMaskGenerator::kSubjectMaxDimension);
  }();
  auto segmenter = std::make_shared<SubjectSegmenter>(SubjectSegmenter::defaultModelFile());
  segmenter->load();
  generate(state, {AutoMaskSource::subject, flower, {}}, segmenter);
}

void AutoMaskSubjectNetwork(benchmark::State& state) {
  const Sources* s = sources(state);
  if (!s) return;
  SubjectSegmenter segmenter(SubjectSegmenter::defaultModelFile());
  segmenter.load();
  // A bitmap of the network's own input size: the resizing on either side
  // costs next to nothing, so this is the forward pass.
  Rgba8Bitmap small = AutoMaskGenerator::drawReduced(s->region, SubjectSegmenter::kInputSize);
  for (auto _ : state) {
    MaskRaster map = segmenter.probabilities(small);
    benchmark::DoNotOptimize(map);
  }
}

BENCHMARK(AutoMaskReduce24MP)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AutoMaskReducePreview)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AutoMaskSky)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AutoMaskWand)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AutoMaskSubject)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(AutoMaskSubjectNetwork)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace vg
