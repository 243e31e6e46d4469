// Render engine benchmarks, 2 threads (the development machine's cores).
// - RenderPreviewPointSliders: a 2400 x 1600 preview with only point sliders
//   (exposure, contrast, tone, white balance, saturation, vibrance). Budget 8 ms.
// - RenderPreviewHeavy: the same preview with every global slider, curves,
//   HSL, split toning, clarity, texture, dehaze, sharpen with masking,
//   vignette, grain and two masks (radial and linear, rasterised once, as the
//   mask cache serves them). Budget 60 ms.
// - RenderPreviewHeavyOf24MP: the same heavy preview as the editor makes it
//   for a 6000 x 4000 photograph: the 2400 x 1600 preview rendered at scale
//   0.4, so every radius shrinks with it. Budget 60 ms.
// - RenderHeavy24MP: the heavy recipe at 6000 x 4000, scale 1. Budget 1 s,
//   peak memory under 1.5 GB (reported as peakRSS_MB, the process maximum).
// - RasterizeMasksPreview: the two masks of the heavy recipe at preview size.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>

#include "bench_recipes.h"
#include "render/mask_rasterizer.h"
#include "render/parallel.h"
#include "render/render_engine.h"

namespace {

using namespace vg;
using bench::heavyRecipe;
using bench::pointRecipe;

Image photo(int w, int h) {
  Image img(w, h);
  parallelRows(img.bounds(), 16, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      float* p = img.row(y);
      for (int x = 0; x < w; ++x, p += 4) {
        float u = float(x) / float(w), v = float(y) / float(h);
        float tex = 0.05f * std::sin(float(x) * 0.37f) * std::cos(float(y) * 0.23f);
        p[0] = std::clamp(0.15f + 0.6f * u * v + tex, 0.0f, 1.0f);
        p[1] = std::clamp(0.3f + 0.4f * std::sin(u * 5.0f) * 0.5f + tex, 0.0f, 1.0f);
        p[2] = std::clamp(0.6f - 0.5f * v + tex, 0.0f, 1.0f);
        p[3] = 1.0f;
      }
    }
  });
  return img;
}

MaskImages rasterise(const EditDocument& doc, const Image& src) {
  Geometry g(src.bounds(), geometryParams(doc));
  MaskImages masks;
  for (const MaskLayer& m : doc.masks) {
    auto mask = rasterizeLayer(m.renderData(), MaskFrame{&g, g.outputRect(), nullptr});
    masks[m.id] = std::make_shared<const GreyImage>(std::move(*mask));
  }
  return masks;
}

double peakRssMb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

void runRender(benchmark::State& state, int w, int h, const EditDocument& doc, double scale = 1.0) {
  ScopedThreadLimit threads(2);
  Image src = photo(w, h);
  MaskImages masks = rasterise(doc, src);
  RenderEngine engine;
  RenderOptions options;
  options.scale = scale;
  // One render first: the editor renders the same frame again and again, so
  // the figure is the steady state (caches filled, working buffers recycled).
  { Image warm = engine.render(src, doc, masks, options); }
  for (auto _ : state) {
    Image out = engine.render(src, doc, masks, options);
    benchmark::DoNotOptimize(out.row(0));
  }
  state.counters["MP"] = double(w) * h / 1e6;
  state.counters["peakRSS_MB"] = peakRssMb();
}

void RenderPreviewPointSliders(benchmark::State& state) { runRender(state, 2400, 1600, pointRecipe()); }
void RenderPreviewHeavy(benchmark::State& state) { runRender(state, 2400, 1600, heavyRecipe()); }
void RenderPreviewHeavyOf24MP(benchmark::State& state) { runRender(state, 2400, 1600, heavyRecipe(), 0.4); }
void RenderHeavy24MP(benchmark::State& state) { runRender(state, 6000, 4000, heavyRecipe()); }

void RasterizeMasksPreview(benchmark::State& state) {
  ScopedThreadLimit threads(2);
  Image src(2400, 1600);
  EditDocument doc = heavyRecipe();
  for (auto _ : state) benchmark::DoNotOptimize(rasterise(doc, src).size());
}

}  // namespace

BENCHMARK(RenderPreviewPointSliders)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(RenderPreviewHeavy)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(RenderPreviewHeavyOf24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(RasterizeMasksPreview)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RenderHeavy24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
