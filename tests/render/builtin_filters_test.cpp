// The built-in point filters, white balance above all: the matrix must be
// the identity at 0/0, warm for positive temperature, and undo the cast of a
// sample turned into temperature/tint by the session's white-balance rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

#include "render/builtin_filters.h"
#include "render/kernel_math.h"

namespace vg::filters {
namespace {

using Px = std::array<float, 4>;

Px run(const std::function<void(const KernelRow&)>& fn, Px px, Px aux = {}) {
  fn(KernelRow{px.data(), aux.data(), 1, 0, 0});
  return px;
}

Px balance(double temperature, double tint, Px px) {
  // The pipeline's mapping of the two sliders onto the two neutrals.
  ColorMatrix m = temperatureAndTint({6500, 0}, {6500 - 2500 * temperature / 100, 120 * tint / 100});
  return run([&](const KernelRow& r) { colorMatrix(m, r); }, px);
}

// The white-balance sampling rule of the editor session.
void sampleToSliders(Px px, double& temperature, double& tint) {
  double r = px[0], g = px[1], b = px[2];
  temperature = std::clamp((1 - r / std::max(b, 0.001)) * 100, -100.0, 100.0);
  tint = std::clamp(-(g / std::max((r + b) * 0.5, 0.001) - 1) * 100, -100.0, 100.0);
}

TEST(WhiteBalance, NeutralSettingsAreExactlyTheIdentity) {
  EXPECT_TRUE(temperatureAndTint({6500, 0}, {6500, 0}).isIdentity());
  Px px{0.3f, 1.7f, -0.2f, 0.5f};
  EXPECT_EQ(balance(0, 0, px), px);
}

TEST(WhiteBalance, PositiveTemperatureWarmsNegativeCools) {
  Px grey{0.5f, 0.5f, 0.5f, 1};
  Px warm = balance(60, 0, grey);
  EXPECT_GT(warm[0], warm[1]);
  EXPECT_GT(warm[1], warm[2]);
  Px cool = balance(-60, 0, grey);
  EXPECT_LT(cool[0], cool[2]);
  // Luminance stays close: white balance shifts colour, not exposure.
  EXPECT_NEAR(kmath::luma(warm[0], warm[1], warm[2]), 0.5f, 0.05f);
  // Tint: positive towards green, negative towards magenta.
  Px green = balance(0, 80, grey);
  EXPECT_GT(green[1], std::max(green[0], green[2]));
  Px magenta = balance(0, -80, grey);
  EXPECT_LT(magenta[1], std::min(magenta[0], magenta[2]));
}

TEST(WhiteBalance, ASampledCastMovesTowardsNeutral) {
  const Px samples[] = {{0.5f, 0.5f, 1.0f, 1}, {0.6f, 0.5f, 0.4f, 1}, {0.5f, 0.8f, 0.5f, 1},
                        {0.8f, 0.5f, 0.8f, 1}, {0.3f, 0.45f, 0.6f, 1}, {0.7f, 0.6f, 0.3f, 1}};
  auto cast = [](const Px& p) {
    double m = (p[0] + p[1] + p[2]) / 3;
    return std::fabs(p[0] / m - 1) + std::fabs(p[1] / m - 1) + std::fabs(p[2] / m - 1);
  };
  for (const Px& s : samples) {
    double temperature, tint;
    sampleToSliders(s, temperature, tint);
    Px out = balance(temperature, tint, s);
    EXPECT_LT(cast(out), cast(s) * 0.8) << s[0] << " " << s[1] << " " << s[2] << " -> " << out[0] << " " << out[1]
                                        << " " << out[2];
  }
  // The example of the sampling rule: (0.5, 0.5, 1.0) gives temperature 50.
  double t, n;
  sampleToSliders({0.5f, 0.5f, 1.0f, 1}, t, n);
  EXPECT_EQ(t, 50);
}

TEST(BuiltinFilters, ExposureSaturationAndMatrix) {
  EXPECT_EQ(exposureGain(0), 1.0f);
  EXPECT_EQ(exposureGain(-1), 0.5f);
  Px px{0.2f, 0.4f, 1.5f, 0.7f};
  EXPECT_EQ(run([](const KernelRow& r) { exposure(exposureGain(1), r); }, px), (Px{0.4f, 0.8f, 3.0f, 0.7f}));
  Px grey = run([](const KernelRow& r) { saturation(0, r); }, px);
  EXPECT_FLOAT_EQ(grey[0], kmath::luma(0.2f, 0.4f, 1.5f));
  EXPECT_EQ(grey[0], grey[2]);
  EXPECT_EQ(grey[3], 0.7f);
  Px same = run([](const KernelRow& r) { saturation(1, r); }, px);
  for (int c = 0; c < 4; ++c) EXPECT_NEAR(same[size_t(c)], px[size_t(c)], 1e-7f);
  ColorMatrix m;
  m.r = {0, 1, 0, 0};
  m.bias = {0.1f, 0, 0, 0};
  Px swapped = run([&](const KernelRow& r) { colorMatrix(m, r); }, px);
  EXPECT_FLOAT_EQ(swapped[0], 0.5f);
  EXPECT_EQ(swapped[3], 0.7f);
}

TEST(BuiltinFilters, RowsOfAnyLengthFollowThePixelFormula) {
  // Whole vector blocks and every tail length, with values outside 0...1.
  ColorMatrix m;
  m.r = {0.9f, 0.2f, -0.1f, 0.05f};
  m.g = {0.1f, 1.1f, 0.0f, 0.0f};
  m.b = {-0.2f, 0.3f, 0.8f, 0.0f};
  m.a = {0.0f, 0.0f, 0.1f, 0.9f};
  m.bias = {0.01f, -0.02f, 0.03f, 0.0f};
  for (int n = 1; n <= 37; ++n) {
    std::vector<float> px(size_t(n) * 4);
    for (size_t i = 0; i < px.size(); ++i) px[i] = float((i * 37) % 23) / 9.0f - 0.5f;
    std::vector<float> sat = px, mat = px, exp = px;
    saturation(1.35f, KernelRow{sat.data(), nullptr, n, 0, 0});
    colorMatrix(m, KernelRow{mat.data(), nullptr, n, 0, 0});
    exposure(1.7f, KernelRow{exp.data(), nullptr, n, 0, 0});
    // The planar forms compute the same bits.
    const size_t padded = size_t(kernels::planarPadded(n));
    alignas(64) static float planes[4][64];
    const PlanarRow p{planes[0], planes[1], planes[2], planes[3], n, 0, 0};
    std::vector<float> back(px.size());
    auto samePlanar = [&](const std::function<void(const PlanarRow&)>& fn, const std::vector<float>& want) {
      kernels::toPlanar(px.data(), p);
      fn(p);
      kernels::fromPlanar(p, back.data());
      return std::equal(back.begin(), back.end(), want.begin());
    };
    ASSERT_LE(padded, 64u);
    ASSERT_TRUE(samePlanar([](const PlanarRow& r) { saturation(1.35f, r); }, sat)) << n;
    ASSERT_TRUE(samePlanar([&](const PlanarRow& r) { colorMatrix(m, r); }, mat)) << n;
    ASSERT_TRUE(samePlanar([](const PlanarRow& r) { exposure(1.7f, r); }, exp)) << n;
    for (int i = 0; i < n; ++i) {
      const float* p = &px[size_t(i) * 4];
      const float l = kmath::luma(p[0], p[1], p[2]);
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(sat[size_t(i) * 4 + size_t(c)], kmath::mix(l, p[c], 1.35f), 1e-6f) << n;
      ASSERT_EQ(sat[size_t(i) * 4 + 3], p[3]);
      const std::array<float, 4>* rows[4] = {&m.r, &m.g, &m.b, &m.a};
      for (int c = 0; c < 4; ++c) {
        const std::array<float, 4>& w = *rows[c];
        const float want = w[0] * p[0] + w[1] * p[1] + w[2] * p[2] + w[3] * p[3] + m.bias[size_t(c)];
        ASSERT_NEAR(mat[size_t(i) * 4 + size_t(c)], want, 1e-6f) << n << " " << c;
      }
    }
  }
}

TEST(BuiltinFilters, MinimumBlendAndDissolve) {
  EXPECT_EQ(run([](const KernelRow& r) { minimumComponent(r); }, {0.6f, 0.2f, 0.9f, 1}), (Px{0.2f, 0.2f, 0.2f, 1}));
  Px image{1, 1, 1, 1}, background{0, 0.5f, 0, 0.5f};
  for (float m : {0.0f, 0.25f, 1.0f}) {
    Px mask{m, 0, 0, 1};
    Px out = image;
    blendWithMask(KernelRow{out.data(), background.data(), 1, 0, 0}, mask.data());
    EXPECT_FLOAT_EQ(out[0], m);
    EXPECT_FLOAT_EQ(out[1], 0.5f + 0.5f * m);
    EXPECT_FLOAT_EQ(out[3], 0.5f + 0.5f * m);
  }
  EXPECT_EQ(run([](const KernelRow& r) { dissolve(0, r); }, image, background), background);
  EXPECT_EQ(run([](const KernelRow& r) { dissolve(1, r); }, image, background), image);
  EXPECT_EQ(run([](const KernelRow& r) { dissolve(0.5f, r); }, image, background)[0], 0.5f);
}

}  // namespace
}  // namespace vg::filters
