// Lanczos-3 resampling: the one high-quality scaler of the system (preview
// sources, thumbnails, the histogram's and the exporter's reductions).
//
// Algorithm: separable Lanczos-3, L(x) = sinc(x) sinc(x/3) for |x| < 3.
// Output pixel i of an axis with n input and m output pixels has its centre
// at input position c = (i + 0.5) n / m - 0.5. When shrinking, the kernel is
// stretched by n / m (support 3 n / m input pixels on each side) so that it
// low-passes before it samples; when enlarging it stays at unit width.
// Weights are normalised to sum to 1, so a constant image stays constant.
//
// Boundary: clamp to edge (the edge pixel repeats outward); no transparency
// is pulled in from outside the image.
//
// Accuracy: weights and sums in float32; a constant image is reproduced to
// within 1e-6 relative; the negative lobes can overshoot near hard edges
// (up to about 10 % of the step), as Lanczos does. Pixels are premultiplied,
// so colour and alpha filter together without fringes.
//
// Cost: one vertical pass and one horizontal pass per output row, run in
// parallel over output rows; no full-size intermediate image.
#pragma once

#include "render/image.h"

namespace vg {

// Scales by `scale` vertically and scale × aspectRatio horizontally. The
// output starts at (0, 0) and has width round(w × scale × aspectRatio) and
// height round(h × scale), at least 1 each. A non-finite or non-positive
// scale or aspect ratio returns an empty image.
Image lanczosScale(const Image& src, double scale, double aspectRatio = 1.0);

// Resamples to exactly width × height (each at least 1).
Image lanczosResize(const Image& src, int width, int height);

}  // namespace vg
