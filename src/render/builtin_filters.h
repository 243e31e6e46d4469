// The point filters the render pipeline uses beside the kernels: exposure,
// saturation, white balance (temperature and tint), colour matrix, minimum
// component, blend with mask and dissolve. All in the linear working space,
// float32, on rows laid out as in kernels.h (KernelRow, in place).
//
// Alpha follows the kernels' rule: the arithmetic runs on the stored
// (premultiplied) values; colour filters copy alpha, the two blends mix all four
// channels. For opaque pixels this is the straight-colour result.
// None of these clamps: values above 1 and below 0 pass on to later stages.
// The loops are plain element-wise float code that the compiler vectorises;
// each is memory-bound on a whole image.
#pragma once

#include <array>

#include "render/kernels.h"

namespace vg::filters {

using kernels::KernelRow;
using kernels::PlanarRow;

// exposure: rgb × 2^ev
float exposureGain(float ev);
void exposure(float gain, const KernelRow& row);
void exposure(float gain, const PlanarRow& row);

// saturation (colour controls): rgb = mix(L, rgb, saturation), Rec.709 luma
void saturation(float saturation, const KernelRow& row);
void saturation(float saturation, const PlanarRow& row);

// colour matrix: each output channel is the dot product of its vector with
// (r, g, b, a) plus its bias: r' = R·c + bias.r, ... a' = A·c + bias.a.
struct ColorMatrix {
  std::array<float, 4> r{1, 0, 0, 0};
  std::array<float, 4> g{0, 1, 0, 0};
  std::array<float, 4> b{0, 0, 1, 0};
  std::array<float, 4> a{0, 0, 0, 1};
  std::array<float, 4> bias{0, 0, 0, 0};
  bool isIdentity() const;
  friend bool operator==(const ColorMatrix&, const ColorMatrix&) = default;
};
void colorMatrix(const ColorMatrix& m, const KernelRow& row);
void colorMatrix(const ColorMatrix& m, const PlanarRow& row);

// Temperature and tint: a chromatic adaptation (Bradford, in CIE XYZ) that
// carries the white of `neutral` to the white of `targetNeutral`, as a 3×3
// matrix on linear Rec.709 RGB. A neutral is (correlated colour temperature in
// kelvin, tint); its white lies on the Planckian locus at that temperature,
// moved across the locus in CIE 1960 uv by tint / 3000 (positive tint towards
// green). So a target colder than the neutral (e.g. 4000 K against 6500 K)
// turns the neutral's white orange: the picture warms; a negative target tint
// moves it towards magenta. Equal neutrals give exactly the identity.
// Temperatures are clamped to the locus approximation's range, 1000...25000 K.
struct Neutral {
  double temperature = 6500;
  double tint = 0;
};
ColorMatrix temperatureAndTint(Neutral neutral, Neutral targetNeutral);

// minimum component: r = g = b = min(r, g, b); alpha kept
void minimumComponent(const KernelRow& row);

// blend with mask: c = mix(background, c, mask.r), all four channels;
// row.aux is the background, `mask` the mask image's row (R read).
void blendWithMask(const KernelRow& row, const float* mask);

// dissolve: c = mix(background, c, amount), all four channels; row.aux is the background.
void dissolve(float amount, const KernelRow& row);

}  // namespace vg::filters
