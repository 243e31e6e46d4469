// Healer benchmarks: one 40-dab stroke of radius 30 pixels on a 24-megapixel
// bitmap, with the candidate scoring forced serial, forced parallel, and chosen
// automatically (parallel at this size).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

#include "render/healer.h"

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

}  // namespace
