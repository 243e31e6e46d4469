// Helpers of the widget tests: waiting on the Qt event loop for a condition,
// and a fixture with a private application whose windows open real images.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "app/application.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace vg::app {
class EditorWindow;
}

namespace vg::app::test {

// Processes events until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

// An application over its own edits folder, destroyed after each test.
struct AppFixture : ::testing::Test {
  vg::test::TempDir dir;
  EditStore store{dir / "Edits"};
  std::unique_ptr<Application> app = std::make_unique<Application>(&store);

  void TearDown() override { app.reset(); }

  // Opens `file` in a window of the given size and waits until its first
  // picture is on the canvas; null when it did not open.
  EditorWindow* open(const std::filesystem::path& file, int width = 1200, int height = 800);
  // A copy of the bundled photograph (samples/rocket.jpg) in the test's folder.
  std::filesystem::path rocket(const char* name = "rocket.jpg");
};

}  // namespace vg::app::test
