// LZFSE benchmarks on 2048x1536 masks (one byte per pixel): a realistic
// soft-edged mask (ellipse, rectangle, disc, ramp band), a random 0/255
// speckle (the worst case for triples per byte) and incompressible noise.
// Throughput is in bytes of raster per second, on one core.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "codec/lzfse.h"

namespace {

constexpr int kWidth = 2048;
constexpr int kHeight = 1536;

uint8_t q8(double t) { return uint8_t(std::floor(255.0 * std::clamp(t, 0.0, 1.0) + 0.5)); }

const std::vector<uint8_t>& shapesMask() {
  static const std::vector<uint8_t> mask = [] {
    std::vector<uint8_t> b(size_t(kWidth) * kHeight, 0);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const double ex = (x - 640.0) / 420.0;
        const double ey = (y - 560.0) / 300.0;
        uint8_t v = q8(0.5 + (1.0 - std::sqrt(ex * ex + ey * ey)) * 150.0);
        if (x >= 1200 && x <= 1849 && y >= 200 && y <= 699) v = 255;
        v = std::max(v, q8((260.0 - std::hypot(x - 1500.0, y - 1100.0)) / 24.0));
        if (y >= 1400) v = std::max(v, uint8_t((y - 1400) * 255 / 135));
        b[size_t(y) * kWidth + size_t(x)] = v;
      }
    }
    return b;
  }();
  return mask;
}

std::vector<uint8_t> randomBytes(bool speckle) {
  std::vector<uint8_t> b(size_t(kWidth) * kHeight);
  uint32_t x = speckle ? 0x5EED5EEDu : 0x12345678u;
  for (auto& v : b) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    v = speckle ? ((x >> 24) >= 128 ? 255 : 0) : uint8_t(x >> 24);
  }
  return b;
}

const std::vector<uint8_t>& speckleMask() {
  static const std::vector<uint8_t> mask = randomBytes(true);
  return mask;
}

const std::vector<uint8_t>& noise() {
  static const std::vector<uint8_t> bytes = randomBytes(false);
  return bytes;
}

void decode(benchmark::State& state, const std::vector<uint8_t>& raster) {
  const std::vector<uint8_t> stream = vg::encodeLzfse(raster);
  std::vector<uint8_t> out(raster.size());
  for (auto _ : state) {
    auto err = vg::decodeLzfseInto(stream, out);
    if (err) state.SkipWithError(vg::describe(*err));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(raster.size()));
  state.counters["ratio"] = double(raster.size()) / double(stream.size());
}

void encode(benchmark::State& state, const std::vector<uint8_t>& raster) {
  size_t size = 0;
  for (auto _ : state) {
    std::vector<uint8_t> stream = vg::encodeLzfse(raster);
    size = stream.size();
    benchmark::DoNotOptimize(stream.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(raster.size()));
  state.counters["ratio"] = double(raster.size()) / double(size);
}

void BM_LzfseDecodeMask(benchmark::State& state) { decode(state, shapesMask()); }
void BM_LzfseEncodeMask(benchmark::State& state) { encode(state, shapesMask()); }
void BM_LzfseDecodeSpeckle(benchmark::State& state) { decode(state, speckleMask()); }
void BM_LzfseEncodeSpeckle(benchmark::State& state) { encode(state, speckleMask()); }
void BM_LzfseDecodeNoise(benchmark::State& state) { decode(state, noise()); }
void BM_LzfseEncodeNoise(benchmark::State& state) { encode(state, noise()); }

BENCHMARK(BM_LzfseDecodeMask)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzfseEncodeMask)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzfseDecodeSpeckle)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzfseEncodeSpeckle)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzfseDecodeNoise)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzfseEncodeNoise)->Unit(benchmark::kMillisecond);

}  // namespace
