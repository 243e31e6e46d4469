#include "render/reduced_lowpass.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
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

// One grid row's cells from the sum of its source rows, in columns:
// out[x] (C floats) = Σ_k w[k n + x] · acc[first[x] + k] (pixels of C
// floats), k < K ascending. Cells narrower than K columns have weights 0
// at the end (acc has K pixels of zeros past its end for them).
template <int C>
VG_ROW_CLONES void reduceCells(const float* acc, const int* first, const float* w, int K, int n, float* out) {
  std::fill(out, out + size_t(n) * C, 0.0f);
  for (int k = 0; k < K; ++k) {
    const float* wk = w + size_t(k) * size_t(n);
    for (int x = 0; x < n; ++x) {
      const float* p = acc + size_t(first[x] + k) * C;
      for (int c = 0; c < C; ++c) out[size_t(x) * C + c] += wk[x] * p[c];
    }
  }
}

// out[i] = min(r, g, b) of pixel i, i < n
VG_ROW_CLONES void minimumRow(const float* rgba, float* out, int n) {
  for (int i = 0; i < n; ++i) {
    const float* p = rgba + size_t(i) * 4;
    out[i] = std::min(p[0], std::min(p[1], p[2]));
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

// The cell rows' sums while their source rows come in. A cell row sums its
// rows in ascending order: a row that comes before its turn is kept as a copy
// until the rows before it have been summed.
struct ReducedLowpass::Collector {
  struct CellRow {
    std::mutex lock;
    size_t next = 0;                          // the span's next row to sum
    std::vector<float> acc;                   // the sum so far (allocated at the first row)
    std::map<int, std::vector<float>> early;  // rows before their turn, RGBA
  };
  Rect image;
  std::vector<Span> sx, sy;
  // The column spans as reduceCells takes them: each cell's first column
  // (from the image's left edge) and K weights per cell, K rows of them.
  std::vector<int> first;
  std::vector<float> weights;
  int K = 0;
  std::unique_ptr<CellRow[]> cells;
  std::atomic<int> finished{0};
};

ReducedLowpass::ReducedLowpass(const Rect& b, const Rect& outputRect, double scale, Source source, double sigma)
    : source_(source), outputRect_(outputRect), scale_(scale), sigma_(sigma), collector_(std::make_unique<Collector>()) {
  const double cell = 1.0 / scale;
  auto cellOf = [&](double x, int origin) { return int(std::floor((x - origin) * scale)); };
  Rect small{cellOf(b.x, outputRect.x), cellOf(b.y, outputRect.y), 0, 0};
  small.width = cellOf(b.right() - 1e-9, outputRect.x) + 1 - small.x;
  small.height = cellOf(b.bottom() - 1e-9, outputRect.y) + 1 - small.y;
  bounds_ = small;
  image_ = b;
  pixelCells_ = scale == 1.0 && small.width == b.width && small.height == b.height;
  Collector& c = *collector_;
  c.image = b;
  c.sx = cellSpans(small.width, small.x, outputRect.x, cell, b.x, b.right());
  c.sy = cellSpans(small.height, small.y, outputRect.y, cell, b.y, b.bottom());
  for (const Span& span : c.sx) c.K = std::max(c.K, int(span.w.size()));
  c.first.resize(size_t(small.width));
  c.weights.assign(size_t(c.K) * size_t(small.width), 0.0f);
  for (int x = 0; x < small.width; ++x) {
    const Span& span = c.sx[size_t(x)];
    c.first[size_t(x)] = span.first - b.x;
    for (size_t k = 0; k < span.w.size(); ++k) c.weights[k * size_t(small.width) + size_t(x)] = span.w[k];
  }
  c.cells = std::make_unique<Collector::CellRow[]>(size_t(small.height));
  if (source == Source::DarkChannel) {
    dark_ = GreyImage(small);
  } else {
    colour_ = Image::uninitialized(small);
  }
  for (int r = 0; r < small.height; ++r) {
    if (!c.sy[size_t(r)].w.empty()) continue;  // no row of the image in it
    reduceColumns(r, std::vector<float>(size_t(b.width + c.K) * 4, 0.0f).data());
    ++c.finished;
  }
}

ReducedLowpass::ReducedLowpass(const Image& image, const Rect& outputRect, double scale, Source source, double sigma)
    : ReducedLowpass(image.bounds(), outputRect, scale, source, sigma) {
  addAll(image);
}

void ReducedLowpass::addAll(const Image& image) {
  parallelRows(image.bounds(), 8, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) add(y, image.row(y));
  });
  finish();
}

ReducedLowpass::~ReducedLowpass() = default;

void ReducedLowpass::add(int y, const float* rgba) {
  Collector& c = *collector_;
  const int width = c.image.width;
  const bool dark = source_ == Source::DarkChannel;
  if (pixelCells_) {  // the row is its cell row (cells count from the output's origin)
    if (dark) {
      minimumRow(rgba, dark_.row(y - outputRect_.y), width);
    } else {
      std::memcpy(colour_.row(y - outputRect_.y), rgba, size_t(width) * 4 * sizeof(float));
    }
    ++c.finished;
    return;
  }
  // The cell rows whose spans hold row y: at most two neighbours (cells are
  // at least a pixel high).
  const int guess = std::clamp(int(std::floor((y - outputRect_.y) * scale_)) - bounds_.y, 0, bounds_.height - 1);
  for (int r = std::max(0, guess - 1); r <= std::min(bounds_.height - 1, guess + 1); ++r) {
    const Span& span = c.sy[size_t(r)];
    if (y < span.first || y >= span.first + int(span.w.size())) continue;
    Collector::CellRow& cell = c.cells[size_t(r)];
    std::lock_guard<std::mutex> hold(cell.lock);
    if (y != span.first + int(cell.next)) {
      cell.early.emplace(y, std::vector<float>(rgba, rgba + size_t(width) * 4));
      continue;
    }
    auto sum = [&](const float* row) {
      if (cell.acc.empty()) cell.acc.assign(size_t(width + c.K) * (dark ? 1 : 4), 0.0f);  // K spare pixels
      const float w = span.w[cell.next++];
      if (dark) {
        accumulateMinimum(cell.acc.data(), row, w, width);
      } else {
        accumulate(cell.acc.data(), row, w, size_t(width) * 4);
      }
    };
    sum(rgba);
    while (!cell.early.empty() && cell.early.begin()->first == span.first + int(cell.next)) {
      sum(cell.early.begin()->second.data());
      cell.early.erase(cell.early.begin());
    }
    if (cell.next == span.w.size()) {
      reduceColumns(r, cell.acc.data());
      std::vector<float>().swap(cell.acc);
      ++c.finished;
    }
  }
}

// Grid row bounds_.y + r from the sum of its source rows: the weighted sums
// of each cell's columns.
void ReducedLowpass::reduceColumns(int r, const float* acc) {
  const Collector& c = *collector_;
  if (source_ == Source::DarkChannel) {
    reduceCells<1>(acc, c.first.data(), c.weights.data(), c.K, bounds_.width, dark_.row(bounds_.y + r));
  } else {
    reduceCells<4>(acc, c.first.data(), c.weights.data(), c.K, bounds_.width, colour_.row(bounds_.y + r));
  }
}

void ReducedLowpass::finish() {
  if (!collector_ || collector_->finished.load() != bounds_.height) {
    throw std::logic_error("ReducedLowpass: rows of the image are missing");
  }
  collector_.reset();
  const Rect small = bounds_;
  const float sigma = float(sigma_);
  const bool dark = source_ == Source::DarkChannel;
  // The blur, in place where it streams.
  if (dark && gaussianBlurStreams(sigma)) {
    gaussianBlurGreyRows(GreyRows::of(dark_), sigma, small,
                         [&](int y, const float* row) { std::memcpy(dark_.row(y), row, size_t(small.width) * sizeof(float)); });
  } else if (dark) {  // a sigma too wide to stream (render scales above 1): through an RGBA copy
    Image rgba(small);
    for (int y = small.y; y < small.bottom(); ++y)
      for (int x = 0; x < small.width; ++x) rgba.row(y)[size_t(x) * 4] = dark_.row(y)[x];
    rgba = gaussianBlur(rgba, sigma);
    for (int y = small.y; y < small.bottom(); ++y)
      for (int x = 0; x < small.width; ++x) dark_.row(y)[x] = rgba.row(y)[size_t(x) * 4];
  } else if (gaussianBlurStreams(sigma)) {
    const size_t bytes = size_t(small.width) * 4 * sizeof(float);
    gaussianBlurRows(colour_, sigma, small, [&](int y, const float* row) { std::memcpy(colour_.row(y), row, bytes); });
  } else {
    colour_ = gaussianBlur(colour_, sigma);
  }
}

ReducedLowpass::Rows::Rows(const ReducedLowpass& low) : low_(low) {
  if (low.collector_) throw std::logic_error("ReducedLowpass: read before finish()");
  const Rect& b = low.image_;
  const Rect& sb = low.bounds_;
  const int C = low.source_ == Source::DarkChannel ? 1 : 4;  // floats per pixel (the colour's alpha comes along as 0)
  // Column taps, the same for every row: column x lies between grid columns
  // c0 and c0 + 1 (clamped at the grid's edges) at tx.
  c0_.resize(size_t(b.width));
  tx_.resize(size_t(b.width));
  const bool single = sb.width == 1;  // a one-column grid is mixed with itself
  for (int x = b.x; x < b.right(); ++x) {
    const double u = std::clamp((x + 0.5 - low.outputRect_.x) * low.scale_ - 0.5, double(sb.x), double(sb.right() - 1));
    const int i = x - b.x;
    c0_[size_t(i)] = std::max(0, std::min(int(std::floor(u)), sb.right() - 2) - sb.x);
    tx_[size_t(i)] = single ? 0.0f : float(u - (c0_[size_t(i)] + sb.x));
  }
  aux_.resize(size_t(b.width) * size_t(C));
  for (std::vector<float>& w : wide_) w.resize(size_t(b.width) * size_t(C));
  held_[0] = held_[1] = sb.y - 1;
}

const float* ReducedLowpass::Rows::wideRow(int r) {
  for (int s = 0; s < 2; ++s)
    if (held_[s] == r) return wide_[s].data();
  const int s = held_[0] < held_[1] ? 0 : 1;  // rows mostly come in ascending order: drop the older
  held_[s] = r;
  float* out = wide_[s].data();
  const bool dark = low_.source_ == Source::DarkChannel;
  const float* cells = dark ? low_.dark_.row(r) : low_.colour_.row(r);
  float lone[8];  // a one-column grid's cell, twice
  if (low_.bounds_.width == 1) {
    const int C = dark ? 1 : 4;
    for (int k = 0; k < C; ++k) lone[k] = lone[C + k] = cells[k];
    cells = lone;
  }
  if (dark) {
    lerpColumns<1, 1>(cells, c0_.data(), tx_.data(), out, low_.image_.width);
  } else {
    lerpColumns<4, 4>(cells, c0_.data(), tx_.data(), out, low_.image_.width);
  }
  return out;
}

const float* ReducedLowpass::Rows::operator()(int y) {
  const Rect& sb = low_.bounds_;
  if (low_.pixelCells_) {  // the grid is the enlargement
    const int r = std::clamp(y - low_.outputRect_.y, sb.y, sb.bottom() - 1);
    return low_.source_ == Source::DarkChannel ? low_.dark_.row(r) : low_.colour_.row(r);
  }
  const double v = std::clamp((y + 0.5 - low_.outputRect_.y) * low_.scale_ - 0.5, double(sb.y), double(sb.bottom() - 1));
  const int r0 = int(std::floor(v));
  const int r1 = std::min(r0 + 1, sb.bottom() - 1);
  const float* a = wideRow(r0);
  const float* e = wideRow(r1);
  lerpRows(a, e, float(v - r0), aux_.data(), aux_.size());
  return aux_.data();
}

void ReducedLowpass::apply(Image& image, const RowWithLowpass& row, const RowFn& after) const {
  const Rect b = image.bounds();
  // Bands of rows, each with its own enlargement.
  const int bands = std::clamp(b.height / 32, 1, 4 * parallelism());
  auto bandStart = [&](int i) { return b.y + int(int64_t(b.height) * i / bands); };
  parallelFor(0, bands, 1, [&](int i0, int i1) {
    Rows rows(*this);
    for (int band = i0; band < i1; ++band) {
      for (int y = bandStart(band); y < bandStart(band + 1); ++y) {
        const kernels::KernelRow r{image.row(y), nullptr, b.width, b.x, y};
        row(r, rows);
        if (after) after(r);
      }
    }
  });
}

}  // namespace vg
