// A render whose cancel token is set stops early: it heals nothing and
// caches nothing, and its (unfinished) picture still has the asked-for size.
#include <gtest/gtest.h>

#include "render/render_engine.h"

namespace vg {
namespace {

Image texture(int w, int h) {
  Image image(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = image.at(x, y);
      p[0] = float((x * 7 + y * 3) % 17) / 17.0f;
      p[1] = float((x * 5 + y * 11) % 13) / 13.0f;
      p[2] = 0.4f;
      p[3] = 1;
    }
  return image;
}

TEST(RenderCancel, ACancelledRenderStopsBeforeHealingAndCachesNothing) {
  RenderEngine engine;
  const Image source = texture(96, 64);
  EditDocument doc;
  doc.adjustments.clarity = 30;
  doc.adjustments.sharpen = 40;
  HealStroke stroke;
  stroke.points = {{0.4, 0.5}, {0.6, 0.5}};
  stroke.size = 0.06;
  doc.heals.push_back(stroke);

  AsyncCancelToken token;
  token.cancel();
  RenderOptions options;
  options.sourceId = 7;
  options.cancel = &token;
  const Image stopped = engine.render(source, doc, {}, options);
  EXPECT_EQ(stopped.bounds(), source.bounds());
  EXPECT_EQ(engine.healCache().entryCount(), 0u);

  options.cancel = nullptr;
  const Image finished = engine.render(source, doc, {}, options);
  EXPECT_EQ(engine.healCache().entryCount(), 1u);
  EXPECT_EQ(finished.bounds(), source.bounds());
}

}  // namespace
}  // namespace vg
