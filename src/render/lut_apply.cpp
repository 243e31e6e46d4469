// Applying a parsed .cube LUT: sRGB encoding, domain remap, clamp, trilinear
// look-up, decoding (see lut_loader.h). The scalar reference and the Highway
// fast path (runtime dispatch, as in kernels_simd.cpp) live side by side.
//
// Measured with BM_lutApply (24 MP of uniform random pixels, 33³ cube, AVX-512
// on a shared two-core machine): 24 single-float gathers and library log/exp
// per vector gave about 40 MP/s; texel-pair loads and the table-based power
// about 130 MP/s, with the plain copy at 800...950 MP/s in the same runs.
// Random pixels hit the cube's entries at random (L2, not L1); photographs are
// kinder.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "render/kernel_math.h"
#include "render/lut_loader.h"
#include "render/parallel.h"
#include "render/srgb.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/lut_apply.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vg {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;
using DI = hn::RebindToSigned<D>;
using VI = hn::Vec<DI>;

#include "render/simd_exp2-inl.h"
#include "render/simd_rgba-inl.h"

template <class VV>
HWY_INLINE VV Lerp(VV lo, VV hi, VV w) {
  return hn::Add(lo, hn::Mul(hn::Sub(hi, lo), w));  // kmath::mix, operation for operation
}

// log2(x) for finite x >= 0 (0 and subnormals give a finite value near -127).
// x = 2^e m with m in [sqrt(1/2), sqrt(2)), split off with integer arithmetic
// on the bits; log2(m) = 2/ln 2 · atanh(s), s = (m - 1)/(m + 1), |s| <= 0.172,
// as 2/ln 2 · (s + s³/3 + ... + s⁹/9): the next term is below 1e-9. The
// division is a reciprocal estimate refined by one Newton step (relative error
// below 2^-22 even from a 12-bit estimate).
HWY_INLINE V Log2(D d, V x) {
  const DI di;
  const VI kSqrtHalf = hn::Set(di, 0x3F3504F3);  // the bits of sqrt(1/2)
  const VI shifted = hn::Sub(hn::BitCast(di, x), kSqrtHalf);
  const V e = hn::ConvertTo(d, hn::ShiftRight<23>(shifted));
  const V m = hn::BitCast(d, hn::Add(hn::And(shifted, hn::Set(di, 0x007FFFFF)), kSqrtHalf));
  const V one = hn::Set(d, 1.0f);
  const V den = hn::Add(m, one);
  V inv = hn::ApproximateReciprocal(den);
  inv = hn::Mul(inv, hn::NegMulAdd(den, inv, hn::Set(d, 2.0f)));
  const V s = hn::Mul(hn::Sub(m, one), inv);
  const V s2 = hn::Mul(s, s);
  constexpr float k = 2.0f / 0.693147181f;
  V poly = hn::MulAdd(s2, hn::Set(d, k / 9.0f), hn::Set(d, k / 7.0f));
  poly = hn::MulAdd(poly, s2, hn::Set(d, k / 5.0f));
  poly = hn::MulAdd(poly, s2, hn::Set(d, k / 3.0f));
  poly = hn::MulAdd(poly, s2, hn::Set(d, k));
  return hn::MulAdd(s, poly, e);
}

// 2^y with y clamped to [-125, 128]. y = n + f, f in [-1/2, 1/2]: adding
// 1.5·2^23 rounds y to the integer n in the low mantissa bits; 2^f is
// 1 + f P(f) (the classic Cephes exp2f polynomial, relative error about 1e-7).
// The result is 2^f · 2^(n-1) · 2, so that n = 128 gives a finite value for
// f < 0 and infinity for f = 0, as the true power does.
HWY_INLINE V Exp2(D d, V y) {
  const DI di;
  const V kRound = hn::Set(d, 12582912.0f);
  y = hn::Min(hn::Max(y, hn::Set(d, -125.0f)), hn::Set(d, 128.0f));
  const V shifted = hn::Add(y, kRound);
  const V f = hn::Sub(y, hn::Sub(shifted, kRound));
  const V p = Exp2Fraction(d, f);
  const VI n = hn::Sub(hn::BitCast(di, shifted), hn::BitCast(di, kRound));
  const V half = hn::BitCast(d, hn::ShiftLeft<23>(hn::Add(n, hn::Set(di, 126))));
  return hn::Mul(hn::Mul(p, half), hn::Set(d, 2.0f));
}

// 16-lane x86 targets read each group of four pixels' corners as 128-bit
// blocks of one register, with lane permutes for the weights and the
// (de)interleave.
#undef VG_LUT_AVX512
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
#define VG_LUT_AVX512 1
#else
#define VG_LUT_AVX512 0
#endif

#if VG_LUT_AVX512
// x^p for x in [2^lowExp, 2^(lowExp + 16)) without a logarithm: x = 2^e m,
// m in [1, 2); m^p is a degree-7 polynomial in m - 1.5 (Chebyshev
// interpolant, relative error below 2e-7) and 2^(p e) comes from a 16-entry
// table in one register, picked by a lane permute. Outside the range the
// result is finite but wrong; callers take those lanes elsewhere.
HWY_INLINE V PowByTable(D d, V x, const float (&poly)[8], const float* octaves, int lowExp) {
  const DI di;
  const VI bits = hn::BitCast(di, x);
  const VI k = hn::Min(hn::Max(hn::Sub(hn::ShiftRight<23>(bits), hn::Set(di, 127 + lowExp)), hn::Zero(di)),
                       hn::Set(di, 15));
  const V m = hn::BitCast(d, hn::Or(hn::And(bits, hn::Set(di, 0x007FFFFF)), hn::Set(di, 0x3F800000)));
  const V t = hn::Sub(m, hn::Set(d, 1.5f));
  V p = hn::MulAdd(t, hn::Set(d, poly[7]), hn::Set(d, poly[6]));
  for (int i = 5; i >= 0; --i) p = hn::MulAdd(p, t, hn::Set(d, poly[i]));
  return hn::Mul(p, hn::TableLookupLanes(hn::Load(d, octaves), hn::IndicesFromVec(d, k)));
}
#endif

// a^(1/2.4) for finite a >= 0, within about 3e-7 relative of std::pow.
HWY_INLINE V PowInverse24(D d, V a) {
#if VG_LUT_AVX512
  static constexpr float kPoly[8] = {1.184053659e+00f, 3.289037645e-01f, -6.395667791e-02f, 2.250394970e-02f,
                                     -9.625967592e-03f, 4.593648948e-03f, -2.743397141e-03f, 1.471232390e-03f};
  alignas(64) static constexpr float kOctaves[16] = {  // 2^(e/2.4), e = -9...6
      7.432544231e-02f, 9.921256453e-02f, 1.324328929e-01f, 1.767766923e-01f, 2.359685749e-01f, 3.149802685e-01f,
      4.204482138e-01f, 5.612310171e-01f, 7.491535544e-01f, 1.000000000e+00f, 1.334839821e+00f, 1.781797409e+00f,
      2.378414154e+00f, 3.174802065e+00f, 4.237852573e+00f, 5.656854153e+00f};
  // Below 2^-9 the encoding is linear (its threshold is 0.0031308).
  const auto inRange = hn::Lt(a, hn::Set(d, 128.0f));
  V pw = PowByTable(d, a, kPoly, kOctaves, -9);
  if (HWY_UNLIKELY(!hn::AllTrue(d, inRange))) {
    pw = hn::IfThenElse(inRange, pw, Exp2(d, hn::Mul(Log2(d, a), hn::Set(d, 1.0f / 2.4f))));
  }
  return pw;
#else
  return Exp2(d, hn::Mul(Log2(d, a), hn::Set(d, 1.0f / 2.4f)));
#endif
}

// x^2.4 for x >= 0.05 (or infinity or NaN, which give infinity); beyond about
// 1e16 the power overflows to infinity, as std::pow does.
HWY_INLINE V Pow24(D d, V x) {
#if VG_LUT_AVX512
  static constexpr float kPoly[8] = {2.646177769e+00f, 4.233884335e+00f, 1.975812197e+00f, 1.756280512e-01f,
                                     -1.755068265e-02f, 3.741660854e-03f, -1.158289961e-03f, 4.028187541e-04f};
  alignas(64) static constexpr float kOctaves[16] = {  // 2^(2.4 e), e = -5...10
      2.441406250e-04f, 1.288581989e-03f, 6.801176351e-03f, 3.589682281e-02f, 1.894645691e-01f, 1.000000000e+00f,
      5.278031826e+00f, 2.785761833e+01f, 1.470333862e+02f, 7.760468750e+02f, 4.096000000e+03f, 2.161881836e+04f,
      1.141048047e+05f, 6.022487500e+05f, 3.178688000e+06f, 1.677721600e+07f};
  const auto inRange = hn::Lt(x, hn::Set(d, 2048.0f));  // false for NaN
  V pw = PowByTable(d, x, kPoly, kOctaves, -5);
  if (HWY_UNLIKELY(!hn::AllTrue(d, inRange))) {
    pw = hn::IfThenElse(inRange, pw, Exp2(d, hn::Mul(Log2(d, x), hn::Set(d, 2.4f))));
  }
  return pw;
#else
  return Exp2(d, hn::Mul(Log2(d, x), hn::Set(d, 2.4f)));
#endif
}

// The sRGB curve of srgb.h for finite v.
HWY_INLINE V EncodeSrgb(D d, V v) {
  const V a = hn::Abs(v);
  const V lin = hn::Mul(a, hn::Set(d, 12.92f));
  const V pw = hn::Sub(hn::Mul(hn::Set(d, 1.055f), PowInverse24(d, a)), hn::Set(d, 0.055f));
  return hn::CopySign(hn::IfThenElse(hn::Le(a, hn::Set(d, 0.0031308f)), lin, pw), v);
}

// Any input (the interpolated entries may be huge); NaN gives an infinity.
HWY_INLINE V DecodeSrgb(D d, V v) {
  const V a = hn::Abs(v);
  const V lin = hn::Mul(a, hn::Set(d, 1.0f / 12.92f));
  const V pw = Pow24(d, hn::Mul(hn::Add(a, hn::Set(d, 0.055f)), hn::Set(d, 1.0f / 1.055f)));
  return hn::CopySign(hn::IfThenElse(hn::Le(a, hn::Set(d, 0.04045f)), lin, pw), v);
}

HWY_INLINE V Clamp01(D d, V x) {
  return hn::IfThenElseZero(hn::Gt(x, hn::Zero(d)), hn::Min(x, hn::Set(d, 1.0f)));
}

#if VG_LUT_AVX512
// The trilinear look-up of one pixel with 256-bit vectors: the corners (r, g, b)
// and (r + 1, g, b) are adjacent entries, so four loads hold all eight; blue,
// then green are interpolated on both texels of each pair at once, and red
// last between the two halves, each step one multiply-add (within an ulp or
// two of the reference's order). The result's alpha lane is unused.
HWY_INLINE hn::Vec128<float> TrilinearPixel(const float* HWY_RESTRICT t, size_t sy, size_t sz, const float* fr,
                                            const float* fg, const float* fb) {
  const hn::FixedTag<float, 8> d8;
  const hn::FixedTag<float, 4> d4;
  auto lerp = [](auto lo, auto hi, auto w) { return hn::MulAdd(hn::Sub(hi, lo), w, lo); };
  const auto wb = hn::Set(d8, *fb), wg = hn::Set(d8, *fg);
  const auto g0 = lerp(hn::LoadU(d8, t), hn::LoadU(d8, t + sz), wb);
  const auto g1 = lerp(hn::LoadU(d8, t + sy), hn::LoadU(d8, t + sy + sz), wb);
  const auto pair = lerp(g0, g1, wg);
  return lerp(hn::LowerHalf(d4, pair), hn::UpperHalf(d4, pair), hn::Set(d4, *fr));
}

#else

// The trilinear look-up of one pixel, all four channels of a texel at once, in
// the reference's order (red, then green, then blue).
HWY_INLINE void Trilinear(const float* HWY_RESTRICT t, size_t sy, size_t sz, float fr, float fg, float fb,
                          float* HWY_RESTRICT out) {
#if HWY_TARGET == HWY_SCALAR
  for (size_t ch = 0; ch < 3; ++ch) {
    const float* c = t + ch;
    auto mix = [](float lo, float hi, float w) { return lo + (hi - lo) * w; };
    const float c00 = mix(c[0], c[4], fr), c10 = mix(c[sy], c[sy + 4], fr);
    const float c01 = mix(c[sz], c[sz + 4], fr), c11 = mix(c[sy + sz], c[sy + sz + 4], fr);
    out[ch] = mix(mix(c00, c10, fg), mix(c01, c11, fg), fb);
  }
  out[3] = 0.0f;
#else
  const hn::FixedTag<float, 4> d4;
  const auto wr = hn::Set(d4, fr), wg = hn::Set(d4, fg), wb = hn::Set(d4, fb);
  const auto c00 = Lerp(hn::LoadU(d4, t), hn::LoadU(d4, t + 4), wr);
  const auto c10 = Lerp(hn::LoadU(d4, t + sy), hn::LoadU(d4, t + sy + 4), wr);
  const auto c01 = Lerp(hn::LoadU(d4, t + sz), hn::LoadU(d4, t + sz + 4), wr);
  const auto c11 = Lerp(hn::LoadU(d4, t + sy + sz), hn::LoadU(d4, t + sy + sz + 4), wr);
  hn::Store(Lerp(Lerp(c00, c10, wg), Lerp(c01, c11, wg), wb), d4, out);
#endif
}
#endif

// One vector of pixels: the encoding, remap and cell split run on all lanes;
// the eight corners of each pixel's cell are then read as whole RGBA texels
// (four 32-byte or eight 16-byte loads per pixel, not 24 scattered single
// floats), and the decoding runs on all lanes again.
HWY_INLINE void Step(D d, const PreparedLUT& p, float* HWY_RESTRICT px) {
  constexpr size_t kMaxLanes = HWY_MAX_BYTES / sizeof(float);
  const DI di;
  V r, g, b, a;
  LoadRgba(d, px, r, g, b, a);
  const V one = hn::Set(d, 1.0f);
  const auto partial = hn::And(hn::Gt(a, hn::Zero(d)), hn::Lt(a, one));
  const bool anyPartial = !hn::AllFalse(d, partial);  // opaque photographs skip the division
  V c[3] = {r, g, b};
  if (anyPartial) {
    const V inv = hn::Div(one, a);
    for (V& v : c) v = hn::IfThenElse(partial, hn::Mul(v, inv), v);
  }
  const int n = p.size;
  const V scaleN = hn::Set(d, float(n - 1)), last = hn::Set(d, float(n - 2));
  V frac[3];
  VI i0[3];
  for (size_t k = 0; k < 3; ++k) {
    // Clamped first to the linear values whose encodings are the domain's
    // ends (NaN to the low end), so the logarithm sees finite values; the
    // clamp to the cube below still decides.
    const V lo = hn::Set(d, p.linearMin[k]);
    V v = hn::IfThenElse(hn::Gt(c[k], lo), hn::Min(c[k], hn::Set(d, p.linearMax[k])), lo);
    v = EncodeSrgb(d, v);
    if (p.remap) v = hn::Add(hn::Mul(v, hn::Set(d, p.scale[k])), hn::Set(d, p.bias[k]));
    const V x = hn::Mul(Clamp01(d, v), scaleN);
    const V fl = hn::Min(hn::Floor(x), last);
    i0[k] = hn::ConvertTo(di, fl);
    frac[k] = hn::Sub(x, fl);
  }
  // Entry offsets in floats.
  const size_t sy = size_t(4 * n), sz = size_t(4 * n) * size_t(n);
  HWY_ALIGN int32_t base[kMaxLanes];
  hn::Store(hn::Add(hn::Add(hn::Mul(i0[0], hn::Set(di, 4)), hn::Mul(i0[1], hn::Set(di, int32_t(sy)))),
                    hn::Mul(i0[2], hn::Set(di, int32_t(sz)))),
            di, base);
  V lr, lg, lb;
#if VG_LUT_AVX512
  HWY_ALIGN float fr[kMaxLanes], fg[kMaxLanes], fb[kMaxLanes];
  hn::Store(frac[0], d, fr);
  hn::Store(frac[1], d, fg);
  hn::Store(frac[2], d, fb);
  const hn::FixedTag<float, 8> d8;
  __m512 looked[4];
  for (size_t q = 0; q < 4; ++q) {
    auto pixel = [&](size_t j) { return TrilinearPixel(p.data + base[j], sy, sz, fr + j, fg + j, fb + j); };
    const size_t j = 4 * q;
    looked[q] = hn::Combine(d, hn::Combine(d8, pixel(j + 3), pixel(j + 2)), hn::Combine(d8, pixel(j + 1), pixel(j))).raw;
  }
  V unused;
  Deinterleave(looked, lr, lg, lb, unused);
#else
  HWY_ALIGN float fr[kMaxLanes], fg[kMaxLanes], fb[kMaxLanes];
  hn::Store(frac[0], d, fr);
  hn::Store(frac[1], d, fg);
  hn::Store(frac[2], d, fb);
  HWY_ALIGN float looked[kMaxLanes * 4];
  for (size_t j = 0; j < hn::Lanes(d); ++j) Trilinear(p.data + base[j], sy, sz, fr[j], fg[j], fb[j], looked + 4 * j);
  V unused;
  hn::LoadInterleaved4(d, looked, lr, lg, lb, unused);
#endif
  V out[3] = {DecodeSrgb(d, lr), DecodeSrgb(d, lg), DecodeSrgb(d, lb)};
  if (anyPartial) {
    for (V& o : out) o = hn::IfThenElse(partial, hn::Mul(o, a), o);
  }
  StoreRgba(d, out[0], out[1], out[2], a, px);
}

void LutRow(const PreparedLUT& p, const kernels::KernelRow& row) {
  const D d;
  const size_t N = hn::Lanes(d), n = size_t(std::max(row.n, 0));
  size_t i = 0;
  for (; i + N <= n; i += N) Step(d, p, row.rgba + i * 4);
  if (i < n) {
    HWY_ALIGN float buf[HWY_MAX_BYTES / sizeof(float) * 4] = {};
    std::memcpy(buf, row.rgba + i * 4, (n - i) * 4 * sizeof(float));
    Step(d, p, buf);
    std::memcpy(row.rgba + i * 4, buf, (n - i) * 4 * sizeof(float));
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vg
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg {

HWY_EXPORT(LutRow);

PreparedLUT prepareLUT(const ParsedLUT& lut) {
  PreparedLUT p;
  p.size = lut.size;
  p.data = lut.data.data();
  p.remap = !lut.hasDefaultDomain();
  for (size_t c = 0; c < 3; ++c) {
    const float d = lut.domainMax[c] - lut.domainMin[c];
    p.scale[c] = 1.0f / d;
    p.bias[c] = -lut.domainMin[c] / d;
    p.linearMin[c] = std::clamp(srgb::decode(lut.domainMin[c]), -FLT_MAX, FLT_MAX);
    p.linearMax[c] = std::clamp(srgb::decode(lut.domainMax[c]), -FLT_MAX, FLT_MAX);
  }
  return p;
}

void lutApply(const PreparedLUT& lut, const kernels::KernelRow& row) {
  if (row.n <= 0 || lut.size < 2 || !lut.data) return;
  HWY_DYNAMIC_DISPATCH(LutRow)(lut, row);
}

void lutApplyReference(const PreparedLUT& p, const kernels::KernelRow& row) {
  if (p.size < 2 || !p.data) return;
  const int n = p.size;
  for (int i = 0; i < row.n; ++i) {
    float* px = row.rgba + size_t(i) * 4;
    const float a = px[3];
    const bool partial = a > 0.0f && a < 1.0f;
    int i0[3];
    float f[3];
    for (int k = 0; k < 3; ++k) {
      float c = partial ? px[k] * (1.0f / a) : px[k];
      float v = srgb::encode(c);
      if (p.remap) v = v * p.scale[size_t(k)] + p.bias[size_t(k)];
      v = kmath::clamp01(v);
      float x = v * float(n - 1);
      float fl = std::min(std::floor(x), float(n - 2));
      i0[k] = int(fl);
      f[k] = x - fl;
    }
    auto at = [&](int r, int g, int b, int ch) {
      return p.data[(size_t(b) * size_t(n) * size_t(n) + size_t(g) * size_t(n) + size_t(r)) * 4 + size_t(ch)];
    };
    for (int ch = 0; ch < 3; ++ch) {
      const int r = i0[0], g = i0[1], b = i0[2];
      float c00 = kmath::mix(at(r, g, b, ch), at(r + 1, g, b, ch), f[0]);
      float c10 = kmath::mix(at(r, g + 1, b, ch), at(r + 1, g + 1, b, ch), f[0]);
      float c01 = kmath::mix(at(r, g, b + 1, ch), at(r + 1, g, b + 1, ch), f[0]);
      float c11 = kmath::mix(at(r, g + 1, b + 1, ch), at(r + 1, g + 1, b + 1, ch), f[0]);
      float v = kmath::mix(kmath::mix(c00, c10, f[1]), kmath::mix(c01, c11, f[1]), f[2]);
      v = srgb::decode(v);
      px[ch] = partial ? v * a : v;
    }
  }
}

Image LUTLoader::apply(const ParsedLUT& lut, const Image& image) {
  Image out = image.clone();
  if (out.empty() || lut.size < 2 || lut.data.size() != size_t(lut.size) * size_t(lut.size) * size_t(lut.size) * 4) {
    return out;
  }
  const PreparedLUT p = prepareLUT(lut);
  const Rect b = out.bounds();
  parallelRows(b, 8, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) lutApply(p, kernels::KernelRow{out.row(y), nullptr, b.width, b.x, y});
  });
  return out;
}

}  // namespace vg
#endif  // HWY_ONCE
