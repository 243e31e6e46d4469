#include "render/parallel.h"

#include <algorithm>

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

namespace vg {

void parallelFor(int begin, int end, int grain, const std::function<void(int i0, int i1)>& fn) {
  if (end <= begin) return;
  const int g = std::max(1, grain);
  if (end - begin <= g) {
    fn(begin, end);
    return;
  }
  tbb::parallel_for(tbb::blocked_range<int>(begin, end, size_t(g)),
                    [&](const tbb::blocked_range<int>& r) { fn(r.begin(), r.end()); });
}

void parallelRows(const Rect& rect, int grain, const std::function<void(int y0, int y1)>& fn) {
  if (rect.empty()) return;
  parallelFor(rect.y, rect.bottom(), grain, fn);
}

int parallelism() {
  return std::max(1, int(tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism)));
}

struct ScopedThreadLimit::Impl {
  tbb::global_control control;
  explicit Impl(int threads)
      : control(tbb::global_control::max_allowed_parallelism, size_t(std::max(1, threads))) {}
};

ScopedThreadLimit::ScopedThreadLimit(int threads) : impl_(std::make_unique<Impl>(threads)) {}
ScopedThreadLimit::~ScopedThreadLimit() = default;

}  // namespace vg
