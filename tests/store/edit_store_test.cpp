#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "model/json.h"
#include "model/log.h"
#include "store/edit_store.h"
#include "support/test_support.h"
#include "test_documents.h"

namespace vg {
namespace {

namespace fs = std::filesystem;
using test::numberedDocument;

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(folder, ec)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

struct StoreFixture : ::testing::Test {
  test::TempDir dir;
  fs::path edits = dir / "support" / "Edits";
  fs::path image = dir / "photo.jpg";
  FakeClock clock;
  EditStore store{edits, clock};

  fs::path named(const std::string& name) const { return edits / name; }
};

using EditStoreLoad = StoreFixture;

TEST_F(EditStoreLoad, RoundTripsASavedDocumentAndTouchesTheSidecar) {
  EXPECT_EQ(store.load(image), std::nullopt);
  EXPECT_FALSE(fs::exists(edits)) << "nothing is created before the first write";

  ASSERT_TRUE(store.save(numberedDocument(7), image).get());
  EXPECT_EQ(namesIn(edits), std::vector<std::string>{sidecarNames(image).current});
  EXPECT_EQ(store.sidecarPath(image), named(sidecarNames(image).current));

  clock.advance(std::chrono::hours(50));
  EXPECT_EQ(store.load(image), numberedDocument(7));
  struct stat info {};
  ASSERT_EQ(::stat(store.sidecarPath(image).c_str(), &info), 0);
  EXPECT_EQ(info.st_mtime,
            std::chrono::duration_cast<std::chrono::seconds>(clock.now().time_since_epoch()).count());
}

TEST_F(EditStoreLoad, AnEmptyObjectIsTheDefaultDocument) {
  fs::create_directories(edits);
  test::writeFile(named(sidecarNames(image).current), "{}");
  EXPECT_EQ(store.load(image), EditDocument{});
}

TEST_F(EditStoreLoad, UndecodableSidecarIsSetAsideOnceWithTheLogLine) {
  for (const std::string bad : {"[1, 2, 3]", "{\"adjustments\": ", "\xff\xfe garbage", ""}) {
    SCOPED_TRACE(bad);
    test::TempDir scratch;
    EditStore local(scratch / "Edits", clock);
    fs::create_directories(scratch / "Edits");
    const std::string name = sidecarNames(image).current;
    test::writeFile(scratch / "Edits" / name, bad);

    ScopedLogCapture log;
    EXPECT_EQ(local.load(image), std::nullopt);
    const std::string copy = corruptCopyName(name, 1'704'067'200);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"Verdantglass: sidecar 解码失败，已保留坏件副本 " + copy});
    EXPECT_EQ(namesIn(scratch / "Edits"), std::vector<std::string>{copy});
    EXPECT_EQ(test::readFile(scratch / "Edits" / copy), bad);

    // The copy no longer matches the sidecar pattern: nothing to read again.
    EXPECT_EQ(local.load(image), std::nullopt);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(namesIn(scratch / "Edits"), std::vector<std::string>{copy});

  }
}

TEST_F(EditStoreLoad, ABadFileThatCannotBeSetAsideIsNeverOverwritten) {
  using namespace std::chrono_literals;
  fs::create_directories(edits);
  const fs::path sidecar = named(sidecarNames(image).current);
  const std::string copy = corruptCopyName(sidecar.filename().string(), 1'704'067'200);
  test::writeFile(sidecar, "[1]");
  EXPECT_EQ(store.load(image), std::nullopt);

  // A second bad file in the same second: its copy name is taken, so it
  // stays where it is. The rule's line is written all the same, then what
  // really happened.
  test::writeFile(sidecar, "[2]");
  ScopedLogCapture log;
  EXPECT_EQ(store.load(image), std::nullopt);
  EXPECT_EQ(test::readFile(named(copy)), "[1]");
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "Verdantglass: sidecar 解码失败，已保留坏件副本 " + copy);
  EXPECT_NE(log.lines()[1].find("stays in place"), std::string::npos) << log.lines()[1];

  // Neither a save nor a removal may destroy it while it cannot be moved.
  EXPECT_FALSE(store.save(numberedDocument(1), image).get());
  EXPECT_FALSE(store.removeSidecars(image).get());
  EXPECT_EQ(test::readFile(sidecar), "[2]");
  EXPECT_EQ(log.lines()[2].rfind("Verdantglass: sidecar 写入失败 ", 0), 0u);

  // A second later it gets its own copy name, and the save goes through.
  clock.advance(1s);
  EXPECT_TRUE(store.save(numberedDocument(2), image).get());
  const std::string laterCopy = corruptCopyName(sidecar.filename().string(), 1'704'067'201);
  EXPECT_EQ(test::readFile(named(laterCopy)), "[2]");
  EXPECT_EQ(log.lines().back(), "Verdantglass: sidecar 解码失败，已保留坏件副本 " + laterCopy);
  EXPECT_EQ(store.load(image), numberedDocument(2));
  EXPECT_EQ(namesIn(edits).size(), 3u);
}

TEST_F(EditStoreLoad, UnreadableSidecarGivesNothingSilently) {
  fs::create_directories(named(sidecarNames(image).current));  // a folder where the file should be
  ScopedLogCapture log;
  EXPECT_EQ(store.load(image), std::nullopt);
  EXPECT_TRUE(fs::is_directory(named(sidecarNames(image).current)));
  // A FIFO would block a plain open-and-read forever.
  const fs::path other = dir / "other.jpg";
  ASSERT_EQ(::mkfifo(named(sidecarNames(other).current).c_str(), 0644), 0);
  EXPECT_EQ(store.load(other), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(EditStoreLoad, FallsBackToOlderThenOldestNamePreferringTheCurrentOne) {
  fs::create_directories(edits);
  fs::create_directory(dir / "real");
  fs::create_symlink(dir / "real", dir / "link");
  const fs::path viaLink = dir / "link" / "photo.jpg";
  const SidecarNames names = sidecarNames(viaLink);

  test::writeFile(named(names.oldest), encodeEditDocument(numberedDocument(1)));
  EXPECT_EQ(store.load(viaLink), numberedDocument(1));
  test::writeFile(named(names.older), encodeEditDocument(numberedDocument(2)));
  EXPECT_EQ(store.load(viaLink), numberedDocument(2));
  test::writeFile(named(names.current), encodeEditDocument(numberedDocument(3)));
  EXPECT_EQ(store.load(viaLink), numberedDocument(3));
  // The real path reaches the same current sidecar.
  EXPECT_EQ(store.load(dir / "real" / "photo.jpg"), numberedDocument(3));
}

using EditStoreSave = StoreFixture;

TEST_F(EditStoreSave, TheNextSaveMigratesOldNamesToTheCurrentOne) {
  fs::create_directories(edits);
  fs::create_directory(dir / "real");
  fs::create_symlink(dir / "real", dir / "link");
  const fs::path viaLink = dir / "link" / "photo.jpg";
  const SidecarNames names = sidecarNames(viaLink);
  test::writeFile(named(names.oldest), encodeEditDocument(numberedDocument(1)));
  test::writeFile(named(names.older), encodeEditDocument(numberedDocument(2)));

  ASSERT_TRUE(store.save(numberedDocument(5), viaLink).get());
  EXPECT_EQ(namesIn(edits), std::vector<std::string>{names.current});
  EXPECT_EQ(decodeEditDocument(std::string_view(test::readFile(named(names.current)))), numberedDocument(5));
  EXPECT_EQ(names.oldest.size(), 26u);
}

TEST_F(EditStoreSave, StaleWritesAreSkippedAndTheLastDocumentWins) {
  // Numbers taken in request order: the first two writes are already stale
  // when the queue reaches them, whatever the timing.
  const uint64_t n1 = store.takeSaveNumber(image);
  const uint64_t n2 = store.takeSaveNumber(image);
  const uint64_t n3 = store.takeSaveNumber(image);
  EXPECT_LT(n1, n2);
  EXPECT_LT(n2, n3);
  auto f1 = store.save(numberedDocument(1), image, n1);
  auto f2 = store.save(numberedDocument(2), image, n2);
  store.flush();
  EXPECT_TRUE(f1.get()) << "a superseded write reports success";
  EXPECT_TRUE(f2.get());
  EXPECT_FALSE(fs::exists(store.sidecarPath(image))) << "stale writes must not touch the disk";
  ASSERT_TRUE(store.save(numberedDocument(3), image, n3).get());
  EXPECT_EQ(store.load(image), numberedDocument(3));

  // An unconditional write ignores newer numbers.
  store.takeSaveNumber(image);
  ASSERT_TRUE(store.save(numberedDocument(4), image, n3, /*unconditional=*/true).get());
  EXPECT_EQ(store.load(image), numberedDocument(4));
  // Numbers are kept per sidecar: another image's numbers do not make this one stale.
  const uint64_t mine = store.takeSaveNumber(image);
  store.takeSaveNumber(dir / "other.jpg");
  ASSERT_TRUE(store.save(numberedDocument(6), image, mine).get());
  EXPECT_EQ(store.load(image), numberedDocument(6));
}

TEST_F(EditStoreSave, QuickSavesEndWithTheLastDocument) {
  std::vector<std::future<bool>> results;
  for (int k = 1; k <= 3; ++k) results.push_back(store.save(numberedDocument(k), image));
  for (auto& r : results) EXPECT_TRUE(r.get());
  EXPECT_EQ(store.load(image), numberedDocument(3));
  EXPECT_EQ(namesIn(edits).size(), 1u);
}

TEST_F(EditStoreSave, AFailedWriteIsLoggedReportedAndChangesNothing) {
  // The edits folder's place is taken by a file: it cannot be created, and
  // every write fails (also for root, unlike a read-only folder).
  fs::create_directories(edits.parent_path());
  test::writeFile(edits, "not a folder");
  ScopedLogCapture log;
  EXPECT_FALSE(store.save(numberedDocument(1), image).get());
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Verdantglass: sidecar 写入失败 " +
                                                  sidecarNames(image).current +
                                                  ": Not a directory"});
  EXPECT_EQ(test::readFile(edits), "not a folder");

  // Once the folder can be made, the next save goes through.
  fs::remove(edits);
  EXPECT_TRUE(store.save(numberedDocument(2), image).get());
  EXPECT_EQ(store.load(image), numberedDocument(2));
}

TEST_F(EditStoreSave, AFailedWriteKeepsTheOldNamesAndTheOldDocument) {
  fs::create_directories(edits);
  const SidecarNames names = sidecarNames(image);
  test::writeFile(named(names.oldest), encodeEditDocument(numberedDocument(1)));
  fs::create_directories(named(names.current) / "blocker");  // the rename cannot replace it
  ScopedLogCapture log;
  EXPECT_FALSE(store.save(numberedDocument(2), image).get());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(fs::exists(named(names.oldest)));
  EXPECT_EQ(decodeEditDocument(std::string_view(test::readFile(named(names.oldest)))), numberedDocument(1));
}

TEST_F(EditStoreSave, ConcurrentSaversEachEndWithTheirLastDocument) {
  constexpr int kThreads = 4, kSaves = 40;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const fs::path own = dir / ("photo-" + std::to_string(t) + ".jpg");
      for (int k = 0; k < kSaves; ++k) {
        store.save(numberedDocument(t * 1000 + k), own);
        store.save(numberedDocument(t * 1000 + k), image);  // shared by all threads
        if (k % 10 == 0) store.load(own);
      }
    });
  }
  for (auto& t : threads) t.join();
  store.flush();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(store.load(dir / ("photo-" + std::to_string(t) + ".jpg")),
              numberedDocument(t * 1000 + kSaves - 1));
  }
  const auto shared = store.load(image);
  ASSERT_TRUE(shared.has_value());
  bool isSomeThreadsLast = false;
  for (int t = 0; t < kThreads; ++t) isSomeThreadsLast |= *shared == numberedDocument(t * 1000 + kSaves - 1);
  EXPECT_TRUE(isSomeThreadsLast);
  EXPECT_EQ(namesIn(edits).size(), size_t(kThreads + 1)) << "no temporary files left behind";
}

using EditStoreConcurrency = StoreFixture;

TEST_F(EditStoreConcurrency, ALoadNeverSetsAsideTheFileAWriteJustPutInPlace) {
  // A large undecodable sidecar takes a while to read and parse: long enough
  // for a save of the same image to land in the middle of an unguarded load,
  // which would then move the new document aside as if it were the bad file.
  using namespace std::chrono_literals;
  fs::create_directories(edits);
  const fs::path sidecar = named(sidecarNames(image).current);
  const std::string bad = "[" + std::string(1 << 20, ' ') + "]";
  for (int k = 0; k < 12; ++k) {
    test::writeFile(sidecar, bad);
    std::thread loader([&] { store.load(image); });
    ASSERT_TRUE(store.save(numberedDocument(k), image).get());
    loader.join();
    EXPECT_EQ(store.load(image), numberedDocument(k)) << "round " << k;
    for (const auto& name : namesIn(edits)) {
      if (name == sidecar.filename()) continue;
      EXPECT_EQ(test::readFile(named(name)), bad) << "only the bad file is ever set aside";
      fs::remove(named(name));
    }
    clock.advance(1s);
  }
}

TEST_F(EditStoreConcurrency, AHoldKeepsQueuedWritesWaiting) {
  using namespace std::chrono_literals;
  auto hold = store.holdWrites();
  auto saved = store.save(numberedDocument(1), image);
  EXPECT_EQ(store.queuedWrites(), 1u);
  EXPECT_EQ(saved.wait_for(20ms), std::future_status::timeout);
  EXPECT_FALSE(fs::exists(store.sidecarPath(image)));
  hold.release();
  EXPECT_TRUE(saved.get());
  EXPECT_EQ(store.queuedWrites(), 0u);
  EXPECT_EQ(store.load(image), numberedDocument(1));
}

}  // namespace
}  // namespace vg
