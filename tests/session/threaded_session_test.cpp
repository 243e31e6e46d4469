// The session with real threads: the headless host's pool renders, decodes
// and exports while the test thread edits as the window's main thread would.
// It is the session test that ThreadSanitizer learns the most from; renders
// use one thread so that oneTBB (not instrumented) hands nothing across.
#include <gtest/gtest.h>

#include <filesystem>

#include "render/parallel.h"
#include "session/editor_session.h"
#include "session/headless_host.h"
#include "store/filter_preset.h"
#include "support/test_support.h"

namespace vg {
namespace {

TEST(ThreadedSessionTest, EditsRaceBackgroundWorkAndTheNewestWinsEverywhere) {
  test::TempDir dir;
  const auto photo = dir / "flower.jpg";
  std::filesystem::copy_file(test::dataPath("jpeg/flower.jpg"), photo);
  ScopedThreadLimit oneRenderThread(1);
  HeadlessHost host(dir / "support", 2);

  // Red eyes found at once, so that only the session's own handoffs are timed.
  SessionServices services = host.services();
  services.detectRedEyes = [](const Image&, const AsyncCancelToken*) {
    return std::optional(RedEyeDetectionOutcome{{RedEyeSpot{Uuid::random(), {0.4, 0.4}, 0.02}}, std::nullopt, false});
  };
  std::unique_ptr<EditorSession> session;
  bool answered = false;
  EditorSession::open(photo, services, [&](std::unique_ptr<EditorSession> s, std::optional<std::string> error) {
    EXPECT_FALSE(error) << *error;
    session = std::move(s);
    answered = true;
  });
  // Edits begin as soon as the session exists, while the full decode runs.
  while (!answered) {
    if (host.main().runReady() == 0) host.pool().waitIdle();
  }
  ASSERT_TRUE(session);

  ViewportState view;
  view.viewSize = {200, 150};
  const std::vector<FilterPreset> presets(builtInPresets().begin(), builtInPresets().begin() + 2);
  EditDocument doc = session->document();
  for (int i = 1; i <= 20; ++i) {
    doc.adjustments.exposure = 0.05 * i;
    session->setDocument(doc);
    session->recordStep("曝光");
    view.scale = i % 2 ? 0.5 : 2;
    view.imageCenter = {100.0 + 10 * i, 120};
    session->setViewport(view);
    if (i % 5 == 0) session->requestFilterThumbnails(presets);
    if (i == 10) session->setShowOriginal(true);
    host.main().runReady();
  }
  ASSERT_TRUE(session->startExport(dir / "out.jpg", ImageExporter::Options{}));
  session->autoStraighten();
  session->autoAdjust(AutoMode::vivid);
  session->detectRedEyes();
  ASSERT_TRUE(session->undo());
  ASSERT_TRUE(session->redo());
  host.settle();

  EXPECT_FALSE(session->isBusy(EditorSession::BusyFlag::rendering));
  EXPECT_FALSE(session->exporting());
  EXPECT_TRUE(std::filesystem::exists(dir / "out.jpg"));
  ASSERT_TRUE(session->source());
  ASSERT_TRUE(session->previewImage());
  ASSERT_TRUE(session->histogram());
  EXPECT_EQ(session->filterThumbnails().size(), 2u);
  EXPECT_TRUE(session->splitOriginalImage());
  EXPECT_TRUE(session->viewportImage()) << "the last view was zoomed in to 200 %";
  EXPECT_EQ(session->document(), doc) << "the analyses started before the undo arrived stale";

  // Closing with work in flight: nothing waits, nothing arrives afterwards.
  doc.adjustments.contrast = 30;
  session->setDocument(doc);
  session->requestFilterThumbnails({presets[0]});
  session->autoStraighten();
  session->autoAdjust(AutoMode::bw);
  session->detectRedEyes();
  EXPECT_TRUE(session->close());
  session.reset();
  host.settle();
  EXPECT_EQ(host.store().load(photo), doc);
}

}  // namespace
}  // namespace vg
