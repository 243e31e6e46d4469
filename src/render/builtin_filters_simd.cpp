// Vectorised row loops of the colour filters in builtin_filters.h: the same
// float operations in the same order as the plain loops there, on planar
// vectors (four pixels' channels de-interleaved at a time), compiled once per
// instruction set and dispatched at run time. A short tail goes through a
// padded block so that every pixel sees the same operations.
#include <algorithm>
#include <cstring>

#include "render/builtin_filters.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/builtin_filters_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vg::filters {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;

#include "render/simd_rgba-inl.h"

// Calls fn(r, g, b, a) on every block of pixels of the row, in place.
template <class Fn>
HWY_INLINE void ForEachBlock(const KernelRow& row, const Fn& fn) {
  const D d;
  const size_t N = hn::Lanes(d);
  float* p = row.rgba;
  size_t i = 0;
  const size_t n = size_t(row.n);
  for (; i + N <= n; i += N, p += 4 * N) {
    V r, g, b, a;
    LoadRgba(d, p, r, g, b, a);
    fn(r, g, b, a);
    StoreRgba(d, r, g, b, a, p);
  }
  if (i < n) {
    HWY_ALIGN float tail[4 * hn::MaxLanes(d)] = {};
    const size_t bytes = (n - i) * 4 * sizeof(float);
    std::memcpy(tail, p, bytes);
    V r, g, b, a;
    LoadRgba(d, tail, r, g, b, a);
    fn(r, g, b, a);
    StoreRgba(d, r, g, b, a, tail);
    std::memcpy(p, tail, bytes);
  }
}

// Calls fn(r, g, b, a) on every vector of a planar run (aligned, padded).
template <class Fn>
HWY_INLINE void ForEachPlanarBlock(const PlanarRow& row, const Fn& fn) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t end = size_t(kernels::planarPadded(row.n));
  for (size_t i = 0; i < end; i += N) {
    V r = hn::Load(d, row.r + i), g = hn::Load(d, row.g + i), b = hn::Load(d, row.b + i), a = hn::Load(d, row.a + i);
    fn(r, g, b, a);
    hn::Store(r, d, row.r + i);
    hn::Store(g, d, row.g + i);
    hn::Store(b, d, row.b + i);
    hn::Store(a, d, row.a + i);
  }
}

// The filters as functions of four planes, for either layout.
struct SaturationFn {
  V kr, kg, kb, vs;
  explicit SaturationFn(float s)
      : kr(hn::Set(D(), 0.2126f)), kg(hn::Set(D(), 0.7152f)), kb(hn::Set(D(), 0.0722f)), vs(hn::Set(D(), s)) {}
  HWY_INLINE void operator()(V& r, V& g, V& b, V&) const {
    // l = 0.2126 r + 0.7152 g + 0.0722 b; c = l + (c - l) s
    const V l = hn::Add(hn::Add(hn::Mul(kr, r), hn::Mul(kg, g)), hn::Mul(kb, b));
    r = hn::Add(l, hn::Mul(hn::Sub(r, l), vs));
    g = hn::Add(l, hn::Mul(hn::Sub(g, l), vs));
    b = hn::Add(l, hn::Mul(hn::Sub(b, l), vs));
  }
};

struct ColorMatrixFn {
  const ColorMatrix& m;
  HWY_INLINE V dot(const std::array<float, 4>& w, float bias, V r, V g, V b, V a) const {
    const D d;
    V t = hn::Add(hn::Mul(hn::Set(d, w[0]), r), hn::Mul(hn::Set(d, w[1]), g));
    t = hn::Add(t, hn::Mul(hn::Set(d, w[2]), b));
    t = hn::Add(t, hn::Mul(hn::Set(d, w[3]), a));
    return hn::Add(t, hn::Set(d, bias));
  }
  HWY_INLINE void operator()(V& r, V& g, V& b, V& a) const {
    const V r2 = dot(m.r, m.bias[0], r, g, b, a), g2 = dot(m.g, m.bias[1], r, g, b, a);
    const V b2 = dot(m.b, m.bias[2], r, g, b, a), a2 = dot(m.a, m.bias[3], r, g, b, a);
    r = r2;
    g = g2;
    b = b2;
    a = a2;
  }
};

void SaturationRow(float s, const KernelRow& row) { ForEachBlock(row, SaturationFn(s)); }
void SaturationPlanar(float s, const PlanarRow& row) { ForEachPlanarBlock(row, SaturationFn(s)); }
void ColorMatrixRow(const ColorMatrix& m, const KernelRow& row) { ForEachBlock(row, ColorMatrixFn{m}); }
void ColorMatrixPlanar(const ColorMatrix& m, const PlanarRow& row) { ForEachPlanarBlock(row, ColorMatrixFn{m}); }

}  // namespace HWY_NAMESPACE
}  // namespace vg::filters
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg::filters {
HWY_EXPORT(SaturationRow);
HWY_EXPORT(SaturationPlanar);
HWY_EXPORT(ColorMatrixRow);
HWY_EXPORT(ColorMatrixPlanar);

void saturation(float s, const KernelRow& row) {
  if (row.n > 0) HWY_DYNAMIC_DISPATCH(SaturationRow)(s, row);
}
void colorMatrix(const ColorMatrix& m, const KernelRow& row) {
  if (row.n > 0) HWY_DYNAMIC_DISPATCH(ColorMatrixRow)(m, row);
}
void saturation(float s, const PlanarRow& row) {
  if (row.n > 0) HWY_DYNAMIC_DISPATCH(SaturationPlanar)(s, row);
}
void colorMatrix(const ColorMatrix& m, const PlanarRow& row) {
  if (row.n > 0) HWY_DYNAMIC_DISPATCH(ColorMatrixPlanar)(m, row);
}
}  // namespace vg::filters
#endif  // HWY_ONCE
