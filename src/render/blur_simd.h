// The inner loop of the direct Gaussian blur, vectorised with Highway and
// dispatched at run time to the best instruction set the processor has.
#pragma once

#include <cstddef>

namespace vg::blur {

// Floats every row handed to these sums must have readable (and `out`
// writable) beyond n: n is processed in whole blocks of this many.
inline constexpr size_t kRowPadFloats = 16;
inline size_t paddedFloats(size_t n) { return (n + kRowPadFloats - 1) / kRowPadFloats * kRowPadFloats; }

// Up to kMaxSumRows neighbouring symmetric weighted sums of `count` (odd)
// rows at once, c = count / 2: for j < outputs and every i below
// paddedFloats(n),
//   out[j][i] = w[c]·rows[j+c][i] + Σ_{k<c} w[k]·(rows[j+k][i] + rows[j+count-1-k][i])
// summed in ascending k (count + outputs - 1 rows in all). Neighbouring sums
// share their loads. The rows must not overlap any out[j]. The arithmetic for
// a position depends only on its inputs, not on how many outputs share a call.
inline constexpr int kMaxSumRows = 8;
void symmetricSumRows(const float* const* rows, const float* weights, int count, float* const* out, int outputs,
                      size_t n);

// The horizontal convolution of a line of `channels`-float pixels (1 or 4):
// for every i below paddedFloats(n),
//   out[i] = Σ_{t<count} w[t]·x[i + channels·t]   (summed in ascending t)
// so x must be readable up to paddedFloats(n) + channels (count - 1) floats.
// For RGBA a loaded vector serves every output vector that needs it, so a
// source position is read about once per group of outputs, not once per
// tap. The arithmetic for a position depends only on its inputs, and a grey
// line gives exactly one channel of the same RGBA line.
void convolveLine(const float* x, const float* weights, int count, int channels, float* out, size_t n);

}  // namespace vg::blur
