// Healer benchmarks.
// - One 40-dab stroke of radius 30 pixels on a 24-megapixel bitmap, with the
//   candidate scoring forced serial, forced parallel, and chosen automatically
//   (parallel at this size).
// - The render's heal stage adding an eleventh stroke to ten already healed
//   (prefix reuse), against healing all eleven from scratch, on the
//   24-megapixel frame and on a 2400 x 1600 preview. Both include the
//   geometry copy and the write-back into the float frame.
// - The same step through RenderEngine::render (heal stage, then a colour
//   stage with one slider), as the preview sees it.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

#include "render/heal_cache.h"
#include "render/heal_stage.h"
#include "render/healer.h"
#include "render/render_engine.h"

namespace {

using vg::Healer;

const Healer::Bitmap& photo24mp() {
  static const Healer::Bitmap bitmap = [] {
    Healer::Bitmap b(6000, 4000);
    uint32_t state = 12345;
    for (int y = 0; y < b.height; ++y) {
      double rowShade = 30 * std::sin(y * 0.013);
      for (int x = 0; x < b.width; ++x) {
        state = state * 1664525u + 1013904223u;
        int grain = int(state >> 28) - 8;
        uint8_t* p = b.at(x, y);
        p[0] = uint8_t(140 + rowShade + grain);
        p[1] = uint8_t(120 + rowShade + (x & 63) / 4 + grain);
        p[2] = uint8_t(100 + grain);
        p[3] = 255;
      }
    }
    return b;
  }();
  return bitmap;
}

// size 0.01 of a 6000-pixel width: radius 30, spacing 15; 585 pixels of
// stroke give the first point plus 39 dabs.
std::vector<Healer::Stroke> fortyDabStroke() {
  return {{{{0.3, 0.45}, {0.3 + 585.0 / 6000.0, 0.45}}, 0.01}};
}

void healStroke(benchmark::State& state, vg::HealScoring scoring) {
  Healer::Bitmap bitmap = photo24mp();
  const std::vector<Healer::Stroke> strokes = fortyDabStroke();
  if (Healer::strokeDabs(strokes[0], bitmap.width, bitmap.height).size() != 40) {
    state.SkipWithError("the stroke does not give 40 dabs");
    return;
  }
  for (auto _ : state) {
    // Healing the same area again costs the same as the first time: the dabs,
    // samples and candidates do not depend on the pixel values.
    bool done = Healer::healInPlace(bitmap, strokes, 0, nullptr, {scoring});
    benchmark::DoNotOptimize(done);
    benchmark::DoNotOptimize(bitmap.pixels.data());
  }
  state.counters["dabs"] = 40;
}

void BM_Heal40Dabs24MP_Automatic(benchmark::State& state) { healStroke(state, vg::HealScoring::automatic); }
void BM_Heal40Dabs24MP_Serial(benchmark::State& state) { healStroke(state, vg::HealScoring::serial); }
void BM_Heal40Dabs24MP_Parallel(benchmark::State& state) { healStroke(state, vg::HealScoring::parallel); }

BENCHMARK(BM_Heal40Dabs24MP_Automatic)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Heal40Dabs24MP_Serial)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Heal40Dabs24MP_Parallel)->Unit(benchmark::kMillisecond)->UseRealTime();

const vg::Image& workingSource(int width, int height) {
  static std::map<std::pair<int, int>, vg::Image> sources;
  auto [it, inserted] = sources.try_emplace({width, height});
  if (inserted) {
    vg::Image img(width, height);
    uint32_t state = 777;
    for (int y = 0; y < height; ++y) {
      float* row = img.row(y);
      float shade = 0.2f + 0.05f * std::sin(y * 0.01f);
      for (int x = 0; x < width; ++x) {
        state = state * 1664525u + 1013904223u;
        float grain = float(state >> 24) * (0.04f / 255.0f);
        row[x * 4 + 0] = shade + grain;
        row[x * 4 + 1] = shade * 0.9f + grain;
        row[x * 4 + 2] = shade * 0.7f + grain;
        row[x * 4 + 3] = 1.0f;
      }
    }
    it->second = std::move(img);
  }
  return it->second;
}

// Eleven strokes of radius 30 pixels on a 6000-pixel-wide source (size 0.01),
// each about 120 pixels long (9 dabs), spread over the frame.
std::vector<vg::HealStroke> elevenStrokes() {
  std::vector<vg::HealStroke> out;
  for (int i = 0; i < 11; ++i) {
    double u = 0.1 + 0.075 * i, v = 0.25 + 0.05 * (i % 6);
    out.push_back({{{u, v}, {u + 0.015, v + 0.025}}, 0.01});
  }
  return out;
}

void healStageStep(benchmark::State& state, bool reusePrefix) {
  const int width = int(state.range(0)), height = int(state.range(1));
  const vg::Image& source = workingSource(width, height);
  const std::vector<vg::HealStroke> eleven = elevenStrokes();
  const std::span<const vg::HealStroke> ten(eleven.data(), 10);
  std::mutex lock;
  for (auto _ : state) {
    state.PauseTiming();
    auto cache = std::make_unique<vg::HealCache>(lock);
    if (reusePrefix) vg::runHealStage(*cache, {&source, 1, {}, false, ten, nullptr});
    state.ResumeTiming();
    auto healed = vg::runHealStage(*cache, {&source, 1, {}, false, eleven, nullptr});
    benchmark::DoNotOptimize(healed.get());
    state.PauseTiming();
    healed.reset();
    cache.reset();  // freeing the frames is not part of the step
    state.ResumeTiming();
  }
}

void BM_HealStage_AddOneToTen(benchmark::State& state) { healStageStep(state, true); }
void BM_HealStage_ElevenFromScratch(benchmark::State& state) { healStageStep(state, false); }

BENCHMARK(BM_HealStage_AddOneToTen)->Args({6000, 4000})->Args({2400, 1600})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_HealStage_ElevenFromScratch)
    ->Args({6000, 4000})
    ->Args({2400, 1600})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_HealRender_AddOneToTen(benchmark::State& state) {
  const int width = int(state.range(0)), height = int(state.range(1));
  const vg::Image& source = workingSource(width, height);
  vg::EditDocument ten;
  std::vector<vg::HealStroke> eleven = elevenStrokes();
  ten.heals.assign(eleven.begin(), eleven.begin() + 10);
  ten.adjustments.exposure = 0.3;
  vg::EditDocument all = ten;
  all.heals = eleven;
  vg::RenderOptions options;
  options.scale = double(width) / 6000.0;
  options.sourceId = 1;
  for (auto _ : state) {
    state.PauseTiming();
    auto engine = std::make_unique<vg::RenderEngine>();
    engine->render(source, ten, {}, options);
    state.ResumeTiming();
    vg::Image out = engine->render(source, all, {}, options);
    benchmark::DoNotOptimize(out.row(0));
    state.PauseTiming();
    out = vg::Image();
    engine.reset();
    state.ResumeTiming();
  }
}

BENCHMARK(BM_HealRender_AddOneToTen)->Args({2400, 1600})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
