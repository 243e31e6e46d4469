// The per-pixel kernels of the render engine: twenty small pure functions of
// (pixel, prepared parameters), applied a row at a time.
//
// Shared rules of this header:
// - A kernel runs over a KernelRow: n pixels of float RGBA (premultiplied,
//   working space) at `rgba`, changed in place. The first pixel is working-
//   image pixel (x, y); pixel i has its centre, the kernel's `coord`, at
//   (x + i + 0.5, y + 0.5).
// - Kernels that read a second image (a blur, the dark channel) take its pixels
//   at the same positions through `aux` (n RGBA pixels, may not alias rgba).
//   Look-up and parameter images (curves, HSL) are part of the parameters.
// - Parameters are turned into per-run data once with prepare(), outside the
//   pixel loop; a prepared value is immutable and may be shared by threads.
// - Alpha: the arithmetic runs on the stored colour values as they are (no
//   un-premultiplication), exactly like a colour kernel that reads its sampler;
//   alpha is copied through untouched. For opaque pixels (alpha = 1, every
//   decoded photograph) stored and straight colour are the same numbers.
//   The two mask kernels write alpha = 1.
// - Two implementations of every kernel: kernels::<name> is the fast path
//   (SIMD through Highway with runtime dispatch, see kernels_simd.cpp) and
//   kernels::reference::<name> the plain scalar loop over kmath (kernel_math.h).
//   On 0...1 input they agree within 1e-5 absolute; the hash-based kernels
//   (grain, dither) agree bit for bit on the hash.
// - Kernels never start threads; the caller splits rows (parallel.h).
// - No kernel fails. A kernel that clamps never outputs NaN, whatever its input.
//
// Every constant is the one written in the maths line, evaluated in float.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vg::kernels {

struct KernelRow {
  float* rgba = nullptr;        // n RGBA pixels, in and out
  const float* aux = nullptr;   // second image's n RGBA pixels, or nullptr
  int n = 0;
  int x = 0;                    // working-image column of rgba[0]
  int y = 0;                    // working-image row
};

// ---------------------------------------------------------------- tone
// c = clamp01(src); c = clamp(c(1 + 0.35 whites) + 0.35 blacks, 0, 4);
// l = L(min(c,1)); c += 1.2 c (shadows clamp01(1-l)^1.6 + highlights clamp01(l)^1.6), clamp 0..4;
// x = clamp01(c); contrast >= 0: mix(x, x²(3-2x), contrast), else mix(x, 0.5 + (x-0.5)(1+0.8 contrast), -contrast)
struct ToneParams {
  float highlights = 0, shadows = 0, whites = 0, blacks = 0, contrast = 0;
};

// ---------------------------------------------------------------- vibrance
// c = clamp01(src); sat = (max-min)/max (0 when max <= 1e-4); c = clamp01(mix(L, c, 1 + amount(1 - sat)))
struct VibranceParams {
  float amount = 0;
};

// ---------------------------------------------------------------- HSL
// Eight hue bands (centres 0,30,60,120,180,240,285,330°); per band (hue°, sat, lum) on -100...100.
// Weighted by bandWeight, normalised by 1e-4 + Σw; hue rotated by dHue·protect,
// s *= 1 + dSat/100 · mix(0.35, 1, protect), l += dLum/100 · (1-l or l), protect = smoothstep(.03,.15,s).
struct HslBandParams {
  float hue = 0, saturation = 0, luminance = 0;
};
struct HslParams {
  std::array<HslBandParams, 8> bands{};  // red, orange, yellow, green, aqua, blue, purple, magenta
  // The parameter image is 8 RGBA8 texels; a channel byte v decodes to
  // (v / 255) × 200 - 100 in float, so its 8-bit quantisation is kept.
  static HslParams fromTexels(const uint8_t (&texels)[32]);
};

// ---------------------------------------------------------------- split toning
// l = L(clamp01(c)); wHi = smoothstep(0.25 + b, 0.75 + b, l) with b = balance/4;
// tint = hsl2rgb(hiHue,1,.5) wHi + hsl2rgb(shHue,1,.5)(1-wHi); strength likewise;
// c = clamp01(mix(c, (1 - 2 tint) c² + 2 tint c, strength))
struct SplitToneParams {
  float hiHue = 0, hiSat = 0, shHue = 0, shSat = 0, balance = 0;  // hues in turns
};
struct SplitTonePrepared {
  float hiR, hiG, hiB, shR, shG, shB, hiSat, shSat, lo, hi;  // lo/hi: the smoothstep edges
};
SplitTonePrepared prepare(const SplitToneParams& p);

// ---------------------------------------------------------------- detail (texture, clarity)
// aux = blur; out = clamp01(c + (c - blur) amount)
struct DetailParams {
  float amount = 0;
};

// ---------------------------------------------------------------- dehaze
// aux = blurred dark channel (R read as mn); clean = clamp01((c - 0.9 amount mn) / max(1 - 0.35 amount, 0.1));
// amount >= 0: mix(c, clean, min(1.5 amount, 1)); else mix(c, mix(c, 0.62, 0.45), -amount); clamp01
struct DehazeParams {
  float amount = 0;
};

// ---------------------------------------------------------------- vignette, lens vignette
// aspect = W/max(H,1); d = (coord - origin)/size - 0.5; r = |d (2 aspect, 2)| / sqrt(aspect² + 1);
// start = 0.8 midpoint + 0.05; t = smoothstep(start, start + (1-start)(0.35 + 0.65 feather), r);
// vignette: clamp01(c (1 - t amount)); lens vignette: clamp01(c (1 + t amount))
struct VignetteParams {
  float amount = 0, midpoint = 0, feather = 0, originX = 0, originY = 0, sizeW = 1, sizeH = 1;
};
struct VignettePrepared {
  float gain;        // -amount for the post-crop vignette, +amount for the lens one
  float originX, originY, sizeW, sizeH;
  float ex, ey;      // 2 aspect / sqrt(aspect² + 1), 2 / sqrt(aspect² + 1)
  float start, end;  // smoothstep edges
};
VignettePrepared prepareVignette(const VignetteParams& p);
VignettePrepared prepareLensVignette(const VignetteParams& p);

// ---------------------------------------------------------------- grain
// uv = coord - origin; cell = max(1, grainScale shortSide / 220); fine = hash21(floor uv) - .5;
// coarse = bilinear value noise of hash21 at uv/cell with smoothstep weights - .5;
// n = mix(fine, coarse, smoothstep(1, 2.2, cell)); w = max(1 - 1.5|l - .5|, .25);
// c = clamp01(c + 0.22 n amount w), l = L(clamp01(c))
struct GrainParams {
  float amount = 0, grainScale = 0, shortSide = 0, originX = 0, originY = 0;
};
struct GrainPrepared {
  float amount, originX, originY, cell, invCell, coarseMix;
};
GrainPrepared prepare(const GrainParams& p);

// ---------------------------------------------------------------- curves
// The look-up image: 2 rows of lutMax + 1 RGBA float texels (see curve_lut.h).
// c = clamp01(src); each channel through row 0 R (master), then R through row 0 G,
// G through row 0 B, B through row 1 R; linear between texel centres at v·lutMax.
// The sampler clamps to the edge texels: a value outside 0...1 between the two
// look-ups (only possible with a table outside 0...1) reads T[0] or T[lutMax].
struct CurvesParams {
  const float* row0 = nullptr;  // lutMax + 1 RGBA texels
  const float* row1 = nullptr;  // lutMax + 1 RGBA texels
  int lutMax = 1023;
};
struct CurvesPrepared {
  enum Table { kMaster, kRed, kGreen, kBlue };
  int lutMax = 0;
  // The four tables (master, red, green, blue) of lutMax + 2 floats, the last
  // entry repeated so that an interpolation never reads past the end.
  std::array<std::vector<float>, 4> tables;
  // The same tables as (T[i], T[i + 1] - T[i]) pairs, one 8-byte word per
  // texel, so the fast path fetches value and slope of an interval with one
  // gathered load and interpolates with one multiply-add.
  std::array<std::vector<double>, 4> pairs;
  // Tables on a straight line T[i] = offset + slope·i / lutMax (within 1e-7;
  // the identity and every two-point curve): the fast path evaluates the line
  // instead of looking up, which moves its result by at most about 2e-7 times
  // the slope of the curve applied after it. A channel's line is only used
  // when the master table stays within 0...1 (true for every table the curve
  // look-up image holds); otherwise the look-up's clamp to the edge texels
  // matters.
  std::array<bool, 4> linear{};
  std::array<float, 4> lineOffset{}, lineSlope{};
};
CurvesPrepared prepare(const CurvesParams& p);

// ---------------------------------------------------------------- dither
// pc = coord mod 4096; out.rgb = c.rgb + (hash21(pc) - 0.5)/255 (unclamped)
struct DitherParams {};

// ---------------------------------------------------------------- red eye
// t = 1 - smoothstep(radius(1 - feather), radius, |coord - centre|); redness = smoothstep(2, 3.2, R/max(G,B));
// R = mix(R, 0.85 min(R, 0.9 (G+B)/2), t redness); G,B = mix(x, 0.88 x, 0.4 t redness); no clamp
struct RedEyeParams {
  float centerX = 0, centerY = 0, radius = 0, feather = 0;
};

// ---------------------------------------------------------------- denoise
// aux = blur; w = 1 - smoothstep(0.06, 0.30, |c - blur|); clamp01(mix(c, blur, amount w))
struct DenoiseParams {
  float amount = 0;
};

// ---------------------------------------------------------------- luminance range mask
// l = R; aLo = clamp01((l - low)/ramp) (ramp <= 1e-4: l >= low); aHi = clamp01((high - l)/ramp) (l <= high);
// out = (a, a, a, 1), a = min(aLo, aHi)
struct LuminanceRangeMaskParams {
  float low = 0, high = 1, ramp = 0;
};

// ---------------------------------------------------------------- chroma denoise
// aux = blur; out = clamp01(L(c) + mix(c - L(c), blur - L(blur), amount))
struct ChromaDenoiseParams {
  float amount = 0;
};

// ---------------------------------------------------------------- defringe
// aux = blur; sat = (mx-mn)/mx; magenta = min(R,B) - G; edge = |c - blur|;
// w = amount smoothstep(.04,.25,magenta) smoothstep(.25,.65,sat) smoothstep(.03,.2,edge);
// R,B = mix(x, min(x, blur.G), w); clamp01
struct DefringeParams {
  float amount = 0;
};

// ---------------------------------------------------------------- monochrome
// w = max(weights, 0) / max(Σ, 1e-4) (Rec.709 luma weights when Σ <= 1e-4);
// out.rgb = clamp01(dot(clamp01(c), w))
struct MonochromeParams {
  float redWeight = 0, greenWeight = 0, blueWeight = 0;
};
struct MonochromePrepared {
  float wr, wg, wb;
};
MonochromePrepared prepare(const MonochromeParams& p);

// ---------------------------------------------------------------- colour range mask
// d = |c.rgb - target|; a = 1 - smoothstep(tolerance, tolerance + max(feather, 1e-4), d); out = (a, a, a, 1)
struct ColorRangeMaskParams {
  float targetR = 0, targetG = 0, targetB = 0, tolerance = 0, feather = 0;
};

// ---------------------------------------------------------------- sharpen blend
// aux = blur; w = smoothstep(lo, hi, |c - blur|); s = clamp01(c + (c - blur) amount); out = mix(c, s, w)
struct SharpenBlendParams {
  float amount = 0, lo = 0, hi = 0;
};

// ---------------------------------------------------------------- lens distortion
// A resampling kernel: q = (coord - centre)/max(radius, 1); the output pixel takes
// the source at centre + q (1 + amount |q|²) max(radius, 1). extentW/H are not used.
struct LensDistortionParams {
  float amount = 0, centerX = 0, centerY = 0, radius = 1, extentW = 0, extentH = 0;
};
// Where output point (x, y) reads the source, in working-image coordinates.
void lensDistortionSource(const LensDistortionParams& p, float x, float y, float& sx, float& sy);

// ---------------------------------------------------------------- planar runs
// A run of pixels held as four planes (r, g, b, a), for a chain of point
// kernels that keeps them de-interleaved from one kernel to the next: one
// de-interleave and one interleave for the chain instead of one of each per
// kernel. Pixel i has its centre at (x + i + 0.5, y + 0.5), as in a
// KernelRow. Every plane is 64-byte aligned and holds planarPadded(n) floats:
// the kernels compute the padding lanes as well (values nobody reads back).
// A kernel on a planar run computes exactly what it computes on the same
// pixels in a KernelRow.
struct PlanarRow {
  float* r = nullptr;
  float* g = nullptr;
  float* b = nullptr;
  float* a = nullptr;
  int n = 0;
  int x = 0;
  int y = 0;
};
inline constexpr int kPlanarBlock = 16;
inline int planarPadded(int n) { return (n + kPlanarBlock - 1) / kPlanarBlock * kPlanarBlock; }
// Narrows [x0, x1) to the part between the first and the last values of m
// that are not 0 (x0 == x1 when all are 0; -0 counts as 0, NaN does not).
void trimZeros(const float* m, int& x0, int& x1);

// Blend with a mask: background = mix(background, adjusted, t[i]) for each
// of the n RGBA pixels, every channel (alpha too).
void maskBlend(float* background, const float* adjusted, const float* t, int n);

// n = out.n RGBA pixels into the planes of out, and back.
void toPlanar(const float* rgba, const PlanarRow& out);
void fromPlanar(const PlanarRow& in, float* rgba);

// ---------------------------------------------------------------- fast paths
// The point kernels also run on planar runs (the neighbourhood ones, which
// read a second image, and the red-eye, which works on a square, do not).
void tone(const ToneParams& p, const PlanarRow& row);
void vibrance(const VibranceParams& p, const PlanarRow& row);
void hsl(const HslParams& p, const PlanarRow& row);
void splitTone(const SplitTonePrepared& p, const PlanarRow& row);
void vignette(const VignettePrepared& p, const PlanarRow& row);
void grain(const GrainPrepared& p, const PlanarRow& row);
void curves(const CurvesPrepared& p, const PlanarRow& row);
void dither(const DitherParams& p, const PlanarRow& row);
void monochrome(const MonochromePrepared& p, const PlanarRow& row);

void tone(const ToneParams& p, const KernelRow& row);
void vibrance(const VibranceParams& p, const KernelRow& row);
void hsl(const HslParams& p, const KernelRow& row);
void splitTone(const SplitTonePrepared& p, const KernelRow& row);
void detail(const DetailParams& p, const KernelRow& row);
void dehaze(const DehazeParams& p, const KernelRow& row);
// dehaze with a grey aux: row.aux holds one float per pixel, the dark channel.
void dehazeGrey(const DehazeParams& p, const KernelRow& row);
void vignette(const VignettePrepared& p, const KernelRow& row);  // also the lens vignette
void grain(const GrainPrepared& p, const KernelRow& row);
void curves(const CurvesPrepared& p, const KernelRow& row);
void dither(const DitherParams& p, const KernelRow& row);
void redEye(const RedEyeParams& p, const KernelRow& row);
void denoise(const DenoiseParams& p, const KernelRow& row);
void luminanceRangeMask(const LuminanceRangeMaskParams& p, const KernelRow& row);
void chromaDenoise(const ChromaDenoiseParams& p, const KernelRow& row);
void defringe(const DefringeParams& p, const KernelRow& row);
void monochrome(const MonochromePrepared& p, const KernelRow& row);
void colorRangeMask(const ColorRangeMaskParams& p, const KernelRow& row);
void sharpenBlend(const SharpenBlendParams& p, const KernelRow& row);

// ---------------------------------------------------------------- scalar references
namespace reference {
void tone(const ToneParams& p, const KernelRow& row);
void vibrance(const VibranceParams& p, const KernelRow& row);
void hsl(const HslParams& p, const KernelRow& row);
void splitTone(const SplitTonePrepared& p, const KernelRow& row);
void detail(const DetailParams& p, const KernelRow& row);
void dehaze(const DehazeParams& p, const KernelRow& row);
void vignette(const VignettePrepared& p, const KernelRow& row);
void grain(const GrainPrepared& p, const KernelRow& row);
void curves(const CurvesPrepared& p, const KernelRow& row);
void dither(const DitherParams& p, const KernelRow& row);
void redEye(const RedEyeParams& p, const KernelRow& row);
void denoise(const DenoiseParams& p, const KernelRow& row);
void luminanceRangeMask(const LuminanceRangeMaskParams& p, const KernelRow& row);
void chromaDenoise(const ChromaDenoiseParams& p, const KernelRow& row);
void defringe(const DefringeParams& p, const KernelRow& row);
void monochrome(const MonochromePrepared& p, const KernelRow& row);
void colorRangeMask(const ColorRangeMaskParams& p, const KernelRow& row);
void sharpenBlend(const SharpenBlendParams& p, const KernelRow& row);
}  // namespace reference

}  // namespace vg::kernels
