// The row splitter: every row exactly once, bands within the rect, and a
// kernel applied with 1 thread or many gives the same bits.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "render/kernel_apply.h"
#include "render/parallel.h"

namespace vg {
namespace {

TEST(Parallel, EveryRowExactlyOnce) {
  for (int grain : {1, 3, 64, 1000}) {
    Rect r{5, -17, 3, 301};
    std::vector<std::atomic<int>> seen(size_t(r.height));
    parallelRows(r, grain, [&](int y0, int y1) {
      ASSERT_LE(r.y, y0);
      ASSERT_LT(y0, y1);
      ASSERT_LE(y1, r.bottom());
      for (int y = y0; y < y1; ++y) seen[size_t(y - r.y)]++;
    });
    for (auto& s : seen) EXPECT_EQ(s.load(), 1) << "grain " << grain;
  }
  int calls = 0;
  parallelRows(Rect{0, 0, 10, 0}, 1, [&](int, int) { ++calls; });
  EXPECT_EQ(calls, 0);
}

TEST(Parallel, ExceptionsReachTheCaller) {
  EXPECT_THROW(parallelRows(Rect{0, 0, 1, 100}, 1,
                            [](int y0, int) {
                              if (y0 <= 50) throw std::runtime_error("band failed");
                            }),
               std::runtime_error);
}

TEST(Parallel, OneThreadAndManyGiveTheSameBits) {
  Image a(Rect{-3, 7, 133, 97});
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y) {
    for (int x = a.bounds().x; x < a.bounds().right(); ++x) {
      float* p = a.at(x, y);
      p[0] = float((x * 7 + y * 13) % 101) / 100.0f;
      p[1] = float((x * 3 + y) % 17) / 16.0f;
      p[2] = 0.25f;
      p[3] = 1.0f;
    }
  }
  Image b = a.clone();
  auto grainParams = kernels::prepare(kernels::GrainParams{0.7f, 0.4f, 600.0f, 0, 0});
  auto fn = [&](const kernels::KernelRow& row) { kernels::grain(grainParams, row); };
  {
    ScopedThreadLimit one(1);
    applyKernel(a, nullptr, fn, 1);
  }
  applyKernel(b, nullptr, fn, 1);
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y) {
    for (int x = a.bounds().x; x < a.bounds().right(); ++x) {
      for (int c = 0; c < 4; ++c) ASSERT_EQ(a.at(x, y)[c], b.at(x, y)[c]);
    }
  }
  Image small(Rect{0, 0, 4, 4});
  EXPECT_THROW(applyKernel(a, &small, fn), std::invalid_argument);
}

}  // namespace
}  // namespace vg
