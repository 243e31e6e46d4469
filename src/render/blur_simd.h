// The inner loop of the direct Gaussian blur, vectorised with Highway and
// dispatched at run time to the best instruction set the processor has.
#pragma once

#include <cstddef>

namespace vg::blur {

// Floats every row handed to symmetricSum must have readable (and `out`
// writable) beyond n: n is processed in whole blocks of this many.
inline constexpr size_t kRowPadFloats = 16;
inline size_t paddedFloats(size_t n) { return (n + kRowPadFloats - 1) / kRowPadFloats * kRowPadFloats; }

// A symmetric weighted sum of `count` (odd) rows, c = count / 2:
//   out[i] = w[c]·rows[c][i] + Σ_{k<c} w[k]·(rows[k][i] + rows[count-1-k][i])
// for every i below paddedFloats(n). The rows may overlap one another (the
// horizontal pass passes one padded line at successive pixel offsets) but not
// `out`. The arithmetic for a position depends only on its inputs, never on
// where the block boundaries fall.
void symmetricSum(const float* const* rows, const float* weights, int count, float* out, size_t n);

// Two neighbouring sums at once, sharing their loads: out0 over rows[0 ...
// count-1] and out1 over rows[1 ... count] (count + 1 rows), each exactly as
// symmetricSum computes it.
void symmetricSumPair(const float* const* rows, const float* weights, int count, float* out0, float* out1,
                      size_t n);

}  // namespace vg::blur
