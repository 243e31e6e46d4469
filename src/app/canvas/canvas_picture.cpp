#include "app/canvas/canvas_picture.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "render/parallel.h"

namespace vg::app {

CanvasPicture makeCanvasPicture(const Image& image, const DisplayTransform& transform, ViewRect covers, int width,
                                int height) {
  if (image.empty()) return {};
  const Rect b = image.bounds();
  if (width <= 0 || height <= 0 || width >= b.width || height >= b.height) width = b.width, height = b.height;
  QImage out(width, height, QImage::Format_RGBA8888);
  if (out.isNull()) return {};
  if (width == b.width && height == b.height) {
    parallelRows(Rect{0, 0, width, height}, 16, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y)
        transform.convertRow(image.row(b.y + y), b.width, out.scanLine(y), 0, y);
    });
    return {std::move(out), covers, 0};
  }
  // Block edges: picture column x spans image columns [cols[x], cols[x + 1]).
  std::vector<int> cols(size_t(width) + 1);
  for (int x = 0; x <= width; ++x) cols[size_t(x)] = int(int64_t(x) * b.width / width);
  parallelRows(Rect{0, 0, width, height}, 4, [&](int y0, int y1) {
    // Rows of a block are first added into one image-wide row (a plain,
    // vectorised sum), then each picture pixel adds its columns of it.
    std::vector<float> rows(size_t(b.width) * 4);
    std::vector<float> sums(size_t(width) * 4);
    for (int y = y0; y < y1; ++y) {
      const int r0 = int(int64_t(y) * b.height / height), r1 = int(int64_t(y + 1) * b.height / height);
      std::copy_n(image.row(b.y + r0), rows.size(), rows.begin());
      for (int r = r0 + 1; r < r1; ++r) {
        const float* src = image.row(b.y + r);
        float* acc = rows.data();
        for (size_t i = 0; i < rows.size(); ++i) acc[i] += src[i];
      }
      for (int x = 0; x < width; ++x) {
        float s[4] = {0, 0, 0, 0};
        const int c0 = cols[size_t(x)], c1 = cols[size_t(x) + 1];
        for (int c = c0; c < c1; ++c)
          for (int k = 0; k < 4; ++k) s[k] += rows[size_t(c) * 4 + size_t(k)];
        const float inv = 1.f / float((r1 - r0) * (c1 - c0));
        for (int k = 0; k < 4; ++k) sums[size_t(x) * 4 + size_t(k)] = s[k] * inv;
      }
      transform.convertRow(sums.data(), width, out.scanLine(y), 0, y);
    }
  });
  return {std::move(out), covers, 0};
}

}  // namespace vg::app
