#include "render/reduced_lowpass.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "render/gaussian_blur.h"
#include "render/parallel.h"
#include "render/row_clones.h"

namespace vg {
namespace {

// Area weights of the full-size columns (or rows) [lo, hi) that make up
// each of `count` cells from cell `firstCell`; cell c spans
// [origin + c cell, origin + (c + 1) cell).
struct Span {
  int first = 0;
  std::vector<float> w;
};

std::vector<Span> cellSpans(int count, int firstCell, int origin, double cell, int lo, int hi) {
  std::vector<Span> out(static_cast<size_t>(count));
  for (int c = 0; c < count; ++c) {
    double a = std::max<double>(lo, origin + (firstCell + c) * cell);
    double e = std::min<double>(hi, origin + (firstCell + c + 1) * cell);
    Span& sp = out[size_t(c)];
    sp.first = int(std::floor(a));
    double sum = 0;
    for (int p = sp.first; p < e; ++p) {
      double w = std::max(0.0, std::min(e, p + 1.0) - std::max(a, double(p)));
      sp.w.push_back(float(w));
      sum += w;
    }
    for (float& w : sp.w) w = float(w / std::max(sum, 1e-12));
  }
  return out;
}

// acc[i] += w row[i], i < n
VG_ROW_CLONES void accumulate(float* acc, const float* row, float w, size_t n) {
  for (size_t i = 0; i < n; ++i) acc[i] += w * row[i];
}

// acc[i] += w min(r, g, b) of pixel i, i < n
VG_ROW_CLONES void accumulateMinimum(float* acc, const float* row, float w, int n) {
  for (int i = 0; i < n; ++i) {
    const float* p = row + size_t(i) * 4;
    acc[i] += w * std::min(p[0], std::min(p[1], p[2]));
  }
}

// out[i] (C floats) = the cells of `grid` (S floats apart) at c0[i] - first
// and the next one, mixed by tx[i]; i < n.
template <int C, int S>
VG_ROW_CLONES void lerpColumns(const float* grid, const int* c0, const float* tx, float* out, int n) {
  for (int i = 0; i < n; ++i) {
    const float* m0 = grid + size_t(c0[i]) * S;
    for (int k = 0; k < C; ++k) out[size_t(i) * C + size_t(k)] = m0[k] + (m0[S + k] - m0[k]) * tx[i];
  }
}

// out[i] = a[i] + (b[i] - a[i]) t, i < n
VG_ROW_CLONES void lerpRows(const float* a, const float* b, float t, float* out, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = a[i] + (b[i] - a[i]) * t;
}

}  // namespace

int darkChannelFactor(double sigma) { return sigma >= 12 ? 4 : sigma >= 6 ? 2 : 1; }
double darkChannelSigma(double sigma, int f) { return std::sqrt(std::max(0.25, (sigma / f) * (sigma / f) - 1.0 / 6)); }

ReducedLowpass::ReducedLowpass(const Image& image, const Rect& outputRect, double scale, Source source, double sigma)
    : source_(source), outputRect_(outputRect), scale_(scale) {
  const Rect b = image.bounds();
  const double cell = 1.0 / scale;
  auto cellOf = [&](double x, int origin) { return int(std::floor((x - origin) * scale)); };
  Rect small{cellOf(b.x, outputRect.x), cellOf(b.y, outputRect.y), 0, 0};
  small.width = cellOf(b.right() - 1e-9, outputRect.x) + 1 - small.x;
  small.height = cellOf(b.bottom() - 1e-9, outputRect.y) + 1 - small.y;
  bounds_ = small;
  const std::vector<Span> sx = cellSpans(small.width, small.x, outputRect.x, cell, b.x, b.right());
  const std::vector<Span> sy = cellSpans(small.height, small.y, outputRect.y, cell, b.y, b.bottom());
  const bool dark = source == Source::DarkChannel;
  if (dark) {
    dark_ = GreyImage(small);
  } else {
    colour_ = Image::uninitialized(small);
  }

  // Rows first (a cell row is the weighted sum of its source rows, one
  // float per pixel for the dark channel), then the columns of that sum.
  parallelRows(small, 1, [&](int y0, int y1) {
    std::vector<float> acc(size_t(b.width) * (dark ? 1 : 4));
    for (int y = y0; y < y1; ++y) {
      const Span& vy = sy[size_t(y - small.y)];
      std::fill(acc.begin(), acc.end(), 0.0f);
      for (size_t k = 0; k < vy.w.size(); ++k) {
        const float* row = image.row(vy.first + int(k));
        if (dark) {
          accumulateMinimum(acc.data(), row, vy.w[k], b.width);
        } else {
          accumulate(acc.data(), row, vy.w[k], acc.size());
        }
      }
      if (dark) {
        float* dst = dark_.row(y);
        for (int x = 0; x < small.width; ++x) {
          const Span& vx = sx[size_t(x)];
          float v = 0;
          for (size_t k = 0; k < vx.w.size(); ++k) v += vx.w[k] * acc[size_t(vx.first + int(k) - b.x)];
          dst[x] = v;
        }
      } else {
        float* dst = colour_.row(y);
        for (int x = 0; x < small.width; ++x) {
          const Span& vx = sx[size_t(x)];
          float px[4] = {0, 0, 0, 0};
          for (size_t k = 0; k < vx.w.size(); ++k) {
            const float* p = acc.data() + size_t(vx.first + int(k) - b.x) * 4;
            for (int c = 0; c < 4; ++c) px[c] += vx.w[k] * p[c];
          }
          std::copy_n(px, 4, dst + size_t(x) * 4);
        }
      }
    }
  });

  // The blur, in place where it streams.
  if (dark && gaussianBlurStreams(float(sigma))) {
    gaussianBlurGreyRows(GreyRows::of(dark_), float(sigma), small,
                         [&](int y, const float* row) { std::memcpy(dark_.row(y), row, size_t(small.width) * sizeof(float)); });
  } else if (dark) {  // a sigma too wide to stream (render scales above 1): through an RGBA copy
    Image rgba(small);
    for (int y = small.y; y < small.bottom(); ++y)
      for (int x = 0; x < small.width; ++x) rgba.row(y)[size_t(x) * 4] = dark_.row(y)[x];
    rgba = gaussianBlur(rgba, float(sigma));
    for (int y = small.y; y < small.bottom(); ++y)
      for (int x = 0; x < small.width; ++x) dark_.row(y)[x] = rgba.row(y)[size_t(x) * 4];
  } else if (gaussianBlurStreams(float(sigma))) {
    const size_t bytes = size_t(small.width) * 4 * sizeof(float);
    gaussianBlurRows(colour_, float(sigma), small, [&](int y, const float* row) { std::memcpy(colour_.row(y), row, bytes); });
  } else {
    colour_ = gaussianBlur(colour_, float(sigma));
  }
}

void ReducedLowpass::apply(Image& image, const RowFn& kernel, const RowFn& after) const {
  const Rect b = image.bounds();
  const Rect& sb = bounds_;
  const bool dark = source_ == Source::DarkChannel;
  const int C = dark ? 1 : 4;  // floats per wide-row pixel (the colour's alpha comes along as 0)
  // Column taps, the same for every row: output column x lies between grid
  // columns c0 and c0 + 1 (clamped at the grid's edges) at tx.
  std::vector<int> c0(size_t(b.width));
  std::vector<float> tx(size_t(b.width));
  const bool single = sb.width == 1;  // a one-column grid is mixed with itself
  for (int x = b.x; x < b.right(); ++x) {
    const double u = std::clamp((x + 0.5 - outputRect_.x) * scale_ - 0.5, double(sb.x), double(sb.right() - 1));
    const int i = x - b.x;
    c0[size_t(i)] = std::max(0, std::min(int(std::floor(u)), sb.right() - 2) - sb.x);
    tx[size_t(i)] = single ? 0.0f : float(u - (c0[size_t(i)] + sb.x));
  }
  auto rowOf = [&](double v) { return std::clamp(v, double(sb.y), double(sb.bottom() - 1)); };

  // Bands of output rows, each carrying the wide rows of the two grid rows
  // around its current row.
  const int bands = std::clamp(b.height / 32, 1, 4 * parallelism());
  auto bandStart = [&](int i) { return b.y + int(int64_t(b.height) * i / bands); };
  parallelFor(0, bands, 1, [&](int i0, int i1) {
    std::vector<float> aux(size_t(b.width) * size_t(C));
    std::vector<float> wide[2] = {std::vector<float>(size_t(b.width) * size_t(C)), std::vector<float>(size_t(b.width) * size_t(C))};
    std::vector<float> lone(4 * 2, 0.0f);  // a one-column grid's cell, twice
    int held[2] = {sb.y - 1, sb.y - 1};    // the grid row each wide row holds
    auto wideRow = [&](int r) -> const float* {
      for (int s = 0; s < 2; ++s)
        if (held[s] == r) return wide[s].data();
      const int s = held[0] < held[1] ? 0 : 1;  // rows come in ascending order: drop the older
      held[s] = r;
      float* out = wide[s].data();
      const float* cells = dark ? dark_.row(r) : colour_.row(r);
      if (single) {
        for (int k = 0; k < C; ++k) lone[size_t(k)] = lone[size_t(C + k)] = cells[k];
        cells = lone.data();
      }
      if (dark) {
        lerpColumns<1, 1>(cells, c0.data(), tx.data(), out, b.width);
      } else {
        lerpColumns<4, 4>(cells, c0.data(), tx.data(), out, b.width);
      }
      return out;
    };
    for (int band = i0; band < i1; ++band) {
      for (int y = bandStart(band); y < bandStart(band + 1); ++y) {
        const double v = rowOf((y + 0.5 - outputRect_.y) * scale_ - 0.5);
        const int r0 = int(std::floor(v));
        const int r1 = std::min(r0 + 1, sb.bottom() - 1);
        const float ty = float(v - r0);
        const float* a = wideRow(r0);
        const float* e = wideRow(r1);
        lerpRows(a, e, ty, aux.data(), aux.size());
        kernel({image.row(y), aux.data(), b.width, b.x, y});
        if (after) after({image.row(y), nullptr, b.width, b.x, y});
      }
    }
  });
}

}  // namespace vg
