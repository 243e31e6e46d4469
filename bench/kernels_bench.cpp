// Kernel throughput on a 24-megapixel float RGBA buffer (6000 x 4000,
// 384 MB), 1 and 2 threads, in megapixels per second ("MP/s" column), next to
// a plain copy of the same buffer (the memory-bound floor, BM_Copy).
// Each kernel runs in place over the whole buffer, split into row bands by
// parallelRows; kernels with a second image (blur, dark channel) read a second
// buffer of the same size. Whole-buffer passes are memory-bound: the render
// engine fuses point stages per tile so the image leaves cache only once.
//
// Aim: tone, vibrance, monochrome, curves, vignette, dither, detail, denoise
// and sharpenBlend at >= 1/2 of the copy's rate; hsl, splitTone, grain, dehaze,
// defringe and lutApply at >= 1/5.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <random>

#include "render/blur_simd.h"
#include "render/curve_lut.h"
#include "render/gaussian_blur.h"
#include "render/image.h"
#include "render/kernels.h"
#include "render/lut_loader.h"
#include "render/parallel.h"

namespace vg {
namespace {

constexpr int kW = 6000, kH = 4000;

struct Buffers {
  Image src{kW, kH}, aux{kW, kH}, dst{kW, kH};
  Buffers() {
    parallelRows(src.bounds(), 64, [&](int y0, int y1) {
      std::mt19937 rng{static_cast<uint32_t>(y0)};
      std::uniform_real_distribution<float> u(0, 1);
      for (int y = y0; y < y1; ++y) {
        float* s = src.row(y);
        float* a = aux.row(y);
        for (int i = 0; i < kW * 4; ++i) {
          s[i] = i % 4 == 3 ? 1.0f : u(rng);
          a[i] = i % 4 == 3 ? 1.0f : s[i] * 0.9f + 0.05f;
        }
      }
    });
  }
};

Buffers& buffers() {
  static Buffers b;
  return b;
}

void report(benchmark::State& state) {
  state.counters["MP/s"] = benchmark::Counter(double(kW) * kH / 1e6 * double(state.iterations()),
                                              benchmark::Counter::kIsRate);
}

void runKernel(benchmark::State& state, const std::function<void(const kernels::KernelRow&)>& fn, bool withAux) {
  Buffers& b = buffers();
  ScopedThreadLimit limit(int(state.range(0)));
  for (auto _ : state) {
    parallelRows(b.src.bounds(), 16, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) fn(kernels::KernelRow{b.src.row(y), withAux ? b.aux.row(y) : nullptr, kW, 0, y});
    });
    benchmark::ClobberMemory();
  }
  report(state);
}

void BM_Copy(benchmark::State& state) {
  Buffers& b = buffers();
  ScopedThreadLimit limit(int(state.range(0)));
  for (auto _ : state) {
    parallelRows(b.src.bounds(), 16, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) std::memcpy(b.dst.row(y), b.src.row(y), size_t(kW) * 16);
    });
    benchmark::ClobberMemory();
  }
  report(state);
}
BENCHMARK(BM_Copy)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

#define VG_KERNEL_BENCH(name, aux, ...)                                                   \
  void BM_##name(benchmark::State& state) {                                               \
    static const auto params = __VA_ARGS__;                                               \
    runKernel(state, [](const kernels::KernelRow& r) { kernels::name(params, r); }, aux); \
  }                                                                                       \
  BENCHMARK(BM_##name)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond)

VG_KERNEL_BENCH(tone, false, kernels::ToneParams{0.3f, 0.4f, 0.1f, -0.1f, 0.5f});
VG_KERNEL_BENCH(vibrance, false, kernels::VibranceParams{0.5f});
VG_KERNEL_BENCH(monochrome, false, kernels::prepare(kernels::MonochromeParams{40, 35, 25}));
VG_KERNEL_BENCH(vignette, false, kernels::prepareVignette({0.8f, 0.5f, 0.5f, 0, 0, float(kW), float(kH)}));
VG_KERNEL_BENCH(dither, false, kernels::DitherParams{});
VG_KERNEL_BENCH(detail, true, kernels::DetailParams{0.6f});
VG_KERNEL_BENCH(denoise, true, kernels::DenoiseParams{0.5f});
VG_KERNEL_BENCH(sharpenBlend, true, kernels::SharpenBlendParams{1.2f, 0.1f, 0.16f});
VG_KERNEL_BENCH(splitTone, false, kernels::prepare(kernels::SplitToneParams{0.1f, 0.5f, 0.6f, 0.4f, 0.2f}));
VG_KERNEL_BENCH(grain, false, kernels::prepare(kernels::GrainParams{0.5f, 0.5f, float(kH), 0, 0}));
VG_KERNEL_BENCH(dehaze, true, kernels::DehazeParams{0.5f});
VG_KERNEL_BENCH(defringe, true, kernels::DefringeParams{0.8f});
VG_KERNEL_BENCH(chromaDenoise, true, kernels::ChromaDenoiseParams{0.6f});
VG_KERNEL_BENCH(redEye, false, kernels::RedEyeParams{3000, 2000, 2500, 0.45f});
VG_KERNEL_BENCH(luminanceRangeMask, false, kernels::LuminanceRangeMaskParams{0.2f, 0.8f, 0.1f});
VG_KERNEL_BENCH(colorRangeMask, false, kernels::ColorRangeMaskParams{0.8f, 0.3f, 0.2f, 0.2f, 0.1f});

kernels::HslParams hslParams() {
  kernels::HslParams p;
  for (int i = 0; i < 8; ++i) p.bands[size_t(i)] = {float(i * 10 - 40), float(30 - i * 5), float(i * 3 - 10)};
  return p;
}
VG_KERNEL_BENCH(hsl, false, hslParams());

void BM_curves(benchmark::State& state) {
  CurveSet set;
  set.rgb = ToneCurve{{{0, 0}, {0.25, 0.2}, {0.75, 0.85}, {1, 1}}};
  set.red = ToneCurve{{{0, 0.05}, {1, 0.95}}};
  static const Image lut = buildCurveLookupImage(set);
  static const auto params = kernels::prepare(curvesKernelParams(lut));
  runKernel(state, [](const kernels::KernelRow& r) { kernels::curves(params, r); }, false);
}
BENCHMARK(BM_curves)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// The worst case: four bent curves, six look-ups per pixel (BM_curves has a
// straight red curve and identity green and blue, which the kernel evaluates
// without looking up: three look-ups per pixel).
void BM_curvesFourBent(benchmark::State& state) {
  CurveSet set;
  set.rgb = ToneCurve{{{0, 0}, {0.25, 0.2}, {0.75, 0.85}, {1, 1}}};
  set.red = ToneCurve{{{0, 0.05}, {0.5, 0.55}, {1, 0.95}}};
  set.green = ToneCurve{{{0, 0}, {0.4, 0.45}, {1, 1}}};
  set.blue = ToneCurve{{{0, 0.1}, {0.6, 0.5}, {1, 0.9}}};
  static const Image lut = buildCurveLookupImage(set);
  static const auto params = kernels::prepare(curvesKernelParams(lut));
  runKernel(state, [](const kernels::KernelRow& r) { kernels::curves(params, r); }, false);
}
BENCHMARK(BM_curvesFourBent)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_lutApply(benchmark::State& state) {
  static const ParsedLUT lut = [] {
    std::string text = "LUT_3D_SIZE 33\n";
    for (int b = 0; b < 33; ++b)
      for (int g = 0; g < 33; ++g)
        for (int r = 0; r < 33; ++r)
          text += std::to_string(r / 32.0 * 0.9 + 0.05) + " " + std::to_string(g / 32.0) + " " +
                  std::to_string(b / 32.0 * 0.8) + "\n";
    return std::get<ParsedLUT>(LUTLoader::parse(text));
  }();
  static const PreparedLUT p = prepareLUT(lut);
  runKernel(state, [](const kernels::KernelRow& r) { lutApply(p, r); }, false);
}
BENCHMARK(BM_lutApply)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// Gaussian blur of the whole buffer at the chain's typical sigmas (direct
// convolution at 1.6, recursive filter at 6).
void BM_gaussianBlur(benchmark::State& state) {
  Buffers& b = buffers();
  ScopedThreadLimit limit(int(state.range(1)));
  const float sigma = float(state.range(0)) / 10.0f;
  { Image warm = gaussianBlur(b.src, sigma); }  // the result's buffer is recycled from then on
  for (auto _ : state) benchmark::DoNotOptimize(gaussianBlur(b.src, sigma));
  report(state);
}
BENCHMARK(BM_gaussianBlur)->Args({16, 2})->Args({60, 2})->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The heavy recipe's four detail blurs (denoise, colour denoise, defringe,
// texture at sigma 1.6, 2.4, 1.2 and 2.2) run as one chain over a 2400 x 1600
// preview, in place, with kernels that leave the row as it is: the blurs'
// own cost inside a render.
void BM_blurChain(benchmark::State& state) {
  ScopedThreadLimit limit(2);
  Buffers& b = buffers();
  const Rect r{0, 0, 2400, 1600};
  Image image = Image::uninitialized(r);
  for (int y = 0; y < r.height; ++y) std::memcpy(image.row(y), b.src.row(y), size_t(r.width) * 16);
  std::vector<BlurPass> passes;
  for (float sigma : {1.6f, 2.4f, 1.2f, 2.2f})
    passes.push_back({sigma, [](float* row, const float* blurred, int) { benchmark::DoNotOptimize(row[0] + blurred[0]); }});
  for (auto _ : state) gaussianBlurChain(image, image, passes);
  state.counters["MP/s"] = benchmark::Counter(double(r.area()) / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_blurChain)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(1.0);

// The blur's two sums over 2400-pixel RGBA rows: one row into one (it stays in
// the first-level cache), and the vertical sums of as many rows as share
// their taps. Argument: the tap count.
void BM_convolveLine(benchmark::State& state) {
  const int taps = int(state.range(0));
  const size_t n = 2400 * 4;
  std::vector<float> x(n + size_t(taps) * 4 + 64, 0.5f), w(size_t(taps), 1.0f / float(taps)), out(n + 64);
  for (auto _ : state) {
    blur::convolveLine(x.data(), w.data(), taps, 4, out.data(), n);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_convolveLine)->Arg(9)->Arg(11)->Arg(13)->Arg(15)->Arg(17)->Unit(benchmark::kNanosecond);

void BM_symmetricSumRows(benchmark::State& state) {
  const int taps = int(state.range(0));
  const size_t n = 2400 * 4;
  constexpr int J = blur::kMaxSumRows;
  std::vector<std::vector<float>> rows(size_t(taps + J - 1), std::vector<float>(n + 64, 0.5f));
  std::vector<const float*> p;
  for (const auto& r : rows) p.push_back(r.data());
  std::vector<float> w(size_t(taps), 1.0f / float(taps));
  std::vector<std::vector<float>> out(J, std::vector<float>(n + 64));
  float* o[J];
  for (int j = 0; j < J; ++j) o[j] = out[size_t(j)].data();
  for (auto _ : state) {
    blur::symmetricSumRows(p.data(), w.data(), taps, o, J, n);
    benchmark::DoNotOptimize(o[0]);
  }
}
BENCHMARK(BM_symmetricSumRows)->Arg(11)->Arg(17)->Unit(benchmark::kNanosecond);

// The scalar references of the two slowest kernels, for scale.
void BM_curvesRef(benchmark::State& state) {
  CurveSet set;
  set.rgb = ToneCurve{{{0, 0}, {0.25, 0.2}, {0.75, 0.85}, {1, 1}}};
  static const Image lut = buildCurveLookupImage(set);
  static const auto params = kernels::prepare(curvesKernelParams(lut));
  runKernel(state, [](const kernels::KernelRow& r) { kernels::reference::curves(params, r); }, false);
}
BENCHMARK(BM_curvesRef)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
void BM_toneRef(benchmark::State& state) {
  static const kernels::ToneParams params{0.3f, 0.4f, 0.1f, -0.1f, 0.5f};
  runKernel(state, [](const kernels::KernelRow& r) { kernels::reference::tone(params, r); }, false);
}
BENCHMARK(BM_toneRef)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vg
