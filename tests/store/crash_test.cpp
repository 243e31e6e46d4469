// A process saving edits in a loop is killed with SIGKILL at random moments;
// after every kill the sidecar must be a whole document (the last one written
// or an earlier one of the sequence, never older than what was seen before),
// never a torn or empty file.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "model/json.h"
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

// The child: saves numberedDocument(first), (first + 1), ... until killed.
// Large heal strokes make each write take long enough to be interrupted.
[[noreturn]] void saveForever(const fs::path& edits, const fs::path& image, int first) {
  EditStore store(edits);
  for (int k = first;; ++k) store.save(test::numberedDocument(k, 2000 + k % 7), image).get();
}

TEST(EditStoreCrash, SidecarIsAlwaysAWholeDocumentAfterSIGKILL) {
  test::TempDir dir;
  const fs::path edits = dir / "Edits";
  const fs::path image = dir / "photo.jpg";
  const fs::path sidecar = edits / sidecarNames(image).current;
  std::mt19937 random(12345);
  std::uniform_int_distribution<int> pauseMicros(200, 20000);

  int lastSeen = -1, kills = 0, wholeDocuments = 0;
  const int iterations = iterationCount();
  for (int i = 0; i < iterations; ++i) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) saveForever(edits, image, lastSeen + 1);

    std::this_thread::sleep_for(std::chrono::microseconds(pauseMicros(random)));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "child died on its own";
    ++kills;

    if (!fs::exists(sidecar)) {
      ASSERT_EQ(lastSeen, -1) << "the sidecar vanished after iteration " << i;
      continue;
    }
    const std::string bytes = test::readFile(sidecar);
    const std::optional<EditDocument> doc = decodeEditDocument(std::string_view(bytes));
    ASSERT_TRUE(doc.has_value()) << "torn sidecar after kill " << i << ": " << bytes.size() << " bytes";
    ASSERT_TRUE(doc->filterID.has_value());
    const int k = std::stoi(doc->filterID->substr(std::string("preset-").size()));
    ASSERT_EQ(*doc, test::numberedDocument(k, 2000 + k % 7)) << "not a document the child wrote";
    ASSERT_GE(k, lastSeen) << "the sidecar went back in time";
    lastSeen = k;
    ++wholeDocuments;
  }
  EXPECT_EQ(kills, iterations);
  EXPECT_GT(wholeDocuments, iterations / 2) << "the child hardly ever got to write";
  // Only the sidecar and temporary files of interrupted writes are left.
  for (const auto& e : fs::directory_iterator(edits)) {
    const std::string name = e.path().filename().string();
    EXPECT_TRUE(name == sidecar.filename() || name.rfind(".", 0) == 0) << name;
  }
  std::cout << "[crash] " << kills << " kills, " << wholeDocuments << " whole documents, last k "
            << lastSeen << "\n";
}

}  // namespace
}  // namespace vg
