// Highway implementation of blur_simd.h: up to eight vectors of outputs stay in
// registers while the taps stream past them.
#include "render/blur_simd.h"

#include <array>
#include <type_traits>
#include <utility>

#include "model/sanitizers.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/blur_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vg::blur {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Tap counts up to which eight output vectors share one pass over the taps;
// beyond, four (see SymmetricSumRowsFixed::Run).
constexpr int kMaxShared = 25;

// Calls f(std::integral_constant<int, i>) for i = 0 ... N - 1, unrolled.
template <class F, int... I>
HWY_INLINE void UnrollSeq(F&& f, std::integer_sequence<int, I...>) {
  (f(std::integral_constant<int, I>{}), ...);
}
template <int N, class F>
HWY_INLINE void Unroll(F&& f) {
  UnrollSeq(f, std::make_integer_sequence<int, N>{});
}

// The tap counts 2R + 1 for R = 1 ... kMaxUnrolled get loops unrolled for
// each, so that every loaded vector stays in a register for all the outputs
// that need it: every radius the direct filter has (sigma up to 8). Under the
// sanitizers, whose instrumentation of the unrolled loops takes minutes to
// compile, only the smallest are; the others take plain loops with the same
// arithmetic, Fn<0>.
#if defined(VG_ADDRESS_SANITIZER) || defined(VG_THREAD_SANITIZER)
constexpr int kMaxUnrolled = 3;
#else
constexpr int kMaxUnrolled = 24;
#endif
template <template <int> class Fn, class... Args>
HWY_INLINE void WithTaps(int count, Args... args) {
  using Entry = void (*)(int, Args...);
  static constexpr auto table = []<int... R>(std::integer_sequence<int, R...>) {
    return std::array<Entry, sizeof...(R)>{&Fn<2 * R + 3>::Run...};
  }(std::make_integer_sequence<int, kMaxUnrolled>{});
  if (count / 2 <= kMaxUnrolled) {
    table[size_t(count / 2 - 1)](count, args...);
  } else {
    Fn<0>::Run(count, args...);
  }
}

// J sums over rows [j, j + T) for j < J, one vector of columns at i.
// Neighbouring outputs share rows, and the unrolled loops load each row once.
template <int T, int J, class D>
HWY_INLINE void SymmetricSumRowsAt(D d, const float* const* rows, const float* w, float* const* out, size_t i) {
  using V = hn::Vec<D>;
  constexpr int c = T / 2;
  V acc[J];
  const V wc = hn::Set(d, w[c]);
  Unroll<J>([&](auto j) HWY_ATTR { acc[j] = hn::Mul(wc, hn::LoadU(d, rows[j + c] + i)); });
  Unroll<c>([&](auto k) HWY_ATTR {
    const V wk = hn::Set(d, w[k]);
    Unroll<J>([&](auto j) HWY_ATTR {
      acc[j] = hn::MulAdd(wk, hn::Add(hn::LoadU(d, rows[j + k] + i), hn::LoadU(d, rows[j + T - 1 - k] + i)), acc[j]);
    });
  });
  Unroll<J>([&](auto j) HWY_ATTR { hn::StoreU(acc[j], d, out[j] + i); });
}

template <int T>
struct SymmetricSumRowsFixed {
  template <int J>
  static void Outputs(const float* const* rows, const float* w, float* const* out, size_t n) {
    const hn::ScalableTag<float> d;
    const size_t end = paddedFloats(n);
    for (size_t i = 0; i < end; i += hn::Lanes(d)) SymmetricSumRowsAt<T, J>(d, rows, w, out, i);
  }
  // Eight outputs at once, fewer by fours, twos and ones (each output's sum
  // is the same however many share its rows). From kMaxShared taps on, four
  // at most: eight accumulators and that many weights no longer fit the
  // registers (measured: sigma 6 ran a sixth slower with eight).
  static void Run(int, const float* const* rows, const float* w, float* const* out, int outputs, size_t n) {
    if (outputs >= 8 && T <= kMaxShared) return Outputs<8>(rows, w, out, n);
    int j = 0;
    for (; outputs - j >= 4; j += 4) Outputs<4>(rows + j, w, out + j, n);
    if (outputs - j >= 2) Outputs<2>(rows + j, w, out + j, n), j += 2;
    if (outputs - j >= 1) Outputs<1>(rows + j, w, out + j, n);
  }
};

// Any tap count, one output after another.
template <>
struct SymmetricSumRowsFixed<0> {
  static void Run(int count, const float* const* rows, const float* w, float* const* out, int outputs, size_t n) {
    const hn::ScalableTag<float> d;
    using V = hn::Vec<decltype(d)>;
    const size_t end = paddedFloats(n);
    const int c = count / 2;
    for (int j = 0; j < outputs; ++j) {
      const float* const* r = rows + j;
      for (size_t i = 0; i < end; i += hn::Lanes(d)) {
        V a = hn::Mul(hn::Set(d, w[c]), hn::LoadU(d, r[c] + i));
        for (int k = 0; k < c; ++k) {
          a = hn::MulAdd(hn::Set(d, w[k]), hn::Add(hn::LoadU(d, r[k] + i), hn::LoadU(d, r[count - 1 - k] + i)), a);
        }
        hn::StoreU(a, d, out[j] + i);
      }
    }
  }
};

void SymmetricSumRowsImpl(const float* const* rows, const float* w, int count, float* const* out, int outputs,
                          size_t n) {
  WithTaps<SymmetricSumRowsFixed>(count, rows, w, out, outputs, n);
}

// J output vectors of convolveLine from x (output j at x + j N). With r
// pixels of C floats per vector, output j's tap t reads position t + r j:
// each position is loaded once and added to every output that has a tap
// there, in ascending tap order.
template <int T, int C, int J, class D>
HWY_INLINE void ConvolveAt(D d, const float* x, const float* w, float* out) {
  using V = hn::Vec<D>;
  constexpr int r = int(hn::MaxLanes(d) / C);
  V acc[J];
  Unroll<T + r * (J - 1)>([&](auto q) HWY_ATTR {
    const V v = hn::LoadU(d, x + C * size_t(q));
    Unroll<J>([&](auto j) HWY_ATTR {
      constexpr int t = int(q) - r * int(j);
      if constexpr (t == 0) {
        acc[j] = hn::Mul(hn::Set(d, w[0]), v);
      } else if constexpr (t > 0 && t < T) {
        acc[j] = hn::MulAdd(hn::Set(d, w[t]), v, acc[j]);
      }
    });
  });
  Unroll<J>([&](auto j) HWY_ATTR { hn::StoreU(acc[j], d, out + size_t(j) * hn::Lanes(d)); });
}

#if HWY_TARGET <= HWY_AVX3
// ConvolveAt for RGBA on 16-lane vectors, J outputs: the same sums, but the
// vectors at positions between two whole vectors from x are shifted together
// from those two in registers (valignd) instead of loaded again. Most of them
// would straddle two cache lines, and the loads, not the multiply-adds, would
// set the pace. Positions in the last whole vector's span are loaded, so that
// nothing past the last tap's pixels is read.
template <int T, int J>
HWY_INLINE void ConvolveRgbaShifted(const float* x, const float* w, float* out) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  static_assert(hn::MaxLanes(d) == 16);
  constexpr int P = T + 4 * (J - 1);  // pixel positions the J outputs read
  constexpr int lastBlock = (P - 1) / 4;
  V acc[J];
  V lo = hn::LoadU(d, x), hi = lo;
  Unroll<P>([&](auto q) HWY_ATTR {
    constexpr int m = int(q) / 4, s = int(q) % 4;
    V v;
    if constexpr (s == 0) {
      if constexpr (m > 0) lo = hi;
      if constexpr (m < lastBlock) hi = hn::LoadU(d, x + 16 * size_t(m + 1));
      v = lo;
    } else if constexpr (m < lastBlock) {
      v = V{_mm512_castsi512_ps(_mm512_alignr_epi32(_mm512_castps_si512(hi.raw), _mm512_castps_si512(lo.raw), 4 * s))};
    } else {
      v = hn::LoadU(d, x + 4 * size_t(q));
    }
    Unroll<J>([&](auto j) HWY_ATTR {
      constexpr int t = int(q) - 4 * int(j);
      if constexpr (t == 0) {
        acc[j] = hn::Mul(hn::Set(d, w[0]), v);
      } else if constexpr (t > 0 && t < T) {
        acc[j] = hn::MulAdd(hn::Set(d, w[t]), v, acc[j]);
      }
    });
  });
  Unroll<J>([&](auto j) HWY_ATTR { hn::StoreU(acc[j], d, out + size_t(j) * 16); });
}
#endif

// Any tap count, one tap after another.
HWY_INLINE void ConvolveLoop(int count, const float* x, const float* w, int channels, float* out, size_t n) {
  const hn::ScalableTag<float> d;
  const size_t step = size_t(channels);
  const size_t end = paddedFloats(n);
  for (size_t i = 0; i < end; i += hn::Lanes(d)) {
    hn::Vec<decltype(d)> a = hn::Mul(hn::Set(d, w[0]), hn::LoadU(d, x + i));
    for (int t = 1; t < count; ++t) a = hn::MulAdd(hn::Set(d, w[t]), hn::LoadU(d, x + i + step * size_t(t)), a);
    hn::StoreU(a, d, out + i);
  }
}

template <int T>
struct ConvolveFixed {
  static void Run(int count, const float* x, const float* w, int channels, float* out, size_t n) {
    const hn::ScalableTag<float> d;
    constexpr size_t N = hn::MaxLanes(d);
    const size_t end = paddedFloats(n);
    size_t i = 0;
    if constexpr (T > 0 && N % 4 == 0) {
      if (channels == 4) {  // several pixels per vector: outputs share their loads
        if constexpr (T <= kMaxShared) {
#if HWY_TARGET <= HWY_AVX3
          for (; i + 8 * N <= end; i += 8 * N) ConvolveRgbaShifted<T, 8>(x + i, w, out + i);
#else
          for (; i + 8 * N <= end; i += 8 * N) ConvolveAt<T, 4, 8>(d, x + i, w, out + i);
#endif
        }
        for (; i + 4 * N <= end; i += 4 * N) ConvolveAt<T, 4, 4>(d, x + i, w, out + i);
        for (; i < end; i += N) ConvolveAt<T, 4, 1>(d, x + i, w, out + i);
        return;
      }
    }
    ConvolveLoop(count, x, w, channels, out, n);
  }
};

void ConvolveLineImpl(const float* x, const float* w, int count, int channels, float* out, size_t n) {
  WithTaps<ConvolveFixed>(count, x, w, channels, out, n);
}

}  // namespace HWY_NAMESPACE
}  // namespace vg::blur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg::blur {
HWY_EXPORT(SymmetricSumRowsImpl);
HWY_EXPORT(ConvolveLineImpl);
void symmetricSumRows(const float* const* rows, const float* weights, int count, float* const* out, int outputs,
                      size_t n) {
  if (n > 0 && outputs > 0) HWY_DYNAMIC_DISPATCH(SymmetricSumRowsImpl)(rows, weights, count, out, outputs, n);
}
void convolveLine(const float* x, const float* weights, int count, int channels, float* out, size_t n) {
  if (n > 0) HWY_DYNAMIC_DISPATCH(ConvolveLineImpl)(x, weights, count, channels, out, n);
}
}  // namespace vg::blur
#endif  // HWY_ONCE
