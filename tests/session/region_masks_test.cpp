#include "session/region_masks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace vg {
namespace {

struct Rgb8 {
  std::uint8_t r, g, b;
};

Rgba8Bitmap filled(int w, int h, Rgb8 c) {
  Rgba8Bitmap b(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      std::uint8_t* p = b.at(x, y);
      p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = 255;
    }
  return b;
}

void paint(Rgba8Bitmap& b, int x0, int y0, int x1, int y1, Rgb8 c) {  // half-open box
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) {
      std::uint8_t* p = b.at(x, y);
      p[0] = c.r, p[1] = c.g, p[2] = c.b;
    }
}

bool allZero(const MaskRaster& m, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < m.width; ++x)
      if (m.at(x, y) != 0) return false;
  return true;
}

constexpr Rgb8 kSky{150, 190, 240};
constexpr Rgb8 kBlack{0, 0, 0};

TEST(SkyRasterTest, DarkTopGivesAnEmptyMaskOfTheBitmapsSize) {
  Rgba8Bitmap b = filled(40, 30, Rgb8{60, 60, 60});  // mean exactly 60: not bright
  paint(b, 0, 20, 40, 30, Rgb8{250, 250, 250});      // bright, but below the sampled quarter
  MaskRaster m = skyRaster(b);
  EXPECT_EQ(m.width, 40);
  EXPECT_EQ(m.height, 30);
  EXPECT_TRUE(allZero(m, 0, 30));
}

TEST(SkyRasterTest, StrengthFallsWithDistanceAndOneRowIsNotSoftened) {
  // One row, three bands of 16 pixels: each band has its own reference, and
  // the radius min(6, floor(1/2)) = 0 leaves the grown values as they are.
  Rgba8Bitmap b = filled(48, 1, kSky);
  for (int x = 0; x < 16; ++x) paint(b, x, 0, x + 1, 1, x % 2 ? Rgb8{100, 100, 190} : Rgb8{100, 100, 100});
  MaskRaster m = skyRaster(b);
  for (int x = 0; x < 16; ++x) EXPECT_EQ(m.at(x, 0), 127) << x;  // d = 45 of T = 90: trunc(127.5)
  for (int x = 16; x < 48; ++x) EXPECT_EQ(m.at(x, 0), 255) << x;  // on the reference
}

TEST(SkyRasterTest, ABandWithFifteenBrightSamplesUsesTheGlobalMean) {
  // 30 x 40: 10 sample rows; band 0 is columns 0-9. Band 0 is dark apart from
  // its sky-coloured pixel (0, 0) and warm pixels, `bright` samples in all;
  // bands 1 and 2 are sky. (0, 0) is taken only when band 0 falls back to the
  // global mean.
  auto run = [](int bright) {
    Rgba8Bitmap b = filled(30, 40, kBlack);
    paint(b, 10, 0, 30, 10, kSky);
    for (int i = 0; i < bright - 1; ++i) paint(b, 1 + i % 9, 1 + i / 9, 2 + i % 9, 2 + i / 9, Rgb8{255, 120, 40});
    paint(b, 0, 0, 1, 1, kSky);
    return skyRaster(b);
  };
  MaskRaster fifteen = run(15), sixteen = run(16);
  // The global mean is dominated by the 200 sky pixels, so (0, 0) is close.
  EXPECT_GT(fifteen.at(0, 0), 200);
  // With 16 warm samples band 0 has its own, warm reference, far from sky;
  // only the softened neighbourhood can reach (0, 0).
  EXPECT_LT(sixteen.at(0, 0), fifteen.at(0, 0) - 100);
}

TEST(SkyRasterTest, GrowsOnlyThroughPixelsCloseToTheReference) {
  // A bright lower field reached from the top only along column 15; a black
  // pixel on that column cuts it off.
  auto run = [](bool blocked) {
    Rgba8Bitmap b = filled(30, 60, kBlack);
    paint(b, 15, 0, 16, 30, kSky);
    paint(b, 0, 30, 30, 60, kSky);
    if (blocked) paint(b, 15, 5, 16, 6, kBlack);
    return skyRaster(b);
  };
  MaskRaster open = run(false), cut = run(true);
  EXPECT_EQ(open.at(15, 0), 255);
  EXPECT_EQ(open.at(25, 55), 255);  // joined through column 15, then rightwards
  EXPECT_GT(cut.at(15, 4), 0);
  // The softening reaches 3 x 6 rows beyond the last selected pixel at most.
  EXPECT_TRUE(allZero(cut, 5 + 18 + 1, 60));
}

TEST(SkyRasterTest, ToleranceShrinksDownThePicture) {
  // Top quarter (the samples) at the reference, the rest at distance 50: taken
  // while T = 90 (1 - 0.6 y/h) > 50, i.e. above row 74.07 of 100.
  Rgba8Bitmap b = filled(10, 100, Rgb8{200, 200, 150});
  paint(b, 0, 0, 10, 25, Rgb8{200, 200, 200});
  MaskRaster m = skyRaster(b);
  for (int y : {40, 50, 60}) {  // far from both ends the softened copy stays below
    const double T = 90.0 * (1.0 - 0.6 * y / 100.0);
    EXPECT_NEAR(m.at(5, y), int((1 - 50 / T) * 255), 1) << y;
  }
  EXPECT_GT(m.at(5, 72), 0);
  // The last taken row is 74 (with strength 0); softening spreads three
  // passes of radius 5 beyond row 73 at most.
  EXPECT_TRUE(allZero(m, 73 + 15 + 1, 100));
}

TEST(MagicWandRasterTest, ToleranceZeroTakesTheConnectedSameColour) {
  Rgba8Bitmap b = filled(9, 9, Rgb8{100, 100, 100});
  paint(b, 0, 4, 9, 5, Rgb8{100, 100, 101});  // a wall one step away, across row 4
  paint(b, 4, 2, 5, 3, Rgb8{0, 0, 0});
  MaskRaster m = magicWandRaster(b, {0.5, 0.1}, 0, 0);  // seed (5, 1)
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x) {
      const bool expected = y < 4 && !(x == 4 && y == 2);
      EXPECT_EQ(m.at(x, y), expected ? 255 : 0) << x << "," << y;
    }
}

TEST(MagicWandRasterTest, ToleranceHundredLeavesOutOnlyTheFarthestColour) {
  Rgba8Bitmap b = filled(6, 4, Rgb8{255, 255, 255});
  paint(b, 0, 0, 1, 1, Rgb8{0, 0, 0});  // 441.673 from white: beyond 441.67
  paint(b, 1, 0, 2, 1, Rgb8{0, 0, 1});  // 441.095: within
  paint(b, 2, 0, 3, 1, Rgb8{1, 0, 0});
  MaskRaster m = magicWandRaster(b, {1.0, 1.0}, 100, 0);  // clamped to (5, 3)
  EXPECT_EQ(m.at(0, 0), 0);
  EXPECT_EQ(std::count(m.values.begin(), m.values.end(), 255), 6 * 4 - 1);
}

TEST(MagicWandRasterTest, ComparesWithTheSeedSoItCannotDriftAlongAGradient) {
  // Each column one step brighter than the last: neighbours always agree,
  // but only columns within 10 % x 441.67 = 44.167 of the seed are taken.
  Rgba8Bitmap b(100, 3);
  for (int x = 0; x < 100; ++x) paint(b, x, 0, x + 1, 3, Rgb8{std::uint8_t(x), std::uint8_t(x), std::uint8_t(x)});
  MaskRaster m = magicWandRaster(b, {0.0, 0.5}, 10, 0);
  for (int x = 0; x < 100; ++x) EXPECT_EQ(m.at(x, 1), x * std::sqrt(3.0) <= 44.167 ? 255 : 0) << x;  // 26 columns
}

TEST(MagicWandRasterTest, SeedRoundsHalfAwayFromZeroAndClamps) {
  Rgba8Bitmap b = filled(10, 1, Rgb8{10, 10, 10});
  paint(b, 5, 0, 10, 1, Rgb8{200, 10, 10});
  EXPECT_EQ(magicWandRaster(b, {0.449, 0}, 0, 0).at(0, 0), 255);  // 4.49 -> column 4
  EXPECT_EQ(magicWandRaster(b, {0.45, 0}, 0, 0).at(9, 0), 255);   // 4.5 -> column 5
  EXPECT_EQ(magicWandRaster(b, {-3, 7}, 0, 0).at(0, 0), 255);     // clamped to (0, 0)
}

TEST(MagicWandRasterTest, FeatherSoftensTheEdgeAndZeroKeepsItHard) {
  Rgba8Bitmap b = filled(40, 40, kBlack);
  paint(b, 10, 10, 30, 30, kSky);
  MaskRaster hard = magicWandRaster(b, {0.5, 0.5}, 5, 0);
  EXPECT_TRUE(std::all_of(hard.values.begin(), hard.values.end(), [](std::uint8_t v) { return v == 0 || v == 255; }));
  EXPECT_EQ(std::count(hard.values.begin(), hard.values.end(), 255), 400);

  MaskRaster soft = magicWandRaster(b, {0.5, 0.5}, 5, 3);
  MaskRaster expected = hard;
  boxSoften(expected, 3);
  EXPECT_EQ(soft, expected);
  EXPECT_GT(soft.at(9, 20), 0);  // outside the square, softened in
  EXPECT_LT(soft.at(10, 20), 255);
  EXPECT_EQ(soft.at(20, 20), 255);
}

TEST(BoxSoftenTest, RunningSumsMatchThePlainSums) {
  std::mt19937 rng(7);
  struct Case {
    int w, h, r;
  };
  for (Case c : {Case{1, 1, 3}, Case{1, 17, 2}, Case{23, 1, 5}, Case{31, 19, 6}, Case{40, 7, 20}, Case{64, 48, 1}}) {
    MaskRaster m(c.w, c.h);
    for (auto& v : m.values) v = std::uint8_t(rng() % 3 == 0 ? 255 : rng() % 256);
    MaskRaster fast = m, plain = m;
    boxSoften(fast, c.r);
    boxSoftenReference(plain, c.r);
    EXPECT_EQ(fast, plain) << c.w << "x" << c.h << " r" << c.r;
  }
  MaskRaster m(5, 5);
  m.at(2, 2) = 200;
  MaskRaster same = m;
  boxSoften(same, 0);
  EXPECT_EQ(same, m);
}

TEST(BoxSoftenTest, WideWindowsOfFullValuesStayFull) {
  // Sums up to 255 x 2049 per axis: the reciprocal division stays exact.
  MaskRaster m(2500, 3);
  std::fill(m.values.begin(), m.values.end(), 255);
  boxSoften(m, 1024);
  EXPECT_TRUE(std::all_of(m.values.begin(), m.values.end(), [](std::uint8_t v) { return v == 255; }));
}

}  // namespace
}  // namespace vg
