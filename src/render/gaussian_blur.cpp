#include "render/gaussian_blur.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <memory>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "render/blur_simd.h"
#include "render/parallel.h"

namespace vg {

namespace {

constexpr float kMaxDirectSigma = 8.0f;  // beyond it the recursive filter is used
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
  int taps() const { return 2 * radius + 1; }
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

// ---------------------------------------------------------------- streamed direct blur

// Rows of floats, `channels` per pixel: an Image (4) or a GreyImage (1).
struct Plane {
  const float* data;
  size_t stride;  // floats from one row to the next
  Rect bounds;
  int channels;
  const float* row(int y) const { return data + size_t(y - bounds.y) * stride; }
};

// The horizontal sums of n floats of a line of C-float pixels starting
// R pixels before the first output (the same arithmetic wherever the line
// comes from, so the edge and interior paths agree bit for bit).
void convolveLine(const DirectFilter& f, const float* line, int C, float* out, size_t n) {
  blur::convolveLine(line, f.weights.data(), f.taps(), C, out, n);
}

// Horizontal pass over `count` output pixels from column x0 of source row
// `row`, through a padded copy with the clamped columns around them.
void convolveClamped(const DirectFilter& f, const float* row, const Rect& sb, int C, int x0, int count,
                     std::vector<float>& line, float* dst) {
  const int R = f.radius;
  const int first = x0 - R, len = count + 2 * R;
  const size_t px = size_t(C) * sizeof(float);
  // The last tap reads a whole number of blocks from 2R pixels in.
  line.resize(size_t(2 * R) * size_t(C) + blur::paddedFloats(size_t(count) * size_t(C)));
  // Columns left of the source repeat its first pixel, right of it its last.
  const int inside0 = std::clamp(sb.x, first, first + len), inside1 = std::clamp(sb.right(), first, first + len);
  for (int p = first; p < inside0; ++p) std::memcpy(&line[size_t(p - first) * size_t(C)], row, px);
  if (inside1 > inside0) {
    std::memcpy(&line[size_t(inside0 - first) * size_t(C)], row + size_t(inside0 - sb.x) * size_t(C),
                size_t(inside1 - inside0) * px);
  }
  const float* last = row + size_t(sb.width - 1) * size_t(C);
  for (int p = std::max(inside1, first); p < first + len; ++p) {
    std::memcpy(&line[size_t(p - first) * size_t(C)], p < sb.x ? row : last, px);
  }
  // Summed aside: the sum writes whole blocks, which must not spill into dst.
  thread_local std::vector<float> sum;
  sum.resize(blur::paddedFloats(size_t(count) * size_t(C)));
  convolveLine(f, line.data(), C, sum.data(), size_t(count) * size_t(C));
  std::memcpy(dst, sum.data(), size_t(count) * px);
}

// One horizontal pass of the direct filter: source row sy into dst,
// out.width pixels from column out.x. Pixels whose taps all lie inside the
// source are summed straight from it, in whole blocks (so no read passes the
// row's end); the others, near the edges, through a clamped copy.
void horizontalRow(const DirectFilter& f, const Plane& src, int sy, const Rect& out, std::vector<float>& line,
                   float* dst) {
  const Rect sb = src.bounds;
  const int R = f.radius, C = src.channels;
  const float* row = src.row(sy);
  const int i0 = std::clamp(sb.x + R - out.x, 0, out.width);
  const int i1 = std::clamp(sb.right() - R - out.x, i0, out.width);
  const int block = int(blur::kRowPadFloats) / C;  // pixels per whole block
  const int interior = (i1 - i0) / block * block;
  if (i0 > 0) convolveClamped(f, row, sb, C, out.x, i0, line, dst);
  if (interior > 0) {
    const float* base = row + size_t(out.x + i0 - R - sb.x) * size_t(C);
    convolveLine(f, base, C, dst + size_t(i0) * size_t(C), size_t(interior) * size_t(C));
  }
  const int rest = i0 + interior;
  if (rest < out.width) {
    convolveClamped(f, row, sb, C, out.x + rest, out.width - rest, line, dst + size_t(rest) * size_t(C));
  }
}

// Scratch rows starting on 64-byte boundaries (rows are whole blocks of 16
// floats, so every row of the buffer is aligned): vector loads of them never
// straddle two cache lines.
// The buffers are recycled per thread: a render makes dozens of them, a
// few megabytes each, and fresh ones would cost page faults every time.
class AlignedRows {
 public:
  AlignedRows(size_t rowFloats, size_t rows) : rowFloats_(rowFloats) {
    const size_t floats = rowFloats * rows + 16;
    std::vector<std::vector<float>>& pool = spare();
    auto fit = std::find_if(pool.begin(), pool.end(), [&](const auto& v) { return v.capacity() >= floats; });
    if (fit != pool.end()) {
      storage_ = std::move(*fit);
      pool.erase(fit);
    }
    if (storage_.size() < floats) storage_.resize(floats);
    const auto address = reinterpret_cast<uintptr_t>(storage_.data());
    base_ = storage_.data() + ((64 - address % 64) % 64) / sizeof(float);
  }
  ~AlignedRows() {
    std::vector<std::vector<float>>& pool = spare();
    size_t kept = storage_.capacity();
    for (const auto& v : pool) kept += v.capacity();
    if (storage_.capacity() > 0 && kept * sizeof(float) <= kSpareBytes) pool.push_back(std::move(storage_));
  }
  AlignedRows(AlignedRows&&) noexcept = default;
  AlignedRows(const AlignedRows&) = delete;
  AlignedRows& operator=(const AlignedRows&) = delete;

  float* row(size_t i) { return base_ + i * rowFloats_; }
  const float* row(size_t i) const { return base_ + i * rowFloats_; }

 private:
  static constexpr size_t kSpareBytes = size_t(48) << 20;  // kept per thread at most
  static std::vector<std::vector<float>>& spare() {
    thread_local std::vector<std::vector<float>> pool;
    return pool;
  }
  std::vector<float> storage_;
  size_t rowFloats_;
  float* base_;
};

// Bands of output rows [y0, y1), each computing its own horizontal rows.
// The rows a band's vertical taps need from beyond its edges are taken
// (horizontally blurred) before any band starts writing, so a consumer may
// overwrite its own row in place.
void streamDirect(const DirectFilter& f, const Plane& src, const Rect& out, const BlurRowConsumer& consume) {
  const Rect sb = src.bounds;
  const int R = f.radius, T = f.taps();
  const size_t rowFloats = blur::paddedFloats(size_t(out.width) * size_t(src.channels));
  auto sourceRow = [&](int y) { return std::clamp(y, sb.y, sb.bottom() - 1); };

  const int minRows = std::max(32, 8 * R);
  const int bands = std::clamp(out.height / minRows, 1, 4 * parallelism());
  auto bandStart = [&](int b) { return out.y + int(int64_t(out.height) * b / bands); };

  // Phase 1: the R rows above and below every band.
  std::vector<AlignedRows> edges;
  edges.reserve(size_t(bands));
  for (int b = 0; b < bands; ++b) edges.emplace_back(rowFloats, size_t(2 * R));
  parallelFor(0, bands, 1, [&](int b0, int b1) {
    std::vector<float> line;
    for (int b = b0; b < b1; ++b) {
      const int y0 = bandStart(b), y1 = bandStart(b + 1);
      AlignedRows& e = edges[size_t(b)];
      for (int i = 0; i < R; ++i) {
        horizontalRow(f, src, sourceRow(y0 - R + i), out, line, e.row(size_t(i)));
        horizontalRow(f, src, sourceRow(y1 + i), out, line, e.row(size_t(R + i)));
      }
    }
  });

  // Phase 2: each band slides a ring of T + J - 1 horizontal rows down its
  // rows and makes its output rows J at a time (they share their taps).
  constexpr int J = blur::kMaxSumRows;
  parallelFor(0, bands, 1, [&](int b0, int b1) {
    const size_t S = size_t(T + J - 1);
    std::vector<float> line;
    AlignedRows ring(rowFloats, S), result(rowFloats, J);
    float* results[J];
    for (int j = 0; j < J; ++j) results[j] = result.row(size_t(j));
    std::vector<const float*> slot(S), taps(S);
    const size_t n = size_t(out.width) * size_t(src.channels);
    for (int b = b0; b < b1; ++b) {
      const int y0 = bandStart(b), y1 = bandStart(b + 1);
      const AlignedRows& e = edges[size_t(b)];
      int next = y0;  // the first output row not made yet
      for (int yy = y0 - R; yy < y1 + R; ++yy) {
        const size_t s = size_t(yy - (y0 - R)) % S;
        if (yy < y0) {
          slot[s] = e.row(size_t(yy - (y0 - R)));
        } else if (yy >= y1) {
          slot[s] = e.row(size_t(R + yy - y1));
        } else {
          float* dst = ring.row(s);
          horizontalRow(f, src, sourceRow(yy), out, line, dst);
          slot[s] = dst;
        }
        const int y = yy - R;  // the newest output row whose taps are all present
        const int count = y - next + 1;
        if (count < J && !(count > 0 && y == y1 - 1)) continue;
        // The horizontal rows next - R ... y + R are all in the ring.
        for (int k = 0; k < T + count - 1; ++k) taps[size_t(k)] = slot[size_t(next - y0 + k) % S];
        blur::symmetricSumRows(taps.data(), f.weights.data(), T, results, count, n);
        for (int j = 0; j < count; ++j) consume(next + j, results[j]);
        next = y + 1;
      }
    }
  });
}

// ---------------------------------------------------------------- chained passes
//
// One engine per pass and band: it takes the pass's input rows in ascending
// order, and their horizontal blurs in a ring; as soon as the taps of a group
// of output rows are all there it makes them (up to kMaxSumRows at a time,
// which share their taps), applies the pass to the input rows in place and
// hands them on: to the next pass, or, for the last, to the image. The
// engines pass pointers: a band's own rows are the image's, the rows around
// it copies in one ring of the band's, long enough that a row is still there
// when the last pass is done with it.

class PassEngine {
 public:
  using Emit = std::function<void(int y, float* row)>;

  // Output rows [o0, o1) (within the image), from input rows of the image
  // clamped to sb.
  PassEngine(const DirectFilter& f, const std::function<void(float*, const float*, int)>& apply, const Rect& sb,
             int o0, int o1, Emit emit)
      : f_(f), apply_(apply), sb_(sb), o0_(o0), o1_(o1), emit_(std::move(emit)),
        hSlots_(size_t(f.taps() + blur::kMaxSumRows)), inputs_(size_t(f.radius + blur::kMaxSumRows + 1)),
        horizontal_(blur::paddedFloats(size_t(sb.width) * 4), hSlots_),
        result_(blur::paddedFloats(size_t(sb.width) * 4), blur::kMaxSumRows), next_(o0) {}

  // Rows of lag between an engine's input and its output at most.
  static int lag(const DirectFilter& f) { return f.radius + blur::kMaxSumRows; }

  // The first input row needed, and one past the last (clamped to the image).
  int firstInput() const { return std::max(sb_.y, o0_ - f_.radius); }
  int endInput() const { return std::min(sb_.bottom(), o1_ + f_.radius); }

  // Input row y (the rows from firstInput() on, in order).
  void push(int y, float* row) {
    inputs_[size_t(y) % inputs_.size()] = row;
    const Plane plane{row, 0, Rect{sb_.x, y, sb_.width, 1}, 4};
    horizontalRow(f_, plane, y, sb_, line_, horizontal_.row(size_t(y) % hSlots_));
    // Beyond the last input row the image's edge row repeats, so every
    // output is ready once it has come.
    const bool last = y == endInput() - 1;
    const int ready = last ? o1_ - 1 : y - f_.radius;
    while (ready - next_ + 1 >= blur::kMaxSumRows || (last && next_ <= ready)) {
      make(std::min(blur::kMaxSumRows, ready - next_ + 1));
    }
  }

 private:
  const float* hRow(int r) const {
    return horizontal_.row(size_t(std::clamp(r, sb_.y, sb_.bottom() - 1)) % hSlots_);
  }
  void make(int count) {
    const int R = f_.radius, T = f_.taps();
    const float* taps[64 + blur::kMaxSumRows];
    for (int k = 0; k < T + count - 1; ++k) taps[k] = hRow(next_ - R + k);
    float* results[blur::kMaxSumRows];
    for (int j = 0; j < count; ++j) results[j] = result_.row(size_t(j));
    blur::symmetricSumRows(taps, f_.weights.data(), T, results, count, size_t(sb_.width) * 4);
    for (int j = 0; j < count; ++j) {
      const int y = next_ + j;
      float* row = inputs_[size_t(y) % inputs_.size()];
      apply_(row, results[j], y);
      emit_(y, row);
    }
    next_ += count;
  }

  const DirectFilter& f_;
  const std::function<void(float*, const float*, int)>& apply_;
  Rect sb_;
  int o0_, o1_;
  Emit emit_;
  size_t hSlots_;
  std::vector<float*> inputs_;
  AlignedRows horizontal_, result_;
  std::vector<float> line_;
  int next_;
};

Plane planeOf(const Image& image) { return {image.row(image.bounds().y), image.strideFloats(), image.bounds(), 4}; }

Image separable(const RecursiveFilter& f, const Image& src, const Rect& out) {
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
      recursiveLine(f, 4, sb.x, sb.right(), out.x, out.right(), fetch, put, s);
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
      recursiveLine(f, lanes, sb.y, sb.bottom(), out.y, out.bottom(), fetch, put, s);
    }
  });
  return result;
}

}  // namespace

namespace {

// Whole-image blur for the paths that are not streamed: no blur (a clamped
// copy) and the recursive filter.
Image blurWhole(const Image& src, float sigma, const Rect& out) {
  if (!(sigma > 0.0f) || !std::isfinite(sigma)) {
    Image copy = Image::uninitialized(out);
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
  return separable(RecursiveFilter(sigma), src, out);
}

bool streamed(float sigma) { return sigma > 0.0f && sigma <= kMaxDirectSigma; }

}  // namespace

int gaussianBlurReach(float sigma) {
  if (!(sigma > 0.0f) || !std::isfinite(sigma)) return 0;
  return int(std::ceil(sigma <= kMaxDirectSigma ? 3.0f * sigma : 5.0f * sigma)) + 1;
}

bool gaussianBlurStreams(float sigma) { return streamed(sigma) || !(sigma > 0.0f) || !std::isfinite(sigma); }

void gaussianBlurRows(const Image& src, float sigma, const Rect& out, const BlurRowConsumer& consume) {
  if (out.empty()) return;
  if (src.empty()) {
    std::vector<float> zero(size_t(out.width) * 4, 0.0f);
    parallelRows(out, 16, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) consume(y, zero.data());
    });
    return;
  }
  if (streamed(sigma)) {
    streamDirect(DirectFilter(sigma), planeOf(src), out, consume);
    return;
  }
  const Image whole = blurWhole(src, sigma, out);
  parallelRows(out, 8, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) consume(y, whole.row(y));
  });
}

void gaussianBlurGreyRows(const GreyRows& src, float sigma, const Rect& out, const BlurRowConsumer& consume) {
  if (out.empty()) return;
  if (!gaussianBlurStreams(sigma)) throw std::invalid_argument("gaussianBlurGreyRows: sigma too large to stream");
  const Rect sb = src.bounds;
  if (sb.empty() || !streamed(sigma)) {
    // No blur (or an empty source): the clamped values themselves.
    parallelRows(out, 16, [&](int y0, int y1) {
      std::vector<float> row(size_t(out.width), 0.0f);
      for (int y = y0; y < y1; ++y) {
        if (!sb.empty()) {
          const float* s = src.row(std::clamp(y, sb.y, sb.bottom() - 1));
          for (int x = out.x; x < out.right(); ++x) row[size_t(x - out.x)] = s[std::clamp(x, sb.x, sb.right() - 1) - sb.x];
        }
        consume(y, row.data());
      }
    });
    return;
  }
  streamDirect(DirectFilter(sigma), Plane{src.data, src.stride, sb, 1}, out, consume);
}

void gaussianBlurChain(const Image& from, Image& image, const std::vector<BlurPass>& passes,
                       const std::function<RowPrepare()>& prepare) {
  const Rect sb = image.bounds();
  if (sb.empty() || passes.empty()) return;
  if (from.bounds() != sb) throw std::invalid_argument("gaussianBlurChain: images of different bounds");
  const size_t K = passes.size();
  std::vector<DirectFilter> filters;
  filters.reserve(K);
  for (const BlurPass& p : passes) {
    if (!streamed(p.sigma)) throw std::invalid_argument("gaussianBlurChain: a sigma that does not stream");
    filters.emplace_back(p.sigma);
  }
  // Pass k makes the rows of a band and, around them, the halo the passes
  // after it need: H[k] rows on each side.
  std::vector<int> H(K, 0);
  for (size_t k = K - 1; k-- > 0;) H[k] = H[k + 1] + filters[k + 1].radius;
  const int reach = H[0] + filters[0].radius;  // rows of input each band reads beyond itself

  // One band per thread: each band also makes the halo of the passes after
  // its first, and the point stages over it, so more bands cost more.
  const int bands = std::clamp(sb.height / std::max(64, 8 * reach), 1, parallelism());
  auto bandStart = [&](int b) { return sb.y + int(int64_t(sb.height) * b / bands); };
  const size_t rowBytes = size_t(sb.width) * 4 * sizeof(float);
  const bool inPlace = &from == &image;

  // In place, the input rows a band reads beyond itself are taken before any
  // band writes its own.
  // Per band: the rows [y0 - reach, y0) and [y1, y1 + reach), clamped to the image.
  const size_t rowFloats = blur::paddedFloats(size_t(sb.width) * 4);
  std::vector<AlignedRows> above, below;
  if (inPlace) {
    for (int b = 0; b < bands; ++b) {
      above.emplace_back(rowFloats, size_t(reach));
      below.emplace_back(rowFloats, size_t(reach));
    }
    parallelFor(0, bands, 1, [&](int b0, int b1) {
      for (int b = b0; b < b1; ++b) {
        const int y0 = bandStart(b), y1 = bandStart(b + 1);
        for (int y = std::max(sb.y, y0 - reach); y < y0; ++y)
          std::memcpy(above[size_t(b)].row(size_t(y - (y0 - reach))), from.row(y), rowBytes);
        for (int y = y1; y < std::min(sb.bottom(), y1 + reach); ++y)
          std::memcpy(below[size_t(b)].row(size_t(y - y1)), from.row(y), rowBytes);
      }
    });
  }

  parallelFor(0, bands, 1, [&](int b0, int b1) {
    for (int b = b0; b < b1; ++b) {
      const int y0 = bandStart(b), y1 = bandStart(b + 1);
      std::vector<std::unique_ptr<PassEngine>> engines(K);
      int lag = 2;
      for (size_t k = K; k-- > 0;) {
        lag += PassEngine::lag(filters[k]);
        PassEngine::Emit emit;
        if (k + 1 == K) {
          emit = [&](int y, float* row) {
            if (row != image.row(y)) std::memcpy(image.row(y), row, rowBytes);
          };
        } else {
          emit = [next = engines[k + 1].get()](int y, float* row) { next->push(y, row); };
        }
        engines[k] = std::make_unique<PassEngine>(filters[k], passes[k].apply, sb, std::max(sb.y, y0 - H[k]),
                                                  std::min(sb.bottom(), y1 + H[k]), std::move(emit));
      }
      // The band's own rows go through the passes in the image's rows, where
      // the last pass leaves them; the rows around it, which the band only
      // reads, in a ring of copies that lasts until the last pass is done
      // with them.
      AlignedRows rows(rowFloats, size_t(lag));
      const RowPrepare prepared = prepare ? prepare() : RowPrepare{};
      PassEngine& first = *engines[0];
      for (int y = first.firstInput(); y < first.endInput(); ++y) {
        float* row = image.row(y);
        if (y < y0 || y >= y1) {
          row = rows.row(size_t(y) % size_t(lag));
          std::memcpy(row, !inPlace ? from.row(y)
                           : y < y0 ? above[size_t(b)].row(size_t(y - (y0 - reach)))
                                    : below[size_t(b)].row(size_t(y - y1)),
                      rowBytes);
        } else if (!inPlace) {
          std::memcpy(row, from.row(y), rowBytes);
        }
        if (prepared) prepared(row, y);
        first.push(y, row);
      }
    }
  });
}

Image gaussianBlur(const Image& src, float sigma, const Rect& out) {
  if (out.empty()) return Image(Rect{out.x, out.y, 0, 0});
  if (src.empty()) return Image(out);
  if (!streamed(sigma)) return blurWhole(src, sigma, out);
  Image result = Image::uninitialized(out);
  streamDirect(DirectFilter(sigma), planeOf(src), out, [&](int y, const float* row) {
    std::memcpy(result.row(y), row, size_t(out.width) * 4 * sizeof(float));
  });
  return result;
}

void unsharpRow(const float* c, const float* blurred, float* out, int n, float intensity) {
  for (int i = 0; i < n; ++i, c += 4, blurred += 4, out += 4) {
    const float a = c[3];
    for (int k = 0; k < 3; ++k) out[k] = c[k] + (c[k] - blurred[k]) * intensity;
    out[3] = a;
  }
}

Image unsharpMask(const Image& src, float radius, float intensity) {
  const Rect b = src.bounds();
  Image out = Image::uninitialized(b);
  gaussianBlurRows(src, radius, b, [&](int y, const float* blurred) {
    unsharpRow(src.row(y), blurred, out.row(y), b.width, intensity);
  });
  return out;
}

}  // namespace vg
