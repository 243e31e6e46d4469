// 2^f for f in [-1/2, 1/2] as 1 + f P(f), with the polynomial of the classic
// Cephes exp2f (relative error about 1e-7): the core of the render layer's
// vector exp2 functions, which split y = n + f and scale by 2^n themselves.
// Included once per target inside a HWY_NAMESPACE block (no include guard),
// after `hn`, `D` and `V`.

HWY_INLINE V Exp2Fraction(D d, V f) {
  V poly = hn::MulAdd(f, hn::Set(d, 1.535336188319500e-4f), hn::Set(d, 1.339887440266574e-3f));
  poly = hn::MulAdd(poly, f, hn::Set(d, 9.618437357674640e-3f));
  poly = hn::MulAdd(poly, f, hn::Set(d, 5.550332471162809e-2f));
  poly = hn::MulAdd(poly, f, hn::Set(d, 2.402264791363012e-1f));
  poly = hn::MulAdd(poly, f, hn::Set(d, 6.931472028550421e-1f));
  return hn::MulAdd(poly, f, hn::Set(d, 1.0f));
}
