#include "io/export_stages.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "render/gaussian_blur.h"
#include "render/parallel.h"

namespace vg {
namespace {

double lanczos3(double x) {
  x = std::fabs(x);
  if (x < 1e-9) return 1.0;
  if (x >= 3.0) return 0.0;
  double px = std::numbers::pi * x;
  return 3.0 * std::sin(px) * std::sin(px / 3.0) / (px * px);
}

template <typename Fn>
void forRows(int begin, int end, Fn&& fn) {
  parallelRows(Rect{0, begin, 1, end - begin}, 8, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) fn(y);
  });
}

}  // namespace

LanczosResizeSource::Taps LanczosResizeSource::makeTaps(int inSize, int outSize) {
  Taps t;
  t.first.resize(size_t(outSize));
  t.count.resize(size_t(outSize));
  const double scale = double(outSize) / double(inSize);
  const double stretch = scale < 1.0 ? scale : 1.0;  // kernel x-scale
  const double support = 3.0 / stretch;
  for (int o = 0; o < outSize; ++o) {
    double centre = (o + 0.5) / scale - 0.5;
    int lo = int(std::floor(centre - support)) + 1;
    int hi = int(std::ceil(centre + support)) - 1;
    t.first[size_t(o)] = int(t.index.size());
    double sum = 0;
    size_t start = t.weight.size();
    for (int i = lo; i <= hi; ++i) {
      double w = lanczos3((i - centre) * stretch);
      if (w == 0.0) continue;
      int clamped = std::clamp(i, 0, inSize - 1);
      // Merge repeated edge taps into one.
      if (t.index.size() > start && t.index.back() == clamped) {
        t.weight.back() += float(w);
      } else {
        t.index.push_back(clamped);
        t.weight.push_back(float(w));
      }
      sum += w;
    }
    for (size_t k = start; k < t.weight.size(); ++k) t.weight[k] = float(t.weight[k] / sum);
    t.count[size_t(o)] = int(t.index.size()) - t.first[size_t(o)];
  }
  return t;
}

LanczosResizeSource::LanczosResizeSource(BandSource& input, int targetWidth, int targetHeight)
    : input_(input), width_(targetWidth), height_(targetHeight) {
  xTaps_ = makeTaps(input.width(), targetWidth);
  yTaps_ = makeTaps(input.height(), targetHeight);
}

int LanczosResizeSource::haloRows() const {
  const double scale = double(height_) / std::max(1, input_.height());
  return int(std::ceil(input_.haloRows() * scale)) + 3;
}

Image LanczosResizeSource::renderBand(const Rect& rect) {
  Image out(rect);
  if (rect.empty()) return out;
  // Input rows the band's taps reach.
  int inTop = input_.height(), inBottom = 0;
  for (int y = rect.y; y < rect.bottom(); ++y) {
    const int* idx = &yTaps_.index[size_t(yTaps_.first[size_t(y)])];
    int n = yTaps_.count[size_t(y)];
    inTop = std::min(inTop, *std::min_element(idx, idx + n));
    inBottom = std::max(inBottom, *std::max_element(idx, idx + n) + 1);
  }
  Image in = input_.renderBand(Rect{0, inTop, input_.width(), inBottom - inTop});
  if (!input_.opaque()) {
    forRows(inTop, inBottom, [&](int y) {
      float* p = in.row(y);
      for (int x = 0; x < input_.width(); ++x, p += 4)
        if (!(p[3] > 0.0f)) p[0] = p[1] = p[2] = p[3] = 0.0f;
    });
  }

  // Horizontal pass: the needed input rows at the target width and the
  // band's columns.
  Image across(Rect{rect.x, inTop, rect.width, inBottom - inTop});
  forRows(inTop, inBottom, [&](int y) {
    const float* src = in.row(y);
    float* dst = across.row(y);
    for (int x = rect.x; x < rect.right(); ++x, dst += 4) {
      const size_t f = size_t(xTaps_.first[size_t(x)]);
      const int n = xTaps_.count[size_t(x)];
      float r = 0, g = 0, b = 0, a = 0;
      for (int k = 0; k < n; ++k) {
        const float* p = src + size_t(xTaps_.index[f + k]) * 4;
        const float w = xTaps_.weight[f + k];
        r += w * p[0];
        g += w * p[1];
        b += w * p[2];
        a += w * p[3];
      }
      dst[0] = r;
      dst[1] = g;
      dst[2] = b;
      dst[3] = a;
    }
  });

  // Vertical pass.
  forRows(rect.y, rect.bottom(), [&](int y) {
    float* dst = out.row(y);
    const size_t f = size_t(yTaps_.first[size_t(y)]);
    const int n = yTaps_.count[size_t(y)];
    const size_t floats = size_t(rect.width) * 4;
    for (int k = 0; k < n; ++k) {
      const float* src = across.row(yTaps_.index[f + k]);
      const float w = yTaps_.weight[f + k];
      for (size_t i = 0; i < floats; ++i) dst[i] += w * src[i];
    }
  });
  return out;
}

UnsharpMaskSource::UnsharpMaskSource(BandSource& input, double radius, double intensity)
    : input_(input), sigma_(float(radius)), intensity_(float(intensity)) {
  // The blur reads ceil(3 sigma) pixels either side (gaussian_blur.h).
  reach_ = std::max(1, int(std::ceil(3.0 * radius)));
}

Image UnsharpMaskSource::renderBand(const Rect& rect) {
  if (rect.empty()) return Image(rect);
  // The band plus the blur's reach, cut to the image: where the cut falls on
  // the image's edge, the blur's own edge clamping repeats the edge pixel, as
  // it would on the whole image.
  const Rect fetch = rect.grown(reach_).intersected(Rect{0, 0, input_.width(), input_.height()});
  Image in = input_.renderBand(fetch);
  Image out = gaussianBlur(in, sigma_, rect);
  const int channels = input_.opaque() ? 3 : 4;
  forRows(rect.y, rect.bottom(), [&](int y) {
    const float* c = in.at(rect.x, y);
    float* dst = out.row(y);
    for (int x = 0; x < rect.width; ++x, c += 4, dst += 4) {
      for (int ch = 0; ch < channels; ++ch) dst[ch] = c[ch] + (c[ch] - dst[ch]) * intensity_;
      if (channels == 3) dst[3] = c[3];
    }
  });
  return out;
}

}  // namespace vg
