// Gaussian blur with clamped edges, and the unsharp mask built on it.
//
// Boundary rule: the source is extended beyond its bounds by repeating its edge
// pixels (clamp to extent), so the output may cover any rectangle, inside or
// around the source; the pixels outside the source are blurred edge colour.
//
// Algorithm, chosen by sigma (separable: a horizontal then a vertical pass):
// - sigma <= 0 or not finite: no blur, the clamped source is copied.
// - sigma <= 8: direct convolution with the sampled Gaussian exp(-k²/2σ²),
//   k = -R...R with R = ceil(3σ), normalised to sum 1 (the cut tail is 0.27 %
//   of the mass, so the L1 error against the untruncated kernel is below 0.6 %).
//   Streamed: each thread takes a band of rows and keeps the 2R + 1
//   horizontally blurred rows a vertical tap needs in a ring, so no
//   intermediate image is made and a row's consumer runs while it is in cache.
// - sigma > 8: Deriche's fourth-order recursive Gaussian (R. Deriche, "Recursively
//   implementing the Gaussian and its derivatives", INRIA RR-1893, 1993), causal
//   and anti-causal parts summed, in double precision, gain normalised to 1.
//   Cost independent of sigma, but a full intermediate image and a slower
//   scalar recursion, so only the large sigmas take it. Each part starts in the steady state of a constant
//   input, which is exactly the clamped extension; inside a large source only
//   10σ of context on each side of the output is read (the response there has
//   fallen below 1e-7 of its peak).
// Accuracy against a true (sampled, untruncated) Gaussian, measured on impulse
// responses (tests/render/gaussian_blur_test.cpp asserts < 1 % for both): L1
// difference of the kernels at most 0.3 % (direct, worst just below sigma 3)
// and 0.06 % (recursive); largest difference 0.4 % and 0.05 % of the peak.
// So on 0...1 images every output pixel is within 0.003 of the true blur.
//
// Alpha is blurred like the colour channels (premultiplied blur). Rows are
// processed in parallel (parallel.h); the result does not depend on threading.
#pragma once

#include <functional>
#include <vector>

#include "render/grey_image.h"
#include "render/image.h"

namespace vg {

// Streams the blur of src over the rows of `out`: consume(y, blurred) gets
// every row y of out once, `blurred` pointing at its out.width RGBA pixels
// (valid during the call only). Calls for different bands of rows run
// concurrently; within a band rows come in ascending order.
// In place: when out equals src.bounds(), consume may overwrite row y of src
// (that row only). Every read of the source a blurred row needs happens before
// the consumer of that row runs, so a stage can replace its input row by row.
// Whether gaussianBlurRows streams at this sigma (no full-size buffer);
// otherwise it makes the whole blurred image and an intermediate first.
bool gaussianBlurStreams(float sigma);

// How far the blur reads from an output pixel, as far as it matters at float
// precision: the direct kernel's cut at 3 sigma, the recursive one's tail
// beyond 5 sigma (below 4e-6 of the mass), plus one pixel.
int gaussianBlurReach(float sigma);

using BlurRowConsumer = std::function<void(int y, const float* blurred)>;
void gaussianBlurRows(const Image& src, float sigma, const Rect& out, const BlurRowConsumer& consume);

// Several passes run as one sweep over the rows, each pass a blur of its
// input (clamped at the image's edges) and then `apply(row, blurred, y)`,
// which changes row y of the pass's input in place into the pass's output
// (a kernel that reads the row and its blur, and any point stages after it).
// The pixels are those of running the passes one after another over the
// whole image, each with gaussianBlurRows in place; but each band of rows
// goes through all of them while its intermediate rows are in cache.
// The first pass reads `from` (image itself, or another image of the same
// bounds); the result is written to image. Every sigma must stream
// (gaussianBlurStreams and > 0); apply may run concurrently for different
// rows.
// `prepare`, when given, is a point step before the first pass (its rows are
// `from`'s rows changed by it): it is called once per band, from the band's
// thread, for the function the band then runs on each of its input rows in
// ascending order, in place (rows a band shares with its neighbours are
// prepared by each).
struct BlurPass {
  float sigma = 0;
  std::function<void(float* row, const float* blurred, int y)> apply;
};
using RowPrepare = std::function<void(float* row, int y)>;
void gaussianBlurChain(const Image& from, Image& image, const std::vector<BlurPass>& passes,
                       const std::function<RowPrepare()>& prepare = {});

// Single-channel rows: bounds.width floats per row, `stride` floats apart
// (a GreyImage, or scratch rows borrowed from an Image).
struct GreyRows {
  const float* data = nullptr;
  size_t stride = 0;
  Rect bounds;
  static GreyRows of(const GreyImage& image) {
    return {image.empty() ? nullptr : image.row(image.bounds().y), size_t(image.width()), image.bounds()};
  }
  const float* row(int y) const { return data + size_t(y - bounds.y) * stride; }
};

// gaussianBlurRows for single-channel rows (`blurred` holds out.width
// floats). Only for sigmas that stream (gaussianBlurStreams); a larger one
// throws std::invalid_argument. No sigma (<= 0) hands out the clamped values.
void gaussianBlurGreyRows(const GreyRows& src, float sigma, const Rect& out, const BlurRowConsumer& consume);

// Blurred copy of src covering `out` (working-image coordinates).
// An empty source gives a transparent image.
Image gaussianBlur(const Image& src, float sigma, const Rect& out);
inline Image gaussianBlur(const Image& src, float sigma) { return gaussianBlur(src, sigma, src.bounds()); }

// Unsharp mask: c + (c - gauss(c, radius)) × intensity on the colour channels,
// alpha kept, over src's bounds. No clamping (values may leave 0...1).
Image unsharpMask(const Image& src, float radius, float intensity);
// One row of it: n pixels of c and their blur into out (which may be c).
void unsharpRow(const float* c, const float* blurred, float* out, int n, float intensity);

}  // namespace vg
