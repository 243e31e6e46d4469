// The kernels: every fast path against its scalar reference, then the
// behaviour a photographer relies on (neutral values, clamping, NaN, the
// documented edge cases of each kernel).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "render/kernel_math.h"
#include "render/kernels.h"
#include "every_target.h"

namespace vg::kernels {
namespace {

using RowFn = std::function<void(const KernelRow&)>;

struct Row {
  std::vector<float> px, aux;
  int x = 0, y = 0;
  int n() const { return int(px.size() / 4); }
};

// Rows of awkward lengths (tails shorter than a vector) at awkward positions,
// including negative and large coordinates.
std::vector<Row> randomRows(uint32_t seed, float lo = 0.0f, float hi = 1.0f) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(lo, hi);
  std::vector<Row> rows;
  const int lengths[] = {1, 3, 7, 16, 17, 31, 64, 101};
  const int xs[] = {0, -37, 4090, 2'000'003};
  for (int len : lengths) {
    for (int x : xs) {
      Row r;
      r.x = x;
      r.y = x / 3 - 11;
      for (int i = 0; i < len * 4; ++i) r.px.push_back(u(rng));
      for (int i = 0; i < len * 4; ++i) r.aux.push_back(u(rng));
      // Opaque, half and clear pixels: alpha must pass through untouched.
      for (int i = 0; i < len; ++i) r.px[size_t(i) * 4 + 3] = (i % 3 == 0) ? 1.0f : (i % 3 == 1 ? 0.5f : 0.0f);
      rows.push_back(std::move(r));
    }
  }
  return rows;
}

KernelRow view(Row& r, std::vector<float>& px) { return {px.data(), r.aux.data(), r.n(), r.x, r.y}; }

// Runs both paths on every row; returns the largest colour difference and
// checks that alpha is kept (or set to 1 for the mask kernels).
float maxDifference(const RowFn& fast, const RowFn& ref, std::vector<Row> rows, bool writesAlpha = false) {
  float worst = 0;
  for (auto& r : rows) {
    std::vector<float> a = r.px, b = r.px;
    fast(view(r, a));
    ref(view(r, b));
    for (size_t i = 0; i < a.size(); ++i) {
      if (i % 4 == 3) {
        float want = writesAlpha ? 1.0f : r.px[i];
        EXPECT_EQ(a[i], want);
        EXPECT_EQ(b[i], want);
        continue;
      }
      if (std::isnan(a[i]) || std::isnan(b[i])) {
        EXPECT_EQ(std::isnan(a[i]), std::isnan(b[i])) << "at " << i;
        continue;
      }
      worst = std::max(worst, std::fabs(a[i] - b[i]));
    }
  }
  return worst;
}

struct Case {
  std::string name;
  RowFn fast, ref;
  bool clampsOutput = true;
  bool writesAlpha = false;
  std::function<void(const PlanarRow&)> planar;  // the fast path on planar runs, where there is one
};

// The planar forms, by parameter type.
void planarOf(const ToneParams& p, const PlanarRow& r) { tone(p, r); }
void planarOf(const VibranceParams& p, const PlanarRow& r) { vibrance(p, r); }
void planarOf(const HslParams& p, const PlanarRow& r) { hsl(p, r); }
void planarOf(const SplitTonePrepared& p, const PlanarRow& r) { splitTone(p, r); }
void planarOf(const VignettePrepared& p, const PlanarRow& r) { vignette(p, r); }
void planarOf(const GrainPrepared& p, const PlanarRow& r) { grain(p, r); }
void planarOf(const CurvesPrepared& p, const PlanarRow& r) { curves(p, r); }
void planarOf(const DitherParams& p, const PlanarRow& r) { dither(p, r); }
void planarOf(const MonochromePrepared& p, const PlanarRow& r) { monochrome(p, r); }

template <class P>
Case make(std::string name, void (*fast)(const P&, const KernelRow&), void (*ref)(const P&, const KernelRow&), P p,
          bool clamps = true, bool writesAlpha = false) {
  auto shared = std::make_shared<P>(std::move(p));
  Case c{std::move(name), [=](const KernelRow& r) { fast(*shared, r); }, [=](const KernelRow& r) { ref(*shared, r); },
         clamps, writesAlpha, {}};
  if constexpr (requires(const P& q, const PlanarRow& r) { planarOf(q, r); }) {
    c.planar = [=](const PlanarRow& r) { planarOf(*shared, r); };
  }
  return c;
}

std::vector<float> identityCurveRow(float (*f)(float), int channel) {
  std::vector<float> row(1024 * 4, 1.0f);
  for (int i = 0; i < 1024; ++i) row[size_t(i) * 4 + size_t(channel)] = f(float(i) / 1023.0f);
  return row;
}

// Every kernel with a few settings each, chosen to reach every branch.
std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (float c : {-1.0f, -0.4f, 0.0f, 0.7f, 1.0f}) {
    cases.push_back(make("tone contrast " + std::to_string(c), &tone, &reference::tone,
                         ToneParams{0.5f * c, -0.6f * c, 0.8f, -0.3f, c}));
  }
  cases.push_back(make("tone shadows", &tone, &reference::tone, ToneParams{-0.7f, 0.7f, -1.0f, 1.0f, 0.2f}));
  for (float a : {-0.9f, 0.45f, 0.9f}) cases.push_back(make("vibrance", &vibrance, &reference::vibrance, VibranceParams{a}));
  HslParams h;
  for (int i = 0; i < 8; ++i) h.bands[size_t(i)] = {float(i * 25 - 100), float(90 - i * 23), float(i * 17 - 60)};
  cases.push_back(make("hsl", &hsl, &reference::hsl, h));
  uint8_t texels[32];
  for (int i = 0; i < 32; ++i) texels[i] = uint8_t(i * 37 % 256);
  cases.push_back(make("hsl texels", &hsl, &reference::hsl, HslParams::fromTexels(texels)));
  // The fast path skips bands and adjustments that are all zero: one band with
  // one adjustment each, the rest neutral.
  HslParams sparse;
  sparse.bands[1].hue = -60.0f;
  sparse.bands[4].saturation = 80.0f;
  sparse.bands[7].luminance = -70.0f;
  cases.push_back(make("hsl sparse", &hsl, &reference::hsl, sparse));
  HslParams lumOnly;
  lumOnly.bands[0].luminance = 100.0f;
  cases.push_back(make("hsl one band", &hsl, &reference::hsl, lumOnly));
  cases.push_back(make("split tone", &splitTone, &reference::splitTone,
                       prepare(SplitToneParams{0.1f, 0.8f, 0.6f, 0.5f, 0.4f})));
  cases.push_back(make("split tone balance", &splitTone, &reference::splitTone,
                       prepare(SplitToneParams{0.95f, 0.2f, 0.33f, 0.85f, -1.0f})));
  for (float a : {-0.9f, 0.75f}) cases.push_back(make("detail", &detail, &reference::detail, DetailParams{a}));
  for (float a : {-0.8f, 0.3f, 0.8f}) cases.push_back(make("dehaze", &dehaze, &reference::dehaze, DehazeParams{a}));
  VignetteParams v{0.9f, 0.4f, 0.6f, -30.0f, 4000.0f, 300.0f, 120.0f};
  cases.push_back(make("vignette", &vignette, &reference::vignette, prepareVignette(v)));
  v.amount = -1.1f;
  cases.push_back(make("vignette negative", &vignette, &reference::vignette, prepareVignette(v)));
  cases.push_back(make("lens vignette", &vignette, &reference::vignette, prepareLensVignette({0.9f, 0.1f, 1.0f, 0, 0, 90, 200})));
  for (float scale : {0.01f, 0.5f, 1.0f}) {
    cases.push_back(make("grain", &grain, &reference::grain, prepare(GrainParams{0.8f, scale, 600.0f, 13.0f, -7.0f})));
  }
  static const auto row0 = [] {
    std::vector<float> r(1024 * 4, 1.0f);
    for (int i = 0; i < 1024; ++i) {
      float x = float(i) / 1023.0f;
      r[size_t(i) * 4 + 0] = x * x;
      r[size_t(i) * 4 + 1] = std::sqrt(x);
      r[size_t(i) * 4 + 2] = 1.0f - x;
    }
    return r;
  }();
  static const auto row1 = identityCurveRow([](float x) { return 0.5f * x + 0.25f; }, 0);
  cases.push_back(make("curves", &curves, &reference::curves, prepare(CurvesParams{row0.data(), row1.data(), 1023})));
  // Straight tables (the identity, two-point curves) are evaluated instead of
  // looked up by the fast path: a bent master alone (the usual case), bent
  // channels alone or after a straight master, and nothing at all.
  static const auto identityRow = identityCurveRow([](float x) { return x; }, 0);
  static const auto masterOnly = [] {
    std::vector<float> r = identityCurveRow([](float x) { return x * x * (3 - 2 * x); }, 0);
    for (int i = 0; i < 1024; ++i) r[size_t(i) * 4 + 1] = r[size_t(i) * 4 + 2] = float(i) / 1023.0f;
    return r;
  }();
  static const auto channelsOnly = [] {
    std::vector<float> r = row0;
    for (int i = 0; i < 1024; ++i) r[size_t(i) * 4] = float(i) / 1023.0f;
    return r;
  }();
  static const auto identityAll = [] {
    std::vector<float> r = identityRow;
    for (int i = 0; i < 1024; ++i) r[size_t(i) * 4 + 1] = r[size_t(i) * 4 + 2] = float(i) / 1023.0f;
    return r;
  }();
  cases.push_back(make("curves master only", &curves, &reference::curves,
                       prepare(CurvesParams{masterOnly.data(), identityRow.data(), 1023})));
  cases.push_back(make("curves channels only", &curves, &reference::curves,
                       prepare(CurvesParams{channelsOnly.data(), row1.data(), 1023})));
  static const auto straightMaster = [] {
    std::vector<float> r = row0;
    for (int i = 0; i < 1024; ++i) r[size_t(i) * 4] = 0.1f + 0.8f * float(i) / 1023.0f;
    return r;
  }();
  cases.push_back(make("curves straight master", &curves, &reference::curves,
                       prepare(CurvesParams{straightMaster.data(), row1.data(), 1023})));
  cases.push_back(make("curves identity", &curves, &reference::curves,
                       prepare(CurvesParams{identityAll.data(), identityRow.data(), 1023})));
  cases.push_back(make("dither", &dither, &reference::dither, DitherParams{}, false));
  cases.push_back(make("red eye", &redEye, &reference::redEye, RedEyeParams{10.0f, -20.0f, 60.0f, 0.45f}, false));
  for (float a : {0.2f, 0.9f}) cases.push_back(make("denoise", &denoise, &reference::denoise, DenoiseParams{a}));
  cases.push_back(make("luminance mask", &luminanceRangeMask, &reference::luminanceRangeMask,
                       LuminanceRangeMaskParams{0.2f, 0.7f, 0.1f}, true, true));
  cases.push_back(make("luminance mask hard", &luminanceRangeMask, &reference::luminanceRangeMask,
                       LuminanceRangeMaskParams{0.2f, 0.7f, 0.0f}, true, true));
  for (float a : {0.3f, 0.95f}) cases.push_back(make("chroma denoise", &chromaDenoise, &reference::chromaDenoise, ChromaDenoiseParams{a}));
  cases.push_back(make("defringe", &defringe, &reference::defringe, DefringeParams{1.0f}));
  cases.push_back(make("monochrome", &monochrome, &reference::monochrome, prepare(MonochromeParams{40, 30, -5})));
  cases.push_back(make("color mask", &colorRangeMask, &reference::colorRangeMask,
                       ColorRangeMaskParams{0.8f, 0.2f, 0.5f, 0.3f, 0.2f}, true, true));
  cases.push_back(make("sharpen blend", &sharpenBlend, &reference::sharpenBlend,
                       SharpenBlendParams{1.5f, 0.015f, 0.075f}, false));
  return cases;
}

TEST(Kernels, FastPathAgreesWithReferenceOnUnitData) {
  for (const auto& c : allCases()) {
    SCOPED_TRACE(c.name);
    EXPECT_LE(maxDifference(c.fast, c.ref, randomRows(7), c.writesAlpha), 1e-5f);
  }
}

// Highway compiles the fast paths for several instruction sets and the
// processor picks one at run time. Every compiled one must agree with the
// reference, not only the one this machine picks: on unit data, on the dark
// and near-white ends (where the tone kernel's power approximation is at its
// limits), and without NaN on hostile input.
TEST(Kernels, EveryCompiledInstructionSetAgreesWithReference) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  auto hostile = randomRows(5, -2.0f, 3.0f);
  for (auto& r : hostile) {
    for (size_t i = 0; i < r.px.size(); ++i) {
      if (i % 4 != 3 && i % 3 == 0) r.px[i] = std::array<float, 5>{nan, inf, -inf, -0.0f, 1e30f}[i / 3 % 5];
    }
  }
  test::onEveryTarget([&] {
    for (const auto& c : allCases()) {
      SCOPED_TRACE(c.name);
      EXPECT_LE(maxDifference(c.fast, c.ref, randomRows(7), c.writesAlpha), 1e-5f);
      EXPECT_LE(maxDifference(c.fast, c.ref, randomRows(8, 0.0f, 2e-4f), c.writesAlpha), 1e-5f);
      EXPECT_LE(maxDifference(c.fast, c.ref, randomRows(9, 0.999f, 1.0f), c.writesAlpha), 1e-5f);
      if (!c.clampsOutput) continue;
      for (auto& r : hostile) {
        std::vector<float> a = r.px;
        c.fast(view(r, a));
        for (size_t i = 0; i < a.size(); ++i) {
          if (i % 4 == 3) continue;
          ASSERT_TRUE(a[i] >= 0.0f && a[i] <= 1.0f) << "element " << i << " is " << a[i];
        }
      }
    }
  });
}

// Dehaze reads only the R of its aux image; with a grey aux row of those
// values it computes the same bits, on every compiled instruction set.
TEST(Kernels, DehazeWithAGreyAuxEqualsItsRedChannel) {
  test::onEveryTarget([&] {
    for (float amount : {-0.6f, 0.5f}) {
      for (auto& r : randomRows(13, -0.5f, 1.5f)) {
        std::vector<float> grey(size_t(r.n()));
        for (int i = 0; i < r.n(); ++i) grey[size_t(i)] = r.aux[size_t(i) * 4];
        std::vector<float> viaRgba = r.px, viaGrey = r.px;
        dehaze({amount}, {viaRgba.data(), r.aux.data(), r.n(), r.x, r.y});
        dehazeGrey({amount}, {viaGrey.data(), grey.data(), r.n(), r.x, r.y});
        ASSERT_EQ(0, std::memcmp(viaRgba.data(), viaGrey.data(), viaRgba.size() * sizeof(float))) << r.n();
      }
    }
  });
}

// A chain of point kernels keeps a piece of a row in planes from one kernel
// to the next; each kernel must compute there exactly what it computes on the
// row, on every compiled instruction set, hostile values included.
TEST(Kernels, PlanarRunsComputeWhatRowsCompute) {
  auto rows = randomRows(11);
  auto hostile = randomRows(12, -3.0f, 4.0f);
  for (auto& r : hostile) r.px[0] = std::numeric_limits<float>::quiet_NaN();
  rows.insert(rows.end(), hostile.begin(), hostile.end());
  int planarKernels = 0;
  test::onEveryTarget([&] {
    for (const auto& c : allCases()) {
      if (!c.planar) continue;
      ++planarKernels;
      SCOPED_TRACE(c.name);
      for (auto& r : rows) {
        std::vector<float> viaRow = r.px, viaPlanes = r.px;
        c.fast({viaRow.data(), nullptr, r.n(), r.x, r.y});
        const size_t padded = size_t(planarPadded(r.n()));
        std::vector<float> planes(4 * padded + 16, 0.5f);
        float* base = planes.data() + (16 - reinterpret_cast<uintptr_t>(planes.data()) / 4 % 16) % 16;
        const PlanarRow p{base, base + padded, base + 2 * padded, base + 3 * padded, r.n(), r.x, r.y};
        toPlanar(viaPlanes.data(), p);
        c.planar(p);
        fromPlanar(p, viaPlanes.data());
        ASSERT_EQ(0, std::memcmp(viaRow.data(), viaPlanes.data(), viaRow.size() * sizeof(float)))
            << r.n() << " pixels at " << r.x;
      }
    }
  });
  EXPECT_GE(planarKernels, 9);
}

TEST(Kernels, DefringeAgreesOnMagentaEdges) {
  // Random data rarely reaches the defringe weight; build magenta pixels with a
  // greener blur so that every factor of the weight is active.
  auto rows = randomRows(3);
  for (auto& r : rows) {
    for (int i = 0; i < r.n(); ++i) {
      float* p = &r.px[size_t(i) * 4];
      p[1] = p[1] * 0.2f;
      p[0] = std::max(p[0], p[1] + 0.3f);
      p[2] = std::max(p[2], p[1] + 0.3f);
      r.aux[size_t(i) * 4 + 1] = p[1] + 0.2f;
    }
  }
  Case c = make("defringe", &defringe, &reference::defringe, DefringeParams{1.0f});
  EXPECT_LE(maxDifference(c.fast, c.ref, rows), 1e-5f);
  std::vector<float> px = rows[5].px;
  reference::defringe({1.0f}, view(rows[5], px));
  EXPECT_NE(px, rows[5].px) << "the magenta edge pixels should have been pulled toward green";
}

TEST(Kernels, RedEyeAgreesOnRedPixels) {
  auto rows = randomRows(11);
  for (auto& r : rows) {
    for (int i = 0; i < r.n(); ++i) r.px[size_t(i) * 4] = 0.2f + 3.0f * std::max(r.px[size_t(i) * 4 + 1], r.px[size_t(i) * 4 + 2]);
  }
  for (auto& r : rows) r.y = 0;
  for (auto& r : rows) r.x = 0;
  Case c = make("red eye", &redEye, &reference::redEye, RedEyeParams{20.0f, 0.5f, 40.0f, 0.45f}, false);
  EXPECT_LE(maxDifference(c.fast, c.ref, rows), 1e-5f);
}

TEST(Kernels, ClampingKernelsNeverOutputNaN) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float specials[] = {nan, inf, -inf, -0.0f, 1.5f, -2.0f, 1e30f, -1e-30f};
  auto rows = randomRows(5, -2.0f, 3.0f);
  for (auto& r : rows) {
    for (size_t i = 0; i < r.px.size(); ++i) {
      if (i % 4 == 3) continue;
      if (i % 5 == 0) r.px[i] = specials[i / 5 % 8];
      if (i % 7 == 0) r.aux[i] = specials[i / 7 % 8];
    }
  }
  for (const auto& c : allCases()) {
    SCOPED_TRACE(c.name);
    for (auto& r : rows) {
      std::vector<float> a = r.px, b = r.px;
      c.fast(view(r, a));
      c.ref(view(r, b));
      for (size_t i = 0; i < a.size(); ++i) {
        if (!c.clampsOutput || i % 4 == 3) continue;
        ASSERT_FALSE(std::isnan(a[i])) << "fast path, element " << i;
        ASSERT_FALSE(std::isnan(b[i])) << "reference, element " << i;
        ASSERT_GE(a[i], 0.0f);
        ASSERT_LE(a[i], 1.0f);
      }
    }
  }
}

// ------------------------------------------------------------------ behaviour

// Runs the fast path on one pixel.
template <class P>
std::array<float, 4> run1(void (*fn)(const P&, const KernelRow&), const P& p, std::array<float, 4> px,
                          std::array<float, 4> aux = {}, int x = 0, int y = 0) {
  fn(p, KernelRow{px.data(), aux.data(), 1, x, y});
  return px;
}

TEST(Kernels, ToneContrastEnds) {
  for (float x : {0.0f, 0.1f, 0.3f, 0.5f, 0.8f, 1.0f}) {
    auto flat = run1(&tone, ToneParams{0, 0, 0, 0, -1.0f}, {x, x, x, 1});
    EXPECT_NEAR(flat[0], 0.5f + (x - 0.5f) * 0.2f, 1e-6f) << x;
    auto s = run1(&tone, ToneParams{0, 0, 0, 0, 1.0f}, {x, x, x, 1});
    EXPECT_NEAR(s[0], x * x * (3 - 2 * x), 1e-6f) << x;
    auto same = run1(&tone, ToneParams{}, {x, x, x, 1});
    EXPECT_NEAR(same[0], x, 1e-6f) << "neutral tone must be the identity on 0..1";
  }
  // Lifted above 1 by the highlights, the pixel clamps before the S-curve and stays white.
  auto white = run1(&tone, ToneParams{1.0f, 0, 1.0f, 0, 1.0f}, {0.95f, 0.95f, 0.95f, 1});
  EXPECT_EQ(white[0], 1.0f);
  // Negative contrast flattens: the slope at mid-grey is below 1.
  auto a = run1(&tone, ToneParams{0, 0, 0, 0, -0.5f}, {0.4f, 0.4f, 0.4f, 1});
  auto b = run1(&tone, ToneParams{0, 0, 0, 0, -0.5f}, {0.6f, 0.6f, 0.6f, 1});
  EXPECT_LT(b[0] - a[0], 0.2f);
  EXPECT_GT(b[0] - a[0], 0.0f);
}

TEST(Kernels, ToneShadowsLiftDarkMoreThanBright) {
  auto dark = run1(&tone, ToneParams{0, 0.7f, 0, 0, 0}, {0.1f, 0.1f, 0.1f, 1});
  auto bright = run1(&tone, ToneParams{0, 0.7f, 0, 0, 0}, {0.9f, 0.9f, 0.9f, 1});
  EXPECT_GT(dark[0] / 0.1f, bright[0] / 0.9f);
  EXPECT_GT(dark[0], 0.1f);
}

TEST(Kernels, MonochromeWeights) {
  // All weights zero or negative fall back to the luma weights.
  for (auto w : {MonochromeParams{0, 0, 0}, MonochromeParams{-1, -5, 0}}) {
    auto out = run1(&monochrome, prepare(w), {1.0f, 0.0f, 0.0f, 1});
    EXPECT_NEAR(out[0], 0.2126f, 1e-6f);
    EXPECT_EQ(out[0], out[1]);
    EXPECT_EQ(out[1], out[2]);
  }
  // Only ratios matter.
  auto a = run1(&monochrome, prepare(MonochromeParams{1, 2, 1}), {0.2f, 0.6f, 0.9f, 1});
  auto b = run1(&monochrome, prepare(MonochromeParams{50, 100, 50}), {0.2f, 0.6f, 0.9f, 1});
  EXPECT_NEAR(a[0], b[0], 1e-6f);
  EXPECT_NEAR(a[0], (0.2f + 1.2f + 0.9f) / 4, 1e-6f);
}

TEST(Kernels, LuminanceMaskHardEdgesIncludeBothLimits) {
  LuminanceRangeMaskParams p{0.25f, 0.75f, 0.0f};
  EXPECT_EQ(run1(&luminanceRangeMask, p, {0.25f, 9, 9, 0.3f})[0], 1.0f);
  EXPECT_EQ(run1(&luminanceRangeMask, p, {0.75f, 9, 9, 0.3f})[0], 1.0f);
  EXPECT_EQ(run1(&luminanceRangeMask, p, {0.7501f, 0, 0, 1})[0], 0.0f);
  EXPECT_EQ(run1(&luminanceRangeMask, p, {0.2499f, 0, 0, 1})[0], 0.0f);
  auto out = run1(&luminanceRangeMask, p, {0.5f, 0, 0, 0.3f});
  EXPECT_EQ(out, (std::array<float, 4>{1, 1, 1, 1}));
  // With a ramp the mask rises linearly from low.
  EXPECT_NEAR(run1(&luminanceRangeMask, LuminanceRangeMaskParams{0.2f, 0.8f, 0.1f}, {0.25f, 0, 0, 1})[0], 0.5f, 1e-6f);
}

TEST(Kernels, ColorMaskFeatherZeroIsNearlyHard) {
  ColorRangeMaskParams zero{0.5f, 0.5f, 0.5f, 0.2f, 0.0f};
  ColorRangeMaskParams tiny{0.5f, 0.5f, 0.5f, 0.2f, 0.0001f};
  for (float d : {0.1f, 0.19999f, 0.20003f, 0.20005f, 0.2001f, 0.3f}) {
    std::array<float, 4> px{0.5f + d, 0.5f, 0.5f, 0.4f};
    EXPECT_EQ(run1(&colorRangeMask, zero, px), run1(&colorRangeMask, tiny, px)) << d;
  }
  EXPECT_EQ(run1(&colorRangeMask, zero, {0.6f, 0.5f, 0.5f, 0.4f})[0], 1.0f);
  EXPECT_EQ(run1(&colorRangeMask, zero, {0.8f, 0.5f, 0.5f, 0.4f})[0], 0.0f);
}

TEST(Kernels, GrainCellSizeChoosesNoiseKind) {
  // cell <= 1: pure per-pixel noise: pixels a whole cell apart are unrelated,
  // and equal to the fine hash.
  auto fine = prepare(GrainParams{1.0f, 0.1f, 1000.0f, 0, 0});
  EXPECT_EQ(fine.cell, 1.0f);
  EXPECT_EQ(fine.coarseMix, 0.0f);
  auto grey = [](const GrainPrepared& p, int x, int y) { return run1(&grain, p, {0.5f, 0.5f, 0.5f, 1}, {}, x, y)[0]; };
  float expected = 0.5f + (kmath::hash21(3.0f, 4.0f) - 0.5f) * 1.0f * 0.22f * 1.0f;
  EXPECT_NEAR(grey(fine, 3, 4), expected, 1e-6f);
  // cell >= 2.2: pure value noise, smooth between neighbours.
  auto coarse = prepare(GrainParams{1.0f, 1.0f, 2200.0f, 0, 0});  // cell 10
  EXPECT_EQ(coarse.coarseMix, 1.0f);
  float maxStep = 0;
  for (int x = 0; x < 40; ++x) maxStep = std::max(maxStep, std::fabs(grey(coarse, x + 1, 5) - grey(coarse, x, 5)));
  EXPECT_LT(maxStep, 0.05f) << "value noise at cell 10 changes slowly from pixel to pixel";
  // The origin anchors the pattern: moving both the origin and the pixel keeps the value.
  auto shifted = prepare(GrainParams{1.0f, 1.0f, 2200.0f, 100, 50});
  EXPECT_EQ(grey(coarse, 7, 9), grey(shifted, 107, 59));
}

TEST(Kernels, GrainIsStrongestInMidtones) {
  auto p = prepare(GrainParams{1.0f, 0.01f, 1000.0f, 0, 0});
  float mid = 0, black = 0;
  for (int x = 0; x < 64; ++x) {
    mid = std::max(mid, std::fabs(run1(&grain, p, {0.5f, 0.5f, 0.5f, 1}, {}, x, 0)[0] - 0.5f));
    black = std::max(black, run1(&grain, p, {0, 0, 0, 1}, {}, x, 0)[0]);
  }
  EXPECT_GT(mid, 0.08f);
  EXPECT_LE(black, 0.5f * 0.22f * 0.25f + 1e-6f) << "at black the tonal weight is the floor 0.25";
}

TEST(Kernels, HslLeavesGreyHueAlone) {
  HslParams p;
  for (auto& b : p.bands) b = {100.0f, 100.0f, 0.0f};
  // Saturation below 0.03: no hue rotation, and saturation changes by at most the 0.35 factor.
  std::array<float, 4> nearGrey{0.51f, 0.50f, 0.50f, 1};
  auto hsl0 = kmath::rgb2hsl(0.51f, 0.5f, 0.5f);
  auto out = run1(&hsl, p, nearGrey);
  auto hsl1 = kmath::rgb2hsl(out[0], out[1], out[2]);
  EXPECT_NEAR(hsl1.r, hsl0.r, 1e-4f);
  EXPECT_NEAR(hsl1.g, hsl0.g * 1.35f, 1e-3f);
  auto grey = run1(&hsl, p, {0.4f, 0.4f, 0.4f, 1});
  EXPECT_NEAR(grey[0], 0.4f, 1e-6f);
  EXPECT_NEAR(grey[2], 0.4f, 1e-6f);
  // A saturated red turns toward orange with a positive red hue shift.
  HslParams shift;
  shift.bands[0] = {100.0f, 0, 0};
  auto red = run1(&hsl, shift, {0.9f, 0.1f, 0.1f, 1});
  EXPECT_GT(red[1], 0.3f);
  // Neutral bands keep colours.
  auto same = run1(&hsl, HslParams{}, {0.9f, 0.3f, 0.1f, 1});
  EXPECT_NEAR(same[0], 0.9f, 1e-5f);
  EXPECT_NEAR(same[1], 0.3f, 1e-5f);
}

TEST(Kernels, HslFollowsTheReferenceAroundTheHueCircle) {
  // Every hue in quarter degrees (the band edges and the wrap at 360° included),
  // at a few saturations and lightnesses; each band with its own parameters so
  // a wrong weight anywhere shows.
  HslParams p;
  for (int i = 0; i < 8; ++i) p.bands[size_t(i)] = {float(i * 13 - 50), float(60 - i * 17), float(i * 11 - 40)};
  Row row;
  for (int q = 0; q < 1440; ++q) {
    for (float s : {0.05f, 0.5f, 1.0f}) {
      for (float l : {0.3f, 0.7f}) {
        kmath::Rgb c = kmath::hsl2rgb(float(q) / 1440.0f, s, l);
        row.px.insert(row.px.end(), {c.r, c.g, c.b, 1.0f});
      }
    }
  }
  row.aux.assign(row.px.size(), 0.0f);
  Case c = make("hsl circle", &hsl, &reference::hsl, p);
  EXPECT_LE(maxDifference(c.fast, c.ref, {row}), 1e-5f);
}

TEST(Kernels, HslTexelsDecodeWithTheirQuantisation) {
  uint8_t texels[32] = {};
  texels[0] = 255;
  texels[1] = 127;
  texels[2] = 0;
  auto p = HslParams::fromTexels(texels);
  EXPECT_FLOAT_EQ(p.bands[0].hue, 100.0f);
  EXPECT_NEAR(p.bands[0].saturation, -0.392157f, 1e-5f);  // 127/255 × 200 - 100
  EXPECT_FLOAT_EQ(p.bands[0].luminance, -100.0f);
}

TEST(Kernels, RedEyeOnlyTouchesRedPixelsInsideTheSpot) {
  RedEyeParams p{10.5f, 10.5f, 8.0f, 0.45f};
  auto red = run1(&redEye, p, {0.9f, 0.1f, 0.12f, 1}, {}, 10, 10);
  EXPECT_LT(red[0], 0.2f);
  // R/max(G,B) at 2 or below: unchanged, bit for bit.
  std::array<float, 4> pink{0.6f, 0.3f, 0.29f, 1};
  EXPECT_EQ(run1(&redEye, p, pink, {}, 10, 10), pink);
  // Outside the radius: unchanged.
  std::array<float, 4> far{0.9f, 0.1f, 0.1f, 1};
  EXPECT_EQ(run1(&redEye, p, far, {}, 30, 10), far);
}

TEST(Kernels, VignetteDarkensCornersOnly) {
  auto p = prepareVignette({1.0f, 0.5f, 0.5f, 100, 200, 400, 300});
  EXPECT_EQ(run1(&vignette, p, {0.5f, 0.5f, 0.5f, 1}, {}, 300, 350)[0], 0.5f);  // centre
  EXPECT_LT(run1(&vignette, p, {0.5f, 0.5f, 0.5f, 1}, {}, 100, 200)[0], 0.1f);  // corner
  auto lens = prepareLensVignette({1.0f, 0.5f, 0.5f, 100, 200, 400, 300});
  EXPECT_GT(run1(&vignette, lens, {0.3f, 0.3f, 0.3f, 1}, {}, 100, 200)[0], 0.5f);
  auto light = prepareVignette({-1.0f, 0.5f, 0.5f, 100, 200, 400, 300});
  EXPECT_GT(run1(&vignette, light, {0.3f, 0.3f, 0.3f, 1}, {}, 499, 499)[0], 0.5f);
}

TEST(Kernels, DitherIsHalfALevelAndRepeatsEvery4096) {
  float lo = 1, hi = -1;
  for (int x = 0; x < 200; ++x) {
    float d = run1(&dither, DitherParams{}, {0.5f, 0.5f, 0.5f, 1}, {}, x, 3)[0] - 0.5f;
    lo = std::min(lo, d);
    hi = std::max(hi, d);
    EXPECT_EQ(run1(&dither, DitherParams{}, {0.5f, 0.5f, 0.5f, 1}, {}, x + 4096, 3 + 8192)[0], d + 0.5f);
  }
  EXPECT_LT(hi, 0.5f / 255 + 1e-6f);
  EXPECT_GT(lo, -0.5f / 255 - 1e-6f);
  EXPECT_GT(hi - lo, 0.8f / 255) << "the hash must spread over the whole level";
}

TEST(Kernels, NeighbourhoodKernelsAtZeroAmountKeepThePixel) {
  std::array<float, 4> px{0.2f, 0.5f, 0.7f, 1}, blur{0.4f, 0.1f, 0.9f, 1};
  EXPECT_EQ(run1(&detail, DetailParams{0}, px, blur), px);
  EXPECT_EQ(run1(&denoise, DenoiseParams{0}, px, blur), px);
  EXPECT_EQ(run1(&chromaDenoise, ChromaDenoiseParams{0}, px, blur)[1], px[1]);
  EXPECT_EQ(run1(&dehaze, DehazeParams{0}, px, blur), px);
  // Detail sharpens away from the blur.
  EXPECT_NEAR(run1(&detail, DetailParams{0.5f}, px, blur)[0], 0.1f, 1e-6f);
  // Chroma denoise keeps luminance.
  auto cd = run1(&chromaDenoise, ChromaDenoiseParams{1.0f}, px, {0.3f, 0.45f, 0.6f, 1});
  EXPECT_NEAR(kmath::luma(cd[0], cd[1], cd[2]), kmath::luma(px[0], px[1], px[2]), 2e-6f);
  // Sharpen blend leaves low-contrast areas alone.
  std::array<float, 4> soft{0.5f, 0.5f, 0.5f, 1}, near{0.505f, 0.5f, 0.5f, 1};
  EXPECT_EQ(run1(&sharpenBlend, SharpenBlendParams{2.0f, 0.1f, 0.16f}, soft, near), soft);
}

TEST(Kernels, SplitToneTintsShadowsAndHighlights) {
  auto p = prepare(SplitToneParams{0.0f, 0.85f, 2.0f / 3.0f, 0.85f, 0.0f});  // red highlights, blue shadows
  auto hi = run1(&splitTone, p, {0.8f, 0.8f, 0.8f, 1});
  EXPECT_GT(hi[0], hi[2]);
  auto sh = run1(&splitTone, p, {0.15f, 0.15f, 0.15f, 1});
  EXPECT_GT(sh[2], sh[0]);
}

TEST(Kernels, CurvesInterpolateBetweenTexelCentres) {
  std::vector<float> row0(1024 * 4), row1(1024 * 4);
  for (int i = 0; i < 1024; ++i) {
    row0[size_t(i) * 4 + 0] = float(i % 2);  // master: 0,1,0,1...
    row0[size_t(i) * 4 + 1] = float(i) / 1023.0f;
    row0[size_t(i) * 4 + 2] = float(i) / 1023.0f;
    row1[size_t(i) * 4 + 0] = float(i) / 1023.0f;
  }
  auto p = prepare(CurvesParams{row0.data(), row1.data(), 1023});
  EXPECT_NEAR(run1(&curves, p, {0.5f / 1023.0f, 0, 1.0f / 1023.0f, 1})[0], 0.5f, 1e-4f);
  EXPECT_NEAR(run1(&curves, p, {0, 0, 0, 1})[0], 0.0f, 1e-6f);
  EXPECT_NEAR(run1(&curves, p, {1.0f, 1.0f, 2.0f, 1})[2], 1.0f, 1e-6f);  // 1023 is odd: master gives 1
}

TEST(Kernels, CurvesClampBetweenTheTwoLookUpsToTheEdgeTexels) {
  // A master table outside 0...1 (never built by the curve look-up image, but
  // a valid table) sends the second look-up past the ends: it reads the edge
  // texels, as a sampler clamped to the image does.
  for (float beyond : {-0.4f, 1.7f}) {
    std::vector<float> row0(1024 * 4), row1(1024 * 4, 0.0f);
    for (int i = 0; i < 1024; ++i) {
      row0[size_t(i) * 4 + 0] = beyond;
      row0[size_t(i) * 4 + 1] = 0.2f + 0.5f * float(i) / 1023.0f;  // red: 0.2 ... 0.7
      row0[size_t(i) * 4 + 2] = float(i) / 1023.0f;
      row1[size_t(i) * 4 + 0] = float(i) / 1023.0f;
    }
    auto p = prepare(CurvesParams{row0.data(), row1.data(), 1023});
    const float want = beyond < 0 ? 0.2f : 0.7f;
    for (auto fn : {&curves, &reference::curves}) {
      std::array<float, 4> px{0.37f, 0.5f, 0.9f, 1.0f};
      fn(p, KernelRow{px.data(), nullptr, 1, 0, 0});
      EXPECT_NEAR(px[0], want, 1e-6f) << beyond;
      EXPECT_NEAR(px[1], beyond < 0 ? 0.0f : 1.0f, 1e-6f) << beyond;
    }
  }
}

TEST(Kernels, IdentityCurvesLeaveUnitPixelsUntouched) {
  std::vector<float> row0(1024 * 4), row1(1024 * 4);
  for (int i = 0; i < 1024; ++i) {
    for (int c = 0; c < 4; ++c) row0[size_t(i) * 4 + size_t(c)] = row1[size_t(i) * 4 + size_t(c)] = float(i) / 1023.0f;
  }
  auto p = prepare(CurvesParams{row0.data(), row1.data(), 1023});
  for (auto& r : randomRows(21)) {
    std::vector<float> out = r.px;
    curves(p, view(r, out));
    EXPECT_EQ(out, r.px);
  }
}

TEST(Kernels, LensDistortionMapsRadially) {
  float sx, sy;
  lensDistortionSource({0.0f, 50, 40, 64, 100, 80}, 10.5f, 7.5f, sx, sy);
  EXPECT_EQ(sx, 10.5f);
  EXPECT_EQ(sy, 7.5f);
  // Positive amounts read further out (the edges are pulled in); the centre stays.
  lensDistortionSource({0.3f, 50, 40, 64, 100, 80}, 50, 40, sx, sy);
  EXPECT_EQ(sx, 50.0f);
  lensDistortionSource({0.3f, 50, 40, 64, 100, 80}, 50 + 64, 40, sx, sy);
  EXPECT_NEAR(sx, 50 + 64 * 1.3f, 1e-4f);
  EXPECT_EQ(sy, 40.0f);
  // A radius below 1 counts as 1.
  lensDistortionSource({1.0f, 0, 0, 0.25f, 0, 0}, 2, 0, sx, sy);
  EXPECT_NEAR(sx, 2 * (1 + 4.0f), 1e-5f);
}

}  // namespace
TEST(MaskBlend, ZeroRunsAreTrimmedFromBothEndsOnEveryInstructionSet) {
  test::onEveryTarget([&] {
    for (int n : {0, 1, 5, 16, 17, 40, 100}) {
      for (int lo = 0; lo <= n; lo += 3) {
        for (int hi = lo; hi <= n; hi += 5) {
          // Zeros (some of them -0) around [lo, hi), whose ends are not 0.
          std::vector<float> m(size_t(n), 0.0f);
          for (int i = 0; i < n; i += 7) m[size_t(i)] = -0.0f;
          for (int i = lo; i < hi; ++i) m[size_t(i)] = 0.5f;
          if (hi - lo > 2) m[size_t(lo + 1)] = 0.0f;  // zeros inside stay
          if (hi > lo) m[size_t(hi - 1)] = std::numeric_limits<float>::quiet_NaN();  // NaN is not 0
          int x0 = 0, x1 = n;
          trimZeros(m.data(), x0, x1);
          if (hi == lo) {
            ASSERT_EQ(x0, x1) << n << " " << lo;
          } else {
            ASSERT_EQ(x0, lo) << n << " " << lo << " " << hi;
            ASSERT_EQ(x1, hi) << n << " " << lo << " " << hi;
          }
        }
      }
    }
  });
}

TEST(MaskBlend, MixesEveryChannelByItsPixelsMaskOnEveryInstructionSet) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-0.5f, 1.5f);
  const int n = 37;  // not a whole number of vectors
  const size_t count = n;
  std::vector<float> background(count * 4), adjusted(count * 4), t(count);
  for (float& v : background) v = u(rng);
  for (float& v : adjusted) v = u(rng);
  for (float& v : t) v = std::clamp(u(rng), 0.0f, 1.0f);
  t[0] = 0.0f;
  test::onEveryTarget([&] {
    std::vector<float> out = background;
    maskBlend(out.data(), adjusted.data(), t.data(), n);
    for (int i = 0; i < n * 4; ++i) {
      const float b = background[size_t(i)], a = adjusted[size_t(i)], m = t[size_t(i / 4)];
      ASSERT_NEAR(out[size_t(i)], b + (a - b) * m, 1e-6f) << i;
    }
    for (int c = 0; c < 4; ++c) EXPECT_EQ(out[size_t(c)], background[size_t(c)]);  // mask 0: the background
  });
}

}  // namespace vg::kernels
