// A session on fake time: the main thread and the background are both manual
// queues run by the test on its own thread, and the engine renders with one
// thread, so every test is deterministic and clean under ThreadSanitizer.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "render/parallel.h"
#include "session/editor_session.h"
#include "store/manual_executor.h"
#include "support/test_support.h"

namespace vg::test {

// A small picture with distinct, mid-range colours everywhere: a gradient
// whose blue falls from top to bottom, over a grey border-free field.
inline std::shared_ptr<const Image> gradientImage(int w, int h) {
  auto image = std::make_shared<Image>(w, h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      float* p = image->at(x, y);
      p[0] = 0.1f + 0.6f * float(x) / float(w);
      p[1] = 0.2f + 0.5f * float(y) / float(h);
      p[2] = 0.7f - 0.5f * float(y) / float(h);
      p[3] = 1;
    }
  }
  return image;
}

struct SessionFixture : ::testing::Test {
  TempDir dir;
  std::filesystem::path image = dir / "photo.jpg";
  FakeClock clock;
  ManualExecutor main{clock};
  ManualExecutor background{clock};
  EditStore store{dir / "Edits", clock};
  std::shared_ptr<RenderEngine> engine = std::make_shared<RenderEngine>(dir / "LUTs");
  ScopedThreadLimit oneThread{1};
  HorizonDetectorFn detector;  // what autoStraighten finds
  RedEyeDetectorFn redEyes;    // what detectRedEyes finds
  std::vector<EditorSession::Change> changes;

  SessionServices services() {
    SessionServices s{main, background, clock, store, engine, dir.path(),
                      [this](const Image& i, const CropSettings& c, const AsyncCancelToken* t) {
                        return detector ? detector(i, c, t) : std::nullopt;
                      }};
    s.detectRedEyes = [this](const Image& i, const AsyncCancelToken* t) {
      return redEyes ? redEyes(i, t) : std::optional<RedEyeDetectionOutcome>(RedEyeDetectionOutcome{});
    };
    return s;
  }

  // An opened image of w x h pixels whose preview is the image itself.
  OpenedImage opened(int w = 48, int h = 32, std::optional<EditDocument> saved = std::nullopt) {
    OpenedImage o;
    o.loaded.url = image;
    o.loaded.image = gradientImage(w, h);
    o.loaded.pixelSize = {double(w), double(h)};
    o.loaded.fileFormat = "JPEG";
    o.loaded.colorSpaceName = "sRGB";
    o.previewSource = o.loaded.image;
    o.savedRecipe = std::move(saved);
    return o;
  }

  std::unique_ptr<EditorSession> openSession(OpenedImage o) {
    auto session = std::make_unique<EditorSession>(services(), std::move(o));
    session->addObserver([this](EditorSession::Change c) { changes.push_back(c); });
    return session;
  }
  std::unique_ptr<EditorSession> openSession() { return openSession(opened()); }

  // Runs both queues until neither has anything due, then waits for the
  // store's writes.
  void settle() {
    while (background.runReady() + main.runReady() > 0) {
    }
    store.flush();
  }
  // Moves fake time on, running what falls due on the way.
  void wait(Clock::Duration d) {
    settle();
    main.advance(clock, d);
    settle();
  }

  std::vector<std::string> labels(const EditorSession& s) const {
    std::vector<std::string> out;
    for (const auto& e : s.history().entries()) out.push_back(e.label);
    return out;
  }
  std::optional<EditDocument> onDisk() { return store.load(image); }
};

inline EditDocument exposed(double ev) {
  EditDocument doc;
  doc.adjustments.exposure = ev;
  return doc;
}

}  // namespace vg::test
