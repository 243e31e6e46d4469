// Image loader benchmarks.
// - DecodeJpeg24MP: the 6000 x 4000 camera JPEG of the shared test set
//   decoded to the float working image (decode, sRGB table, upright writer).
//   The 384 MB float output comes back from Image's buffer pool after the
//   first round, as it does when a batch loads photo after photo.
// - DecodeJpeg24MPFreshMemory: the same with the pool emptied before each
//   round (outside the timing), as for the first photo a process opens: the
//   kernel then clears every page of the output as it is first written.
// - Djpeg24MP: the same file through libjpeg-turbo's own `djpeg` to
//   /dev/null (process start included): the yardstick for the line above.
// - LoadJpeg24MP: the whole ImageLoader::load (file read, Exif, decode).
// - DownscalePreview24MP: the 24 MP image shrunk to the 2400-pixel preview.
// - PreviewJpeg24MP: the camera JPEG opened for its first 2400-pixel
//   preview through loadPreview (a 3/8... 4/8 DCT-scaled decode, then the
//   shared shrink); PreviewByFullLoad24MP: the same picture through load()
//   and downscaled(), the way it was made before.
// The camera file is read from the shared test set when it is present
// (../shared/testdata beside the repository, or $VG_SHARED_TESTDATA);
// otherwise the file benchmarks are skipped.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "io/image_loader.h"
#include "io/jpeg_decoder.h"

namespace {

std::filesystem::path cameraJpeg() {
  const char* rel = "jpeg/sony-alpha-6000.jpg";
  std::vector<std::filesystem::path> roots;
  if (const char* env = std::getenv("VG_SHARED_TESTDATA")) roots.emplace_back(env);
  std::filesystem::path source(VG_SOURCE_DIR);
  roots.push_back(source / ".." / "shared" / "testdata");
  roots.push_back(source / ".." / ".." / "shared" / "testdata");
  for (const auto& r : roots) {
    if (std::filesystem::exists(r / rel)) return r / rel;
  }
  return {};
}

std::vector<uint8_t> readAll(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The 24 MP camera JPEG, or empty (the benchmark skipped) without it.
std::filesystem::path cameraJpegOrSkip(benchmark::State& state) {
  auto path = cameraJpeg();
  if (path.empty()) state.SkipWithError("shared test set not found");
  return path;
}

// Its bytes, or false (the benchmark skipped) without it.
bool cameraJpegBytes(benchmark::State& state, std::vector<uint8_t>& bytes) {
  auto path = cameraJpegOrSkip(state);
  if (path.empty()) return false;
  bytes = readAll(path);
  return true;
}

void DecodeJpeg24MP(benchmark::State& state) {
  std::vector<uint8_t> bytes;
  if (!cameraJpegBytes(state, bytes)) return;
  for (auto _ : state) {
    vg::DecodedImage d = vg::decodeJpeg(bytes, {});
    benchmark::DoNotOptimize(d.image.row(0));
  }
  state.counters["MP"] = 24;
}
BENCHMARK(DecodeJpeg24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void DecodeJpeg24MPFreshMemory(benchmark::State& state) {
  std::vector<uint8_t> bytes;
  if (!cameraJpegBytes(state, bytes)) return;
  for (auto _ : state) {
    state.PauseTiming();
    vg::Image::releasePool();
    state.ResumeTiming();
    vg::DecodedImage d = vg::decodeJpeg(bytes, {});
    benchmark::DoNotOptimize(d.image.row(0));
    state.PauseTiming();
    d = {};  // the output goes back to the pool, emptied before the next round
    state.ResumeTiming();
  }
  state.counters["MP"] = 24;
}
BENCHMARK(DecodeJpeg24MPFreshMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void Djpeg24MP(benchmark::State& state) {
  auto path = cameraJpeg();
  if (path.empty() || std::system("command -v djpeg >/dev/null 2>&1") != 0) {
    state.SkipWithError("shared test set or djpeg not found");
    return;
  }
  std::string command = "djpeg -outfile /dev/null '" + path.string() + "'";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("djpeg failed");
  }
}
BENCHMARK(Djpeg24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void LoadJpeg24MP(benchmark::State& state) {
  auto path = cameraJpegOrSkip(state);
  if (path.empty()) return;
  for (auto _ : state) {
    auto loaded = vg::ImageLoader::load(path);
    benchmark::DoNotOptimize(loaded.image.get());
  }
}
BENCHMARK(LoadJpeg24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void DownscalePreview24MP(benchmark::State& state) {
  vg::Image big(6000, 4000);
  for (int y = 0; y < big.height(); ++y) {
    float* p = big.row(y);
    for (int x = 0; x < big.width(); ++x, p += 4) {
      p[0] = float(x % 97) / 97.0f, p[1] = float(y % 89) / 89.0f, p[2] = 0.5f, p[3] = 1.0f;
    }
  }
  auto shared = std::make_shared<const vg::Image>(std::move(big));
  for (auto _ : state) {
    auto preview = vg::ImageLoader::downscaled(shared, vg::ImageLoader::kPreviewMaxDimension);
    benchmark::DoNotOptimize(preview.get());
  }
}
BENCHMARK(DownscalePreview24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void PreviewJpeg24MP(benchmark::State& state) {
  auto path = cameraJpegOrSkip(state);
  if (path.empty()) return;
  for (auto _ : state) {
    auto loaded = vg::ImageLoader::loadPreview(path, vg::ImageLoader::kPreviewMaxDimension);
    benchmark::DoNotOptimize(loaded.image.get());
  }
}
BENCHMARK(PreviewJpeg24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void PreviewByFullLoad24MP(benchmark::State& state) {
  auto path = cameraJpegOrSkip(state);
  if (path.empty()) return;
  for (auto _ : state) {
    auto loaded = vg::ImageLoader::load(path);
    auto preview = vg::ImageLoader::downscaled(loaded.image, vg::ImageLoader::kPreviewMaxDimension);
    benchmark::DoNotOptimize(preview.get());
  }
}
BENCHMARK(PreviewByFullLoad24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

}  // namespace
