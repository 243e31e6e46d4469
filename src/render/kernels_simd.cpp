// The fast paths of the kernels in kernels.h: the same arithmetic as the
// scalar references (kernels_reference.cpp), vectorised with Highway and
// compiled once per instruction set; HWY_DYNAMIC_DISPATCH picks the best one
// the processor has at the first call.
//
// Each kernel is a functor over planar vectors (R, G, B, A, the aux image's
// R, G, B and the pixel centre). RunRow de-interleaves a row, calls it and
// interleaves the result back; a short tail goes through a zero-padded block so
// that every pixel sees exactly the same operations, whichever thread or tile
// runs it. Operations are written in the references' order (no contracted
// multiply-add: the library is built with -ffp-contract=off) so that the
// hash-based kernels match them bit for bit; tone and curves regroup their
// arithmetic and use explicit multiply-adds where the 1e-5 agreement allows.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "render/kernels.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/kernels_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "hwy/contrib/math/math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vg::kernels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;

#include "render/simd_exp2-inl.h"

// 16-lane x86 targets get two shortcuts below: in-register tables through
// lane permutes, and a cheaper RGBA (de)interleave.
#undef VG_KERNELS_AVX512
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
#define VG_KERNELS_AVX512 1
#else
#define VG_KERNELS_AVX512 0
#endif

// ---------------------------------------------------------------- helpers

HWY_INLINE V Clamp01(D d, V x) {  // NaN -> 0
  return hn::IfThenElseZero(hn::Gt(x, hn::Zero(d)), hn::Min(x, hn::Set(d, 1.0f)));
}
HWY_INLINE V ClampTo(D d, V x, float lo, float hi) {
  return hn::IfThenElse(hn::Gt(x, hn::Set(d, lo)), hn::Min(x, hn::Set(d, hi)), hn::Set(d, lo));
}
HWY_INLINE V Mix(V a, V b, V t) { return hn::Add(a, hn::Mul(hn::Sub(b, a), t)); }
HWY_INLINE V Fract(V x) { return hn::Sub(x, hn::Floor(x)); }
// 1/x as the processor's estimate refined by one Newton step: relative error
// below 2^-22 even from a 12-bit estimate, for a fraction of a division's cost.
// x = 0 gives NaN (callers mask those lanes).
HWY_INLINE V Reciprocal(D d, V x) {
  const V r = hn::ApproximateReciprocal(x);
  return hn::Mul(r, hn::NegMulAdd(x, r, hn::Set(d, 2.0f)));
}
HWY_INLINE V Smoothstep(D d, V a, V b, V x) {
  V t = Clamp01(d, hn::Div(hn::Sub(x, a), hn::Sub(b, a)));
  return hn::Mul(hn::Mul(t, t), hn::Sub(hn::Set(d, 3.0f), hn::Mul(hn::Set(d, 2.0f), t)));
}
// Fixed edges: a multiplication by 1/(b - a) instead of the division.
HWY_INLINE V Smoothstep(D d, float a, float b, V x) {
  V t = Clamp01(d, hn::Mul(hn::Sub(x, hn::Set(d, a)), hn::Set(d, 1.0f / (b - a))));
  return hn::Mul(hn::Mul(t, t), hn::Sub(hn::Set(d, 3.0f), hn::Mul(hn::Set(d, 2.0f), t)));
}
HWY_INLINE V Luma(D d, V r, V g, V b) {
  return hn::Add(hn::Add(hn::Mul(hn::Set(d, 0.2126f), r), hn::Mul(hn::Set(d, 0.7152f), g)),
                 hn::Mul(hn::Set(d, 0.0722f), b));
}
HWY_INLINE V Length3(V r, V g, V b) {
  return hn::Sqrt(hn::Add(hn::Add(hn::Mul(r, r), hn::Mul(g, g)), hn::Mul(b, b)));
}
// Looks up the pair (value, slope) = table[i] for every lane, from a table of
// float pairs stored as 8-byte words: one 64-bit gather per half vector
// instead of two 32-bit gathers per vector.
HWY_INLINE void GatherPairs(D d, const double* HWY_RESTRICT pairs, hn::Vec<hn::RebindToSigned<D>> idx, V& lo, V& hi) {
#if HWY_TARGET == HWY_SCALAR
  float two[2];
  std::memcpy(two, pairs + hn::GetLane(idx), sizeof two);
  lo = hn::Set(d, two[0]);
  hi = hn::Set(d, two[1]);
#elif VG_KERNELS_AVX512
  (void)d;
  alignas(64) static constexpr int32_t kEven[16] = {0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30};
  const __m512i even = _mm512_load_si512(kEven), odd = _mm512_add_epi32(even, _mm512_set1_epi32(1));
  const __m512 first = _mm512_castpd_ps(_mm512_i32gather_pd(_mm512_castsi512_si256(idx.raw), pairs, 8));
  const __m512 second = _mm512_castpd_ps(_mm512_i32gather_pd(_mm512_extracti64x4_epi64(idx.raw, 1), pairs, 8));
  lo = V{_mm512_permutex2var_ps(first, even, second)};
  hi = V{_mm512_permutex2var_ps(first, odd, second)};
#else
  const hn::RebindToSigned<D> di;
  const hn::Half<decltype(di)> dih;
  const hn::Rebind<int64_t, decltype(dih)> di64;
  const hn::Rebind<double, decltype(dih)> dd;
  V first = hn::BitCast(d, hn::GatherIndex(dd, pairs, hn::PromoteTo(di64, hn::LowerHalf(dih, idx))));
  V second = hn::BitCast(d, hn::GatherIndex(dd, pairs, hn::PromoteTo(di64, hn::UpperHalf(dih, idx))));
  lo = hn::ConcatEven(d, second, first);
  hi = hn::ConcatOdd(d, second, first);
#endif
}

// Splits v in 0...2^31 into its integer part (truncation; v >= 0 so also the
// floor) and the fraction v - i.
HWY_INLINE void SplitNonNegative(D d, V v, hn::Vec<hn::RebindToSigned<D>>& i, V& fraction) {
#if VG_KERNELS_AVX512
  (void)d;
  i.raw = _mm512_cvttps_epi32(v.raw);
  fraction = V{_mm512_reduce_ps(v.raw, _MM_FROUND_TO_ZERO)};  // v - trunc(v) in one instruction
#else
  i = hn::ConvertTo(hn::RebindToSigned<D>(), v);
  fraction = hn::Sub(v, hn::ConvertTo(d, i));
#endif
}

#if VG_KERNELS_AVX512
// x^1.6 for x in 0...1, without a table in memory (a 4096-entry table cost
// two gathers per vector and was the tone kernel's bottleneck).
// x = 2^-k m with m in [1, 2): x^1.6 = 2^-1.6k · m^1.6. The 16 powers 2^-1.6k
// sit in one register and are picked by a lane permute; m^1.6 is a degree-6
// polynomial in m - 1.5 (Chebyshev interpolant, relative error below 3e-7).
// Inputs below 2^-15 use k = 15, so their result (true value below 6e-8) is
// off by at most 2e-7. Through the tone kernel with shadows and highlights at
// their extremes, a sweep of 4M inputs stays within 6e-7 of the reference.
HWY_INLINE V Pow16(D d, V x) {
  const hn::RebindToSigned<D> di;
  alignas(64) static constexpr float kOctave[16] = {
      1.000000000e+00f, 3.298769722e-01f, 1.088188168e-01f, 3.589682181e-02f, 1.184153489e-02f, 3.906249677e-03f,
      1.288581816e-03f, 4.250734681e-04f, 1.402219486e-04f, 4.625599185e-05f, 1.525878654e-05f, 5.033522304e-06f,
      1.660443097e-06f, 5.477419416e-07f, 1.806874532e-07f, 5.960463000e-08f};
  const auto bits = hn::BitCast(di, x);
  const auto k = hn::Min(hn::Sub(hn::Set(di, 127), hn::ShiftRight<23>(bits)), hn::Set(di, 15));
  const V m = hn::BitCast(d, hn::Or(hn::And(bits, hn::Set(di, 0x007FFFFF)), hn::Set(di, 0x3F800000)));
  const V t = hn::Sub(m, hn::Set(d, 1.5f));
  V poly = hn::MulAdd(t, hn::Set(d, 1.114411866e-03f), hn::Set(d, -2.909861422e-03f));
  poly = hn::MulAdd(poly, t, hn::Set(d, 8.453396175e-03f));
  poly = hn::MulAdd(poly, t, hn::Set(d, -3.625309054e-02f));
  poly = hn::MulAdd(poly, t, hn::Set(d, 4.081362330e-01f));
  poly = hn::MulAdd(poly, t, hn::Set(d, 2.040678444e+00f));
  poly = hn::MulAdd(poly, t, hn::Set(d, 1.913136769e+00f));
  return hn::Mul(poly, hn::TableLookupLanes(hn::Load(d, kOctave), hn::IndicesFromVec(d, k)));
}
#else
// 1.6 log2(x) for finite x >= 0 (0 gives about -203). x = 2^e m with m in
// [sqrt(1/2), sqrt(2)), split off with integer arithmetic on the bits; then
// log2(m) = 2/ln 2 · atanh(s) with s = (m - 1)/(m + 1), |s| <= 0.172, as
// 2/ln 2 · (s + s³/3 + s⁵/5 + s⁷/7): the next term is below 5e-8.
HWY_INLINE V Log2Times16(D d, V x) {
  const hn::RebindToSigned<D> di;
  const auto kSqrtHalf = hn::Set(di, 0x3F3504F3);  // the bits of sqrt(1/2)
  const auto shifted = hn::Sub(hn::BitCast(di, x), kSqrtHalf);
  const V e = hn::ConvertTo(d, hn::ShiftRight<23>(shifted));
  const V m = hn::BitCast(d, hn::Add(hn::And(shifted, hn::Set(di, 0x007FFFFF)), kSqrtHalf));
  const V one = hn::Set(d, 1.0f);
  const V s = hn::Div(hn::Sub(m, one), hn::Add(m, one));
  const V s2 = hn::Mul(s, s);
  constexpr float k = 1.6f * 2.0f / 0.693147181f;
  V poly = hn::MulAdd(s2, hn::Set(d, k / 7.0f), hn::Set(d, k / 5.0f));
  poly = hn::MulAdd(poly, s2, hn::Set(d, k / 3.0f));
  poly = hn::MulAdd(poly, s2, hn::Set(d, k));
  return hn::MulAdd(s, poly, hn::Mul(e, hn::Set(d, 1.6f)));
}

// 2^y for y <= 0; below -126 it gives 2^-126 (about 1e-38, standing for 0).
// y = n + f with f in [-1/2, 1/2]: adding 1.5·2^23 rounds y to the integer n
// in the low mantissa bits, which then become the exponent of 2^n; 2^f is
// 1 + f P(f) with the polynomial of the classic Cephes exp2f (relative error
// about 1e-7).
HWY_INLINE V Exp2(D d, V y) {
  const hn::RebindToSigned<D> di;
  const V kRound = hn::Set(d, 12582912.0f);
  y = hn::Max(y, hn::Set(d, -126.0f));
  const V shifted = hn::Add(y, kRound);
  const V f = hn::Sub(y, hn::Sub(shifted, kRound));
  const V p = Exp2Fraction(d, f);
  const auto n = hn::Sub(hn::BitCast(di, shifted), hn::BitCast(di, kRound));
  return hn::Mul(p, hn::BitCast(d, hn::ShiftLeft<23>(hn::Add(n, hn::Set(di, 127)))));
}

// x^1.6 for x in 0...1 as 2^(1.6 log2 x), without a table in memory (a table
// cost two gathers per vector and was the tone kernel's bottleneck). Through
// the tone kernel with shadows and highlights at their extremes, a sweep of 4M
// inputs stays within 6e-7 of the reference's std::pow.
HWY_INLINE V Pow16(D d, V x) { return Exp2(d, Log2Times16(d, x)); }
#endif

HWY_INLINE V Hash21(D d, V px, V py) {
  const V k = hn::Set(d, 0.1031f), c = hn::Set(d, 33.33f);
  V x = Fract(hn::Mul(px, k));
  V y = Fract(hn::Mul(py, k));
  V z = x;
  V dot = hn::Add(hn::Add(hn::Mul(x, hn::Add(y, c)), hn::Mul(y, hn::Add(z, c))), hn::Mul(z, hn::Add(x, c)));
  x = hn::Add(x, dot);
  y = hn::Add(y, dot);
  z = hn::Add(z, dot);
  return Fract(hn::Mul(hn::Add(x, y), z));
}

HWY_INLINE V Hue2Chroma(D d, V p, V q, V t) {
  const V one = hn::Set(d, 1.0f);
  t = hn::IfThenElse(hn::Lt(t, hn::Zero(d)), hn::Add(t, one), t);
  t = hn::IfThenElse(hn::Gt(t, one), hn::Sub(t, one), t);
  V qp = hn::Sub(q, p);
  V rise = hn::Add(p, hn::Mul(hn::Mul(qp, hn::Set(d, 6.0f)), t));
  V fall = hn::Add(p, hn::Mul(hn::Mul(qp, hn::Sub(hn::Set(d, 2.0f / 3.0f), t)), hn::Set(d, 6.0f)));
  V out = hn::IfThenElse(hn::Lt(t, hn::Set(d, 2.0f / 3.0f)), fall, p);
  out = hn::IfThenElse(hn::Lt(t, hn::Set(d, 0.5f)), q, out);
  return hn::IfThenElse(hn::Lt(t, hn::Set(d, 1.0f / 6.0f)), rise, out);
}

HWY_INLINE void Hsl2Rgb(D d, V h, V s, V l, V& r, V& g, V& b) {
  const V one = hn::Set(d, 1.0f);
  V q = hn::IfThenElse(hn::Lt(l, hn::Set(d, 0.5f)), hn::Mul(l, hn::Add(one, s)),
                       hn::Sub(hn::Add(l, s), hn::Mul(l, s)));
  V p = hn::Sub(hn::Mul(hn::Set(d, 2.0f), l), q);
  const V third = hn::Set(d, 1.0f / 3.0f);
  auto grey = hn::Le(s, hn::Set(d, 0.0001f));
  r = hn::IfThenElse(grey, l, Hue2Chroma(d, p, q, hn::Add(h, third)));
  g = hn::IfThenElse(grey, l, Hue2Chroma(d, p, q, h));
  b = hn::IfThenElse(grey, l, Hue2Chroma(d, p, q, hn::Sub(h, third)));
}

HWY_INLINE void Rgb2Hsl(D d, V r, V g, V b, V& h, V& s, V& l) {
  V mx = hn::Max(hn::Max(r, g), b);
  V mn = hn::Min(hn::Min(r, g), b);
  l = hn::Div(hn::Add(mx, mn), hn::Set(d, 2.0f));
  V dd = hn::Sub(mx, mn);
  const V tiny = hn::Set(d, 0.0001f);
  V sHi = hn::Div(dd, hn::Max(tiny, hn::Sub(hn::Sub(hn::Set(d, 2.0f), mx), mn)));
  V sLo = hn::Div(dd, hn::Max(tiny, hn::Add(mx, mn)));
  V sat = hn::IfThenElse(hn::Gt(l, hn::Set(d, 0.5f)), sHi, sLo);
  V hr = hn::Add(hn::Div(hn::Sub(g, b), dd), hn::IfThenElseZero(hn::Lt(g, b), hn::Set(d, 6.0f)));
  V hg = hn::Add(hn::Div(hn::Sub(b, r), dd), hn::Set(d, 2.0f));
  V hb = hn::Add(hn::Div(hn::Sub(r, g), dd), hn::Set(d, 4.0f));
  V hue = hn::IfThenElse(hn::Eq(mx, r), hr, hn::IfThenElse(hn::Eq(mx, g), hg, hb));
  hue = hn::Div(hue, hn::Set(d, 6.0f));
  auto chromatic = hn::Gt(dd, tiny);
  h = hn::IfThenElseZero(chromatic, hue);
  s = hn::IfThenElseZero(chromatic, sat);
}

// The pixels of one vector step.
struct Px {
  V r, g, b, a;     // in and out
  V ar, ag, ab;     // aux image (zero when the kernel has none)
  V cx, cy;         // pixel centres
};

#include "render/simd_rgba-inl.h"

// One vector step; the aux image has kAux floats per pixel: 4 (RGBA) or 1
// (a grey image, read as the aux R).
template <size_t kAux, class Op>
HWY_INLINE void Step(D d, const Op& op, float* HWY_RESTRICT p, const float* HWY_RESTRICT aux, V cx, V cy) {
  Px px;
  LoadRgba(d, p, px.r, px.g, px.b, px.a);
  if (!aux) {
    px.ar = px.ag = px.ab = hn::Zero(d);
  } else if constexpr (kAux == 1) {
    px.ar = hn::LoadU(d, aux);
    px.ag = px.ab = hn::Zero(d);
  } else {
    V aa;
    LoadRgba(d, aux, px.ar, px.ag, px.ab, aa);
  }
  px.cx = cx;
  px.cy = cy;
  op(d, px);
  StoreRgba(d, px.r, px.g, px.b, px.a, p);
}

template <class Op, size_t kAux = 4>
HWY_INLINE void RunRow(const Op& op, const KernelRow& row) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t n = size_t(std::max(row.n, 0));
  const V lane = hn::Iota(d, 0.0f), half = hn::Set(d, 0.5f);
  const V cy = hn::Set(d, float(row.y) + 0.5f);
  size_t i = 0;
  for (; i + N <= n; i += N) {
    V cx = hn::Add(hn::Add(hn::Set(d, float(row.x + int(i))), lane), half);
    Step<kAux>(d, op, row.rgba + i * 4, row.aux ? row.aux + i * kAux : nullptr, cx, cy);
  }
  if (i < n) {
    constexpr size_t kMax = HWY_MAX_BYTES / sizeof(float) * 4;
    HWY_ALIGN float buf[kMax];
    HWY_ALIGN float auxBuf[kMax];
    const size_t rest = (n - i) * 4;
    std::memset(buf, 0, sizeof(buf));
    std::memcpy(buf, row.rgba + i * 4, rest * sizeof(float));
    if (row.aux) {
      std::memset(auxBuf, 0, sizeof(auxBuf));
      std::memcpy(auxBuf, row.aux + i * kAux, (n - i) * kAux * sizeof(float));
    }
    V cx = hn::Add(hn::Add(hn::Set(d, float(row.x + int(i))), lane), half);
    Step<kAux>(d, op, buf, row.aux ? auxBuf : nullptr, cx, cy);
    std::memcpy(row.rgba + i * 4, buf, rest * sizeof(float));
  }
}

// ---------------------------------------------------------------- kernels

struct ToneOp {
  // The reference's steps, regrouped into fewer operations (each within a few
  // ulps of the reference's order):
  // - the whites/blacks step has no upper clamp: a value above 4 there only
  //   reaches the output through clamp01(c (1 + k)), whose result is the same
  //   for c = 4 and for any larger c;
  // - c + c·shadows·wS·1.2 + c·highlights·wH·1.2 is c (1 + k), with
  //   k = 1.2 (shadows·wS + highlights·wH) shared by the three channels, and
  //   its clamp to 0...4 followed by clamp01 is clamp01;
  // - a power whose weight (shadows or highlights) is 0 is not computed;
  // - both contrast branches are one cubic x (a0 + x (a1 + a2 x)) + b0:
  //   contrast >= 0: mix(x, x²(3 - 2x), t) = x (1 - t + x (3t - 2t x));
  //   contrast < 0: mix(x, 0.5 + (x - 0.5)(1 + 0.8t), -t) = (1 - 0.8t²) x + 0.4t².
  float gain, lift, shadows, highlights, a0, a1, a2, b0;
  explicit ToneOp(const ToneParams& p)
      : gain(1.0f + p.whites * 0.35f), lift(p.blacks * 0.35f), shadows(p.shadows * 1.2f),
        highlights(p.highlights * 1.2f) {
    const float t = p.contrast;
    if (t >= 0.0f) {
      a0 = 1.0f - t, a1 = 3.0f * t, a2 = -2.0f * t, b0 = 0.0f;
    } else {
      a0 = 1.0f - 0.8f * t * t, a1 = 0.0f, a2 = 0.0f, b0 = 0.4f * t * t;
    }
  }
  HWY_INLINE V channel(D d, V c, V gainK) const {
    const V x = Clamp01(d, hn::Mul(c, gainK));
    V y = hn::MulAdd(x, hn::Set(d, a2), hn::Set(d, a1));
    y = hn::MulAdd(y, x, hn::Set(d, a0));
    y = hn::MulAdd(y, x, hn::Set(d, b0));
    return hn::Min(hn::Max(y, hn::Zero(d)), hn::Set(d, 1.0f));
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    const V g = hn::Set(d, gain), b = hn::Set(d, lift), zero = hn::Zero(d), one = hn::Set(d, 1.0f);
    const V r = hn::Max(hn::MulAdd(Clamp01(d, x.r), g, b), zero);
    const V gr = hn::Max(hn::MulAdd(Clamp01(d, x.g), g, b), zero);
    const V bl = hn::Max(hn::MulAdd(Clamp01(d, x.b), g, b), zero);
    const V l = hn::Min(Luma(d, hn::Min(r, one), hn::Min(gr, one), hn::Min(bl, one)), one);
    V gainK = one;
    if (highlights != 0.0f) gainK = hn::MulAdd(hn::Set(d, highlights), Pow16(d, l), gainK);
    if (shadows != 0.0f) gainK = hn::MulAdd(hn::Set(d, shadows), Pow16(d, hn::Max(hn::Sub(one, l), zero)), gainK);
    x.r = channel(d, r, gainK);
    x.g = channel(d, gr, gainK);
    x.b = channel(d, bl, gainK);
  }
};

struct VibranceOp {
  VibranceParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V r = Clamp01(d, x.r), g = Clamp01(d, x.g), b = Clamp01(d, x.b);
    V mx = hn::Max(hn::Max(r, g), b), mn = hn::Min(hn::Min(r, g), b);
    V sat = hn::IfThenZeroElse(hn::Le(mx, hn::Set(d, 0.0001f)), hn::Div(hn::Sub(mx, mn), mx));
    V k = hn::Add(hn::Set(d, 1.0f), hn::Mul(hn::Set(d, p.amount), hn::Sub(hn::Set(d, 1.0f), sat)));
    V l = Luma(d, r, g, b);
    x.r = Clamp01(d, Mix(l, r, k));
    x.g = Clamp01(d, Mix(l, g, k));
    x.b = Clamp01(d, Mix(l, b, k));
  }
};

struct HslOp {
  // The reference's arithmetic with fewer operations (each step within a few
  // ulps of it):
  // - rgb2hsl takes two reciprocals (saturation, and 1/d shared by the three
  //   hue candidates) instead of five divisions;
  // - band weights are 1 - distance·(1/40); only the bands within 40° of the
  //   hue wrap-around (red, orange, magenta) take the wrapped distance, and a
  //   band whose three parameters are all zero only adds to the weight sum;
  // - the band parameters are pre-scaled (hue to turns, saturation and
  //   luminance to -1...1), so the sums need one division (by the weight sum);
  //   an adjustment whose every band is zero is skipped;
  // - hue2chroma's four pieces are p + (q - p)·clamp01(min(6t, 4 - 6t)).
  // BM_hsl (all eight bands in use): about 220 MP/s before, 310...330 after,
  // copy 800...950 in the same runs.
  static constexpr float kCenters[8] = {0, 30, 60, 120, 180, 240, 285, 330};
  float hue[8], sat[8], lum[8];
  bool active[8];
  bool anyHue = false, anySat = false, anyLum = false;
  explicit HslOp(const HslParams& p) {
    for (size_t i = 0; i < 8; ++i) {
      hue[i] = p.bands[i].hue / 360.0f;
      sat[i] = p.bands[i].saturation / 100.0f;
      lum[i] = p.bands[i].luminance / 100.0f;
      anyHue |= hue[i] != 0.0f;
      anySat |= sat[i] != 0.0f;
      anyLum |= lum[i] != 0.0f;
      active[i] = hue[i] != 0.0f || sat[i] != 0.0f || lum[i] != 0.0f;
    }
  }
  // The final clamp only catches the last ulp (p + (q - p) may round above q,
  // and q = l + s - l s above 1), so the output stays within 0...1.
  HWY_INLINE V chroma(D d, V p, V qp, V t) const {
    const V one = hn::Set(d, 1.0f), zero = hn::Zero(d);
    const V x = hn::Mul(Fract(t), hn::Set(d, 6.0f));
    const V ramp = hn::Max(hn::Min(hn::Min(x, hn::Sub(hn::Set(d, 4.0f), x)), one), zero);  // x is never NaN here
    return hn::Max(hn::Min(hn::MulAdd(qp, ramp, p), one), zero);
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    const V one = hn::Set(d, 1.0f), zero = hn::Zero(d), tiny = hn::Set(d, 0.0001f);
    const V r = Clamp01(d, x.r), g = Clamp01(d, x.g), b = Clamp01(d, x.b);
    // rgb2hsl
    const V mx = hn::Max(hn::Max(r, g), b), mn = hn::Min(hn::Min(r, g), b);
    const V sum = hn::Add(mx, mn), dd = hn::Sub(mx, mn);
    V l = hn::Mul(sum, hn::Set(d, 0.5f));
    const auto upper = hn::Gt(l, hn::Set(d, 0.5f));
    const auto chromatic = hn::Gt(dd, tiny);
    V s = hn::Mul(dd, Reciprocal(d, hn::Max(tiny, hn::IfThenElse(upper, hn::Sub(hn::Sub(hn::Set(d, 2.0f), mx), mn), sum))));
    s = hn::IfThenElseZero(chromatic, s);
    const auto isR = hn::Eq(mx, r), isG = hn::Eq(mx, g);
    const V num = hn::IfThenElse(isR, hn::Sub(g, b), hn::IfThenElse(isG, hn::Sub(b, r), hn::Sub(r, g)));
    const V off = hn::IfThenElse(isR, hn::IfThenElseZero(hn::Lt(g, b), hn::Set(d, 6.0f)),
                                 hn::IfThenElse(isG, hn::Set(d, 2.0f), hn::Set(d, 4.0f)));
    V h = hn::Mul(hn::MulAdd(num, Reciprocal(d, dd), off), hn::Set(d, 1.0f / 6.0f));
    h = hn::IfThenElseZero(chromatic, h);
    // Band weights and the weighted parameter sums.
    const V hueDeg = hn::Mul(h, hn::Set(d, 360.0f));
    V wSum = tiny, dHue = zero, dSat = zero, dLum = zero;
    for (size_t i = 0; i < 8; ++i) {
      V dist = hn::Abs(hn::Sub(hueDeg, hn::Set(d, kCenters[i])));
      if (kCenters[i] < 40.0f || kCenters[i] > 320.0f) dist = hn::Min(dist, hn::Sub(hn::Set(d, 360.0f), dist));
      const V w = hn::Max(hn::NegMulAdd(dist, hn::Set(d, 1.0f / 40.0f), one), zero);
      wSum = hn::Add(wSum, w);
      if (!active[i]) continue;
      if (anyHue) dHue = hn::MulAdd(w, hn::Set(d, hue[i]), dHue);
      if (anySat) dSat = hn::MulAdd(w, hn::Set(d, sat[i]), dSat);
      if (anyLum) dLum = hn::MulAdd(w, hn::Set(d, lum[i]), dLum);
    }
    const V inv = Reciprocal(d, wSum);
    V protect = Clamp01(d, hn::Mul(hn::Sub(s, hn::Set(d, 0.03f)), hn::Set(d, 1.0f / 0.12f)));
    protect = hn::Mul(hn::Mul(protect, protect), hn::NegMulAdd(hn::Set(d, 2.0f), protect, hn::Set(d, 3.0f)));
    if (anyHue) h = Fract(hn::MulAdd(hn::Mul(dHue, inv), protect, h));
    if (anySat) {
      const V gain = hn::MulAdd(hn::Mul(dSat, inv), hn::MulAdd(protect, hn::Set(d, 0.65f), hn::Set(d, 0.35f)), one);
      s = Clamp01(d, hn::Mul(s, gain));
    }
    if (anyLum) {
      const V room = hn::IfThenElse(hn::Gt(l, hn::Set(d, 0.5f)), hn::Sub(one, l), l);
      l = Clamp01(d, hn::MulAdd(hn::Mul(dLum, inv), room, l));
    }
    // hsl2rgb; grey pixels (s <= 1e-4) come out as (l, l, l) exactly.
    const V q = hn::IfThenElse(hn::Lt(l, hn::Set(d, 0.5f)), hn::Mul(l, hn::Add(one, s)), hn::Sub(hn::Add(l, s), hn::Mul(l, s)));
    const auto grey = hn::Le(s, tiny);
    const V p = hn::IfThenElse(grey, l, hn::Sub(hn::Add(l, l), q));
    const V qp = hn::IfThenZeroElse(grey, hn::Sub(q, p));
    const V third = hn::Set(d, 1.0f / 3.0f);
    x.r = chroma(d, p, qp, hn::Add(h, third));
    x.g = chroma(d, p, qp, h);
    x.b = chroma(d, p, qp, hn::Sub(h, third));
  }
};

struct SplitToneOp {
  SplitTonePrepared p;
  HWY_INLINE V channel(D d, V c, V wHi, V wSh, float hi, float sh, V strength) const {
    V tint = hn::Add(hn::Mul(hn::Set(d, hi), wHi), hn::Mul(hn::Set(d, sh), wSh));
    V two = hn::Mul(hn::Set(d, 2.0f), tint);
    V soft = hn::Add(hn::Mul(hn::Mul(hn::Sub(hn::Set(d, 1.0f), two), c), c), hn::Mul(two, c));
    return Clamp01(d, Mix(c, soft, strength));
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    V r = Clamp01(d, x.r), g = Clamp01(d, x.g), b = Clamp01(d, x.b);
    V l = Luma(d, r, g, b);
    V wHi = Smoothstep(d, p.lo, p.hi, l);
    V wSh = hn::Sub(hn::Set(d, 1.0f), wHi);
    V strength = hn::Add(hn::Mul(hn::Set(d, p.hiSat), wHi), hn::Mul(hn::Set(d, p.shSat), wSh));
    x.r = channel(d, r, wHi, wSh, p.hiR, p.shR, strength);
    x.g = channel(d, g, wHi, wSh, p.hiG, p.shG, strength);
    x.b = channel(d, b, wHi, wSh, p.hiB, p.shB, strength);
  }
};

struct DetailOp {
  DetailParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    const V k = hn::Set(d, p.amount);
    x.r = Clamp01(d, hn::Add(x.r, hn::Mul(hn::Sub(x.r, x.ar), k)));
    x.g = Clamp01(d, hn::Add(x.g, hn::Mul(hn::Sub(x.g, x.ag), k)));
    x.b = Clamp01(d, hn::Add(x.b, hn::Mul(hn::Sub(x.b, x.ab), k)));
  }
};

struct DehazeOp {
  DehazeParams p;
  HWY_INLINE V channel(D d, V c, V haze) const {
    c = Clamp01(d, c);
    V out;
    if (p.amount >= 0.0f) {
      V clean = Clamp01(d, hn::Mul(hn::Sub(c, haze), hn::Set(d, 1.0f / std::max(1.0f - 0.35f * p.amount, 0.1f))));
      out = Mix(c, clean, hn::Set(d, std::min(p.amount * 1.5f, 1.0f)));
    } else {
      V veiled = Mix(c, hn::Set(d, 0.62f), hn::Set(d, 0.45f));
      out = Mix(c, veiled, hn::Set(d, -p.amount));
    }
    return Clamp01(d, out);
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    V haze = hn::Mul(hn::Mul(x.ar, hn::Set(d, 0.9f)), hn::Set(d, p.amount));
    x.r = channel(d, x.r, haze);
    x.g = channel(d, x.g, haze);
    x.b = channel(d, x.b, haze);
  }
};

struct VignetteOp {
  VignettePrepared p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V dx = hn::Sub(hn::Mul(hn::Sub(x.cx, hn::Set(d, p.originX)), hn::Set(d, 1.0f / p.sizeW)), hn::Set(d, 0.5f));
    V dy = hn::Sub(hn::Mul(hn::Sub(x.cy, hn::Set(d, p.originY)), hn::Set(d, 1.0f / p.sizeH)), hn::Set(d, 0.5f));
    V ex = hn::Mul(dx, hn::Set(d, p.ex)), ey = hn::Mul(dy, hn::Set(d, p.ey));
    V r = hn::Sqrt(hn::Add(hn::Mul(ex, ex), hn::Mul(ey, ey)));
    V t = Smoothstep(d, p.start, p.end, r);
    V k = hn::Add(hn::Set(d, 1.0f), hn::Mul(t, hn::Set(d, p.gain)));
    x.r = Clamp01(d, hn::Mul(x.r, k));
    x.g = Clamp01(d, hn::Mul(x.g, k));
    x.b = Clamp01(d, hn::Mul(x.b, k));
  }
};

struct GrainOp {
  GrainPrepared p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V l = Luma(d, Clamp01(d, x.r), Clamp01(d, x.g), Clamp01(d, x.b));
    V ux = hn::Sub(x.cx, hn::Set(d, p.originX)), uy = hn::Sub(x.cy, hn::Set(d, p.originY));
    V fine = hn::Sub(Hash21(d, hn::Floor(ux), hn::Floor(uy)), hn::Set(d, 0.5f));
    V n = fine;
    if (p.coarseMix > 0.0f) {
      const V cell = hn::Set(d, p.cell), one = hn::Set(d, 1.0f);
      V qx = hn::Div(ux, cell), qy = hn::Div(uy, cell);
      V ix = hn::Floor(qx), iy = hn::Floor(qy);
      V fx = hn::Sub(qx, ix), fy = hn::Sub(qy, iy);
      V sx = hn::Mul(hn::Mul(fx, fx), hn::Sub(hn::Set(d, 3.0f), hn::Mul(hn::Set(d, 2.0f), fx)));
      V sy = hn::Mul(hn::Mul(fy, fy), hn::Sub(hn::Set(d, 3.0f), hn::Mul(hn::Set(d, 2.0f), fy)));
      V ix1 = hn::Add(ix, one), iy1 = hn::Add(iy, one);
      V a = Hash21(d, ix, iy), b = Hash21(d, ix1, iy);
      V g = Hash21(d, ix, iy1), dd = Hash21(d, ix1, iy1);
      V coarse = hn::Sub(Mix(Mix(a, b, sx), Mix(g, dd, sx), sy), hn::Set(d, 0.5f));
      n = Mix(fine, coarse, hn::Set(d, p.coarseMix));
    }
    V w = hn::Max(hn::Sub(hn::Set(d, 1.0f), hn::Mul(hn::Abs(hn::Sub(l, hn::Set(d, 0.5f))), hn::Set(d, 1.5f))),
                  hn::Set(d, 0.25f));
    V add = hn::Mul(hn::Mul(hn::Mul(n, hn::Set(d, p.amount)), hn::Set(d, 0.22f)), w);
    x.r = Clamp01(d, hn::Add(x.r, add));
    x.g = Clamp01(d, hn::Add(x.g, add));
    x.b = Clamp01(d, hn::Add(x.b, add));
  }
};

struct CurvesOp {
  const CurvesPrepared* p;
  // v clamped to 0...1 gives the position u = v·lutMax in 0...lutMax, so the
  // texel i = floor(u) needs no further clamp (pair lutMax is the last texel
  // with slope 0); the result is T[i] + (T[i + 1] - T[i])·(u - i).
  HWY_INLINE V Lookup(D d, const std::vector<double>& pairs, V v) const {
    const V u = hn::Mul(Clamp01(d, v), hn::Set(d, float(p->lutMax)));
    hn::Vec<hn::RebindToSigned<D>> i;
    V f, value, slope;
    SplitNonNegative(d, u, i, f);
    GatherPairs(d, pairs.data(), i, value, slope);
    return hn::MulAdd(slope, f, value);
  }
  // Curve t at v (v within 0...1 unless t is the master): a straight line
  // evaluated, any other table looked up.
  HWY_INLINE V Curve(D d, size_t t, V v) const {
    if (p->linear[t]) return hn::MulAdd(v, hn::Set(d, p->lineSlope[t]), hn::Set(d, p->lineOffset[t]));
    return Lookup(d, p->pairs[t], v);
  }
  // K vector steps at once, the master look-ups of all of them first and then
  // the channels' own: the gathers of each group do not wait for each other,
  // so more of them are in flight.
  template <size_t K>
  HWY_INLINE void Steps(D d, Px (&x)[K]) const {
    V c[K][3];
    for (size_t k = 0; k < K; ++k) {
      if (p->linear[CurvesPrepared::kMaster]) {  // the input clamp; a look-up clamps by itself
        x[k].r = Clamp01(d, x[k].r), x[k].g = Clamp01(d, x[k].g), x[k].b = Clamp01(d, x[k].b);
      }
      c[k][0] = Curve(d, CurvesPrepared::kMaster, x[k].r);
      c[k][1] = Curve(d, CurvesPrepared::kMaster, x[k].g);
      c[k][2] = Curve(d, CurvesPrepared::kMaster, x[k].b);
    }
    for (size_t k = 0; k < K; ++k) {
      x[k].r = Curve(d, CurvesPrepared::kRed, c[k][0]);
      x[k].g = Curve(d, CurvesPrepared::kGreen, c[k][1]);
      x[k].b = Curve(d, CurvesPrepared::kBlue, c[k][2]);
    }
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    Px one[1] = {x};
    Steps(d, one);
    x = one[0];
  }
};

// Curves runs several vector steps per iteration (see CurvesOp::Steps); the
// last pixels go through RunRow.
HWY_INLINE void RunCurvesRow(const CurvesOp& op, const KernelRow& row) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t n = size_t(std::max(row.n, 0));
  size_t i = 0;
  // Four steps where 32 vector registers hold them (measured 37.5 ms against
  // 39.8 ms for two on a 24 MP buffer, AVX-512); two elsewhere.
  constexpr size_t K = VG_KERNELS_AVX512 ? 4 : 2;
  for (; i + K * N <= n; i += K * N) {
    float* p = row.rgba + i * 4;
    Px x[K];
    for (size_t k = 0; k < K; ++k) LoadRgba(d, p + k * N * 4, x[k].r, x[k].g, x[k].b, x[k].a);
    op.Steps(d, x);
    for (size_t k = 0; k < K; ++k) StoreRgba(d, x[k].r, x[k].g, x[k].b, x[k].a, p + k * N * 4);
  }
  if (i < n) RunRow(op, KernelRow{row.rgba + i * 4, nullptr, int(n - i), row.x + int(i), row.y});
}

HWY_INLINE void RunCurvesPlanar(const CurvesOp& op, const PlanarRow& row) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t end = size_t(planarPadded(std::max(row.n, 0)));
  constexpr size_t K = VG_KERNELS_AVX512 ? 4 : 2;
  size_t i = 0;
  for (; i < end; i += K * N) {
    const size_t k1 = std::min(K, (end - i) / N);  // the planes end on a whole vector, not on K of them
    Px x[K];
    for (size_t k = 0; k < K; ++k) {
      const size_t at = i + std::min(k, k1 - 1) * N;
      x[k].r = hn::Load(d, row.r + at);
      x[k].g = hn::Load(d, row.g + at);
      x[k].b = hn::Load(d, row.b + at);
      x[k].a = hn::Load(d, row.a + at);
    }
    op.Steps(d, x);
    for (size_t k = 0; k < k1; ++k) {
      hn::Store(x[k].r, d, row.r + i + k * N);
      hn::Store(x[k].g, d, row.g + i + k * N);
      hn::Store(x[k].b, d, row.b + i + k * N);
      hn::Store(x[k].a, d, row.a + i + k * N);
    }
  }
}

struct DitherOp {
  HWY_INLINE void operator()(D d, Px& x) const {
    const V m = hn::Set(d, 4096.0f);
    V pcx = hn::Sub(x.cx, hn::Mul(m, hn::Floor(hn::Div(x.cx, m))));
    V pcy = hn::Sub(x.cy, hn::Mul(m, hn::Floor(hn::Div(x.cy, m))));
    V delta = hn::Div(hn::Sub(Hash21(d, pcx, pcy), hn::Set(d, 0.5f)), hn::Set(d, 255.0f));
    x.r = hn::Add(x.r, delta);
    x.g = hn::Add(x.g, delta);
    x.b = hn::Add(x.b, delta);
  }
};

struct RedEyeOp {
  RedEyeParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V dx = hn::Sub(x.cx, hn::Set(d, p.centerX)), dy = hn::Sub(x.cy, hn::Set(d, p.centerY));
    V dist = hn::Sqrt(hn::Add(hn::Mul(dx, dx), hn::Mul(dy, dy)));
    V t = hn::Sub(hn::Set(d, 1.0f), Smoothstep(d, p.radius * (1.0f - p.feather), p.radius, dist));
    V mx = hn::Max(x.g, x.b);
    V ratio = hn::IfThenElse(hn::Gt(mx, hn::Set(d, 0.001f)), hn::Div(x.r, mx), hn::Set(d, 1.0f));
    V redness = Smoothstep(d, 2.0f, 3.2f, ratio);
    auto apply = hn::And(hn::Gt(t, hn::Zero(d)), hn::Gt(redness, hn::Zero(d)));
    V avg = hn::Div(hn::Add(x.g, x.b), hn::Set(d, 2.0f));
    V targetR = hn::Mul(hn::Min(x.r, hn::Mul(avg, hn::Set(d, 0.9f))), hn::Set(d, 0.85f));
    V k = hn::Mul(t, redness);
    V kg = hn::Mul(k, hn::Set(d, 0.4f));
    V r = Mix(x.r, targetR, k);
    V g = Mix(x.g, hn::Mul(x.g, hn::Set(d, 0.88f)), kg);
    V b = Mix(x.b, hn::Mul(x.b, hn::Set(d, 0.88f)), kg);
    x.r = hn::IfThenElse(apply, r, x.r);
    x.g = hn::IfThenElse(apply, g, x.g);
    x.b = hn::IfThenElse(apply, b, x.b);
  }
};

struct DenoiseOp {
  DenoiseParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V edge = Length3(hn::Sub(x.r, x.ar), hn::Sub(x.g, x.ag), hn::Sub(x.b, x.ab));
    V w = hn::Sub(hn::Set(d, 1.0f), Smoothstep(d, 0.06f, 0.30f, edge));
    V k = hn::Mul(hn::Set(d, p.amount), w);
    x.r = Clamp01(d, Mix(x.r, x.ar, k));
    x.g = Clamp01(d, Mix(x.g, x.ag, k));
    x.b = Clamp01(d, Mix(x.b, x.ab, k));
  }
};

struct LuminanceRangeMaskOp {
  LuminanceRangeMaskParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V l = x.r, aLo, aHi;
    if (p.ramp > 0.0001f) {
      aLo = Clamp01(d, hn::Div(hn::Sub(l, hn::Set(d, p.low)), hn::Set(d, p.ramp)));
      aHi = Clamp01(d, hn::Div(hn::Sub(hn::Set(d, p.high), l), hn::Set(d, p.ramp)));
    } else {
      aLo = hn::IfThenElseZero(hn::Ge(l, hn::Set(d, p.low)), hn::Set(d, 1.0f));
      aHi = hn::IfThenElseZero(hn::Le(l, hn::Set(d, p.high)), hn::Set(d, 1.0f));
    }
    V a = hn::Min(aLo, aHi);
    x.r = x.g = x.b = a;
    x.a = hn::Set(d, 1.0f);
  }
};

struct ChromaDenoiseOp {
  ChromaDenoiseParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V l = Luma(d, x.r, x.g, x.b), lb = Luma(d, x.ar, x.ag, x.ab);
    const V k = hn::Set(d, p.amount);
    x.r = Clamp01(d, hn::Add(l, Mix(hn::Sub(x.r, l), hn::Sub(x.ar, lb), k)));
    x.g = Clamp01(d, hn::Add(l, Mix(hn::Sub(x.g, l), hn::Sub(x.ag, lb), k)));
    x.b = Clamp01(d, hn::Add(l, Mix(hn::Sub(x.b, l), hn::Sub(x.ab, lb), k)));
  }
};

struct DefringeOp {
  DefringeParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V mn = hn::Min(hn::Min(x.r, x.g), x.b), mx = hn::Max(hn::Max(x.r, x.g), x.b);
    V sat = hn::IfThenElseZero(hn::Gt(mx, hn::Set(d, 0.001f)), hn::Div(hn::Sub(mx, mn), mx));
    V magenta = hn::Sub(hn::Min(x.r, x.b), x.g);
    V edge = Length3(hn::Sub(x.r, x.ar), hn::Sub(x.g, x.ag), hn::Sub(x.b, x.ab));
    V w = hn::Mul(hn::Mul(hn::Mul(Smoothstep(d, 0.04f, 0.25f, magenta), Smoothstep(d, 0.25f, 0.65f, sat)),
                          Smoothstep(d, 0.03f, 0.20f, edge)),
                  hn::Set(d, p.amount));
    x.r = Clamp01(d, Mix(x.r, hn::Min(x.r, x.ag), w));
    x.g = Clamp01(d, x.g);
    x.b = Clamp01(d, Mix(x.b, hn::Min(x.b, x.ag), w));
  }
};

struct MonochromeOp {
  MonochromePrepared p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V l = hn::Add(hn::Add(hn::Mul(Clamp01(d, x.r), hn::Set(d, p.wr)), hn::Mul(Clamp01(d, x.g), hn::Set(d, p.wg))),
                  hn::Mul(Clamp01(d, x.b), hn::Set(d, p.wb)));
    x.r = x.g = x.b = Clamp01(d, l);
  }
};

struct ColorRangeMaskOp {
  ColorRangeMaskParams p;
  HWY_INLINE void operator()(D d, Px& x) const {
    V dist = Length3(hn::Sub(x.r, hn::Set(d, p.targetR)), hn::Sub(x.g, hn::Set(d, p.targetG)),
                     hn::Sub(x.b, hn::Set(d, p.targetB)));
    float f = std::max(p.feather, 0.0001f);
    V a = hn::Sub(hn::Set(d, 1.0f), Smoothstep(d, p.tolerance, p.tolerance + f, dist));
    x.r = x.g = x.b = a;
    x.a = hn::Set(d, 1.0f);
  }
};

struct SharpenBlendOp {
  SharpenBlendParams p;
  HWY_INLINE V channel(D d, V c, V blur, V w) const {
    V s = Clamp01(d, hn::Add(c, hn::Mul(hn::Sub(c, blur), hn::Set(d, p.amount))));
    return Mix(c, s, w);
  }
  HWY_INLINE void operator()(D d, Px& x) const {
    V e = Length3(hn::Sub(x.r, x.ar), hn::Sub(x.g, x.ag), hn::Sub(x.b, x.ab));
    V w = Smoothstep(d, p.lo, p.hi, e);
    x.r = channel(d, x.r, x.ar, w);
    x.g = channel(d, x.g, x.ag, w);
    x.b = channel(d, x.b, x.ab, w);
  }
};

// ---------------------------------------------------------------- entry points

// The op over every lane of a planar run (the planes are aligned and padded
// to whole vectors).
template <class Op>
HWY_INLINE void RunPlanar(const Op& op, const PlanarRow& row) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t end = size_t(planarPadded(std::max(row.n, 0)));
  const V lane = hn::Iota(d, 0.0f), half = hn::Set(d, 0.5f);
  const V cy = hn::Set(d, float(row.y) + 0.5f);
  for (size_t i = 0; i < end; i += N) {
    Px px;
    px.r = hn::Load(d, row.r + i);
    px.g = hn::Load(d, row.g + i);
    px.b = hn::Load(d, row.b + i);
    px.a = hn::Load(d, row.a + i);
    px.ar = px.ag = px.ab = hn::Zero(d);
    px.cx = hn::Add(hn::Add(hn::Set(d, float(row.x + int(i))), lane), half);
    px.cy = cy;
    op(d, px);
    hn::Store(px.r, d, row.r + i);
    hn::Store(px.g, d, row.g + i);
    hn::Store(px.b, d, row.b + i);
    hn::Store(px.a, d, row.a + i);
  }
}

void ToPlanarImpl(const float* rgba, const PlanarRow& out) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t n = size_t(std::max(out.n, 0));
  size_t i = 0;
  for (; i + N <= n; i += N) {
    V r, g, b, a;
    LoadRgba(d, rgba + i * 4, r, g, b, a);
    hn::Store(r, d, out.r + i);
    hn::Store(g, d, out.g + i);
    hn::Store(b, d, out.b + i);
    hn::Store(a, d, out.a + i);
  }
  for (; i < n; ++i) {
    out.r[i] = rgba[i * 4];
    out.g[i] = rgba[i * 4 + 1];
    out.b[i] = rgba[i * 4 + 2];
    out.a[i] = rgba[i * 4 + 3];
  }
}

void FromPlanarImpl(const PlanarRow& in, float* rgba) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t n = size_t(std::max(in.n, 0));
  size_t i = 0;
  for (; i + N <= n; i += N) {
    StoreRgba(d, hn::Load(d, in.r + i), hn::Load(d, in.g + i), hn::Load(d, in.b + i), hn::Load(d, in.a + i),
              rgba + i * 4);
  }
  for (; i < n; ++i) {
    rgba[i * 4] = in.r[i];
    rgba[i * 4 + 1] = in.g[i];
    rgba[i * 4 + 2] = in.b[i];
    rgba[i * 4 + 3] = in.a[i];
  }
}

void TrimZerosImpl(const float* m, int* x0, int* x1) {
  const D d;
  const int N = int(hn::Lanes(d));
  const V zero = hn::Zero(d);
  int a = *x0, e = *x1;
  while (e - a >= N && hn::AllTrue(d, hn::Eq(hn::LoadU(d, m + a), zero))) a += N;
  while (a < e && m[a] == 0.0f) ++a;
  while (e - a >= N && hn::AllTrue(d, hn::Eq(hn::LoadU(d, m + e - N), zero))) e -= N;
  while (e > a && m[e - 1] == 0.0f) --e;
  *x0 = a;
  *x1 = e;
}

void MaskBlendImpl(float* background, const float* adjusted, const float* t, int count) {
  const D d;
  const size_t N = hn::Lanes(d);
  const size_t n = size_t(std::max(count, 0));
  size_t i = 0;
  for (; i + N <= n; i += N) {
    V r, g, b, a, ar, ag, ab, aa;
    LoadRgba(d, background + i * 4, r, g, b, a);
    LoadRgba(d, adjusted + i * 4, ar, ag, ab, aa);
    const V m = hn::LoadU(d, t + i);
    StoreRgba(d, hn::MulAdd(hn::Sub(ar, r), m, r), hn::MulAdd(hn::Sub(ag, g), m, g), hn::MulAdd(hn::Sub(ab, b), m, b),
              hn::MulAdd(hn::Sub(aa, a), m, a), background + i * 4);
  }
  // The last pixels with the same fused multiply-add as the vectors, so
  // every pixel of a row rounds alike.
  for (; i < n; ++i) {
    for (size_t c = 0; c < 4; ++c) {
      float& v = background[i * 4 + c];
      v = hn::GetLane(hn::MulAdd(hn::Set(d, adjusted[i * 4 + c] - v), hn::Set(d, t[i]), hn::Set(d, v)));
    }
  }
}

void ToneRow(const ToneParams& p, const KernelRow& r) { RunRow(ToneOp(p), r); }
void VibranceRow(const VibranceParams& p, const KernelRow& r) { RunRow(VibranceOp{p}, r); }
void HslRow(const HslParams& p, const KernelRow& r) { RunRow(HslOp(p), r); }
void SplitToneRow(const SplitTonePrepared& p, const KernelRow& r) { RunRow(SplitToneOp{p}, r); }
void DetailRow(const DetailParams& p, const KernelRow& r) { RunRow(DetailOp{p}, r); }
void DehazeRow(const DehazeParams& p, const KernelRow& r) { RunRow(DehazeOp{p}, r); }
void DehazeGreyRow(const DehazeParams& p, const KernelRow& r) { RunRow<DehazeOp, 1>(DehazeOp{p}, r); }
void VignetteRow(const VignettePrepared& p, const KernelRow& r) { RunRow(VignetteOp{p}, r); }
void GrainRow(const GrainPrepared& p, const KernelRow& r) { RunRow(GrainOp{p}, r); }
void CurvesRow(const CurvesPrepared& p, const KernelRow& r) { RunCurvesRow(CurvesOp{&p}, r); }
void DitherRow(const DitherParams&, const KernelRow& r) { RunRow(DitherOp{}, r); }
void RedEyeRow(const RedEyeParams& p, const KernelRow& r) { RunRow(RedEyeOp{p}, r); }
void DenoiseRow(const DenoiseParams& p, const KernelRow& r) { RunRow(DenoiseOp{p}, r); }
void LuminanceRangeMaskRow(const LuminanceRangeMaskParams& p, const KernelRow& r) {
  RunRow(LuminanceRangeMaskOp{p}, r);
}
void ChromaDenoiseRow(const ChromaDenoiseParams& p, const KernelRow& r) { RunRow(ChromaDenoiseOp{p}, r); }
void DefringeRow(const DefringeParams& p, const KernelRow& r) { RunRow(DefringeOp{p}, r); }
void MonochromeRow(const MonochromePrepared& p, const KernelRow& r) { RunRow(MonochromeOp{p}, r); }
void ColorRangeMaskRow(const ColorRangeMaskParams& p, const KernelRow& r) { RunRow(ColorRangeMaskOp{p}, r); }
void SharpenBlendRow(const SharpenBlendParams& p, const KernelRow& r) { RunRow(SharpenBlendOp{p}, r); }

void TonePlanar(const ToneParams& p, const PlanarRow& r) { RunPlanar(ToneOp(p), r); }
void VibrancePlanar(const VibranceParams& p, const PlanarRow& r) { RunPlanar(VibranceOp{p}, r); }
void HslPlanar(const HslParams& p, const PlanarRow& r) { RunPlanar(HslOp(p), r); }
void SplitTonePlanar(const SplitTonePrepared& p, const PlanarRow& r) { RunPlanar(SplitToneOp{p}, r); }
void VignettePlanar(const VignettePrepared& p, const PlanarRow& r) { RunPlanar(VignetteOp{p}, r); }
void GrainPlanar(const GrainPrepared& p, const PlanarRow& r) { RunPlanar(GrainOp{p}, r); }
void CurvesPlanar(const CurvesPrepared& p, const PlanarRow& r) { RunCurvesPlanar(CurvesOp{&p}, r); }
void DitherPlanar(const DitherParams&, const PlanarRow& r) { RunPlanar(DitherOp{}, r); }
void MonochromePlanar(const MonochromePrepared& p, const PlanarRow& r) { RunPlanar(MonochromeOp{p}, r); }

}  // namespace HWY_NAMESPACE
}  // namespace vg::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg::kernels {

// name(params, row) for a KernelRow or a PlanarRow, dispatched to Fn.
#define VG_ENTRY(name, Fn, Params, Row)              \
  HWY_EXPORT(Fn);                                    \
  void name(const Params& p, const Row& row) {       \
    if (row.n > 0) HWY_DYNAMIC_DISPATCH(Fn)(p, row); \
  }
#define VG_KERNEL_ENTRY(name, Fn, Params) VG_ENTRY(name, Fn, Params, KernelRow)
#define VG_PLANAR_ENTRY(name, Fn, Params) VG_ENTRY(name, Fn, Params, PlanarRow)

VG_KERNEL_ENTRY(tone, ToneRow, ToneParams)
VG_KERNEL_ENTRY(vibrance, VibranceRow, VibranceParams)
VG_KERNEL_ENTRY(hsl, HslRow, HslParams)
VG_KERNEL_ENTRY(splitTone, SplitToneRow, SplitTonePrepared)
VG_KERNEL_ENTRY(detail, DetailRow, DetailParams)
VG_KERNEL_ENTRY(dehaze, DehazeRow, DehazeParams)
VG_KERNEL_ENTRY(dehazeGrey, DehazeGreyRow, DehazeParams)
VG_KERNEL_ENTRY(vignette, VignetteRow, VignettePrepared)
VG_KERNEL_ENTRY(grain, GrainRow, GrainPrepared)
VG_KERNEL_ENTRY(curves, CurvesRow, CurvesPrepared)
VG_KERNEL_ENTRY(dither, DitherRow, DitherParams)
VG_KERNEL_ENTRY(redEye, RedEyeRow, RedEyeParams)
VG_KERNEL_ENTRY(denoise, DenoiseRow, DenoiseParams)
VG_KERNEL_ENTRY(luminanceRangeMask, LuminanceRangeMaskRow, LuminanceRangeMaskParams)
VG_KERNEL_ENTRY(chromaDenoise, ChromaDenoiseRow, ChromaDenoiseParams)
VG_KERNEL_ENTRY(defringe, DefringeRow, DefringeParams)
VG_KERNEL_ENTRY(monochrome, MonochromeRow, MonochromePrepared)
VG_KERNEL_ENTRY(colorRangeMask, ColorRangeMaskRow, ColorRangeMaskParams)
VG_KERNEL_ENTRY(sharpenBlend, SharpenBlendRow, SharpenBlendParams)

VG_PLANAR_ENTRY(tone, TonePlanar, ToneParams)
VG_PLANAR_ENTRY(vibrance, VibrancePlanar, VibranceParams)
VG_PLANAR_ENTRY(hsl, HslPlanar, HslParams)
VG_PLANAR_ENTRY(splitTone, SplitTonePlanar, SplitTonePrepared)
VG_PLANAR_ENTRY(vignette, VignettePlanar, VignettePrepared)
VG_PLANAR_ENTRY(grain, GrainPlanar, GrainPrepared)
VG_PLANAR_ENTRY(curves, CurvesPlanar, CurvesPrepared)
VG_PLANAR_ENTRY(dither, DitherPlanar, DitherParams)
VG_PLANAR_ENTRY(monochrome, MonochromePlanar, MonochromePrepared)

HWY_EXPORT(TrimZerosImpl);
void trimZeros(const float* m, int& x0, int& x1) {
  if (x1 > x0) HWY_DYNAMIC_DISPATCH(TrimZerosImpl)(m, &x0, &x1);
}
HWY_EXPORT(MaskBlendImpl);
void maskBlend(float* background, const float* adjusted, const float* t, int n) {
  if (n > 0) HWY_DYNAMIC_DISPATCH(MaskBlendImpl)(background, adjusted, t, n);
}
HWY_EXPORT(ToPlanarImpl);
HWY_EXPORT(FromPlanarImpl);
void toPlanar(const float* rgba, const PlanarRow& out) {
  if (out.n > 0) HWY_DYNAMIC_DISPATCH(ToPlanarImpl)(rgba, out);
}
void fromPlanar(const PlanarRow& in, float* rgba) {
  if (in.n > 0) HWY_DYNAMIC_DISPATCH(FromPlanarImpl)(in, rgba);
}

#undef VG_PLANAR_ENTRY
#undef VG_KERNEL_ENTRY
#undef VG_ENTRY
}  // namespace vg::kernels
#endif  // HWY_ONCE
