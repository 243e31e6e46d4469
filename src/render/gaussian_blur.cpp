#include "render/gaussian_blur.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "render/parallel.h"

namespace vg {

namespace {

constexpr float kRecursiveFrom = 3.0f;  // sigma from which the recursive filter is used
constexpr int kStrip = 16;              // columns per vertical-pass strip (64 floats)

// ---------------------------------------------------------------- filters

struct DirectFilter {
  int radius = 0;
  std::vector<float> weights;  // 2 radius + 1, sum 1

  explicit DirectFilter(float sigma) {
    radius = std::max(1, int(std::ceil(3.0f * sigma)));
    std::vector<double> w(size_t(2 * radius + 1));
    double sum = 0;
    for (int k = -radius; k <= radius; ++k) {
      w[size_t(k + radius)] = std::exp(-double(k) * k / (2.0 * double(sigma) * sigma));
      sum += w[size_t(k + radius)];
    }
    for (double v : w) weights.push_back(float(v / sum));
  }
  int context() const { return radius; }
};

// Deriche's fourth-order fit of the Gaussian: for x >= 0,
// h(x) = Σ α_k exp(-λ_k x/σ) over two complex-conjugate pairs.
struct RecursiveFilter {
  double a[5] = {1, 0, 0, 0, 0};  // denominator 1 + a1 z^-1 + ... + a4 z^-4
  double b[4] = {};               // causal numerator b0 ... b3
  double bb[5] = {};              // anti-causal numerator b'1 ... b'4 (index 1...4)
  double causalGain = 0, anticausalGain = 0;  // steady-state output per unit constant input
  int ctx = 0;

  explicit RecursiveFilter(float sigmaF) {
    using C = std::complex<double>;
    const double sigma = sigmaF;
    const C alpha[4] = {{0.84, 1.8675}, {0.84, -1.8675}, {-0.34015, -0.1299}, {-0.34015, 0.1299}};
    const C lambda[4] = {{1.783, 0.6318}, {1.783, -0.6318}, {1.723, 1.997}, {1.723, -1.997}};
    C r[4];
    for (int k = 0; k < 4; ++k) r[k] = std::exp(-lambda[k] / sigma);
    auto mul = [](const std::vector<C>& p, C root) {  // p(z) × (1 - root z^-1)
      std::vector<C> out(p.size() + 1, C(0));
      for (size_t i = 0; i < p.size(); ++i) {
        out[i] += p[i];
        out[i + 1] -= root * p[i];
      }
      return out;
    };
    std::vector<C> den{C(1)};
    for (int k = 0; k < 4; ++k) den = mul(den, r[k]);
    std::vector<C> num(4, C(0)), anum(5, C(0));
    for (int k = 0; k < 4; ++k) {
      std::vector<C> p{C(1)};
      for (int j = 0; j < 4; ++j)
        if (j != k) p = mul(p, r[j]);
      for (int i = 0; i < 4; ++i) {
        num[size_t(i)] += alpha[k] * p[size_t(i)];
        anum[size_t(i) + 1] += alpha[k] * r[k] * p[size_t(i)];
      }
    }
    double sumA = 1, sumB = 0, sumBB = 0;
    for (int i = 1; i <= 4; ++i) sumA += a[i] = den[size_t(i)].real();
    for (int i = 0; i < 4; ++i) sumB += b[i] = num[size_t(i)].real();
    for (int i = 1; i <= 4; ++i) sumBB += bb[i] = anum[size_t(i)].real();
    // Normalise the whole response to unit gain.
    const double gain = (sumB + sumBB) / sumA;
    for (double& v : b) v /= gain;
    for (double& v : bb) v /= gain;
    causalGain = (sumB / gain) / sumA;
    anticausalGain = (sumBB / gain) / sumA;
    ctx = int(std::ceil(10.0 * sigma)) + 4;
  }
  int context() const { return ctx; }
};

// ---------------------------------------------------------------- one line
//
// A line is a run of positions, each `lanes` floats (4 for a pixel in the
// horizontal pass, kStrip pixels in the vertical one). fetch(p) returns the
// lanes at source position p, which must lie in [s0, s1); positions outside
// are clamped to it. The output positions [o0, o1) are written through
// put(p) (a float pointer per position).

struct Scratch {
  std::vector<float> in;
  std::vector<double> causal, state;
};

template <class Fetch, class Put>
void directLine(const DirectFilter& f, int lanes, int s0, int s1, int o0, int o1, Fetch fetch, Put put,
                Scratch& s) {
  const int R = f.radius;
  const int e0 = o0 - R, len = (o1 + R) - e0;
  s.in.resize(size_t(len) * size_t(lanes));
  for (int i = 0; i < len; ++i) {
    int p = std::clamp(e0 + i, s0, s1 - 1);
    std::memcpy(&s.in[size_t(i) * size_t(lanes)], fetch(p), size_t(lanes) * sizeof(float));
  }
  const float* w = f.weights.data();
  const int taps = 2 * R + 1;
  for (int o = o0; o < o1; ++o) {
    float* dst = put(o);
    const float* src = &s.in[size_t(o - o0) * size_t(lanes)];
    for (int l = 0; l < lanes; ++l) dst[l] = 0.0f;
    for (int k = 0; k < taps; ++k) {
      const float wk = w[k];
      const float* sk = src + size_t(k) * size_t(lanes);
      for (int l = 0; l < lanes; ++l) dst[l] += wk * sk[l];
    }
  }
}

template <class Fetch, class Put>
void recursiveLine(const RecursiveFilter& f, int lanes, int s0, int s1, int o0, int o1, Fetch fetch, Put put,
                   Scratch& s) {
  const int M = f.context();
  // The positions filtered: the output range, widened by the context but only
  // as far as the source goes (beyond it the steady-state start is exact).
  const int e0 = std::min(o0, std::max(s0, o0 - M));
  const int e1 = std::max(o1, std::min(s1, o1 + M));
  const int len = e1 - e0;
  const size_t L = size_t(lanes);
  s.in.resize(size_t(len) * L);
  for (int i = 0; i < len; ++i) {
    int p = std::clamp(e0 + i, s0, s1 - 1);
    std::memcpy(&s.in[size_t(i) * L], fetch(p), L * sizeof(float));
  }
  s.causal.assign(size_t(len) * L, 0.0);
  s.state.assign(8 * L, 0.0);  // x[-1..-3] | y[-1..-4] rolling, per lane
  const float* x = s.in.data();
  double* yc = s.causal.data();
  // Causal: y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + b3 x[n-3] - a1 y[n-1] - ... - a4 y[n-4]
  for (size_t l = 0; l < L; ++l) {
    const double x0 = x[l];
    double xm1 = x0, xm2 = x0, xm3 = x0;
    double y0 = x0 * f.causalGain, ym1 = y0, ym2 = y0, ym3 = y0, ym4 = y0;
    for (int n = 0; n < len; ++n) {
      const double xn = x[size_t(n) * L + l];
      y0 = f.b[0] * xn + f.b[1] * xm1 + f.b[2] * xm2 + f.b[3] * xm3 - f.a[1] * ym1 - f.a[2] * ym2 - f.a[3] * ym3 -
           f.a[4] * ym4;
      yc[size_t(n) * L + l] = y0;
      xm3 = xm2;
      xm2 = xm1;
      xm1 = xn;
      ym4 = ym3;
      ym3 = ym2;
      ym2 = ym1;
      ym1 = y0;
    }
  }
  // Anti-causal: y[n] = b'1 x[n+1] + ... + b'4 x[n+4] - a1 y[n+1] - ... - a4 y[n+4]; output = sum.
  for (size_t l = 0; l < L; ++l) {
    const double xe = x[size_t(len - 1) * L + l];
    double xp1 = xe, xp2 = xe, xp3 = xe, xp4 = xe;
    double y0, yp1 = xe * f.anticausalGain, yp2 = yp1, yp3 = yp1, yp4 = yp1;
    for (int n = len - 1; n >= 0; --n) {
      y0 = f.bb[1] * xp1 + f.bb[2] * xp2 + f.bb[3] * xp3 + f.bb[4] * xp4 - f.a[1] * yp1 - f.a[2] * yp2 -
           f.a[3] * yp3 - f.a[4] * yp4;
      const int pos = e0 + n;
      if (pos >= o0 && pos < o1) put(pos)[l] = float(yc[size_t(n) * L + l] + y0);
      xp4 = xp3;
      xp3 = xp2;
      xp2 = xp1;
      xp1 = x[size_t(n) * L + l];
      yp4 = yp3;
      yp3 = yp2;
      yp2 = yp1;
      yp1 = y0;
    }
  }
}

template <class Filter>
Image separable(const Filter& f, const Image& src, const Rect& out) {
  const Rect sb = src.bounds();
  const int M = f.context();
  // Source rows the vertical pass reads (the clamped ones included once).
  const int hy0 = std::clamp(out.y - M, sb.y, sb.bottom() - 1);
  const int hy1 = std::clamp(out.bottom() - 1 + M, sb.y, sb.bottom() - 1) + 1;
  Image h(Rect{out.x, hy0, out.width, hy1 - hy0});
  parallelRows(h.bounds(), 4, [&](int y0, int y1) {
    Scratch s;
    for (int y = y0; y < y1; ++y) {
      const float* row = src.row(y);
      float* dst = h.row(y);
      auto fetch = [&](int p) { return row + size_t(p - sb.x) * 4; };
      auto put = [&](int p) { return dst + size_t(p - out.x) * 4; };
      if constexpr (std::is_same_v<Filter, DirectFilter>) {
        directLine(f, 4, sb.x, sb.right(), out.x, out.right(), fetch, put, s);
      } else {
        recursiveLine(f, 4, sb.x, sb.right(), out.x, out.right(), fetch, put, s);
      }
    }
  });
  Image result(out);
  const int strips = (out.width + kStrip - 1) / kStrip;
  parallelFor(0, strips, 1, [&](int i0, int i1) {
    Scratch s;
    std::vector<float> tail(size_t(kStrip) * 4);
    for (int i = i0; i < i1; ++i) {
      const int x0 = out.x + i * kStrip;
      const int w = std::min(kStrip, out.right() - x0);
      const int lanes = w * 4;
      auto fetch = [&](int p) { return h.at(x0, p); };
      auto put = [&](int p) { return result.at(x0, p); };
      if constexpr (std::is_same_v<Filter, DirectFilter>) {
        directLine(f, lanes, sb.y, sb.bottom(), out.y, out.bottom(), fetch, put, s);
      } else {
        recursiveLine(f, lanes, sb.y, sb.bottom(), out.y, out.bottom(), fetch, put, s);
      }
    }
  });
  return result;
}

}  // namespace

Image gaussianBlur(const Image& src, float sigma, const Rect& out) {
  if (out.empty()) return Image(Rect{out.x, out.y, 0, 0});
  if (src.empty()) return Image(out);
  if (!(sigma > 0.0f) || !std::isfinite(sigma)) {
    Image copy(out);
    const Rect sb = src.bounds();
    parallelRows(out, 16, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        const int sy = std::clamp(y, sb.y, sb.bottom() - 1);
        for (int x = out.x; x < out.right(); ++x) {
          std::memcpy(copy.at(x, y), src.at(std::clamp(x, sb.x, sb.right() - 1), sy), 4 * sizeof(float));
        }
      }
    });
    return copy;
  }
  if (sigma < kRecursiveFrom) return separable(DirectFilter(sigma), src, out);
  return separable(RecursiveFilter(sigma), src, out);
}

Image unsharpMask(const Image& src, float radius, float intensity) {
  Image out = gaussianBlur(src, radius);
  const Rect b = src.bounds();
  parallelRows(b, 16, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const float* c = src.row(y);
      float* o = out.row(y);
      for (int i = 0; i < b.width * 4; ++i) {
        o[i] = (i % 4 == 3) ? c[i] : c[i] + (c[i] - o[i]) * intensity;
      }
    }
  });
  return out;
}

}  // namespace vg
