// Vectorised output conversion (see color_profiles_simd.h): the arithmetic of
// encodePixel() in color_profiles.cpp, lane for lane.
#include "render/color_profiles_simd.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "render/color_profiles_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace vg::output_simd {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;
using DI = hn::RebindToSigned<D>;

HWY_INLINE V Clip01(D d, V v) {  // NaN -> 0
  return hn::IfThenElseZero(hn::Gt(v, hn::Zero(d)), hn::Min(v, hn::Set(d, 1.0f)));
}

HWY_INLINE V Finite(D d, V v) {  // NaN -> 0, else limited to the half range
  v = hn::IfThenElseZero(hn::Eq(v, v), v);
  return hn::Min(hn::Max(v, hn::Set(d, -kHalfMax)), hn::Set(d, kHalfMax));
}

HWY_INLINE V Curve(D d, const RowJob& job, V v) {
  const DI di;
  auto bits = hn::BitCast(di, v);
  auto base = hn::Set(di, int32_t(kBaseBits));
  auto small = hn::Lt(bits, base);
  auto delta = hn::Max(hn::Sub(bits, base), hn::Zero(di));
  auto index = hn::Min(hn::ShiftRight<kFracBits>(delta), hn::Set(di, kSegments - 1));
  V t = hn::Mul(hn::ConvertTo(d, hn::And(delta, hn::Set(di, (1 << kFracBits) - 1))), hn::Set(d, kFracScale));
  V a = hn::GatherIndex(d, job.table, index);
  V b = hn::GatherIndex(d, job.table + 1, index);
  V r = hn::Add(a, hn::Mul(hn::Sub(b, a), t));
  V toe = job.linearToe ? hn::Mul(v, hn::Set(d, 12.92f)) : hn::Zero(d);
  r = hn::IfThenElse(hn::RebindMask(d, small), toe, r);
  return hn::IfThenElse(hn::Ge(v, hn::Set(d, 1.0f)), hn::Set(d, 1.0f), r);
}

// Steps 0-3 of the conversion for N pixels at src.
HWY_INLINE void Encode(D d, const RowJob& job, const float* src, V& e0, V& e1, V& e2, V& alpha) {
  V r, g, b, a;
  hn::LoadInterleaved4(d, src, r, g, b, a);
  r = Finite(d, r);
  g = Finite(d, g);
  b = Finite(d, b);
  const V raw = a;
  a = Clip01(d, a);
  if (job.keepAlpha) {
    const V cover = hn::IfThenElse(hn::Gt(raw, hn::Set(d, 1.0f)), raw, a);
    V inv = hn::IfThenElseZero(hn::Gt(a, hn::Zero(d)), hn::Div(hn::Set(d, 1.0f), cover));
    r = hn::Mul(r, inv);
    g = hn::Mul(g, inv);
    b = hn::Mul(b, inv);
  }
  const float* m = job.matrix;
  auto row = [&](int k) {
    return hn::Add(hn::Add(hn::Mul(hn::Set(d, m[k]), r), hn::Mul(hn::Set(d, m[k + 1]), g)),
                   hn::Mul(hn::Set(d, m[k + 2]), b));
  };
  e0 = Curve(d, job, Clip01(d, row(0)));
  e1 = Curve(d, job, Clip01(d, row(3)));
  e2 = Curve(d, job, Clip01(d, row(6)));
  alpha = a;
}

int Encode8(const RowJob& job, int x, const float* noise, bool dither, uint8_t* dst) {
  const D d;
  const DI di;
  const hn::Rebind<uint8_t, D> d8;
  const int n = int(hn::Lanes(d));
  const V k255 = hn::Set(d, 255.0f), half = hn::Set(d, 0.5f);
  int i = 0;
  for (; i + n <= job.count; i += n) {
    V e0, e1, e2, a;
    Encode(d, job, job.src + size_t(i) * 4, e0, e1, e2, a);
    V dv = dither ? hn::LoadU(d, noise + ((x + i) & 63)) : half;
    auto q = [&](V e) {
      return hn::DemoteTo(d8, hn::ConvertTo(di, hn::Min(hn::Add(hn::Mul(e, k255), dv), k255)));
    };
    if (job.keepAlpha) {
      auto a8 = hn::DemoteTo(d8, hn::ConvertTo(di, hn::Add(hn::Mul(a, k255), half)));
      hn::StoreInterleaved4(q(e0), q(e1), q(e2), a8, d8, dst + size_t(i) * 4);
    } else {
      hn::StoreInterleaved3(q(e0), q(e1), q(e2), d8, dst + size_t(i) * 3);
    }
  }
  return i;
}

int Encode16(const RowJob& job, float scale, uint16_t* dst) {
  const D d;
  const DI di;
  const hn::Rebind<uint16_t, D> d16;
  const int n = int(hn::Lanes(d));
  const V s = hn::Set(d, scale), half = hn::Set(d, 0.5f);
  auto q = [&](V e) { return hn::DemoteTo(d16, hn::ConvertTo(di, hn::Add(hn::Mul(e, s), half))); };
  int i = 0;
  for (; i + n <= job.count; i += n) {
    V e0, e1, e2, a;
    Encode(d, job, job.src + size_t(i) * 4, e0, e1, e2, a);
    if (job.keepAlpha)
      hn::StoreInterleaved4(q(e0), q(e1), q(e2), q(a), d16, dst + size_t(i) * 4);
    else
      hn::StoreInterleaved3(q(e0), q(e1), q(e2), d16, dst + size_t(i) * 3);
  }
  return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace vg::output_simd
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vg::output_simd {

HWY_EXPORT(Encode8);
HWY_EXPORT(Encode16);

int encode8(const RowJob& job, int x, const float* noise, bool dither, uint8_t* dst) {
  return HWY_DYNAMIC_DISPATCH(Encode8)(job, x, noise, dither, dst);
}

int encode16(const RowJob& job, float scale, uint16_t* dst) {
  return HWY_DYNAMIC_DISPATCH(Encode16)(job, scale, dst);
}

}  // namespace vg::output_simd
#endif
