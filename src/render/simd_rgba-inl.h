// RGBA rows to four planes of float vectors and back, for the Highway code
// of the render layer. Included once per target inside a HWY_NAMESPACE block
// (so no include guard), after `hn`, `D` (full float vectors) and `V`.
//
// LoadRgba/StoreRgba move N pixels (4N floats) between a row and the planes
// r, g, b, a. On 16-lane x86 targets two rounds of two-table permutes do it
// (8 each way, where Highway's generic (de)interleave takes 16 shuffles), and
// Deinterleave serves pixels already held in four registers.

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3
HWY_INLINE void Deinterleave(const __m512 (&px)[4], V& r, V& g, V& b, V& a) {
  alignas(64) static constexpr int32_t kEvenPairs[16] = {0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29};
  alignas(64) static constexpr int32_t kLowHalves[16] = {0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23};
  const __m512i pairs = _mm512_load_si512(kEvenPairs), pairs2 = _mm512_add_epi32(pairs, _mm512_set1_epi32(2));
  const __m512i lo = _mm512_load_si512(kLowHalves), hi = _mm512_add_epi32(lo, _mm512_set1_epi32(8));
  const __m512 rg01 = _mm512_permutex2var_ps(px[0], pairs, px[1]), rg23 = _mm512_permutex2var_ps(px[2], pairs, px[3]);
  const __m512 ba01 = _mm512_permutex2var_ps(px[0], pairs2, px[1]), ba23 = _mm512_permutex2var_ps(px[2], pairs2, px[3]);
  r = V{_mm512_permutex2var_ps(rg01, lo, rg23)};
  g = V{_mm512_permutex2var_ps(rg01, hi, rg23)};
  b = V{_mm512_permutex2var_ps(ba01, lo, ba23)};
  a = V{_mm512_permutex2var_ps(ba01, hi, ba23)};
}
HWY_INLINE void LoadRgba(D d, const float* HWY_RESTRICT p, V& r, V& g, V& b, V& a) {
  const __m512 px[4] = {hn::LoadU(d, p).raw, hn::LoadU(d, p + 16).raw, hn::LoadU(d, p + 32).raw,
                        hn::LoadU(d, p + 48).raw};
  Deinterleave(px, r, g, b, a);
}
HWY_INLINE void StoreRgba(D d, V r, V g, V b, V a, float* HWY_RESTRICT p) {
  alignas(64) static constexpr int32_t kZip[16] = {0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23};
  alignas(64) static constexpr int32_t kQuads[16] = {0, 1, 16, 17, 2, 3, 18, 19, 4, 5, 20, 21, 6, 7, 22, 23};
  const __m512i zipLo = _mm512_load_si512(kZip), zipHi = _mm512_add_epi32(zipLo, _mm512_set1_epi32(8));
  const __m512i quadLo = _mm512_load_si512(kQuads), quadHi = _mm512_add_epi32(quadLo, _mm512_set1_epi32(8));
  const __m512 rgLo = _mm512_permutex2var_ps(r.raw, zipLo, g.raw), rgHi = _mm512_permutex2var_ps(r.raw, zipHi, g.raw);
  const __m512 baLo = _mm512_permutex2var_ps(b.raw, zipLo, a.raw), baHi = _mm512_permutex2var_ps(b.raw, zipHi, a.raw);
  hn::StoreU(V{_mm512_permutex2var_ps(rgLo, quadLo, baLo)}, d, p);
  hn::StoreU(V{_mm512_permutex2var_ps(rgLo, quadHi, baLo)}, d, p + 16);
  hn::StoreU(V{_mm512_permutex2var_ps(rgHi, quadLo, baHi)}, d, p + 32);
  hn::StoreU(V{_mm512_permutex2var_ps(rgHi, quadHi, baHi)}, d, p + 48);
}
#else
HWY_INLINE void LoadRgba(D d, const float* HWY_RESTRICT p, V& r, V& g, V& b, V& a) {
  hn::LoadInterleaved4(d, p, r, g, b, a);
}
HWY_INLINE void StoreRgba(D d, V r, V g, V b, V a, float* HWY_RESTRICT p) {
  hn::StoreInterleaved4(r, g, b, a, d, p);
}
#endif
