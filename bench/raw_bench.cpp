// RAW development benchmarks.
// - DevelopRawS40/<version>: the whole development of the 4 MP Canon
//   PowerShot S40 CRW of the shared test set (LibRaw's unpacking and AHD
//   demosaicing, then our conversion), with the linear first generation
//   ("ahd-1") and the toned second ("ahd-2"): the difference is the cost of
//   the baseline exposure and the base tone curve. Skipped without the file.
// - RawToneTable / RawToneFormula: one channel value through RawTone, by its
//   table and by the formula (two pow() calls), single-threaded: why the
//   development reads the table.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "io/raw_developer.h"
#include "io/raw_tone.h"
#include "shared_files.h"

namespace {

void DevelopRawS40(benchmark::State& state, const char* version) {
  const auto path = vg::bench::sharedTestFile("raw/canon-powershot-s40-CRW_0101.crw");
  if (path.empty()) return state.SkipWithError("../shared/testdata/raw/canon-powershot-s40-CRW_0101.crw is not here");
  std::ifstream in(path, std::ios::binary);
  const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  vg::RAWDevelopSettings settings;
  settings.decoderVersion = version;
  for (auto _ : state) benchmark::DoNotOptimize(vg::developRaw(bytes, settings, "s40.crw").image.width());
}
BENCHMARK_CAPTURE(DevelopRawS40, ahd-1, "ahd-1")->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK_CAPTURE(DevelopRawS40, ahd-2, "ahd-2")->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

std::vector<float> linearValues() {
  std::vector<float> v(1 << 20);
  for (size_t i = 0; i < v.size(); ++i) v[i] = float(i % 65536) / 65535.0f;
  return v;
}

void RawToneTable(benchmark::State& state) {
  const vg::RawTone tone(1.4, 1.3);
  const auto values = linearValues();
  for (auto _ : state)
    for (float x : values) benchmark::DoNotOptimize(tone(x));
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(values.size()));
}
BENCHMARK(RawToneTable)->Unit(benchmark::kMillisecond);

void RawToneFormula(benchmark::State& state) {
  const vg::RawTone tone(1.4, 1.3);
  const auto values = linearValues();
  for (auto _ : state)
    for (float x : values) benchmark::DoNotOptimize(tone.exact(x));
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(values.size()));
}
BENCHMARK(RawToneFormula)->Unit(benchmark::kMillisecond);

}  // namespace
