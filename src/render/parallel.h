// The one place where the render engine starts parallel work. Kernels and
// filters never create threads: they receive rows and the caller splits an
// image into bands of rows here, on the shared oneTBB pool.
//
// parallelRows(rect, grain, fn) calls fn(y0, y1) for disjoint half-open bands
// [y0, y1) that together cover rect's rows exactly once, each band at least
// `grain` rows (except a short last one). fn runs concurrently on several
// threads and must only write rows of its own band. It returns when all bands
// are done; an exception thrown by fn is rethrown to the caller.
// An empty rect calls nothing. Results never depend on how rows are split.
#pragma once

#include <functional>
#include <memory>

#include "render/rect.h"

namespace vg {

void parallelRows(const Rect& rect, int grain, const std::function<void(int y0, int y1)>& fn);

// Runs fn(i0, i1) over [begin, end) split into chunks of at least grain items.
void parallelFor(int begin, int end, int grain, const std::function<void(int i0, int i1)>& fn);

// How many threads parallel work may use at the moment (at least 1).
int parallelism();

// Caps the number of worker threads the whole process uses while it lives
// (benchmarks and tests compare 1 thread with N).
class ScopedThreadLimit {
 public:
  explicit ScopedThreadLimit(int threads);
  ~ScopedThreadLimit();
  ScopedThreadLimit(const ScopedThreadLimit&) = delete;
  ScopedThreadLimit& operator=(const ScopedThreadLimit&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vg
