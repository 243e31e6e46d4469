// Highway implementation of blur_simd.h: four vectors of outputs stay in
// registers while the taps stream past them.
#include "render/blur_simd.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/blur_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vg::blur {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void SymmetricSumImpl(const float* const* rows, const float* w, int count, float* out, size_t n) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const size_t N = hn::Lanes(d);
  const int c = count / 2;
  const size_t end = paddedFloats(n);
  const V wc = hn::Set(d, w[c]);
  size_t i = 0;
  for (; i + 4 * N <= end; i += 4 * N) {
    const float* m = rows[c] + i;
    V a0 = hn::Mul(wc, hn::LoadU(d, m));
    V a1 = hn::Mul(wc, hn::LoadU(d, m + N));
    V a2 = hn::Mul(wc, hn::LoadU(d, m + 2 * N));
    V a3 = hn::Mul(wc, hn::LoadU(d, m + 3 * N));
    for (int k = 0; k < c; ++k) {
      const V wk = hn::Set(d, w[k]);
      const float* p = rows[k] + i;
      const float* q = rows[count - 1 - k] + i;
      a0 = hn::MulAdd(wk, hn::Add(hn::LoadU(d, p), hn::LoadU(d, q)), a0);
      a1 = hn::MulAdd(wk, hn::Add(hn::LoadU(d, p + N), hn::LoadU(d, q + N)), a1);
      a2 = hn::MulAdd(wk, hn::Add(hn::LoadU(d, p + 2 * N), hn::LoadU(d, q + 2 * N)), a2);
      a3 = hn::MulAdd(wk, hn::Add(hn::LoadU(d, p + 3 * N), hn::LoadU(d, q + 3 * N)), a3);
    }
    hn::StoreU(a0, d, out + i);
    hn::StoreU(a1, d, out + i + N);
    hn::StoreU(a2, d, out + i + 2 * N);
    hn::StoreU(a3, d, out + i + 3 * N);
  }
  for (; i < end; i += N) {  // kRowPadFloats is a multiple of every vector size
    V a = hn::Mul(wc, hn::LoadU(d, rows[c] + i));
    for (int k = 0; k < c; ++k) {
      a = hn::MulAdd(hn::Set(d, w[k]), hn::Add(hn::LoadU(d, rows[k] + i), hn::LoadU(d, rows[count - 1 - k] + i)), a);
    }
    hn::StoreU(a, d, out + i);
  }
}

void SymmetricSumPairImpl(const float* const* rows, const float* w, int count, float* out0, float* out1,
                          size_t n) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const size_t N = hn::Lanes(d);
  const int c = count / 2;
  const size_t end = paddedFloats(n);
  const V wc = hn::Set(d, w[c]);
  size_t i = 0;
  // Row j serves output 0 as tap j and output 1 as tap j - 1; every sum is
  // formed in the same order as in SymmetricSumImpl.
  for (; i + 2 * N <= end; i += 2 * N) {
    V a0 = hn::Mul(wc, hn::LoadU(d, rows[c] + i)), a1 = hn::Mul(wc, hn::LoadU(d, rows[c] + i + N));
    V b0 = hn::Mul(wc, hn::LoadU(d, rows[c + 1] + i)), b1 = hn::Mul(wc, hn::LoadU(d, rows[c + 1] + i + N));
    for (int k = 0; k < c; ++k) {
      const V wk = hn::Set(d, w[k]);
      const float* p = rows[k] + i;              // output 0, left tap
      const float* q = rows[count - 1 - k] + i;  // output 0, right tap
      const float* p1 = rows[k + 1] + i;         // output 1, left tap
      const float* q1 = rows[count - k] + i;     // output 1, right tap
      const V p0v = hn::LoadU(d, p), p0w = hn::LoadU(d, p + N);
      const V q0v = hn::LoadU(d, q), q0w = hn::LoadU(d, q + N);
      const V p1v = hn::LoadU(d, p1), p1w = hn::LoadU(d, p1 + N);
      const V q1v = hn::LoadU(d, q1), q1w = hn::LoadU(d, q1 + N);
      a0 = hn::MulAdd(wk, hn::Add(p0v, q0v), a0);
      a1 = hn::MulAdd(wk, hn::Add(p0w, q0w), a1);
      b0 = hn::MulAdd(wk, hn::Add(p1v, q1v), b0);
      b1 = hn::MulAdd(wk, hn::Add(p1w, q1w), b1);
    }
    hn::StoreU(a0, d, out0 + i);
    hn::StoreU(a1, d, out0 + i + N);
    hn::StoreU(b0, d, out1 + i);
    hn::StoreU(b1, d, out1 + i + N);
  }
  for (; i < end; i += N) {
    V a = hn::Mul(wc, hn::LoadU(d, rows[c] + i));
    V b = hn::Mul(wc, hn::LoadU(d, rows[c + 1] + i));
    for (int k = 0; k < c; ++k) {
      const V wk = hn::Set(d, w[k]);
      a = hn::MulAdd(wk, hn::Add(hn::LoadU(d, rows[k] + i), hn::LoadU(d, rows[count - 1 - k] + i)), a);
      b = hn::MulAdd(wk, hn::Add(hn::LoadU(d, rows[k + 1] + i), hn::LoadU(d, rows[count - k] + i)), b);
    }
    hn::StoreU(a, d, out0 + i);
    hn::StoreU(b, d, out1 + i);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vg::blur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg::blur {
HWY_EXPORT(SymmetricSumImpl);
HWY_EXPORT(SymmetricSumPairImpl);
void symmetricSum(const float* const* rows, const float* weights, int count, float* out, size_t n) {
  if (n > 0) HWY_DYNAMIC_DISPATCH(SymmetricSumImpl)(rows, weights, count, out, n);
}
void symmetricSumPair(const float* const* rows, const float* weights, int count, float* out0, float* out1,
                      size_t n) {
  if (n > 0) HWY_DYNAMIC_DISPATCH(SymmetricSumPairImpl)(rows, weights, count, out0, out1, n);
}
}  // namespace vg::blur
#endif  // HWY_ONCE
