#include "session/analysis_image.h"

#include <algorithm>
#include <vector>

#include "render/parallel.h"

namespace vg {

Image averageBlocks(const Image& image, int f) {
  f = std::max(1, f);
  const int w = image.width() / f, h = image.height() / f;
  Image out = Image::uninitialized(w, h);
  if (out.empty()) return out;
  const Rect& b = image.bounds();
  const float norm = 1.0f / float(f * f);
  parallelRows(out.bounds(), 8, [&](int y0, int y1) {
    std::vector<float> sums(static_cast<size_t>(w) * 4);
    for (int y = y0; y < y1; ++y) {
      std::fill(sums.begin(), sums.end(), 0.0f);
      for (int j = 0; j < f; ++j) {
        const float* p = image.row(b.y + y * f + j);
        for (int x = 0; x < w; ++x) {
          float* s = &sums[size_t(x) * 4];
          for (int i = 0; i < f; ++i, p += 4) s[0] += p[0], s[1] += p[1], s[2] += p[2], s[3] += p[3];
        }
      }
      float* o = out.row(y);
      for (size_t i = 0; i < sums.size(); ++i) o[i] = sums[i] * norm;
    }
  });
  return out;
}

}  // namespace vg
