// A process saving edits in a loop is killed with SIGKILL at random moments.
// After every kill the sidecar must hold the last document the child saw
// saved, or the one it was writing then: never a torn, empty or older file.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "model/json.h"
#include "store/atomic_file.h"
#include "store/edit_store.h"
#include "support/test_support.h"
#include "test_documents.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

int iterationCount() {
  if (const char* env = std::getenv("VG_CRASH_ITERATIONS")) return std::max(1, std::atoi(env));
  return 150;
}

// Large heal strokes make each write take long enough to be interrupted.
EditDocument crashDocument(int k) { return test::numberedDocument(k, 2000 + k % 7); }

// The child: saves document first, first + 1, ... until killed, and reports
// each number on `report` once its save has completed.
[[noreturn]] void saveForever(const fs::path& edits, const fs::path& image, int first, int report) {
  EditStore store(edits);
  for (int k = first;; ++k) {
    if (!store.save(crashDocument(k), image).get()) ::_exit(3);
    if (::write(report, &k, sizeof k) != sizeof k) ::_exit(4);
  }
}

TEST(EditStoreCrash, SidecarIsAlwaysTheOldOrTheNewDocumentAfterSIGKILL) {
  test::TempDir dir;
  const fs::path edits = dir / "Edits";
  const fs::path image = dir / "photo.jpg";
  const fs::path sidecar = edits / sidecarNames(image).current;
  std::mt19937 random(12345);
  std::uniform_int_distribution<int> pauseMicros(0, 20000);

  int lastSeen = -1, newerThanReported = 0;
  const int iterations = iterationCount();
  for (int i = 0; i < iterations; ++i) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(fds[0]);
      saveForever(edits, image, lastSeen + 1, fds[1]);
    }
    ::close(fds[1]);

    // Kill at a random moment after the child's first completed save.
    pollfd ready{fds[0], POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, 30000), 1) << "the child never finished a save";
    std::this_thread::sleep_for(std::chrono::microseconds(pauseMicros(random)));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        << "the child stopped on its own with " << status;

    int reported = -1, k = 0;
    while (::read(fds[0], &k, sizeof k) == sizeof k) reported = k;
    ::close(fds[0]);
    ASSERT_GT(reported, lastSeen);

    const std::string bytes = test::readFile(sidecar);
    const std::optional<EditDocument> doc = decodeEditDocument(std::string_view(bytes));
    ASSERT_TRUE(doc.has_value()) << "torn sidecar after kill " << i << ": " << bytes.size() << " bytes";
    ASSERT_TRUE(doc->filterID.has_value());
    const int found = std::stoi(doc->filterID->substr(std::string("preset-").size()));
    ASSERT_TRUE(found == reported || found == reported + 1)
        << "kill " << i << ": found document " << found << ", last completed save " << reported;
    ASSERT_EQ(*doc, crashDocument(found)) << "not the document the child wrote";
    newerThanReported += found == reported + 1;
    lastSeen = found;
  }

  // Only the sidecar and temporary files of interrupted writes are left.
  int interrupted = 0;
  for (const auto& e : fs::directory_iterator(edits)) {
    const std::string name = e.path().filename().string();
    if (name == sidecar.filename()) continue;
    EXPECT_TRUE(isAtomicWriteTemporaryName(name)) << name;
    ++interrupted;
  }
  std::cout << "[crash] " << iterations << " kills; " << interrupted
            << " writes interrupted mid-way; " << newerThanReported
            << " times the write in flight had already landed\n";
}

}  // namespace
}  // namespace vg
