#include "session/crop_session.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vg {

namespace {

// -0 would survive as "-0" in the recipe; a mirrored 0 stays 0.
double negated(double v) { return v == 0 ? 0.0 : -v; }

}  // namespace

NormalizedRect turnedClockwise(const NormalizedRect& r) {
  return {1 - (r.y + r.height), r.x, r.height, r.width};
}

CropSettings rotatedQuarter(const CropSettings& crop, bool clockwise) {
  CropSettings c = crop;
  const int turn = ((crop.quarterTurn % 4) + 4) % 4;
  c.quarterTurn = (turn + (clockwise ? 1 : 3)) % 4;
  if (c.rect) {
    for (int i = 0; i < (clockwise ? 1 : 3); ++i) *c.rect = turnedClockwise(*c.rect);
  }
  if (c.aspectLock) c.aspectLock = 1 / *c.aspectLock;
  return c;
}

CropSettings mirroredOnScreen(const CropSettings& crop, bool horizontal) {
  CropSettings c = crop;
  const bool oddTurn = (crop.quarterTurn & 1) != 0;
  if (horizontal != oddTurn) {
    c.flipHorizontal = !c.flipHorizontal;
  } else {
    c.flipVertical = !c.flipVertical;
  }
  c.angle = negated(c.angle);
  if (c.rect) {
    if (horizontal) {
      c.rect->x = 1 - (c.rect->x + c.rect->width);
    } else {
      c.rect->y = 1 - (c.rect->y + c.rect->height);
    }
  }
  return c;
}

std::optional<NormalizedRect> fitCropRect(const CropSettings& crop, double sourceWidth, double sourceHeight) {
  if (!crop.rect || !(sourceWidth > 0) || !(sourceHeight > 0)) return crop.rect;
  const NormalizedRect& r = *crop.rect;
  // The turned frame, and F: the frame scaled by the cover factor.
  const bool odd = (crop.quarterTurn & 1) != 0;
  const double W = odd ? sourceHeight : sourceWidth, H = odd ? sourceWidth : sourceHeight;
  const double theta = crop.angle * std::numbers::pi / 180;
  const double sn = std::sin(theta), cs = std::cos(theta);
  const double c = std::abs(cs), s = std::abs(sn);
  const double k = std::max((c * W + s * H) / W, (s * W + c * H) / H);
  const double A = k * W, B = k * H;  // F, and the rotated picture's own size

  // Inside the picture: each corner, turned back by the angle, lies within A x B.
  constexpr double kSlack = 1e-9;
  bool inside = true;
  for (double fx : {r.x, r.x + r.width}) {
    for (double fy : {r.y, r.y + r.height}) {
      const double px = (fx - 0.5) * A, py = (fy - 0.5) * B;
      const double u = px * cs + py * sn, v = -px * sn + py * cs;
      inside = inside && std::abs(u) <= A / 2 * (1 + kSlack) && std::abs(v) <= B / 2 * (1 + kSlack);
    }
  }
  if (inside) return r;

  double aspect = crop.aspectLock.value_or(r.height > 0 ? (r.width * A) / (r.height * B) : W / H);
  if (!(aspect > 0) || !std::isfinite(aspect)) aspect = W / H;
  const double h = std::min(A / (aspect * c + s), B / (aspect * s + c));
  const double wn = std::min(1.0, aspect * h / A), hn = std::min(1.0, h / B);
  return NormalizedRect{(1 - wn) / 2, (1 - hn) / 2, wn, hn};
}

CropSettings straightened(const CropSettings& crop, double angle, double sourceWidth, double sourceHeight) {
  CropSettings c = crop;
  c.angle = std::isfinite(angle) ? std::clamp(angle, -45.0, 45.0) : 0.0;
  c.rect = fitCropRect(c, sourceWidth, sourceHeight);
  return c;
}

}  // namespace vg
