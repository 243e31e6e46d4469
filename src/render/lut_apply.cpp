// Applying a parsed .cube LUT: sRGB encoding, domain remap, clamp, trilinear
// look-up, decoding (see lut_loader.h). The scalar reference and the Highway
// fast path (runtime dispatch, as in kernels_simd.cpp) live side by side.
#include <algorithm>
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
#include "hwy/contrib/math/math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vg {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;
using DI = hn::RebindToSigned<D>;
using VI = hn::Vec<DI>;

HWY_INLINE V Lerp(V lo, V hi, V w) { return hn::Add(lo, hn::Mul(hn::Sub(hi, lo), w)); }

HWY_INLINE V EncodeSrgb(D d, V v) {
  // NaN would upset the logarithm (it is clamped to 0 afterwards anyway), and
  // so would infinity: any huge value encodes far above 1.
  v = hn::IfThenElseZero(hn::Eq(v, v), v);
  V a = hn::Abs(v);
  const V big = hn::Set(d, 1e30f);
  a = hn::IfThenElse(hn::Gt(a, big), big, a);
  V lin = hn::Mul(a, hn::Set(d, 12.92f));
  V pw = hn::Sub(hn::Mul(hn::Set(d, 1.055f), hn::Exp(d, hn::Mul(hn::Log(d, a), hn::Set(d, 1.0f / 2.4f)))),
                 hn::Set(d, 0.055f));
  V r = hn::IfThenElse(hn::Le(a, hn::Set(d, 0.0031308f)), lin, pw);
  return hn::CopySign(r, v);
}

HWY_INLINE V DecodeSrgb(D d, V v) {
  V a = hn::Abs(v);
  V lin = hn::Div(a, hn::Set(d, 12.92f));
  V base = hn::Div(hn::Add(a, hn::Set(d, 0.055f)), hn::Set(d, 1.055f));
  V pw = hn::Exp(d, hn::Mul(hn::Log(d, base), hn::Set(d, 2.4f)));
  // Beyond 3e15 the result overflows float; say so instead of letting the
  // exponential's range reduction produce garbage.
  pw = hn::IfThenElse(hn::Gt(a, hn::Set(d, 3e15f)), hn::Set(d, HUGE_VALF), pw);
  V r = hn::IfThenElse(hn::Le(a, hn::Set(d, 0.04045f)), lin, pw);
  return hn::CopySign(r, v);
}

HWY_INLINE V Clamp01(D d, V x) {
  return hn::IfThenElseZero(hn::Gt(x, hn::Zero(d)), hn::Min(x, hn::Set(d, 1.0f)));
}

HWY_INLINE void Step(D d, const PreparedLUT& p, float* HWY_RESTRICT px) {
  const DI di;
  V r, g, b, a;
  hn::LoadInterleaved4(d, px, r, g, b, a);
  const V one = hn::Set(d, 1.0f);
  auto partial = hn::And(hn::Gt(a, hn::Zero(d)), hn::Lt(a, one));
  V inv = hn::Div(one, a);
  V c[3] = {hn::IfThenElse(partial, hn::Mul(r, inv), r), hn::IfThenElse(partial, hn::Mul(g, inv), g),
            hn::IfThenElse(partial, hn::Mul(b, inv), b)};
  const int n = p.size;
  const V scaleN = hn::Set(d, float(n - 1));
  VI i0[3];
  V f[3];
  for (int k = 0; k < 3; ++k) {
    V v = EncodeSrgb(d, c[k]);
    if (p.remap) v = hn::Add(hn::Mul(v, hn::Set(d, p.scale[size_t(k)])), hn::Set(d, p.bias[size_t(k)]));
    v = Clamp01(d, v);
    V x = hn::Mul(v, scaleN);
    V fl = hn::Min(hn::Floor(x), hn::Set(d, float(n - 2)));
    i0[k] = hn::ConvertTo(di, fl);
    f[k] = hn::Sub(x, fl);
  }
  // Entry offsets in floats of the eight corners.
  const VI sx = hn::Set(di, 4), sy = hn::Set(di, 4 * n), sz = hn::Set(di, 4 * n * n);
  const VI base = hn::Add(hn::Add(hn::Mul(i0[0], sx), hn::Mul(i0[1], sy)), hn::Mul(i0[2], sz));
  V out[3];
  for (int ch = 0; ch < 3; ++ch) {
    const float* t = p.data + ch;
    V c000 = hn::GatherIndex(d, t, base);
    V c100 = hn::GatherIndex(d, t, hn::Add(base, sx));
    V c010 = hn::GatherIndex(d, t, hn::Add(base, sy));
    V c110 = hn::GatherIndex(d, t, hn::Add(hn::Add(base, sx), sy));
    V c001 = hn::GatherIndex(d, t, hn::Add(base, sz));
    V c101 = hn::GatherIndex(d, t, hn::Add(hn::Add(base, sx), sz));
    V c011 = hn::GatherIndex(d, t, hn::Add(hn::Add(base, sy), sz));
    V c111 = hn::GatherIndex(d, t, hn::Add(hn::Add(hn::Add(base, sx), sy), sz));
    V c00 = Lerp(c000, c100, f[0]), c10 = Lerp(c010, c110, f[0]);
    V c01 = Lerp(c001, c101, f[0]), c11 = Lerp(c011, c111, f[0]);
    V c0 = Lerp(c00, c10, f[1]), c1 = Lerp(c01, c11, f[1]);
    out[ch] = DecodeSrgb(d, Lerp(c0, c1, f[2]));
    out[ch] = hn::IfThenElse(partial, hn::Mul(out[ch], a), out[ch]);
  }
  hn::StoreInterleaved4(out[0], out[1], out[2], a, d, px);
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
