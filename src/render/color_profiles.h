// The output colour spaces of an export — sRGB, Display P3 and Adobe RGB (1998)
// — and the fast conversion of working-space pixels into their encodings.
//
// Profiles are built in code with Little CMS from the published primaries,
// D65 white point and transfer curves:
//   sRGB               R(0.640, 0.330) G(0.300, 0.600) B(0.150, 0.060), sRGB curve
//   Display P3         R(0.680, 0.320) G(0.265, 0.690) B(0.150, 0.060), sRGB curve
//   Adobe RGB (1998)   R(0.640, 0.330) G(0.210, 0.710) B(0.150, 0.060), gamma 563/256
// and serialised as ICC v2.1 profiles for embedding in files.
//
// Conversion of one pixel (working space: linear Rec.709 primaries, float RGBA
// premultiplied, see image.h):
//   0. NaN colour becomes 0 and colour is limited to the half-float range
//      ±65504 (an infinity acts as a very bright but finite value);
//   1. colour = rgb / alpha when the output keeps alpha (colour 0 where alpha
//      is 0 or below; an alpha above 1, a resampler's overshoot, still
//      divides, so the colour stays straight), alpha then clamped to 0...1;
//      otherwise the premultiplied colour as is, which is the image
//      composited over black;
//   2. linear output rgb = M x colour, M from the profiles' colorants;
//   3. clipped to 0...1 (NaN becomes 0), transfer curve applied;
//   4. quantised: 8-bit with an ordered ±0.5 LSB dither (so smooth gradients do
//      not band) or rounded to the maximum code value (65535, or 1023 for
//      10-bit); alpha rounded, never dithered.
// The curve is a table over the float's exponent and top mantissa bits (256
// linear segments per octave from 2^-24 to 1); its error is below 1e-5 of full
// scale, under a quarter of a 16-bit step. encodeReference() is the plain
// double-precision formula the fast path is tested against.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vg {

enum class OutputColorSpace { sRGB, displayP3, adobeRGB1998 };

// "sRGB IEC61966-2.1", "Display P3", "Adobe RGB (1998)": the profile description.
std::string_view outputProfileDescription(OutputColorSpace space);

// The ICC profile bytes to embed. Built once, thread-safe.
const std::vector<uint8_t>& outputIccProfile(OutputColorSpace space);

enum class OutputChannels { rgb, rgba };

// Prepared per-space conversion data (built once, immutable, shared).
class OutputEncoding {
 public:
  static const OutputEncoding& get(OutputColorSpace space);

  OutputColorSpace space() const { return space_; }
  // Row-major 3x3: linear Rec.709 rgb -> linear output rgb.
  const std::array<float, 9>& matrix() const { return matrix_; }

  // Transfer curve of an already clipped linear value in 0...1 (fast path).
  float encodeCurve(float linear) const;

 private:
  explicit OutputEncoding(OutputColorSpace space);
  friend void encodeRow8(const OutputEncoding&, const float*, int, OutputChannels, int, int, bool, uint8_t*);
  friend void encodeRow16(const OutputEncoding&, const float*, int, OutputChannels, uint16_t, uint16_t*);
  OutputColorSpace space_;
  std::array<float, 9> matrix_{};
  std::vector<float> table_;  // kSegments + 1 knots
};

// Converts count working-space pixels (4 floats each) into interleaved 8-bit
// samples (3 or 4 per pixel). x and y are the pixel's position in the output
// image, which fixes the dither pattern (so bands and threads agree).
void encodeRow8(const OutputEncoding& enc, const float* src, int count, OutputChannels channels, int x,
                int y, bool dither, uint8_t* dst);

// Converts count pixels into interleaved samples 0...maxCode (65535 for
// 16-bit files, 1023 for 10-bit), in native byte order.
void encodeRow16(const OutputEncoding& enc, const float* src, int count, OutputChannels channels,
                 uint16_t maxCode, uint16_t* dst);

// Reference for one pixel: the encoded output values in 0...1 (before
// quantisation), computed in double precision with the exact curve.
std::array<double, 4> encodeReference(OutputColorSpace space, const float rgba[4], OutputChannels channels);

}  // namespace vg
