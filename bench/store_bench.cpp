// Edit store and history benchmarks.
// - SidecarNames: the three names of an image (standardising, resolving links,
//   three SHA-256 digests), paid on every load and save.
// - EditStoreSave/points: one save of a document with a brush mask of that
//   many points, waited for: encoding, the atomic write (fsync of file and
//   folder) and the queue hand-off. This is what one autosave costs.
// - EditStoreLoad/points: reading, decoding and touching the same sidecar.
// - HistoryPush: one step recorded on a full 120-entry history of documents
//   with a 2,000-point brush mask (the trim runs on every push).
// - LibraryBackup/edits: the whole library (that many saved edits with a
//   200-point brush mask each, a user preset) written to one ZIP archive.
// - LibraryRestore/edits: that archive restored into a fresh support folder
//   (staged, checked, renamed into place) and, RestoreOverItself, into the
//   folder it came from, where every file compares equal.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "store/edit_store.h"
#include "store/history_engine.h"
#include "store/library_backup.h"
#include "store/library_restore.h"
#include "store/preset_library.h"

namespace {

namespace fs = std::filesystem;

vg::EditDocument brushDocument(int points, int variant) {
  vg::EditDocument doc;
  doc.adjustments.exposure = 0.01 * (variant % 100);
  vg::MaskLayer mask;
  vg::BrushStroke stroke;
  stroke.size = 0.05;
  for (int i = 0; i < points; ++i) stroke.points.push_back({0.3 + 1e-4 * i, 0.4 + 1e-4 * (i % 97)});
  mask.kind = std::vector<vg::BrushStroke>{stroke};
  doc.masks.push_back(mask);
  return doc;
}

struct ScratchFolder {
  fs::path path = fs::temp_directory_path() / ("vg-store-bench-" + std::to_string(::getpid()));
  ScratchFolder() { fs::create_directories(path); }
  ~ScratchFolder() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
};

void SidecarNames(benchmark::State& state) {
  ScratchFolder dir;
  const fs::path image = dir.path / "album" / ".." / "IMG_0001.jpg";
  for (auto _ : state) benchmark::DoNotOptimize(vg::sidecarNames(image));
}
BENCHMARK(SidecarNames)->Unit(benchmark::kMicrosecond);

void EditStoreSave(benchmark::State& state) {
  ScratchFolder dir;
  vg::EditStore store(dir.path / "Edits");
  const fs::path image = dir.path / "IMG_0001.jpg";
  const vg::EditDocument doc = brushDocument(int(state.range(0)), 1);
  for (auto _ : state) benchmark::DoNotOptimize(store.save(doc, image).get());
  state.counters["bytes"] = double(fs::file_size(store.sidecarPath(image)));
}
BENCHMARK(EditStoreSave)->Arg(0)->Arg(2000)->Arg(50000)->Unit(benchmark::kMillisecond);

void EditStoreLoad(benchmark::State& state) {
  ScratchFolder dir;
  vg::EditStore store(dir.path / "Edits");
  const fs::path image = dir.path / "IMG_0001.jpg";
  store.save(brushDocument(int(state.range(0)), 1), image).get();
  for (auto _ : state) benchmark::DoNotOptimize(store.load(image));
}
BENCHMARK(EditStoreLoad)->Arg(0)->Arg(2000)->Arg(50000)->Unit(benchmark::kMillisecond);

void HistoryPush(benchmark::State& state) {
  vg::HistoryEngine history;
  history.reset(brushDocument(2000, 0), "open");
  int variant = 1;
  for (int i = 0; i < 130; ++i) history.push(brushDocument(2000, variant++), "step");
  const vg::EditDocument a = brushDocument(2000, 1000), b = brushDocument(2000, 1001);
  bool flip = false;
  for (auto _ : state) {
    history.push((flip = !flip) ? a : b, "step");
  }
  state.counters["entries"] = double(history.entries().size());
  state.counters["MiB"] = double(history.totalBytes()) / (1 << 20);
}
BENCHMARK(HistoryPush)->Unit(benchmark::kMicrosecond);

// A support folder with `edits` saved edits and one preset, backed up once.
struct BackedUpLibrary {
  ScratchFolder dir;
  fs::path support = dir.path / "support";
  fs::path archive = dir.path / "backup.zip";
  explicit BackedUpLibrary(int edits) {
    vg::EditStore store(support / "Edits");
    for (int i = 0; i < edits; ++i) {
      store.save(brushDocument(200, i), dir.path / ("IMG_" + std::to_string(i) + ".jpg")).get();
    }
    vg::PresetLibrary(support / "Presets").saveNew("bench", {}, std::nullopt);
    vg::backupLibrary(support, archive);
  }
};

void LibraryBackup(benchmark::State& state) {
  BackedUpLibrary library(int(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(vg::backupLibrary(library.support, library.archive));
  state.counters["MiB"] = double(fs::file_size(library.archive)) / (1 << 20);
}
BENCHMARK(LibraryBackup)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

void LibraryRestore(benchmark::State& state) {
  BackedUpLibrary library(int(state.range(0)));
  const fs::path fresh = library.dir.path / "fresh";
  for (auto _ : state) {
    const auto result = vg::restoreLibrary(library.archive, fresh);
    if (!result.summary || result.summary->added.empty()) state.SkipWithError("restore added nothing");
    state.PauseTiming();
    fs::remove_all(fresh);
    state.ResumeTiming();
  }
}
BENCHMARK(LibraryRestore)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

void LibraryRestoreOverItself(benchmark::State& state) {
  BackedUpLibrary library(int(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(vg::restoreLibrary(library.archive, library.support));
}
BENCHMARK(LibraryRestoreOverItself)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
