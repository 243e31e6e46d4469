// verdantglass-cli batch: develops every image of a folder into another
// folder, with each image's saved edits and a preset at a strength, through
// the same BatchModel the batch window uses.
#include <unistd.h>

#include <chrono>
#include <memory>
#include <csignal>
#include <thread>

#include "cli/commands.h"
#include "cli/export_option_args.h"
#include "io/batch_model.h"
#include "render/render_engine.h"
#include "store/clock.h"
#include "store/edit_store.h"
#include "store/manual_executor.h"
#include "store/preset_library.h"
#include "store/thread_pool.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

volatile std::sig_atomic_t interrupted = 0;
extern "C" void onInterrupt(int) { interrupted = 1; }

// Ctrl-C asks the batch to cancel instead of killing the process, so no
// half-written output is left behind; a second Ctrl-C works as usual.
class InterruptGuard {
 public:
  InterruptGuard() {
    interrupted = 0;
    struct sigaction sa {};
    sa.sa_handler = onInterrupt;
    sa.sa_flags = SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &previous_);
    sigaction(SIGTERM, &sa, &previousTerm_);
  }
  ~InterruptGuard() {
    sigaction(SIGINT, &previous_, nullptr);
    sigaction(SIGTERM, &previousTerm_, nullptr);
  }

 private:
  struct sigaction previous_ {};
  struct sigaction previousTerm_ {};
};

int usage(Io& io, const std::string& message) {
  io.err << "verdantglass-cli: " << message << "\nTry 'verdantglass-cli batch --help'.\n";
  return kExitUsage;
}

// The progress line: a bar redrawn in place on a terminal, one plain line
// per finished file otherwise.
class Progress {
 public:
  Progress(Io& io, bool terminal) : io_(io), terminal_(terminal) {}

  void update(const BatchModel& model) {
    const auto& phase = model.phase();
    if (phase.kind != BatchModel::Phase::Kind::running || phase.total == 0) return;
    if (terminal_) {
      constexpr int kWidth = 24;
      int filled = phase.total ? model.completed() * kWidth / phase.total : 0;
      io_.err << "\r\033[K[" << std::string(size_t(filled), '#') << std::string(size_t(kWidth - filled), '.')
              << "] " << model.statusText();
      io_.err.flush();
      drawn_ = true;
    } else if (model.completed() != lastCompleted_) {
      lastCompleted_ = model.completed();
      io_.err << "[" << model.completed() << "/" << phase.total << "] " << model.currentFile() << "\n";
    }
  }

  void finish() {
    if (terminal_ && drawn_) io_.err << "\r\033[K";
  }

 private:
  Io& io_;
  bool terminal_;
  bool drawn_ = false;
  int lastCompleted_ = 0;
};

int runBatch(const ParsedArgs& args, Io& io) {
  keepBandsInTheHeap();
  const fs::path sourceFolder = args.positionals.at(0);
  BatchEngine::Config config;
  config.outputFolder = args.positionals.at(1);
  config.options = StoredExportSettings{}.toOptions(std::nullopt);
  if (auto error = applyExportOptionArgs(args, config.options, std::nullopt)) return usage(io, *error);
  if (auto suffix = args.value("suffix")) config.nameSuffix = *suffix;
  config.skipExisting = !args.has("no-skip-existing");
  config.useSavedEdits = !args.has("no-saved-edits");

  if (auto id = args.value("preset")) {
    PresetLibrary library(supportFolder() / "Presets");
    config.preset = library.find(*id);
    if (!config.preset) return usage(io, "unknown preset '" + *id + "' (see 'verdantglass-cli presets')");
  }
  if (auto strength = args.value("strength")) {
    auto v = parseNumberArg(*strength);
    if (!v || *v < 0 || *v > 100) return usage(io, "--strength takes a percentage from 0 to 100");
    config.strength = *v;
  }

  RenderEngine engine(supportFolder() / "LUTs");
  EditStore& store = EditStore::shared();
  ManualExecutor main(SystemClock::shared());
  ThreadPool pool("vg.batch");  // declared after `main`, so it is joined before `main` goes
  auto owned = std::make_unique<BatchModel>(
      main, pool, [&](const fs::path& source, const BatchEngine::Config& c, const std::function<bool()>& isCancelled) {
        return BatchEngine::process(source, c, isCancelled, &store, engine);
      });
  BatchModel& model = *owned;

  Progress progress(io, ::isatty(STDERR_FILENO) == 1);
  model.setOnChange([&] { progress.update(model); });
  InterruptGuard guard;
  model.start(sourceFolder, config);
  while (model.isRunning()) {
    if (interrupted) model.cancel();
    if (main.runReady() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  progress.finish();
  const bool cancelled = model.phase().kind == BatchModel::Phase::Kind::cancelled;
  if (cancelled) io.err << "verdantglass-cli: cancelling, waiting for the files in progress…\n";
  // The workers stop at their next check; wait for them so nothing half-done
  // outlives the command (an interrupted export removes its temporary file).
  model.setOnChange({});
  const std::string status = model.statusText();
  const auto failures = model.failures();
  const std::string footer = model.failureFooter();
  const bool anyFailed = !failures.empty();
  owned.reset();

  io.out << status << "\n";
  for (const auto& line : failures) io.out << line << "\n";
  if (!footer.empty()) io.out << footer << "\n";
  return anyFailed || cancelled ? kExitFailed : kExitOk;
}

}  // namespace

std::vector<Command> batchCommands() {
  static const std::string help =
      "Usage: verdantglass-cli batch SRC OUT [--preset ID] [--strength P] [--suffix S]\n"
      "         [--no-skip-existing] [--no-saved-edits] [EXPORT OPTIONS]\n"
      "\n"
      "Develops every supported image directly inside SRC (no subfolders) and\n"
      "writes the results into OUT as NAME + SUFFIX + .jpg/.heic/.png/.tiff. Each\n"
      "image starts from its saved edits (unless --no-saved-edits); --preset lays a\n"
      "filter preset over it at --strength percent (default 100; ids from\n"
      "'verdantglass-cli presets'). Existing outputs are skipped unless\n"
      "--no-skip-existing. Two images are developed at a time, one when any image\n"
      "is larger than 50 megapixels.\n"
      "\n"
      "Progress goes to stderr; the final status and the failures to stdout.\n"
      "Ctrl-C cancels cleanly: files in progress stop and leave no output.\n"
      "Exit status 0 when every image was written or skipped, 1 otherwise.\n"
      "\n"
      "  --preset ID             filter preset to apply\n"
      "  --strength P            preset strength in percent, 0-100 (default 100)\n"
      "  --suffix S              appended to each output name (default -已编辑)\n"
      "  --no-skip-existing      overwrite outputs that already exist\n"
      "  --no-saved-edits        ignore the images' saved edits\n" +
      exportOptionsHelp();
  std::vector<OptionSpec> options = {
      {"preset", 0, true},
      {"strength", 0, true},
      {"suffix", 0, true},
      {"no-skip-existing", 0, false},
      {"no-saved-edits", 0, false},
  };
  auto shared = exportOptionSpecs();
  options.insert(options.end(), shared.begin(), shared.end());
  return {
      {"batch", "develop every image of a folder into another folder", help, std::move(options), 2, 2,
       runBatch},
  };
}

}  // namespace vg::cli
