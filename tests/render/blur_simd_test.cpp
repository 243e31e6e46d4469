// The blur's vector sums on every instruction set Highway compiled, for every
// tap count the direct filter uses: against a double-precision sum, and the
// shared-load paths against the single-output ones bit for bit.
#include "render/blur_simd.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "every_target.h"

namespace vg::blur {
namespace {

std::vector<float> randomFloats(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 2.0f);
  std::vector<float> v(n);
  for (float& f : v) f = u(rng);
  return v;
}

std::vector<float> weightsFor(int count) {
  std::vector<float> w(static_cast<size_t>(count));
  for (int k = 0; k < count; ++k) w[size_t(k)] = 1.0f / float(2 + std::abs(k - count / 2));
  return w;
}

TEST(BlurSums, ConvolveLineOnEveryInstructionSetAndTapCount) {
  const size_t n = 4 * 67;  // not a whole number of blocks
  test::onEveryTarget([&] {
    for (int count = 3; count <= 49; count += 2) {
      SCOPED_TRACE(count);
      const std::vector<float> w = weightsFor(count);
      for (int channels : {1, 4}) {
        const size_t len = paddedFloats(n) + size_t(channels) * size_t(count - 1);
        const std::vector<float> x = randomFloats(len, unsigned(count * channels));
        std::vector<float> out(paddedFloats(n));
        convolveLine(x.data(), w.data(), count, channels, out.data(), n);
        for (size_t i = 0; i < n; ++i) {
          double expected = 0;
          for (int t = 0; t < count; ++t) expected += double(w[size_t(t)]) * x[i + size_t(channels * t)];
          ASSERT_NEAR(out[i], expected, 1e-5) << "channels " << channels << " at " << i;
        }
        if (channels == 4) {
          // One channel of an RGBA line is exactly the grey line of that channel.
          std::vector<float> grey(len / 4 + 16), greyOut(paddedFloats(n / 4));
          for (size_t p = 0; p < len / 4; ++p) grey[p] = x[p * 4 + 2];
          convolveLine(grey.data(), w.data(), count, 1, greyOut.data(), n / 4);
          for (size_t p = 0; p < n / 4; ++p) ASSERT_EQ(greyOut[p], out[p * 4 + 2]) << p;
        }
      }
    }
  });
}

TEST(BlurSums, NeighbouringRowSumsAgreeWithSingleOnes) {
  const size_t n = 4 * 21 + 3;
  test::onEveryTarget([&] {
    for (int count = 3; count <= 49; count += 2) {
      SCOPED_TRACE(count);
      const std::vector<float> w = weightsFor(count);
      const int rows = count + kMaxSumRows - 1;
      std::vector<std::vector<float>> data;
      std::vector<const float*> rowPtrs;
      for (int r = 0; r < rows; ++r) data.push_back(randomFloats(paddedFloats(n), unsigned(100 * count + r)));
      for (auto& r : data) rowPtrs.push_back(r.data());
      std::vector<std::vector<float>> together(kMaxSumRows, std::vector<float>(paddedFloats(n)));
      float* outs[kMaxSumRows];
      for (int j = 0; j < kMaxSumRows; ++j) outs[j] = together[size_t(j)].data();
      for (int outputs = 1; outputs <= kMaxSumRows; ++outputs) {
        symmetricSumRows(rowPtrs.data(), w.data(), count, outs, outputs, n);
        for (int j = 0; j < outputs; ++j) {
          std::vector<float> alone(paddedFloats(n));
          float* one[1] = {alone.data()};
          symmetricSumRows(rowPtrs.data() + j, w.data(), count, one, 1, n);
          for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(together[size_t(j)][i], alone[i]) << "output " << j << " of " << outputs << " at " << i;
            double expected = 0;
            for (int k = 0; k < count; ++k) expected += double(w[size_t(k)]) * data[size_t(j + k)][i];
            ASSERT_NEAR(alone[i], expected, 1e-5);
          }
        }
      }
    }
  });
}

}  // namespace
}  // namespace vg::blur
