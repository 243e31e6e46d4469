#include "render/resample.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vg {
namespace {

constexpr double kLobes = 3.0;

double lanczos3(double x) {
  x = std::fabs(x);
  if (x < 1e-9) return 1.0;
  if (x >= kLobes) return 0.0;
  double px = M_PI * x;
  return kLobes * std::sin(px) * std::sin(px / kLobes) / (px * px);
}

// For each output pixel of one axis: the first input index and the weights of
// the contiguous input run it reads (clamped taps folded onto the edges).
struct AxisWeights {
  std::vector<int> start;
  std::vector<int> count;
  std::vector<int> offset;     // into weights
  std::vector<float> weights;
};

AxisWeights axisWeights(int in, int out) {
  AxisWeights a;
  a.start.resize(out);
  a.count.resize(out);
  a.offset.resize(out);
  double ratio = double(out) / double(in);
  double stretch = std::max(1.0, 1.0 / ratio);
  double support = kLobes * stretch;
  std::vector<double> w;
  for (int i = 0; i < out; ++i) {
    double c = (i + 0.5) / ratio - 0.5;
    int first = int(std::floor(c - support)) + 1;
    int last = int(std::ceil(c + support)) - 1;
    int lo = std::clamp(first, 0, in - 1), hi = std::clamp(last, 0, in - 1);
    w.assign(size_t(hi - lo + 1), 0.0);
    double sum = 0.0;
    for (int j = first; j <= last; ++j) {
      double v = lanczos3((j - c) / stretch);
      w[size_t(std::clamp(j, 0, in - 1) - lo)] += v;
      sum += v;
    }
    if (sum == 0.0) {  // cannot happen for a centred tap, kept for safety
      w.assign(w.size(), 0.0);
      w[size_t(std::clamp(int(std::lround(c)), lo, hi) - lo)] = 1.0;
      sum = 1.0;
    }
    a.start[i] = lo;
    a.count[i] = hi - lo + 1;
    a.offset[i] = int(a.weights.size());
    for (double v : w) a.weights.push_back(float(v / sum));
  }
  return a;
}

}  // namespace

Image lanczosResize(const Image& src, int width, int height) {
  if (src.empty() || width < 1 || height < 1) return Image();
  const int inW = src.width(), inH = src.height();
  const AxisWeights wx = axisWeights(inW, width);
  const AxisWeights wy = axisWeights(inH, height);
  Image out(width, height);
  const int y0 = src.bounds().y;
  const size_t rowFloats = size_t(inW) * 4;

  tbb::parallel_for(tbb::blocked_range<int>(0, height, 4), [&](const tbb::blocked_range<int>& r) {
    std::vector<float> column(rowFloats);
    for (int oy = r.begin(); oy < r.end(); ++oy) {
      // Vertical pass: one full-width row of the intermediate.
      std::fill(column.begin(), column.end(), 0.0f);
      const float* wv = &wy.weights[size_t(wy.offset[oy])];
      for (int k = 0; k < wy.count[oy]; ++k) {
        const float w = wv[k];
        const float* s = src.row(y0 + wy.start[oy] + k);
        float* c = column.data();
        for (size_t i = 0; i < rowFloats; ++i) c[i] += w * s[i];
      }
      // Horizontal pass.
      float* d = out.row(oy);
      for (int ox = 0; ox < width; ++ox) {
        const float* wh = &wx.weights[size_t(wx.offset[ox])];
        const float* s = column.data() + size_t(wx.start[ox]) * 4;
        float acc[4] = {0, 0, 0, 0};
        for (int k = 0; k < wx.count[ox]; ++k, s += 4) {
          const float w = wh[k];
          acc[0] += w * s[0];
          acc[1] += w * s[1];
          acc[2] += w * s[2];
          acc[3] += w * s[3];
        }
        d[size_t(ox) * 4 + 0] = acc[0];
        d[size_t(ox) * 4 + 1] = acc[1];
        d[size_t(ox) * 4 + 2] = acc[2];
        d[size_t(ox) * 4 + 3] = acc[3];
      }
    }
  });
  return out;
}

Image lanczosScale(const Image& src, double scale, double aspectRatio) {
  if (src.empty() || !std::isfinite(scale) || !std::isfinite(aspectRatio) || scale <= 0 ||
      aspectRatio <= 0) {
    return Image();
  }
  double w = std::round(src.width() * scale * aspectRatio);
  double h = std::round(src.height() * scale);
  if (w > 1e6 || h > 1e6) return Image();
  return lanczosResize(src, std::max(1, int(w)), std::max(1, int(h)));
}

}  // namespace vg
