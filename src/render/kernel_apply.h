// Running one kernel over a whole image, for callers that do not fuse stages
// (tests, tools, one-off filters). The render pipeline fuses several kernels
// per tile instead and calls the row functions of kernels.h itself.
//
// applyKernel(image, aux, fn): for every row of image.bounds(), in parallel
// bands (parallel.h), calls fn with a KernelRow over that row; aux, when given,
// must cover image.bounds() and is passed at the same positions.
#pragma once

#include <functional>

#include "render/image.h"
#include "render/kernels.h"

namespace vg {

void applyKernel(Image& image, const Image* aux, const std::function<void(const kernels::KernelRow&)>& fn,
                 int grainRows = 8);

}  // namespace vg
