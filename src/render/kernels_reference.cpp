// Scalar reference kernels and the parameter preparation shared by both paths.
// Each reference is the maths line of its kernel in kernels.h, written out one
// pixel at a time in float with the helpers of kernel_math.h.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "render/kernel_math.h"
#include "render/kernels.h"

namespace vg::kernels {

using namespace kmath;

namespace {

constexpr float kBandCenters[8] = {0, 30, 60, 120, 180, 240, 285, 330};

// Calls fn(px, aux, cx, cy) for every pixel of the row; cx, cy is the pixel
// centre in working-image coordinates.
template <class Fn>
void forPixels(const KernelRow& row, Fn&& fn) {
  const float cy = float(row.y) + 0.5f;
  for (int i = 0; i < row.n; ++i) {
    float* px = row.rgba + size_t(i) * 4;
    const float* aux = row.aux ? row.aux + size_t(i) * 4 : nullptr;
    fn(px, aux, float(row.x + i) + 0.5f, cy);
  }
}

float length3(float r, float g, float b) { return std::sqrt(r * r + g * g + b * b); }

float lookup(const std::vector<float>& table, int lutMax, float v) {
  // Texel i has its centre at i + 0.5; the sample position is v × lutMax + 0.5,
  // clamped to the centres of the edge texels (clamp01 also maps NaN to 0).
  float u = (clamp01(v) * float(lutMax) + 0.5f) - 0.5f;
  float i0 = std::floor(u);
  int i = std::clamp(int(i0), 0, lutMax);
  float f = u - i0;
  return mix(table[size_t(i)], table[size_t(i) + 1], f);
}

}  // namespace

HslParams HslParams::fromTexels(const uint8_t (&texels)[32]) {
  HslParams p;
  for (int i = 0; i < 8; ++i) {
    auto decode = [&](int c) { return float(texels[i * 4 + c]) / 255.0f * 200.0f - 100.0f; };
    p.bands[size_t(i)] = {decode(0), decode(1), decode(2)};
  }
  return p;
}

SplitTonePrepared prepare(const SplitToneParams& p) {
  Rgb hi = hsl2rgb(p.hiHue, 1.0f, 0.5f);
  Rgb sh = hsl2rgb(p.shHue, 1.0f, 0.5f);
  float b = p.balance * 0.25f;
  return {hi.r, hi.g, hi.b, sh.r, sh.g, sh.b, p.hiSat, p.shSat, 0.5f + b - 0.25f, 0.5f + b + 0.25f};
}

namespace {
VignettePrepared prepareVignetteGeometry(const VignetteParams& p, float gain) {
  VignettePrepared v;
  v.gain = gain;
  v.originX = p.originX;
  v.originY = p.originY;
  v.sizeW = p.sizeW;
  v.sizeH = p.sizeH;
  float aspect = p.sizeW / std::max(p.sizeH, 1.0f);
  float norm = std::sqrt(aspect * aspect + 1.0f);
  v.ex = 2.0f * aspect / norm;
  v.ey = 2.0f / norm;
  v.start = p.midpoint * 0.8f + 0.05f;
  float width = (1.0f - v.start) * (0.35f + 0.65f * p.feather);
  v.end = v.start + width;
  return v;
}
}  // namespace

VignettePrepared prepareVignette(const VignetteParams& p) { return prepareVignetteGeometry(p, -p.amount); }
VignettePrepared prepareLensVignette(const VignetteParams& p) { return prepareVignetteGeometry(p, p.amount); }

GrainPrepared prepare(const GrainParams& p) {
  float cell = std::max(1.0f, p.grainScale * p.shortSide / 220.0f);
  if (!std::isfinite(cell)) cell = 1.0f;
  return {p.amount, p.originX, p.originY, cell, 1.0f / cell, smoothstep(1.0f, 2.2f, cell)};
}

CurvesPrepared prepare(const CurvesParams& p) {
  CurvesPrepared c;
  c.lutMax = std::max(1, p.lutMax);
  const size_t n = size_t(c.lutMax) + 1;
  // Where each table sits in the look-up image: row and component.
  const float* const rows[4] = {p.row0, p.row0, p.row0, p.row1};
  const size_t components[4] = {0, 1, 2, 0};
  for (size_t t = 0; t < 4; ++t) {
    std::vector<float>& table = c.tables[t];
    table.assign(n + 1, 0.0f);
    for (size_t i = 0; i < n; ++i) table[i] = rows[t] ? rows[t][i * 4 + components[t]] : float(i) / float(c.lutMax);
    table[n] = table[n - 1];
    c.pairs[t].resize(n);
    const double offset = table[0], slope = double(table[n - 1]) - double(table[0]);
    c.linear[t] = std::isfinite(slope);
    c.lineOffset[t] = float(offset);
    c.lineSlope[t] = float(slope);
    for (size_t i = 0; i < n; ++i) {
      float two[2] = {table[i], table[i + 1] - table[i]};
      std::memcpy(&c.pairs[t][i], two, sizeof two);
      const double line = offset + slope * double(i) / double(c.lutMax);
      if (!(std::fabs(double(table[i]) - line) <= 1e-7)) c.linear[t] = false;
    }
  }
  const auto& master = c.tables[CurvesPrepared::kMaster];
  if (!std::all_of(master.begin(), master.end(), [](float v) { return v >= 0.0f && v <= 1.0f; })) {
    c.linear[CurvesPrepared::kRed] = c.linear[CurvesPrepared::kGreen] = c.linear[CurvesPrepared::kBlue] = false;
  }
  return c;
}

MonochromePrepared prepare(const MonochromeParams& p) {
  float r = std::max(p.redWeight, 0.0f), g = std::max(p.greenWeight, 0.0f), b = std::max(p.blueWeight, 0.0f);
  float sum = r + g + b;
  if (!(sum > 0.0001f) || !std::isfinite(sum)) return {0.2126f, 0.7152f, 0.0722f};
  float d = std::max(sum, 0.0001f);
  return {r / d, g / d, b / d};
}

void lensDistortionSource(const LensDistortionParams& p, float x, float y, float& sx, float& sy) {
  float radius = std::max(p.radius, 1.0f);
  float qx = (x - p.centerX) / radius, qy = (y - p.centerY) / radius;
  float r2 = qx * qx + qy * qy;
  float f = 1.0f + p.amount * r2;
  sx = p.centerX + qx * f * radius;
  sy = p.centerY + qy * f * radius;
}

namespace reference {

void tone(const ToneParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float c[3];
    for (int k = 0; k < 3; ++k) {
      c[k] = clamp01(px[k]);
      c[k] = clamp(c[k] * (1.0f + p.whites * 0.35f) + p.blacks * 0.35f, 0.0f, 4.0f);
    }
    float l = luma(std::min(c[0], 1.0f), std::min(c[1], 1.0f), std::min(c[2], 1.0f));
    float wS = std::pow(clamp01(1.0f - l), 1.6f);
    float wH = std::pow(clamp01(l), 1.6f);
    for (int k = 0; k < 3; ++k) {
      c[k] += c[k] * p.shadows * wS * 1.2f + c[k] * p.highlights * wH * 1.2f;
      c[k] = clamp(c[k], 0.0f, 4.0f);
      float x = clamp01(c[k]);
      float sc = x * x * (3.0f - 2.0f * x);
      float soft = 0.5f + (x - 0.5f) * (1.0f + p.contrast * 0.8f);
      float out = p.contrast >= 0.0f ? mix(x, sc, p.contrast) : mix(x, soft, -p.contrast);
      px[k] = clamp01(out);
    }
  });
}

void vibrance(const VibranceParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float r = clamp01(px[0]), g = clamp01(px[1]), b = clamp01(px[2]);
    float mx = std::max({r, g, b}), mn = std::min({r, g, b});
    float sat = mx <= 0.0001f ? 0.0f : (mx - mn) / mx;
    float boost = p.amount * (1.0f - sat);
    float l = luma(r, g, b);
    px[0] = clamp01(mix(l, r, 1.0f + boost));
    px[1] = clamp01(mix(l, g, 1.0f + boost));
    px[2] = clamp01(mix(l, b, 1.0f + boost));
  });
}

void hsl(const HslParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    Rgb hsl = rgb2hsl(clamp01(px[0]), clamp01(px[1]), clamp01(px[2]));
    float h = hsl.r, s = hsl.g, l = hsl.b;
    float hueDeg = h * 360.0f;
    float wSum = 0.0001f, dHue = 0, dSat = 0, dLum = 0;
    for (int i = 0; i < 8; ++i) {
      float w = bandWeight(hueDeg, kBandCenters[i]);
      wSum += w;
      dHue += w * p.bands[size_t(i)].hue;
      dSat += w * p.bands[size_t(i)].saturation;
      dLum += w * p.bands[size_t(i)].luminance;
    }
    dHue /= wSum;
    dSat /= wSum;
    dLum /= wSum;
    dSat /= 100.0f;
    dLum /= 100.0f;
    float protect = smoothstep(0.03f, 0.15f, s);
    h = fract(h + dHue / 360.0f * protect);
    s = clamp01(s * (1.0f + dSat * mix(0.35f, 1.0f, protect)));
    l = clamp01(l + dLum * 0.5f * (l > 0.5f ? 1.0f - l : l) * 2.0f);
    Rgb out = hsl2rgb(h, s, l);
    px[0] = out.r;
    px[1] = out.g;
    px[2] = out.b;
  });
}

void splitTone(const SplitTonePrepared& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float c[3] = {clamp01(px[0]), clamp01(px[1]), clamp01(px[2])};
    float l = luma(c[0], c[1], c[2]);
    float wHi = smoothstep(p.lo, p.hi, l);
    float wSh = 1.0f - wHi;
    const float hi[3] = {p.hiR, p.hiG, p.hiB}, sh[3] = {p.shR, p.shG, p.shB};
    float strength = p.hiSat * wHi + p.shSat * wSh;
    for (int k = 0; k < 3; ++k) {
      float tint = hi[k] * wHi + sh[k] * wSh;
      float soft = (1.0f - 2.0f * tint) * c[k] * c[k] + 2.0f * tint * c[k];
      px[k] = clamp01(mix(c[k], soft, strength));
    }
  });
}

void detail(const DetailParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* blur, float, float) {
    for (int k = 0; k < 3; ++k) px[k] = clamp01(px[k] + (px[k] - blur[k]) * p.amount);
  });
}

void dehaze(const DehazeParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* minBlur, float, float) {
    float mn = minBlur[0];
    float denom = std::max(1.0f - 0.35f * p.amount, 0.1f);
    for (int k = 0; k < 3; ++k) {
      float c = clamp01(px[k]);
      float clean = clamp01((c - mn * 0.9f * p.amount) / denom);
      float veiled = mix(c, 0.62f, 0.45f);
      float out = p.amount >= 0.0f ? mix(c, clean, std::min(p.amount * 1.5f, 1.0f)) : mix(c, veiled, -p.amount);
      px[k] = clamp01(out);
    }
  });
}

void vignette(const VignettePrepared& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float cx, float cy) {
    float dx = (cx - p.originX) / p.sizeW - 0.5f;
    float dy = (cy - p.originY) / p.sizeH - 0.5f;
    float ex = dx * p.ex, ey = dy * p.ey;
    float r = std::sqrt(ex * ex + ey * ey);
    float t = smoothstep(p.start, p.end, r);
    for (int k = 0; k < 3; ++k) px[k] = clamp01(px[k] * (1.0f + t * p.gain));
  });
}

void grain(const GrainPrepared& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float cx, float cy) {
    float l = luma(clamp01(px[0]), clamp01(px[1]), clamp01(px[2]));
    float ux = cx - p.originX, uy = cy - p.originY;
    float fine = hash21(std::floor(ux), std::floor(uy)) - 0.5f;
    float qx = ux / p.cell, qy = uy / p.cell;
    float ix = std::floor(qx), iy = std::floor(qy);
    float fx = qx - ix, fy = qy - iy;
    float sx = fx * fx * (3.0f - 2.0f * fx), sy = fy * fy * (3.0f - 2.0f * fy);
    float a = hash21(ix, iy), b = hash21(ix + 1.0f, iy);
    float g = hash21(ix, iy + 1.0f), d = hash21(ix + 1.0f, iy + 1.0f);
    float coarse = mix(mix(a, b, sx), mix(g, d, sx), sy) - 0.5f;
    float n = mix(fine, coarse, p.coarseMix);
    float w = std::max(1.0f - std::fabs(l - 0.5f) * 1.5f, 0.25f);
    for (int k = 0; k < 3; ++k) px[k] = clamp01(px[k] + n * p.amount * 0.22f * w);
  });
}

void curves(const CurvesPrepared& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    const auto& t = p.tables;
    float r = lookup(t[CurvesPrepared::kMaster], p.lutMax, clamp01(px[0]));
    float g = lookup(t[CurvesPrepared::kMaster], p.lutMax, clamp01(px[1]));
    float b = lookup(t[CurvesPrepared::kMaster], p.lutMax, clamp01(px[2]));
    px[0] = lookup(t[CurvesPrepared::kRed], p.lutMax, r);
    px[1] = lookup(t[CurvesPrepared::kGreen], p.lutMax, g);
    px[2] = lookup(t[CurvesPrepared::kBlue], p.lutMax, b);
  });
}

void dither(const DitherParams&, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float cx, float cy) {
    float pcx = cx - 4096.0f * std::floor(cx / 4096.0f);
    float pcy = cy - 4096.0f * std::floor(cy / 4096.0f);
    float d = (hash21(pcx, pcy) - 0.5f) / 255.0f;
    for (int k = 0; k < 3; ++k) px[k] = px[k] + d;
  });
}

void redEye(const RedEyeParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float cx, float cy) {
    float dx = cx - p.centerX, dy = cy - p.centerY;
    float d = std::sqrt(dx * dx + dy * dy);
    float t = 1.0f - smoothstep(p.radius * (1.0f - p.feather), p.radius, d);
    if (!(t > 0.0f)) return;
    float R = px[0], G = px[1], B = px[2];
    float mx = std::max(G, B);
    float ratio = mx > 0.001f ? R / mx : 1.0f;
    float redness = smoothstep(2.0f, 3.2f, ratio);
    if (!(redness > 0.0f)) return;
    float avg = (G + B) / 2.0f;
    float targetR = std::min(R, avg * 0.9f) * 0.85f;
    px[0] = mix(R, targetR, t * redness);
    px[1] = mix(G, G * 0.88f, t * redness * 0.4f);
    px[2] = mix(B, B * 0.88f, t * redness * 0.4f);
  });
}

void denoise(const DenoiseParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* blur, float, float) {
    float edge = length3(px[0] - blur[0], px[1] - blur[1], px[2] - blur[2]);
    float w = 1.0f - smoothstep(0.06f, 0.30f, edge);
    for (int k = 0; k < 3; ++k) px[k] = clamp01(mix(px[k], blur[k], p.amount * w));
  });
}

void luminanceRangeMask(const LuminanceRangeMaskParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float l = px[0];
    float aLo, aHi;
    if (p.ramp > 0.0001f) {
      aLo = clamp01((l - p.low) / p.ramp);
      aHi = clamp01((p.high - l) / p.ramp);
    } else {
      aLo = l >= p.low ? 1.0f : 0.0f;
      aHi = l <= p.high ? 1.0f : 0.0f;
    }
    float a = std::min(aLo, aHi);
    px[0] = px[1] = px[2] = a;
    px[3] = 1.0f;
  });
}

void chromaDenoise(const ChromaDenoiseParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* blur, float, float) {
    float l = luma(px[0], px[1], px[2]);
    float lb = luma(blur[0], blur[1], blur[2]);
    for (int k = 0; k < 3; ++k) px[k] = clamp01(l + mix(px[k] - l, blur[k] - lb, p.amount));
  });
}

void defringe(const DefringeParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* blur, float, float) {
    float R = px[0], G = px[1], B = px[2];
    float mn = std::min({R, G, B}), mx = std::max({R, G, B});
    float sat = mx > 0.001f ? (mx - mn) / mx : 0.0f;
    float magenta = std::min(R, B) - G;
    float edge = length3(R - blur[0], G - blur[1], B - blur[2]);
    float w = smoothstep(0.04f, 0.25f, magenta) * smoothstep(0.25f, 0.65f, sat) *
              smoothstep(0.03f, 0.20f, edge) * p.amount;
    px[0] = clamp01(mix(R, std::min(R, blur[1]), w));
    px[1] = clamp01(G);
    px[2] = clamp01(mix(B, std::min(B, blur[1]), w));
  });
}

void monochrome(const MonochromePrepared& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float l = clamp01(px[0]) * p.wr + clamp01(px[1]) * p.wg + clamp01(px[2]) * p.wb;
    px[0] = px[1] = px[2] = clamp01(l);
  });
}

void colorRangeMask(const ColorRangeMaskParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float*, float, float) {
    float d = length3(px[0] - p.targetR, px[1] - p.targetG, px[2] - p.targetB);
    float f = std::max(p.feather, 0.0001f);
    float a = 1.0f - smoothstep(p.tolerance, p.tolerance + f, d);
    px[0] = px[1] = px[2] = a;
    px[3] = 1.0f;
  });
}

void sharpenBlend(const SharpenBlendParams& p, const KernelRow& row) {
  forPixels(row, [&](float* px, const float* blur, float, float) {
    float e = length3(px[0] - blur[0], px[1] - blur[1], px[2] - blur[2]);
    float w = smoothstep(p.lo, p.hi, e);
    for (int k = 0; k < 3; ++k) {
      float s = clamp01(px[k] + (px[k] - blur[k]) * p.amount);
      px[k] = mix(px[k], s, w);
    }
  });
}

}  // namespace reference
}  // namespace vg::kernels
