// Scalar helpers shared by the per-pixel kernels (kernels.h): the step and
// blend functions, Rec.709 luma, the HSL conversions, the hue band weight and
// the sine-free hash. All in 32-bit float, every constant as written; these are
// the reference arithmetic that the vectorised kernels reproduce.
//
// NaN policy: clamp01 maps NaN to 0 (a NaN fails every comparison), so a kernel
// that clamps its input or output never lets a NaN through.
#pragma once

#include <cmath>

namespace vg::kmath {

struct Rgb {
  float r = 0, g = 0, b = 0;
};

inline float clamp(float x, float lo, float hi) { return x > lo ? (x < hi ? x : hi) : lo; }
inline float clamp01(float x) { return clamp(x, 0.0f, 1.0f); }
inline float mix(float a, float b, float t) { return a + (b - a) * t; }
inline float fract(float x) { return x - std::floor(x); }

// Hermite step: t = clamp01((x - a) / (b - a)), t²(3 - 2t).
inline float smoothstep(float a, float b, float x) {
  float t = clamp01((x - a) / (b - a));
  return t * t * (3.0f - 2.0f * t);
}

// L = 0.2126 R + 0.7152 G + 0.0722 B
inline float luma(float r, float g, float b) { return 0.2126f * r + 0.7152f * g + 0.0722f * b; }

// Triangular hue band, 40 degrees on each side of its centre, wrapping at 360.
inline float bandWeight(float hueDeg, float center) {
  float d = std::fabs(hueDeg - center);
  d = std::fmin(d, 360.0f - d);
  return clamp(1.0f - d / 40.0f, 0.0f, 1.0f);
}

// RGB -> (h in turns, s, l).
inline Rgb rgb2hsl(float r, float g, float b) {
  float mx = std::fmax(std::fmax(r, g), b);
  float mn = std::fmin(std::fmin(r, g), b);
  float l = (mx + mn) / 2.0f;
  float h = 0.0f, s = 0.0f;
  float d = mx - mn;
  if (d > 0.0001f) {
    s = l > 0.5f ? d / std::fmax(0.0001f, 2.0f - mx - mn) : d / std::fmax(0.0001f, mx + mn);
    if (mx == r) {
      h = (g - b) / d + (g < b ? 6.0f : 0.0f);
    } else if (mx == g) {
      h = (b - r) / d + 2.0f;
    } else {
      h = (r - g) / d + 4.0f;
    }
    h = h / 6.0f;
  }
  return {h, s, l};
}

inline float hue2chroma(float p, float q, float t) {
  if (t < 0.0f) t += 1.0f;
  if (t > 1.0f) t -= 1.0f;
  if (t < 1.0f / 6.0f) return p + (q - p) * 6.0f * t;
  if (t < 0.5f) return q;
  if (t < 2.0f / 3.0f) return p + (q - p) * (2.0f / 3.0f - t) * 6.0f;
  return p;
}

inline Rgb hsl2rgb(float h, float s, float l) {
  if (s <= 0.0001f) return {l, l, l};
  float q = l < 0.5f ? l * (1.0f + s) : l + s - l * s;
  float p = 2.0f * l - q;
  return {hue2chroma(p, q, h + 1.0f / 3.0f), hue2chroma(p, q, h), hue2chroma(p, q, h - 1.0f / 3.0f)};
}

// Sine-free hash of a 2D point to 0...1:
//   p3 = fract(p.xyx × 0.1031); p3 += dot(p3, p3.yzx + 33.33); fract((p3.x + p3.y) × p3.z)
// Evaluated in exactly this order; the vector form repeats it operation for
// operation (the result is sensitive to the last bit of every step).
inline float hash21(float px, float py) {
  float x = fract(px * 0.1031f);
  float y = fract(py * 0.1031f);
  float z = fract(px * 0.1031f);
  float dot = x * (y + 33.33f) + y * (z + 33.33f) + z * (x + 33.33f);
  x += dot;
  y += dot;
  z += dot;
  return fract((x + y) * z);
}

}  // namespace vg::kmath
