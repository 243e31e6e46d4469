// Geometry: the first step of the colour stage. Lens distortion, flips,
// quarter turns and straightening carry the upright source into the output
// frame, and the output rectangle (crop, aspect lock, snapping) is chosen.
//
// Coordinate convention (the one convention of the whole engine):
// - Working-image coordinates are continuous, x to the right and y DOWN; pixel
//   (px, py) covers [px, px + 1) x [py, py + 1) and has its centre at
//   (px + 0.5, py + 0.5). Rect is half-open in the same units.
// - The source extent E is the bounds of the working source image (the
//   decoded, upright source at render scale s).
// - Recipe positions of masks, brush and heal strokes and red-eye spots are
//   normalised to the upright source: a point (u, v) lies at
//   (E.x + u * E.width, E.y + v * E.height); brush and heal sizes are
//   fractions of E.width, red-eye radii fractions of min(E.width, E.height).
//   They reach the output frame through toOutput(), the same mapping for all
//   of them (documents carry coordinateSpace 1; one without it means the same).
// - The crop rectangle is normalised to the transformed frame F (below), x by
//   its width from the left, y by its height from the top.
//
// The transform, applied to a source point in this order:
// 1. lens distortion about the centre of E (the resampling kernel takes the
//    source at c + q * (1 + a |q|^2) * R for an output point c + q * R, with
//    a = distortion/100 * 0.6 and R = max(1, hypot(E.width, E.height)/2));
// 2. horizontal flip (x -> E.x + E.right - x), then vertical flip;
// 3. quarter turns, clockwise as seen on screen; the turned frame keeps E's
//    origin and, for an odd count, swaps width and height, so a turn maps the
//    pixel grid onto itself exactly;
// 4. straightening: rotation by `angle` degrees (positive turns the picture
//    clockwise on screen) about the centre of the turned frame, scaled up by
//    the cover factor k = max((cW + tH)/W, (tW + cH)/H) (c = |cos|, t = |sin|,
//    W x H the turned frame) so that the rotated picture covers that frame.
// F is the turned frame scaled by k about its centre.
//
// Resampling: when there is neither distortion nor straightening the geometry
// is a permutation of whole pixels and is rendered as an exact copy. Otherwise
// each output pixel centre is mapped back to the source and sampled with a
// bicubic (Catmull-Rom) filter over edge-clamped taps; positions outside E
// are transparent black.
#pragma once

#include <optional>

#include "render/image.h"
#include "render/rect.h"

namespace vg {

struct PointF {
  double x = 0;
  double y = 0;
  friend bool operator==(const PointF&, const PointF&) = default;
};

struct RectF {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  double right() const { return x + width; }
  double bottom() const { return y + height; }
  double midX() const { return x + width / 2; }
  double midY() const { return y + height / 2; }
  friend bool operator==(const RectF&, const RectF&) = default;
};

// The geometric part of a recipe, as plain numbers (filled from the crop and
// lens settings of a document by the render engine).
struct GeometryParams {
  double distortion = 0;  // lens distortion slider, -100 ... 100
  bool flipHorizontal = false;
  bool flipVertical = false;
  int quarterTurn = 0;       // only the two low bits count
  double angle = 0;          // straightening, degrees
  std::optional<RectF> crop; // normalised to F, y from the top
  std::optional<double> aspectLock;  // width / height
  friend bool operator==(const GeometryParams&, const GeometryParams&) = default;
};

class Geometry {
 public:
  // integral: the preview's variant; the output rectangle is F (or the crop)
  // rounded outwards to whole pixels instead of snapped and aspect-locked.
  Geometry(const Rect& sourceExtent, const GeometryParams& params, bool integral = false);

  const Rect& sourceExtent() const { return source_; }
  const Rect& outputRect() const { return output_; }
  // The transformed frame F (turned frame scaled by k about its centre).
  const RectF& frame() const { return frame_; }
  double coverFactor() const { return k_; }
  // The lens-distortion amount a (0 when distortion is off).
  double distortionAmount() const { return amount_; }

  // True when rendering is an exact copy of whole pixels.
  bool isPixelPermutation() const { return amount_ == 0 && !straighten_; }
  // True when it is the source itself: every output pixel is the source
  // pixel at the same position, over the whole source extent.
  bool isIdentity() const;
  // True when every pixel of the output rectangle takes its colour from
  // inside the source extent, so the geometry adds no transparency (a
  // straightened crop reaching past the turned picture, or lens distortion
  // pulling the edge in, does). Cheap: corners or the rectangle's border,
  // never the whole area. Where the answer cannot be had cheaply (strong
  // negative distortion over a region partly outside the source) it is
  // false, so a format with alpha keeps it.
  bool coversOutput() const;

  // Forward: a point of the source into working-image coordinates of the
  // output frame. Inverse: an output-frame point back to the source.
  PointF toOutput(PointF source) const;
  PointF toSource(PointF output) const;

  // A source-normalised recipe position in source pixels, and in the output frame.
  PointF sourcePoint(PointF normalised) const;
  PointF normalisedToOutput(PointF normalised) const { return toOutput(sourcePoint(normalised)); }

  // The part of the source read when rendering `outputRegion` (the bicubic
  // support included), clipped to the source extent; empty when none is.
  Rect inputRectFor(const Rect& outputRegion) const;

  // Fills `out` over its bounds (any rectangle of the output frame) from
  // `source` (whose bounds must be the source extent). Parallel over rows;
  // the result does not depend on the thread count.
  void render(const Image& source, Image& out) const;
  // The same for rows [y0, y1) of `out` only (for callers that fuse stages).
  void renderRows(const Image& source, Image& out, int y0, int y1) const;

 private:
  PointF distort(PointF p) const;     // kernel mapping: distortion output -> source
  PointF undistort(PointF p) const;   // its inverse: source -> distortion output
  PointF turnForward(PointF p) const;
  PointF turnBack(PointF p) const;

  Rect source_;
  GeometryParams params_;
  int turns_ = 0;
  bool straighten_ = false;
  double amount_ = 0;
  double radius_ = 1;
  PointF lensCentre_;
  RectF turned_;  // the turned frame (before the scale by k)
  PointF centre_; // its centre
  double cos_ = 1, sin_ = 0, k_ = 1;
  RectF frame_;
  Rect output_;
};

// The output rectangle of a frame and an optional crop, exactly as chosen by
// Geometry (exposed for tests and for the crop tool's overlay).
Rect outputRectangle(const RectF& frame, double coverFactor, bool straightened,
                     const std::optional<RectF>& crop, const std::optional<double>& aspectLock,
                     bool integral);

}  // namespace vg
