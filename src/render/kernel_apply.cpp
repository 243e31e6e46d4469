#include "render/kernel_apply.h"

#include <stdexcept>

#include "render/parallel.h"

namespace vg {

void applyKernel(Image& image, const Image* aux, const std::function<void(const kernels::KernelRow&)>& fn,
                 int grainRows) {
  const Rect b = image.bounds();
  if (b.empty()) return;
  if (aux && !aux->bounds().contains(b)) throw std::invalid_argument("applyKernel: aux image does not cover the image");
  parallelRows(b, grainRows, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      kernels::KernelRow row;
      row.rgba = image.row(y);
      row.aux = aux ? aux->at(b.x, y) : nullptr;
      row.n = b.width;
      row.x = b.x;
      row.y = y;
      fn(row);
    }
  });
}

}  // namespace vg
