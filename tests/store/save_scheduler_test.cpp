#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <thread>

#include "model/json.h"
#include "model/log.h"
#include "store/manual_executor.h"
#include "store/save_scheduler.h"
#include "support/test_support.h"
#include "test_documents.h"

namespace vg {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::numberedDocument;

// Fake time and hand-driven executors for the main thread and the background
// hand-off; the store's write queue is its own real thread.
struct SchedulerFixture : ::testing::Test {
  test::TempDir dir;
  fs::path edits = dir / "Edits";
  fs::path image = dir / "photo.jpg";
  FakeClock clock;
  ManualExecutor main{clock};
  EditStore store{edits, clock};
  ManualExecutor background{clock};
  std::vector<std::string> failures;
  EditSaveScheduler scheduler{image, store, main, background,
                              [this](std::string_view m) { failures.emplace_back(m); }};

  fs::path sidecar() const { return store.sidecarPath(image); }

  // Lets the background hand-off and the write finish, then runs whatever
  // they posted back to the main thread.
  void settle() {
    background.runReady();
    store.flush();
    main.runReady();
  }

  // Identifies one write: every atomic write puts a new inode in place.
  ino_t inode() const {
    struct stat info {};
    return ::stat(sidecar().c_str(), &info) == 0 ? info.st_ino : 0;
  }
};

using EditSaveSchedulerTest = SchedulerFixture;

TEST_F(EditSaveSchedulerTest, ABurstIsWrittenOnceAfterTheQuietPeriodFromItsFirstChange) {
  for (int k = 1; k <= 10; ++k) {
    scheduler.schedule(numberedDocument(k));
    if (k < 10) main.advance(clock, 50ms);  // ten changes within 0.45 s
  }
  main.advance(clock, 149ms);  // 0.599 s after the first change
  settle();
  EXPECT_FALSE(fs::exists(sidecar()));
  EXPECT_TRUE(scheduler.hasPending());

  main.advance(clock, 1ms);
  settle();
  ASSERT_TRUE(fs::exists(sidecar()));
  EXPECT_EQ(store.load(image), numberedDocument(10));
  EXPECT_FALSE(scheduler.hasPending());
  const ino_t written = inode();

  main.advance(clock, 5s);
  settle();
  EXPECT_EQ(inode(), written) << "the burst must be written exactly once";
  EXPECT_EQ(main.pendingCount(), 0u);
  EXPECT_TRUE(failures.empty());
}

TEST_F(EditSaveSchedulerTest, AChangeAfterTheWriteStartsANewBurst) {
  scheduler.schedule(numberedDocument(1));
  main.advance(clock, 600ms);
  settle();
  EXPECT_EQ(store.load(image), numberedDocument(1));
  scheduler.schedule(numberedDocument(2));
  main.advance(clock, 599ms);
  settle();
  EXPECT_EQ(store.load(image), numberedDocument(1));
  main.advance(clock, 1ms);
  settle();
  EXPECT_EQ(store.load(image), numberedDocument(2));
}

TEST_F(EditSaveSchedulerTest, FlushWritesAtOnceAndTheTimerThenWritesNothing) {
  scheduler.schedule(numberedDocument(1));
  scheduler.schedule(numberedDocument(2));
  EXPECT_TRUE(scheduler.flush());
  EXPECT_TRUE(scheduler.isFlushed());
  EXPECT_EQ(store.load(image), numberedDocument(2)) << "flush returns once the file is on disk";
  const ino_t written = inode();

  main.advance(clock, 2s);
  settle();
  EXPECT_EQ(inode(), written);
  EXPECT_FALSE(scheduler.hasPending());

  scheduler.schedule(numberedDocument(3));
  EXPECT_FALSE(scheduler.isFlushed());
}

TEST_F(EditSaveSchedulerTest, FlushMakesAnAutosaveStillQueuedStale) {
  scheduler.schedule(numberedDocument(1));
  main.advance(clock, 600ms);  // the timer hands document 1 to the background
  scheduler.schedule(numberedDocument(2));
  EXPECT_TRUE(scheduler.flush());
  settle();
  EXPECT_EQ(store.load(image), numberedDocument(2));
}

// flush() while the quiet-period save is somewhere between the main thread
// and the disk. Whatever the stage, flush reports success only with the
// newest document on disk, and the late autosave and its result change
// nothing afterwards.
TEST_F(EditSaveSchedulerTest, FlushLeavesTheNewestDocumentOnDiskInEveryInterleaving) {
  enum Stage { handedOver, queuedOnTheStore, written, resultBack };
  for (Stage stage : {handedOver, queuedOnTheStore, written, resultBack}) {
    SCOPED_TRACE(stage);
    const fs::path photo = dir / ("stage-" + std::to_string(stage) + ".jpg");
    EditSaveScheduler scheduler(photo, store, main, background);
    scheduler.schedule(numberedDocument(1));
    main.advance(clock, 600ms);  // the timer hands document 1 to the background
    EditStore::WriteHold hold;
    if (stage == queuedOnTheStore) hold = store.holdWrites();
    if (stage != handedOver) background.runReady();  // encoded and queued for writing
    if (stage == written || stage == resultBack) store.flush();
    if (stage == resultBack) main.runReady();

    bool flushed = false;
    if (stage == queuedOnTheStore) {
      // flush() waits for its own write, queued behind the held autosave:
      // let the queue go once both are there (or it is clear flush queued
      // nothing).
      std::thread releaser([&] {
        for (int i = 0; i < 2000 && store.queuedWrites() < 2; ++i) std::this_thread::sleep_for(1ms);
        hold.release();
      });
      flushed = scheduler.flush();
      releaser.join();
    } else {
      flushed = scheduler.flush();
    }
    EXPECT_TRUE(flushed);
    EXPECT_EQ(store.load(photo), numberedDocument(1));
    settle();
    EXPECT_EQ(store.load(photo), numberedDocument(1));
    EXPECT_FALSE(scheduler.hasPending());
  }
  EXPECT_TRUE(failures.empty());
}

TEST_F(EditSaveSchedulerTest, FlushingANoEditDocumentRemovesTheSidecarUnderEveryName) {
  // Reached through a link, so the three names are all different.
  fs::create_directories(edits);
  fs::create_directory(dir / "real");
  fs::create_symlink(dir / "real", dir / "link");
  const fs::path viaLink = dir / "link" / "photo.jpg";
  EditSaveScheduler linked(viaLink, store, main, background);
  const SidecarNames names = sidecarNames(viaLink);
  for (const auto& n : {names.current, names.older, names.oldest}) test::writeFile(edits / n, "{}");
  test::writeFile(edits / "edit-00000000000000000000000000000000.json", "{}");

  EditDocument untouched;
  untouched.filterStrength = 40;  // not looked at by the no-edit test
  linked.schedule(untouched);
  EXPECT_TRUE(linked.flush());
  EXPECT_EQ(fs::directory_iterator(edits)->path().filename(),
            "edit-00000000000000000000000000000000.json");
  EXPECT_EQ(std::distance(fs::directory_iterator(edits), fs::directory_iterator()), 1);
}

TEST_F(EditSaveSchedulerTest, FlushWithNothingPendingTouchesNoFile) {
  EXPECT_TRUE(scheduler.flush());
  EXPECT_TRUE(scheduler.isFlushed());
  EXPECT_FALSE(fs::exists(edits));

  scheduler.schedule(numberedDocument(1));
  main.advance(clock, 600ms);
  settle();
  const ino_t written = inode();
  EXPECT_TRUE(scheduler.flush()) << "the autosave already wrote it";
  EXPECT_EQ(inode(), written);
}

TEST_F(EditSaveSchedulerTest, FailedAutosaveTellsTheEditorAndFlushTriesAgain) {
  test::writeFile(edits, "a file where the folder should be");
  ScopedLogCapture log;
  scheduler.schedule(numberedDocument(1));
  main.advance(clock, 600ms);
  settle();
  EXPECT_EQ(failures, std::vector<std::string>{"自动保存失败：编辑可能未被记录"});
  EXPECT_TRUE(scheduler.hasPending()) << "the unsaved document is kept for the next try";

  EXPECT_FALSE(scheduler.flush());
  ASSERT_EQ(log.lines().size(), 3u);
  EXPECT_EQ(log.lines()[0].rfind("Verdantglass: sidecar 写入失败 ", 0), 0u);
  EXPECT_EQ(log.lines()[2], "Verdantglass: 退出前编辑保存失败（磁盘满或目录不可写）photo.jpg");

  fs::remove(edits);
  EXPECT_TRUE(scheduler.flush());
  EXPECT_EQ(store.load(image), numberedDocument(1));
  EXPECT_EQ(failures.size(), 1u);
}

TEST_F(EditSaveSchedulerTest, ATimerThatOutlivesItsSchedulerDoesNothing) {
  {
    EditSaveScheduler shortLived(dir / "other.jpg", store, main, background);
    shortLived.schedule(numberedDocument(1));
  }
  main.advance(clock, 1s);
  settle();
  EXPECT_FALSE(fs::exists(edits));
}

}  // namespace
}  // namespace vg
