// The sRGB transfer curve (IEC 61966-2-1), the encoding in which 8-bit files,
// the histogram and the colour cube of a LUT see pixel values.
//
//   decode (encoded -> linear):  v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055)^2.4
//   encode (linear -> encoded):  v <= 0.0031308 ? v * 12.92 : 1.055 v^(1/2.4) - 0.055
//
// Both extend to values outside 0...1 by odd symmetry (sign(v) * f(|v|)), so
// wide-gamut and over-white working values survive a round trip. NaN stays NaN.
#pragma once

#include <cmath>

namespace vg::srgb {

inline float decode(float v) {
  float a = std::fabs(v);
  float r = a <= 0.04045f ? a / 12.92f : std::pow((a + 0.055f) / 1.055f, 2.4f);
  return std::copysign(r, v);
}

inline float encode(float v) {
  float a = std::fabs(v);
  float r = a <= 0.0031308f ? a * 12.92f : 1.055f * std::pow(a, 1.0f / 2.4f) - 0.055f;
  return std::copysign(r, v);
}

}  // namespace vg::srgb
