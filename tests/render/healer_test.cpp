#include "render/healer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

namespace vg {
namespace {

using Bitmap = Healer::Bitmap;

uint32_t hash(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352dU;
  x ^= x >> 15;
  x *= 0x846ca68bU;
  x ^= x >> 16;
  return x;
}

// A woven texture: a periodic pattern (so good sources exist nearby) plus a
// little per-pixel grain, opaque.
Bitmap texture(int width, int height) {
  Bitmap b(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = b.at(x, y);
      double weave = std::sin(x * 0.55) * std::cos(y * 0.4);
      int grain = int(hash(uint32_t(y) * 65599u + uint32_t(x)) % 13) - 6;
      p[0] = uint8_t(130 + 50 * weave + grain);
      p[1] = uint8_t(110 + 40 * weave + grain);
      p[2] = uint8_t(90 + 30 * std::sin(x * 0.2 + y * 0.1) + grain);
      p[3] = 255;
    }
  }
  return b;
}

// A gently shaded surface (two slow waves) with per-pixel grain of +-6: the
// kind of background the healer is meant for.
Bitmap grainySurface(int width, int height) {
  Bitmap b(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = b.at(x, y);
      double shade = 20 * std::sin(x * 0.05) + 15 * std::cos(y * 0.07 + x * 0.01);
      int grain = int(hash(uint32_t(y) * 65599u + uint32_t(x)) % 13) - 6;
      p[0] = uint8_t(170 + shade + grain);
      p[1] = uint8_t(140 + shade * 0.8 + grain);
      p[2] = uint8_t(120 + shade * 0.6 + grain);
      p[3] = 255;
    }
  }
  return b;
}

Bitmap uniform(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
  Bitmap out(width, height);
  for (size_t i = 0; i < out.pixelCount(); ++i) {
    out.pixels[i * 4 + 0] = r;
    out.pixels[i * 4 + 1] = g;
    out.pixels[i * 4 + 2] = b;
    out.pixels[i * 4 + 3] = 255;
  }
  return out;
}

// Mean absolute RGB difference over the pixels whose centres lie within r.
double discError(const Bitmap& a, const Bitmap& b, double cx, double cy, double r) {
  double sum = 0;
  int n = 0;
  for (int y = 0; y < a.height; ++y) {
    for (int x = 0; x < a.width; ++x) {
      if (std::hypot(x + 0.5 - cx, y + 0.5 - cy) > r) continue;
      for (int c = 0; c < 3; ++c) sum += std::abs(int(a.at(x, y)[c]) - int(b.at(x, y)[c]));
      ++n;
    }
  }
  return sum / (3.0 * n);
}

// True when every pixel whose centre lies farther than r from c is the same.
bool sameOutside(const Bitmap& a, const Bitmap& b, double cx, double cy, double r) {
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      if (std::hypot(x + 0.5 - cx, y + 0.5 - cy) > r && !std::equal(a.at(x, y), a.at(x, y) + 4, b.at(x, y)))
        return false;
  return true;
}

Healer::Stroke line(double x0, double y0, double x1, double y1, double size) {
  return {{{x0, y0}, {x1, y1}}, size};
}

TEST(HealerDabs, RadiusFollowsWidthWithinLimits) {
  EXPECT_DOUBLE_EQ(*Healer::strokeRadius(0.01, 6000, 4000), 30.0);
  EXPECT_DOUBLE_EQ(*Healer::strokeRadius(1.0, 6000, 4000), 800.0);  // 0.2 x shorter side
  EXPECT_DOUBLE_EQ(*Healer::strokeRadius(0.0, 6000, 4000), 3.0);
  EXPECT_FALSE(Healer::strokeRadius(std::nan(""), 6000, 4000));
}

TEST(HealerDabs, SpacingIsHalfTheRadiusAlongThePolyline) {
  // r = 30, spacing 15: a 585-pixel line gives its first point plus 39 dabs.
  std::vector<Healer::Dab> dabs = Healer::strokeDabs(line(0.1, 0.5, 0.1 + 585.0 / 6000, 0.5, 0.01), 6000, 4000);
  ASSERT_EQ(dabs.size(), 40u);
  EXPECT_DOUBLE_EQ(dabs.front().cx, 600.0);
  EXPECT_DOUBLE_EQ(dabs.back().cx, 1185.0);
  for (size_t i = 1; i < dabs.size(); ++i) EXPECT_NEAR(dabs[i].cx - dabs[i - 1].cx, 15.0, 1e-9);
  for (const Healer::Dab& d : dabs) EXPECT_EQ(d.cy, 2000.0);

  // A short segment still gets one dab at its end; a single point one dab.
  EXPECT_EQ(Healer::strokeDabs(line(0.5, 0.5, 0.5001, 0.5, 0.01), 6000, 4000).size(), 2u);
  EXPECT_EQ(Healer::strokeDabs({{{0.5, 0.5}}, 0.01}, 6000, 4000).size(), 1u);
}

TEST(HealerDabs, CentresOutsideTheImageAreNotUsed) {
  // The middle point lies far outside: only the dabs inside are kept, and the
  // path is followed as drawn (out and back), not short-cut.
  Healer::Stroke stroke{{{0.5, 0.5}, {5e5, 0.5}, {0.5, 0.6}}, 0.01};
  std::vector<Healer::Dab> dabs = Healer::strokeDabs(stroke, 1000, 1000);
  ASSERT_FALSE(dabs.empty());
  for (const Healer::Dab& d : dabs) {
    EXPECT_GE(d.cx, 0.0);
    EXPECT_LE(d.cx, 1000.0);
    EXPECT_TRUE(d.cy == 500.0 || d.cy > 599.0) << d.cy;  // no short cut from (500, 500) to (500, 600)
  }
  EXPECT_NEAR(double(dabs.size()), 401.0, 2.0);  // the first point and 200 along each visible leg
  EXPECT_TRUE(Healer::strokeDabs({{{-0.1, 0.5}, {1.2, 0.5}}, std::nan("")}, 100, 100).empty());
}

TEST(HealerDisc, RingSamplesFollowTheStepRule) {
  EXPECT_EQ(Healer::ringSamples(200, 200, 100, 100, 3.0).size(), 20u);   // 2 pi / 10
  EXPECT_EQ(Healer::ringSamples(200, 200, 100, 100, 4.9).size(), 20u);   // floor(r) x 2.2 = 8.8
  EXPECT_EQ(Healer::ringSamples(200, 200, 100, 100, 5.0).size(), 22u);   // 11 angles
  EXPECT_EQ(Healer::ringSamples(400, 400, 200, 200, 30.0).size(), 96u);  // capped at pi / 24
  // Samples off the bitmap are dropped: at a corner only a quarter is left.
  size_t corner = Healer::ringSamples(200, 200, 0.5, 0.5, 3.0).size();
  EXPECT_GT(corner, 0u);
  EXPECT_LT(corner, 10u);
}

TEST(HealerDisc, CandidatesGoRingFirstThenAngle) {
  auto c = Healer::candidates(10.0);
  EXPECT_EQ(c[0].dx, 22);
  EXPECT_EQ(c[0].dy, 0);
  EXPECT_EQ(c[4].dx, 0);
  EXPECT_EQ(c[4].dy, 22);
  EXPECT_EQ(c[16].dx, 30);
  EXPECT_EQ(c[32].dx, 38);
  EXPECT_EQ(c[40].dx, -38);
  EXPECT_EQ(c[40].dy, 0);
}

TEST(HealerDisc, EdgeDabIsFlatFilled) {
  Bitmap b = texture(120, 120);
  Healer::ForbiddenMask none(b.pixelCount());
  Healer::Dab dab{6.0, 60.0, 5.0};  // patch half-size 9 > cx
  std::vector<Healer::RingSample> samples = Healer::ringSamples(b.width, b.height, dab.cx, dab.cy, dab.radius);
  double mean = 0;
  for (auto s : samples) mean += b.at(s.x, s.y)[0];
  mean = std::round(mean / samples.size());

  EXPECT_EQ(Healer::healDisc(b, none, dab, {}), Healer::DiscOutcome::flatFilled);
  EXPECT_EQ(b.at(5, 59)[0], mean);  // within r / 2: fully the ring mean
  EXPECT_TRUE(sameOutside(b, texture(120, 120), dab.cx, dab.cy, dab.radius));
}

TEST(HealerDisc, AllCandidatesForbiddenGivesFlatFill) {
  Bitmap textured = texture(200, 200);
  Healer::Dab dab{100.0, 100.0, 8.0};
  Healer::ForbiddenMask wide(textured.pixelCount());
  wide.markDisc(200, 200, 100, 100, 60);  // covers every candidate's samples
  Bitmap a = textured;
  EXPECT_EQ(Healer::healDisc(a, wide, dab, {}), Healer::DiscOutcome::flatFilled);

  Healer::ForbiddenMask own(textured.pixelCount());
  own.markDisc(200, 200, 100, 100, Healer::forbiddenRadius(dab.radius));
  Bitmap b = textured;
  auto scores = Healer::scoreCandidates(b, own, dab, Healer::ringSamples(200, 200, 100, 100, 8.0),
                                        Healer::Scoring::serial);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(scores[i], -1) << "the innermost ring reaches into the dab";
  EXPECT_EQ(Healer::healDisc(b, own, dab, {}), Healer::DiscOutcome::textureFilled);
  EXPECT_NE(a, b);
}

TEST(HealerDisc, ColourMatchIsLimitedAndFeathered) {
  // Bright disc surroundings (200) with every usable source in a grey field
  // (100): the match would need +100 but is limited to +48.
  for (bool brighter : {true, false}) {
    uint8_t field = brighter ? 100 : 200, spot = brighter ? 200 : 100;
    Bitmap b = uniform(300, 300, field, field, field);
    for (int y = 0; y < 300; ++y)
      for (int x = 0; x < 300; ++x)
        if (std::hypot(x + 0.5 - 150, y + 0.5 - 150) <= 17.0) std::fill_n(b.at(x, y), 3, spot);
    Healer::Dab dab{150.0, 150.0, 10.0};
    Healer::ForbiddenMask mask(b.pixelCount());
    mask.markDisc(300, 300, 150, 150, 21);  // only the 3.8 r ring stays usable
    Bitmap before = b;
    ASSERT_EQ(Healer::healDisc(b, mask, dab, {}), Healer::DiscOutcome::textureFilled);
    int matched = brighter ? 148 : 152;
    EXPECT_EQ(b.at(150, 150)[0], matched);
    // d = 8.5 (0.85 r): weight 0.5.
    EXPECT_EQ(b.at(158, 150)[0], (spot + matched + 1) / 2);
    EXPECT_TRUE(sameOutside(b, before, dab.cx, dab.cy, dab.radius));
  }
}

TEST(Healer, UniformAreaStaysUnchanged) {
  Bitmap b = uniform(400, 300, 120, 80, 40);
  std::vector<Healer::Stroke> strokes{line(0.2, 0.3, 0.7, 0.6, 0.05), line(0.01, 0.02, 0.3, 0.99, 0.02)};
  std::optional<Bitmap> healed = Healer::heal(b, strokes);
  ASSERT_TRUE(healed);
  EXPECT_EQ(*healed, b);
}

TEST(Healer, RemovesAPaintedBlemishFromTexture) {
  Bitmap clean = grainySurface(320, 240);
  Bitmap blemished = clean;
  const double bx = 170.3, by = 118.7;
  for (int y = 0; y < 240; ++y) {
    for (int x = 0; x < 320; ++x) {
      double d = std::hypot(x + 0.5 - bx, y + 0.5 - by);
      if (d > 9) continue;
      double w = d < 7 ? 1.0 : (9 - d) / 2;
      uint8_t* p = blemished.at(x, y);
      for (int c = 0; c < 3; ++c) p[c] = uint8_t(std::lround(p[c] + w * (25 - p[c])));
    }
  }
  // A short dab-covering stroke, radius 12 (size = 24 / 320).
  std::vector<Healer::Stroke> strokes{line((bx - 2) / 320, by / 240, (bx + 2) / 320, by / 240, 24.0 / 320)};
  std::optional<Bitmap> healed = Healer::heal(blemished, strokes);
  ASSERT_TRUE(healed);
  double before = discError(blemished, clean, bx, by, 9);
  double after = discError(*healed, clean, bx, by, 9);
  EXPECT_GT(before, 80.0);
  EXPECT_LT(after, 0.15 * before) << "before " << before << " after " << after;
  // Nothing far away moved.
  EXPECT_EQ(discError(*healed, clean, 40, 40, 30), 0.0);
}

TEST(Healer, TinyBitmapsAndExtremeStrokesStayInBounds) {
  const double nan = std::nan("");
  std::vector<Healer::Stroke> strokes{{{{0, 0}, {1, 1}, {1, 0}, {0, 1}}, 4.0},
                                      {{{0.5, 0.5}, {nan, 0.2}, {0.999, 0.001}}, 0.0},
                                      {{{1e6, -1e6}, {-1e6, 1e6}}, 1.0}};
  for (auto [w, h] : {std::pair{0, 0}, {1, 1}, {2, 3}, {7, 7}, {40, 9}, {9, 40}}) {
    Bitmap b = texture(w, h);
    std::optional<Bitmap> healed = Healer::heal(b, strokes);
    ASSERT_TRUE(healed) << w << "x" << h;
    EXPECT_EQ(healed->pixels.size(), b.pixels.size());
    EXPECT_EQ(*healed, *Healer::heal(b, strokes));
  }
}

TEST(Healer, DeterministicAndPrefixSplittable) {
  Bitmap b = texture(300, 260);
  std::vector<Healer::Stroke> strokes{line(0.2, 0.3, 0.45, 0.35, 0.04), line(0.6, 0.7, 0.62, 0.4, 0.03),
                                      {{{0.5, 0.5}}, 0.05}};
  std::optional<Bitmap> once = Healer::heal(b, strokes);
  std::optional<Bitmap> again = Healer::heal(b, strokes);
  ASSERT_TRUE(once && again);
  EXPECT_EQ(*once, *again);
  EXPECT_NE(*once, b);

  // Healing the first two, then the third on top, equals healing all three.
  Bitmap staged = *Healer::heal(b, std::span(strokes).first(2));
  ASSERT_TRUE(Healer::healInPlace(staged, strokes, 2, nullptr));
  EXPECT_EQ(staged, *once);
}

TEST(Healer, ParallelScoringMatchesSerial) {
  Bitmap b = texture(1500, 1400);  // 2.1 MP
  ASSERT_GE(b.pixelCount(), Healer::kParallelMinPixels);
  Healer::Dab dab{700.0, 650.0, 20.0};
  auto samples = Healer::ringSamples(b.width, b.height, dab.cx, dab.cy, dab.radius);
  ASSERT_GT(samples.size(), 31u);
  Healer::ForbiddenMask mask(b.pixelCount());
  mask.markDisc(b.width, b.height, dab.cx + 15, dab.cy, 40);  // rejects some, not all
  auto serial = Healer::scoreCandidates(b, mask, dab, samples, Healer::Scoring::serial);
  auto parallel = Healer::scoreCandidates(b, mask, dab, samples, Healer::Scoring::parallel);
  EXPECT_EQ(serial, parallel);
  EXPECT_NE(std::count(serial.begin(), serial.end(), -1), 0);
  EXPECT_NE(std::count(serial.begin(), serial.end(), -1), 48);

  std::vector<Healer::Stroke> strokes{line(0.3, 0.3, 0.6, 0.55, 0.03), line(0.2, 0.8, 0.25, 0.7, 0.02)};
  auto a = Healer::heal(b, strokes, nullptr, {Healer::Scoring::serial});
  auto p = Healer::heal(b, strokes, nullptr, {Healer::Scoring::parallel});
  auto automatic = Healer::heal(b, strokes, nullptr, {});
  ASSERT_TRUE(a && p && automatic);
  EXPECT_EQ(*a, *p);
  EXPECT_EQ(*a, *automatic);
}

TEST(Healer, CancellationEndsBetweenDabs) {
  Bitmap b = texture(200, 200);
  std::vector<Healer::Stroke> strokes{line(0.1, 0.1, 0.9, 0.9, 0.03)};
  auto token = std::make_shared<AsyncCancelToken>();
  token->cancel();
  EXPECT_FALSE(Healer::heal(b, strokes, token.get()));
  Bitmap untouched = b;
  EXPECT_FALSE(Healer::healInPlace(untouched, strokes, 0, token.get()));
  EXPECT_EQ(untouched, b) << "cancelled before the first dab";

  // Cancelled from another thread in the middle of a long run: what is left
  // is the state after some whole number of dabs, never half a dab.
  std::vector<Healer::Stroke> longRun;
  for (int i = 0; i < 1500; ++i) longRun.push_back(line(0.1, 0.1 + i * 0.0005, 0.9, 0.9 - i * 0.0005, 0.03));
  auto live = std::make_shared<AsyncCancelToken>();
  Bitmap worked = b;
  std::atomic<bool> finished{false};
  std::thread worker([&] { finished = Healer::healInPlace(worked, longRun, 0, live.get()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  live->cancel();
  worker.join();
  ASSERT_FALSE(finished.load());

  Bitmap replay = b;
  Healer::ForbiddenMask mask(b.pixelCount());
  bool matched = replay == worked;
  for (size_t k = 0; k < longRun.size() && !matched; ++k) {
    auto dabs = Healer::strokeDabs(longRun[k], b.width, b.height);
    for (auto& d : dabs) mask.markDisc(b.width, b.height, d.cx, d.cy, Healer::forbiddenRadius(d.radius));
    for (auto& d : dabs) {
      Healer::healDisc(replay, mask, d, {});
      if (replay == worked) {
        matched = true;
        break;
      }
    }
  }
  EXPECT_TRUE(matched);
}

}  // namespace
}  // namespace vg
