#include "render/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "render/srgb.h"

namespace vg {

namespace {

// Area weights of the source cells [0, srcN) covered by each destination cell.
struct Taps {
  int first = 0;
  std::vector<float> weights;  // normalised to sum 1
};

std::vector<Taps> boxTaps(int srcN, int dstN) {
  std::vector<Taps> taps(static_cast<size_t>(dstN));
  double scale = double(srcN) / dstN;
  for (int d = 0; d < dstN; ++d) {
    double a = d * scale, b = (d + 1) * scale;
    int i0 = std::max(0, int(std::floor(a))), i1 = std::min(srcN, int(std::ceil(b)));
    Taps& t = taps[size_t(d)];
    t.first = i0;
    double sum = 0;
    for (int i = i0; i < i1; ++i) {
      double w = std::min(b, i + 1.0) - std::max(a, double(i));
      t.weights.push_back(float(std::max(0.0, w)));
      sum += std::max(0.0, w);
    }
    for (float& w : t.weights) w = float(w / sum);
  }
  return taps;
}

}  // namespace

Image boxResample(const Image& image, int dstW, int dstH) {
  const Rect b = image.bounds();
  std::vector<Taps> tx = boxTaps(b.width, dstW), ty = boxTaps(b.height, dstH);
  Image horizontal(Rect{0, 0, dstW, b.height});
  for (int y = 0; y < b.height; ++y) {
    const float* src = image.row(b.y + y);
    float* dst = horizontal.row(y);
    for (int x = 0; x < dstW; ++x) {
      float acc[4] = {0, 0, 0, 0};
      const Taps& t = tx[size_t(x)];
      for (size_t k = 0; k < t.weights.size(); ++k) {
        const float* p = src + size_t(t.first + int(k)) * 4;
        for (int c = 0; c < 4; ++c) acc[c] += t.weights[k] * p[c];
      }
      for (int c = 0; c < 4; ++c) dst[size_t(x) * 4 + size_t(c)] = acc[c];
    }
  }
  Image out(Rect{0, 0, dstW, dstH});
  for (int y = 0; y < dstH; ++y) {
    const Taps& t = ty[size_t(y)];
    float* dst = out.row(y);
    for (size_t k = 0; k < t.weights.size(); ++k) {
      const float* src = horizontal.row(t.first + int(k));
      float w = t.weights[k];
      for (int i = 0; i < dstW * 4; ++i) dst[i] += w * src[i];
    }
  }
  return out;
}

HistogramBins HistogramComputer::fromPixels8(const unsigned char* rgba, size_t count) {
  HistogramBins bins;
  if (count == 0) return bins;
  std::array<uint32_t, 64> r{}, g{}, b{}, l{};
  size_t highlights = 0, shadows = 0;
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* p = rgba + i * 4;
    int R = p[0], G = p[1], B = p[2];
    ++r[size_t(R / 4)];
    ++g[size_t(G / 4)];
    ++b[size_t(B / 4)];
    int lb = std::min(63, int(std::floor((0.2126 * R + 0.7152 * G + 0.0722 * B) * 0.25)));
    ++l[size_t(lb)];
    if (R > 253 || G > 253 || B > 253) ++highlights;
    if (R < 2 || G < 2 || B < 2) ++shadows;
  }
  uint32_t peak = 0;
  for (int i = 0; i < 64; ++i) peak = std::max({peak, r[size_t(i)], g[size_t(i)], b[size_t(i)]});
  float scale = peak > 1 ? 1.0f / float(peak) : 1.0f;
  for (size_t i = 0; i < 64; ++i) {
    bins.red[i] = std::min(1.0f, float(r[i]) * scale);
    bins.green[i] = std::min(1.0f, float(g[i]) * scale);
    bins.blue[i] = std::min(1.0f, float(b[i]) * scale);
    bins.luminance[i] = std::min(1.0f, float(l[i]) * scale);
  }
  bins.highlightClipping = float(double(highlights) / double(count));
  bins.shadowClipping = float(double(shadows) / double(count));
  return bins;
}

HistogramBins HistogramComputer::compute(const Image& image) {
  if (image.empty()) return {};
  double longSide = std::max(image.width(), image.height());
  double scale = kAnalysisSize / longSide;
  int w = std::max(1, int(std::trunc(image.width() * scale)));
  int h = std::max(1, int(std::trunc(image.height() * scale)));
  Image small = boxResample(image, w, h);
  std::vector<unsigned char> pixels(size_t(w) * size_t(h) * 4);
  for (int y = 0; y < h; ++y) {
    const float* src = small.row(y);
    unsigned char* dst = pixels.data() + size_t(y) * size_t(w) * 4;
    for (int i = 0; i < w * 4; ++i) {
      float v = src[i];
      if (!(v > 0)) v = 0;  // NaN and negatives are black
      v = std::min(v, 1.0f);
      if (i % 4 != 3) v = srgb::encode(v);
      dst[i] = static_cast<unsigned char>(std::lround(v * 255.0f));
    }
  }
  return fromPixels8(pixels.data(), size_t(w) * size_t(h));
}

namespace {
std::string formatIndicator(const char* format, float fraction) {
  char buffer[160];
  std::snprintf(buffer, sizeof buffer, format, double(fraction) * 100.0);
  return buffer;
}
}  // namespace

std::string HistogramComputer::shadowIndicatorText(float fraction) {
  return formatIndicator("阴影裁切 %.1f%%（提亮阴影/黑色滑杆）", fraction);
}

std::string HistogramComputer::highlightIndicatorText(float fraction) {
  return formatIndicator("高光裁切 %.1f%%（压低高光/白色滑杆）", fraction);
}

}  // namespace vg
