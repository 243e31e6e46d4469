// Export benchmarks.
// - ExportJpeg24MP: a 6000 x 4000 image already rendered in memory, written
//   as JPEG quality 0.9 (sRGB conversion, dither, encoding, metadata-free
//   file, fsync and rename): the exporter's own share of an export.
// - ExportTiff16_24MP / ExportHeic24MP: the same image as 16-bit LZW TIFF and
//   as HEIC, for reference.
// - ExportJpeg100MP: a 12,240 x 8,160 image produced band by band on demand
//   (a synthetic band source, no whole-image buffer), with a long edge of
//   6000 and screen sharpening; reports the process's peak memory.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdlib>
#include <vector>
#include <filesystem>

#include "io/image_exporter.h"
#include "shared_files.h"
#include "render/color_profiles.h"

namespace {

using vg::Image;
using vg::ImageExporter;
using vg::bench::sharedTestFile;

void paint(Image& img, int width, int height) {
  const vg::Rect& b = img.bounds();
  for (int y = b.y; y < b.bottom(); ++y) {
    float* p = img.row(y);
    float shade = 0.5f + 0.3f * std::sin(y * 0.0021f);
    for (int x = b.x; x < b.right(); ++x, p += 4) {
      p[0] = shade * float(x) / float(width);
      p[1] = 0.35f + 0.2f * std::sin((x + y) * 0.01f);
      p[2] = float(y) / float(height) * 0.8f;
      p[3] = 1.0f;
    }
  }
}

const Image& image24mp() {
  static const Image img = [] {
    Image i(6000, 4000);
    paint(i, 6000, 4000);
    return i;
  }();
  return img;
}

double peakRssMiB() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

std::filesystem::path benchOut(const char* name) {
  return std::filesystem::temp_directory_path() / name;
}

void runExport(benchmark::State& state, ImageExporter::Options o, const char* name) {
  const Image& img = image24mp();
  auto path = benchOut(name);
  for (auto _ : state) ImageExporter::exportImage(img, path, o);
  state.counters["MiB"] = double(std::filesystem::file_size(path)) / (1 << 20);
  state.counters["peakRSS_MiB"] = peakRssMiB();
  std::filesystem::remove(path);
}

void ExportJpeg24MP(benchmark::State& state) {
  ImageExporter::Options o;
  o.includeMetadata = false;
  runExport(state, o, "vg-bench-export.jpg");
}
BENCHMARK(ExportJpeg24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// The same with the metadata of a 24 MP camera JPEG copied by the policy
// (read with Exiv2, then written into the encoded file).
void ExportJpeg24MPWithMetadata(benchmark::State& state) {
  const std::filesystem::path source = sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (source.empty()) {
    state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
    return;
  }
  ImageExporter::Options o;
  o.metadataSourceURL = source;
  runExport(state, o, "vg-bench-export-meta.jpg");
}
BENCHMARK(ExportJpeg24MPWithMetadata)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void ExportTiff16_24MP(benchmark::State& state) {
  ImageExporter::Options o;
  o.format = vg::ExportFormat::tiff;
  o.tiffCompression = vg::TIFFCompression::lzw;
  runExport(state, o, "vg-bench-export.tif");
}
BENCHMARK(ExportTiff16_24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void ExportHeic24MP(benchmark::State& state) {
  ImageExporter::Options o;
  o.format = vg::ExportFormat::heic;
  runExport(state, o, "vg-bench-export.heic");
}
BENCHMARK(ExportHeic24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

class SyntheticBands final : public vg::BandSource {
 public:
  SyntheticBands(int w, int h) : w_(w), h_(h) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  bool opaque() const override { return true; }
  Image renderBand(const vg::Rect& rect) override {
    Image band(rect);
    paint(band, w_, h_);
    return band;
  }

 private:
  int w_, h_;
};

void ExportJpeg100MP(benchmark::State& state) {
  SyntheticBands source(12240, 8160);
  ImageExporter::Options o;
  o.includeMetadata = false;
  o.longEdge = 6000;
  o.outputSharpening = vg::OutputSharpening::screen;
  auto path = benchOut("vg-bench-export-100mp.jpg");
  for (auto _ : state) ImageExporter::exportImage(source, path, o);
  state.counters["peakRSS_MiB"] = peakRssMiB();
  std::filesystem::remove(path);
}
BENCHMARK(ExportJpeg100MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace

namespace {

// The output conversion alone: one 6000-pixel row of working-space pixels to
// dithered 8-bit sRGB and to 16-bit Display P3, per row (4000 rows = 24 MP).
void ConvertRow(benchmark::State& state) {
  const Image& img = image24mp();
  const auto& srgb = vg::OutputEncoding::get(vg::OutputColorSpace::sRGB);
  const auto& p3 = vg::OutputEncoding::get(vg::OutputColorSpace::displayP3);
  std::vector<uint8_t> out8(6000 * 3);
  std::vector<uint16_t> out16(6000 * 3);
  int y = 0;
  for (auto _ : state) {
    if (state.range(0) == 8)
      vg::encodeRow8(srgb, img.row(y), 6000, vg::OutputChannels::rgb, 0, y, true, out8.data());
    else
      vg::encodeRow16(p3, img.row(y), 6000, vg::OutputChannels::rgb, 65535, out16.data());
    benchmark::DoNotOptimize(out8.data());
    benchmark::DoNotOptimize(out16.data());
    y = (y + 1) % 4000;
  }
  state.SetItemsProcessed(state.iterations() * 6000);
}
BENCHMARK(ConvertRow)->Arg(8)->Arg(16);

}  // namespace

// The whole export as the command line runs it: decode a 24 MP camera JPEG,
// render a typical recipe (exposure +0.5, contrast 20, saturation 15,
// vignette, sharpening) band by band, write JPEG quality 0.9 with the
// source's metadata. Run it alone (--benchmark_filter=ExportWholeProcess24MP)
// for a meaningful peak-memory figure.
#include <malloc.h>

#include "io/document_band_source.h"
#include "io/image_loader.h"

namespace {

vg::EditDocument typicalRecipe() {
  vg::EditDocument doc;
  doc.adjustments.exposure = 0.5;
  doc.adjustments.contrast = 20;
  doc.adjustments.saturation = 15;
  doc.adjustments.vignetteAmount = -25;
  doc.adjustments.sharpen = 40;
  return doc;
}

void exportWhole(const std::filesystem::path& input, const std::filesystem::path& output,
                 const std::optional<int64_t>& longEdge = std::nullopt) {
  vg::EditDocument recipe = typicalRecipe();
  auto loaded = vg::ImageLoader::load(input, recipe.raw);
  vg::RenderEngine engine;
  vg::DocumentBandSource picture(engine, *loaded.image, loaded.opaque, recipe);
  ImageExporter::Options o;
  o.metadataSourceURL = input;
  o.longEdge = longEdge;
  ImageExporter::exportImage(picture, output, o);
}

void ExportWholeProcess24MP(benchmark::State& state) {
  // As verdantglass-cli export sets the allocator (export_commands.cpp).
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  const std::filesystem::path input = sharedTestFile("jpeg/sony-alpha-6000.jpg");
  if (input.empty()) {
    state.SkipWithError("../shared/testdata/jpeg/sony-alpha-6000.jpg is not here");
    return;
  }
  auto out = benchOut("vg-bench-whole.jpg");
  for (auto _ : state) exportWhole(input, out);
  state.counters["peakRSS_MiB"] = peakRssMiB();
  std::filesystem::remove(out);
}
BENCHMARK(ExportWholeProcess24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

// 100 megapixels in (a 12,240 x 8,160 JPEG made once from a synthetic
// picture), the same recipe, full-size JPEG out.
void ExportWholeProcess100MP(benchmark::State& state) {
  auto input = benchOut("vg-bench-100mp-source.jpg");
  if (!std::filesystem::exists(input)) {
    SyntheticBands source(12240, 8160);
    ImageExporter::Options o;
    o.includeMetadata = false;
    ImageExporter::exportImage(source, input, o);
  }
  auto out = benchOut("vg-bench-100mp.jpg");
  for (auto _ : state) exportWhole(input, out);
  state.counters["peakRSS_MiB"] = peakRssMiB();
  std::filesystem::remove(out);
  std::filesystem::remove(input);
}
BENCHMARK(ExportWholeProcess100MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace
