// Healing as the render engine runs it: inside the colour stage, cached, and
// continued from the last healed strokes when one more is added.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "render/heal_stage.h"
#include "render/render_engine.h"
#include "same_pixels.h"

namespace vg {
namespace {

Image grainyPhoto(int width, int height) {
  Image img(width, height);
  uint32_t state = 4242;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      state = state * 1664525u + 1013904223u;
      float grain = float(state >> 24) * (0.04f / 255.0f);
      float shade = 0.3f + 0.1f * std::sin(x * 0.04f) + 0.05f * std::cos(y * 0.06f);
      float* p = img.at(x, y);
      p[0] = shade + grain;
      p[1] = shade * 0.85f + grain;
      p[2] = shade * 0.7f + grain;
      p[3] = 1.0f;
    }
  }
  return img;
}

using test::samePixels;

std::vector<HealStroke> strokes(int count) {
  std::vector<HealStroke> out;
  for (int i = 0; i < count; ++i) {
    HealStroke s;
    double u = 0.15 + 0.065 * i, v = 0.35 + 0.05 * (i % 4);
    s.points = {{u, v}, {u + 0.02, v + 0.04}};
    s.size = 0.025;
    out.push_back(s);
  }
  return out;
}

TEST(HealerEngine, AddingAStrokeReusesThePrefixWithTheSamePixels) {
  const Image source = grainyPhoto(360, 240);
  for (int variant = 0; variant < 2; ++variant) {
    EditDocument ten;
    ten.heals = strokes(10);
    ten.adjustments.exposure = 0.3;
    if (variant == 1) {
      ten.crop.quarterTurn = 1;
      ten.crop.rect = NormalizedRect{0.05, 0.02, 0.9, 0.93};
    }
    EditDocument eleven = ten;
    eleven.heals = strokes(11);
    RenderOptions options;
    options.sourceId = 11;

    RenderEngine incremental;
    incremental.render(source, ten, {}, options);
    const Geometry geometry(source.bounds(), geometryParams(eleven));
    HealCacheKey key{11, sourceFingerprint(source), eleven.heals, geometryParams(eleven), geometry.outputRect()};
    std::optional<HealPrefixEntry> prefix = incremental.healCache().prefixFor(key);
    ASSERT_TRUE(prefix) << "variant " << variant;
    EXPECT_EQ(prefix->applied.size(), 10u);
    Image reused = incremental.render(source, eleven, {}, options);

    RenderEngine fresh;
    Image full = fresh.render(source, eleven, {}, options);
    EXPECT_TRUE(samePixels(reused, full)) << "variant " << variant;
    EXPECT_EQ(incremental.healCache().entryCount(), 2u);

    // The heal result is reused while only colour sliders move.
    EditDocument brighter = eleven;
    brighter.adjustments.exposure = 0.6;
    incremental.render(source, brighter, {}, options);
    EXPECT_EQ(incremental.healCache().entryCount(), 2u);
  }
}

TEST(HealerEngine, BandedRendersHealTheWholeFrameOnce) {
  const Image source = grainyPhoto(300, 400);
  EditDocument doc;
  doc.heals = strokes(6);
  doc.adjustments.exposure = -0.2;
  RenderOptions options;
  options.sourceId = 5;
  RenderEngine whole;
  Image expected = whole.render(source, doc, {}, options);
  RenderEngine banded;
  banded.setWorkBudget(size_t(300) * 16 * 70);  // one buffer of 70 rows: bands
  Image out = banded.render(source, doc, {}, options);
  EXPECT_TRUE(samePixels(out, expected)) << "every band sees the same healed frame";
  EXPECT_EQ(banded.healCache().entryCount(), 1u);
}

TEST(HealerEngine, StrokesFollowTheCropAndTheRenderScale) {
  const Image source = grainyPhoto(400, 300);
  // A dark blemish at (0.3, 0.5) of the source.
  Image blemished = source.clone();
  for (int y = 0; y < 300; ++y)
    for (int x = 0; x < 400; ++x)
      if (std::hypot(x + 0.5 - 120, y + 0.5 - 150) <= 6) std::fill_n(blemished.at(x, y), 3, 0.01f);
  EditDocument doc;
  HealStroke s;
  s.points = {{0.3, 0.5}};
  s.size = 0.04;  // radius 8 pixels at full size
  doc.heals = {s};

  RenderEngine engine;
  Image healed = engine.render(blemished, doc, {}, {});
  EXPECT_GT(healed.at(120, 150)[1], 0.1f) << "the blemish is filled";
  EXPECT_EQ(healed.at(120, 160)[1], blemished.at(120, 160)[1]) << "beyond the radius nothing moves";

  // Cropped to the right half the stroke lies outside the frame: no healing.
  EditDocument cropped = doc;
  cropped.crop.rect = NormalizedRect{0.5, 0, 0.5, 1};
  Image right = engine.render(blemished, cropped, {}, {});
  EXPECT_EQ(right.bounds(), (Rect{200, 0, 200, 300}));
  Image rightOfSource(Rect{200, 0, 200, 300});
  for (int y = 0; y < 300; ++y) std::copy_n(blemished.at(200, y), 200 * 4, rightOfSource.row(y));
  EXPECT_TRUE(samePixels(right, rightOfSource));

  // A half-size preview source: the radius halves with it (4 pixels).
  Image preview(200, 150);
  for (int y = 0; y < 150; ++y)
    for (int x = 0; x < 200; ++x)
      for (int c = 0; c < 4; ++c)
        preview.at(x, y)[c] = 0.25f * (blemished.at(2 * x, 2 * y)[c] + blemished.at(2 * x + 1, 2 * y)[c] +
                                       blemished.at(2 * x, 2 * y + 1)[c] + blemished.at(2 * x + 1, 2 * y + 1)[c]);
  RenderOptions half;
  half.scale = 0.5;
  half.sourceId = 2;
  Image small = engine.render(preview, doc, {}, half);
  EXPECT_GT(small.at(60, 75)[1], 0.1f);
  EXPECT_EQ(small.at(60, 80)[1], preview.at(60, 80)[1]);
}

}  // namespace
}  // namespace vg
