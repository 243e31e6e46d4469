#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>

#include "render/heal_bitmap.h"
#include "render/heal_cache.h"
#include "render/heal_stage.h"
#include "render/srgb.h"
#include "same_pixels.h"

namespace vg {
namespace {

// A linear, opaque, textured working image (a slow shade plus grain).
Image texturedSource(int width, int height) {
  Image img(width, height);
  uint32_t state = 99;
  for (int y = 0; y < height; ++y) {
    float* row = img.row(y);
    for (int x = 0; x < width; ++x) {
      state = state * 1664525u + 1013904223u;
      float grain = float(state >> 24) / 255.0f * 0.05f;
      float shade = 0.25f + 0.1f * std::sin(x * 0.05f) * std::cos(y * 0.04f);
      row[x * 4 + 0] = shade + grain;
      row[x * 4 + 1] = shade * 0.8f + grain;
      row[x * 4 + 2] = shade * 0.6f + grain;
      row[x * 4 + 3] = 1.0f;
    }
  }
  return img;
}

using test::samePixels;

std::vector<HealStroke> strokeSet(int count) {
  std::vector<HealStroke> out;
  for (int i = 0; i < count; ++i) {
    double u = 0.12 + 0.07 * i, v = 0.3 + 0.04 * (i % 5);
    out.push_back({{{u, v}, {u + 0.03, v + 0.05}}, 0.02});
  }
  return out;
}

TEST(HealBitmap, EightBitSrgbCodesAreTheNearest) {
  for (int i = 0; i <= 4000; ++i) {
    float v = i / 4000.0f;
    double exact = double(srgb::encode(v)) * 255.0;
    EXPECT_LE(std::fabs(encodeSrgb8(v) - exact), 0.5 + 1e-4) << v;
  }
  for (int code = 0; code < 256; ++code) EXPECT_EQ(encodeSrgb8(decodeSrgb8(uint8_t(code))), code);
  EXPECT_EQ(encodeSrgb8(std::nanf("")), 0);
  EXPECT_EQ(encodeSrgb8(-0.5f), 0);
  EXPECT_EQ(encodeSrgb8(7.0f), 255);
}

TEST(HealBitmap, WriteBackTouchesOnlyHealedPixels) {
  Image img(Rect{10, 20, 4, 2});
  for (int y = 20; y < 22; ++y)
    for (int x = 10; x < 14; ++x) {
      float* p = img.at(x, y);
      p[0] = 1.7f;  // over-white, beyond what 8 bits hold
      p[1] = 0.2f * 0.5f;
      p[2] = 0.01f * 0.5f;
      p[3] = 0.5f;
    }
  Healer::Bitmap bitmap = encodeHealBitmap(img);
  EXPECT_EQ(bitmap.at(0, 0)[0], 255);
  EXPECT_EQ(bitmap.at(0, 0)[1], encodeSrgb8(0.2f));
  EXPECT_EQ(bitmap.at(0, 0)[3], 128);

  bitmap.at(2, 1)[1] = 40;  // the healer changed one pixel
  Healer::ForbiddenMask all(bitmap.pixelCount());
  for (size_t i = 0; i < all.pixelCount; ++i) all.set(i);
  writeBackHealed(bitmap, img, all);
  EXPECT_EQ(img.at(10, 20)[0], 1.7f) << "unchanged pixels keep their float value";
  EXPECT_EQ(img.at(11, 21)[1], 0.2f * 0.5f);
  const float a = 128 / 255.0f;
  EXPECT_FLOAT_EQ(img.at(12, 21)[1], decodeSrgb8(40) * a);
  EXPECT_FLOAT_EQ(img.at(12, 21)[3], a);
  // Writing back again changes nothing more.
  Image again = img.clone();
  writeBackHealed(bitmap, again, all);
  EXPECT_TRUE(samePixels(img, again));
  // Pixels left out of the mask are not looked at.
  bitmap.at(0, 0)[0] = 3;
  Healer::ForbiddenMask none(bitmap.pixelCount());
  writeBackHealed(bitmap, again, none);
  EXPECT_TRUE(samePixels(img, again));
}

TEST(HealStage, StrokesFollowTheGeometry) {
  Image source(600, 400);
  {
    Geometry plain(source.bounds(), {});
    auto s = healStrokesInFrame(std::vector<HealStroke>{{{{0.25, 0.5}}, 0.02}}, plain);
    ASSERT_EQ(s.size(), 1u);
    EXPECT_DOUBLE_EQ(s[0].size, 0.02);  // radius = size x width x 0.5 = 6 pixels
    EXPECT_DOUBLE_EQ(s[0].points[0].x, 0.25);
    EXPECT_DOUBLE_EQ(s[0].points[0].y, 0.5);
  }
  {
    // One quarter turn: the frame is 400 wide; the radius stays 6 pixels.
    GeometryParams turned;
    turned.quarterTurn = 1;
    Geometry g(source.bounds(), turned);
    auto s = healStrokesInFrame(std::vector<HealStroke>{{{{0.25, 0.5}}, 0.02}}, g);
    EXPECT_NEAR(*Healer::strokeRadius(s[0].size, g.outputRect().width, g.outputRect().height), 6.0, 1e-9);
    PointF expected = g.normalisedToOutput({0.25, 0.5});
    EXPECT_NEAR(s[0].points[0].x * g.outputRect().width + g.outputRect().x, expected.x, 1e-9);
  }
  {
    // A crop to the right half: a point on the left half is cut away.
    GeometryParams cropped;
    cropped.crop = RectF{0.5, 0, 0.5, 1};
    Geometry g(source.bounds(), cropped);
    auto s = healStrokesInFrame(std::vector<HealStroke>{{{{0.25, 0.5}, {0.75, 0.5}}, 0.02}}, g);
    EXPECT_LT(s[0].points[0].x, 0.0);
    EXPECT_NEAR(s[0].points[1].x, 0.5, 1e-9);
    EXPECT_NEAR(*Healer::strokeRadius(s[0].size, g.outputRect().width, g.outputRect().height), 6.0, 1e-9);
  }
}

TEST(HealStage, HealsTheFrameAndCachesTheResult) {
  Image source = texturedSource(400, 300);
  std::mutex lock;
  HealCache cache(lock);
  auto heals = strokeSet(3);
  HealStageRequest request{&source, 7, {}, false, heals, nullptr};
  std::shared_ptr<const Image> healed = runHealStage(cache, request);
  ASSERT_TRUE(healed);
  EXPECT_EQ(healed->bounds(), source.bounds());
  EXPECT_FALSE(samePixels(*healed, source));
  // Far from every stroke the float pixels are untouched.
  EXPECT_EQ(healed->at(390, 290)[0], source.at(390, 290)[0]);
  EXPECT_EQ(runHealStage(cache, request), healed) << "an equal request is served from the cache";
  EXPECT_EQ(cache.entryCount(), 1u);
  EXPECT_EQ(cache.bytes(), healed->byteSize());

  // Another source number is another request.
  HealStageRequest other = request;
  other.sourceId = 8;
  std::shared_ptr<const Image> second = runHealStage(cache, other);
  EXPECT_NE(second, healed);
  EXPECT_TRUE(samePixels(*second, *healed));
  EXPECT_EQ(cache.entryCount(), 2u);

  // A different picture under the same number is healed on its own.
  Image another = texturedSource(400, 300);
  another.at(200, 150)[0] += 0.5f;
  for (int y = 0; y < 300; y += 7) another.at(3, y)[1] = 0.9f;
  EXPECT_EQ(sourceFingerprint(source), sourceFingerprint(source.clone()));
  EXPECT_NE(sourceFingerprint(source), sourceFingerprint(another));
  std::shared_ptr<const Image> third = runHealStage(cache, {&another, 7, {}, false, heals, nullptr});
  std::mutex freshLock;
  HealCache fresh(freshLock);
  std::shared_ptr<const Image> expected = runHealStage(fresh, {&another, 7, {}, false, heals, nullptr});
  EXPECT_TRUE(samePixels(*third, *expected));
  EXPECT_FALSE(samePixels(*third, *healed));
}

TEST(HealStage, PrefixReuseGivesTheSamePixelsAsAFullRecompute) {
  Image source = texturedSource(500, 360);
  for (int turns : {0, 1}) {
    GeometryParams geometry;
    geometry.quarterTurn = turns;
    geometry.crop = RectF{0.05, 0.0, 0.9, 0.95};
    auto eleven = strokeSet(11);
    std::span<const HealStroke> ten(eleven.data(), 10);

    std::mutex lockA;
    HealCache incremental(lockA);
    ASSERT_TRUE(runHealStage(incremental, {&source, 1, geometry, false, ten, nullptr}));
    HealCacheKey key{1, sourceFingerprint(source), eleven, geometry, Geometry(source.bounds(), geometry).outputRect()};
    std::optional<HealPrefixEntry> prefix = incremental.prefixFor(key);
    ASSERT_TRUE(prefix);
    EXPECT_EQ(prefix->applied.size(), 10u);
    auto reused = runHealStage(incremental, {&source, 1, geometry, false, eleven, nullptr});

    std::mutex lockB;
    HealCache fresh(lockB);
    auto full = runHealStage(fresh, {&source, 1, geometry, false, eleven, nullptr});
    ASSERT_TRUE(reused && full);
    EXPECT_TRUE(samePixels(*reused, *full)) << "turns " << turns;

    // A request that changes an earlier stroke cannot start from the prefix.
    auto changed = eleven;
    changed[3].size = 0.03;
    key.heals = changed;
    EXPECT_FALSE(incremental.prefixFor(key));
  }
}

TEST(HealStage, FailedRequestsAreNotRetriedAndCancelledOnesLeaveNoTrace) {
  Image source = texturedSource(200, 150);
  auto heals = strokeSet(2);
  Geometry plain(source.bounds(), {});
  Image unhealed(plain.outputRect());
  plain.render(source, unhealed);

  std::mutex lock;
  HealCache cache(lock);
  HealCacheKey key{3, sourceFingerprint(source), heals, {}, plain.outputRect()};
  cache.markFailed(key);
  auto result = runHealStage(cache, {&source, 3, {}, false, heals, nullptr});
  ASSERT_TRUE(result);
  EXPECT_TRUE(samePixels(*result, unhealed));
  EXPECT_EQ(cache.entryCount(), 0u);

  AsyncCancelToken token;
  token.cancel();
  EXPECT_FALSE(runHealStage(cache, {&source, 4, {}, false, heals, &token}));
  key.source = 4;
  EXPECT_FALSE(cache.find(key));
  EXPECT_FALSE(cache.prefixFor(key));
  EXPECT_FALSE(cache.hasFailed(key)) << "cancelling is not failing";
}

TEST(HealCache, EvictsOldestFirstWithinTheByteBudget) {
  std::mutex lock;
  const size_t frameBytes = Image(100, 100).byteSize();
  HealCache cache(lock, 3 * frameBytes);
  auto key = [](HealSourceId id) { return HealCacheKey{id, 0, {}, {}, Rect{0, 0, 100, 100}}; };
  for (HealSourceId id = 1; id <= 4; ++id) cache.insert(key(id), std::make_shared<const Image>(100, 100), nullptr);
  EXPECT_EQ(cache.entryCount(), 3u);
  EXPECT_EQ(cache.bytes(), 3 * frameBytes);
  EXPECT_FALSE(cache.find(key(1)));
  EXPECT_TRUE(cache.find(key(2)));
  EXPECT_TRUE(cache.find(key(4)));
  // A frame larger than the whole budget stays alone while it is the newest.
  cache.insert(key(9), std::make_shared<const Image>(400, 400), nullptr);
  EXPECT_TRUE(cache.find(key(9)));
  EXPECT_EQ(cache.entryCount(), 1u);
  cache.insert(key(10), std::make_shared<const Image>(100, 100), nullptr);
  EXPECT_FALSE(cache.find(key(9)));
  EXPECT_EQ(cache.bytes(), frameBytes);
  // The entry count is bounded too.
  HealCache roomy(lock, size_t(1) << 40);
  for (HealSourceId id = 1; id <= 20; ++id) roomy.insert(key(id), std::make_shared<const Image>(4, 4), nullptr);
  EXPECT_EQ(roomy.entryCount(), HealCache::kMaxEntries);
}

}  // namespace
}  // namespace vg
