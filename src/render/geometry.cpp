#include "render/geometry.h"

#include "render/parallel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace vg {

namespace {

constexpr double kDegrees = std::numbers::pi / 180.0;

RectF intersect(const RectF& a, const RectF& b) {
  double x0 = std::max(a.x, b.x), y0 = std::max(a.y, b.y);
  double x1 = std::min(a.right(), b.right()), y1 = std::min(a.bottom(), b.bottom());
  if (!(x1 > x0) || !(y1 > y0)) return {0, 0, 0, 0};
  return {x0, y0, x1 - x0, y1 - y0};
}

// trunc() that forgives floating-point noise: 119.99999999 snaps to 120.
int snapTrunc(double v) {
  double r = std::round(v);
  return int(std::fabs(v - r) < 1e-7 ? r : std::trunc(v));
}

// Catmull-Rom weights for a sample at fraction f between taps 1 and 2.
inline void cubicWeights(float f, float w[4]) {
  float f2 = f * f, f3 = f2 * f;
  w[0] = -0.5f * f3 + f2 - 0.5f * f;
  w[1] = 1.5f * f3 - 2.5f * f2 + 1.0f;
  w[2] = -1.5f * f3 + 2.0f * f2 + 0.5f * f;
  w[3] = 0.5f * f3 - 0.5f * f2;
}

}  // namespace

Rect outputRectangle(const RectF& f, double k, bool straightened, const std::optional<RectF>& crop,
                     const std::optional<double>& aspectLock, bool integral) {
  RectF r;
  if (!crop) {
    if (straightened && k > 0) {
      double w = f.width / k, h = f.height / k;
      r = {f.midX() - w / 2, f.midY() - h / 2, w, h};
    } else {
      r = f;
    }
  } else {
    double ox = f.x + crop->x * f.width;
    double oy = f.y + crop->y * f.height;
    double w = std::max(2.0, std::min(crop->width * f.width, f.right() - ox));
    double h = std::min(crop->height * f.height, f.bottom() - oy);
    r = intersect({ox, oy, w, h}, f);
  }
  if (!(r.width > 0) || !(r.height > 0) || !std::isfinite(r.width) || !std::isfinite(r.height))
    return {};

  if (integral) {
    double x0 = std::floor(r.x + 1e-7), y0 = std::floor(r.y + 1e-7);
    double x1 = std::ceil(r.right() - 1e-7), y1 = std::ceil(r.bottom() - 1e-7);
    return {int(x0), int(y0), int(x1 - x0), int(y1 - y0)};
  }

  int W = std::max(1, snapTrunc(r.width));
  int H = snapTrunc(r.height);
  if (crop && aspectLock && std::isfinite(*aspectLock) && *aspectLock > 0) {
    double a = *aspectLock;
    if (a >= 1) {
      H = std::max(1, std::min(H, snapTrunc(W / a)));
      W = std::max(1, snapTrunc(H * a));
    } else {
      W = std::max(1, std::min(W, snapTrunc(H * a)));
      H = std::max(1, snapTrunc(W / a));
    }
  }
  int x = snapTrunc(r.midX() - W / 2.0);
  int y = snapTrunc(r.midY() - H / 2.0);
  return {x, y, W, H};
}

Geometry::Geometry(const Rect& sourceExtent, const GeometryParams& params, bool integral)
    : source_(sourceExtent), params_(params) {
  turns_ = params.quarterTurn & 3;
  const double W = source_.width, H = source_.height;
  if (params.distortion != 0 && std::isfinite(params.distortion)) {
    amount_ = params.distortion / 100.0 * 0.6;
    radius_ = std::max(1.0, std::hypot(W, H) / 2);
  }
  lensCentre_ = {source_.x + W / 2, source_.y + H / 2};

  turned_ = (turns_ & 1) ? RectF{double(source_.x), double(source_.y), H, W}
                         : RectF{double(source_.x), double(source_.y), W, H};
  centre_ = {turned_.midX(), turned_.midY()};

  straighten_ = params.angle != 0 && std::isfinite(params.angle);
  if (straighten_) {
    double rad = params.angle * kDegrees;
    cos_ = std::cos(rad);
    sin_ = std::sin(rad);
    double c = std::fabs(cos_), t = std::fabs(sin_);
    double tw = std::max(1.0, turned_.width), th = std::max(1.0, turned_.height);
    k_ = std::max((c * tw + t * th) / tw, (t * tw + c * th) / th);
  }
  frame_ = {centre_.x - k_ * turned_.width / 2, centre_.y - k_ * turned_.height / 2,
            k_ * turned_.width, k_ * turned_.height};
  output_ = outputRectangle(frame_, k_, straighten_, params.crop, params.aspectLock, integral);
}

PointF Geometry::distort(PointF p) const {
  if (amount_ == 0) return p;
  double qx = (p.x - lensCentre_.x) / radius_, qy = (p.y - lensCentre_.y) / radius_;
  double f = 1 + amount_ * (qx * qx + qy * qy);
  return {lensCentre_.x + qx * f * radius_, lensCentre_.y + qy * f * radius_};
}

PointF Geometry::undistort(PointF s) const {
  if (amount_ == 0) return s;
  // Solve rho * (1 + a rho^2) = rhoS along the ray through s (Newton); where
  // no solution exists (strong negative amounts) the turning point is taken.
  double dx = (s.x - lensCentre_.x) / radius_, dy = (s.y - lensCentre_.y) / radius_;
  double rhoS = std::hypot(dx, dy);
  if (rhoS == 0) return s;
  double rho = rhoS;
  double limit = amount_ < 0 ? std::sqrt(-1 / (3 * amount_)) : INFINITY;
  for (int i = 0; i < 40; ++i) {
    double g = rho * (1 + amount_ * rho * rho) - rhoS;
    double dg = 1 + 3 * amount_ * rho * rho;
    if (dg <= 1e-9) break;
    double next = rho - g / dg;
    if (next < 0) next = rho / 2;
    if (next > limit) next = limit;
    if (std::fabs(next - rho) < 1e-13) { rho = next; break; }
    rho = next;
  }
  double scale = rho / rhoS;
  return {lensCentre_.x + dx * scale * radius_, lensCentre_.y + dy * scale * radius_};
}

PointF Geometry::turnForward(PointF p) const {
  // Flips within E, then clockwise quarter turns anchored at E's origin.
  if (params_.flipHorizontal) p.x = source_.x + source_.right() - p.x;
  if (params_.flipVertical) p.y = source_.y + source_.bottom() - p.y;
  double u = p.x - source_.x, v = p.y - source_.y;
  double W = source_.width, H = source_.height;
  switch (turns_) {
    case 1: return {source_.x + (H - v), source_.y + u};
    case 2: return {source_.x + (W - u), source_.y + (H - v)};
    case 3: return {source_.x + v, source_.y + (W - u)};
    default: return p;
  }
}

PointF Geometry::turnBack(PointF p) const {
  double u = p.x - source_.x, v = p.y - source_.y;
  double W = source_.width, H = source_.height;
  PointF q;
  switch (turns_) {
    case 1: q = {source_.x + v, source_.y + (H - u)}; break;
    case 2: q = {source_.x + (W - u), source_.y + (H - v)}; break;
    case 3: q = {source_.x + (W - v), source_.y + u}; break;
    default: q = p;
  }
  if (params_.flipVertical) q.y = source_.y + source_.bottom() - q.y;
  if (params_.flipHorizontal) q.x = source_.x + source_.right() - q.x;
  return q;
}

PointF Geometry::toOutput(PointF s) const {
  PointF p = turnForward(undistort(s));
  if (!straighten_) return p;
  double dx = p.x - centre_.x, dy = p.y - centre_.y;
  return {centre_.x + k_ * (cos_ * dx - sin_ * dy), centre_.y + k_ * (sin_ * dx + cos_ * dy)};
}

PointF Geometry::toSource(PointF o) const {
  PointF p = o;
  if (straighten_) {
    double dx = (o.x - centre_.x) / k_, dy = (o.y - centre_.y) / k_;
    p = {centre_.x + cos_ * dx + sin_ * dy, centre_.y - sin_ * dx + cos_ * dy};
  }
  return distort(turnBack(p));
}

PointF Geometry::sourcePoint(PointF n) const {
  return {source_.x + n.x * source_.width, source_.y + n.y * source_.height};
}

Rect Geometry::inputRectFor(const Rect& region) const {
  if (region.empty() || source_.empty()) return {};
  // The mapping is smooth: sample a grid over the region (corners and edges
  // included) and pad by the grid spacing's worst stretch plus the filter's reach.
  constexpr int kSteps = 32;
  double x0 = INFINITY, y0 = INFINITY, x1 = -INFINITY, y1 = -INFINITY;
  for (int j = 0; j <= kSteps; ++j) {
    for (int i = 0; i <= kSteps; ++i) {
      PointF o{region.x + region.width * double(i) / kSteps, region.y + region.height * double(j) / kSteps};
      PointF s = toSource(o);
      x0 = std::min(x0, s.x); x1 = std::max(x1, s.x);
      y0 = std::min(y0, s.y); y1 = std::max(y1, s.y);
    }
  }
  double pad = 3;
  if (!isPixelPermutation()) {
    double spacing = std::max(region.width, region.height) / double(kSteps);
    double stretch = (1 + 3 * std::fabs(amount_) * 4) / k_;
    pad += spacing * stretch;
  } else {
    pad = 0;
  }
  Rect r{int(std::floor(x0 - pad)), int(std::floor(y0 - pad)), 0, 0};
  r.width = int(std::ceil(x1 + pad)) - r.x;
  r.height = int(std::ceil(y1 + pad)) - r.y;
  return r.intersected(source_);
}

void Geometry::render(const Image& source, Image& out) const {
  parallelRows(out.bounds(), 8, [&](int y0, int y1) { renderRows(source, out, y0, y1); });
}

bool Geometry::isIdentity() const {
  if (!isPixelPermutation() || turns_ != 0 || params_.flipHorizontal || params_.flipVertical || output_ != source_ ||
      source_.empty()) {
    return false;
  }
  const PointF a = toSource({source_.x + 0.5, source_.y + 0.5});
  const PointF b = toSource({source_.right() - 0.5, source_.bottom() - 0.5});
  return a.x == source_.x + 0.5 && a.y == source_.y + 0.5 && b.x == source_.right() - 0.5 &&
         b.y == source_.bottom() - 0.5;
}

// The output pixel centres form a grid whose hull is a rectangle. Without
// distortion the map back to the source is affine, the hull's image a
// parallelogram, and the grid lies inside the (convex) source extent exactly
// when the four corner centres do. Distortion scales each point along its
// ray from the lens centre by 1 + a rho^2. Where that radial map is
// increasing (a >= 0, or every point within rho* = sqrt(-1 / 3a)), each
// interior point is outdone, coordinate by coordinate in distance from the
// centre, by the hull border point further out on its ray, so the border
// decides; it is tested at every pixel centre with a margin for the curve
// between two of them. With a < 0 the map only pulls points inwards, so a
// hull whose undistorted corners lie inside the (star-shaped) extent is
// covered too. Anything else is reported uncovered.
bool Geometry::coversOutput() const {
  if (output_.empty() || source_.empty()) return true;
  const Rect& E = source_;
  auto inside = [&](PointF s, double margin) {
    return s.x >= E.x + margin && s.x <= E.right() - margin && s.y >= E.y + margin && s.y <= E.bottom() - margin;
  };
  const double x0 = output_.x + 0.5, y0 = output_.y + 0.5;
  const double x1 = output_.right() - 0.5, y1 = output_.bottom() - 0.5;
  const PointF corners[4] = {{x0, y0}, {x1, y0}, {x0, y1}, {x1, y1}};
  constexpr double kMargin = 1e-6;  // rounding of the affine map

  // The affine part alone: straightening, turns and flips.
  auto undistorted = [&](PointF o) {
    PointF p = o;
    if (straighten_) {
      double dx = (o.x - centre_.x) / k_, dy = (o.y - centre_.y) / k_;
      p = {centre_.x + cos_ * dx + sin_ * dy, centre_.y - sin_ * dx + cos_ * dy};
    }
    return turnBack(p);
  };
  bool cornersInside = true;
  double rhoMax = 0;
  for (const PointF& c : corners) {
    PointF p = undistorted(c);
    cornersInside = cornersInside && inside(p, kMargin);
    rhoMax = std::max(rhoMax, std::hypot(p.x - lensCentre_.x, p.y - lensCentre_.y) / radius_);
  }
  if (amount_ == 0 || (amount_ < 0 && cornersInside)) return cornersInside;
  if (amount_ < 0 && rhoMax * rhoMax > -1 / (3 * amount_)) return false;

  // The border, pixel centre by pixel centre; between two of them the
  // distorted edge strays from the chord by at most 0.75 |a| / R pixels.
  const double margin = kMargin + std::fabs(amount_) / radius_;
  for (int i = 0; i < output_.width; ++i) {
    if (!inside(toSource({x0 + i, y0}), margin) || !inside(toSource({x0 + i, y1}), margin)) return false;
  }
  for (int j = 0; j < output_.height; ++j) {
    if (!inside(toSource({x0, y0 + j}), margin) || !inside(toSource({x1, y0 + j}), margin)) return false;
  }
  return true;
}

void Geometry::renderRows(const Image& source, Image& out, int y0, int y1) const {
  const Rect region = out.bounds();
  if (region.empty()) return;
  const Rect E = source.bounds();
  const bool exact = isPixelPermutation();
  for (int y = y0; y < y1; ++y) {
    float* dst = out.row(y);
    if (exact) {
      // Whole-pixel permutation: map the first pixel centre and step.
      PointF a = toSource({region.x + 0.5, y + 0.5});
      PointF b = toSource({region.x + 1.5, y + 0.5});
      int sx = int(std::floor(a.x)), sy = int(std::floor(a.y));
      int dx = int(std::lround(b.x - a.x)), dy = int(std::lround(b.y - a.y));
      if (dx == 1 && dy == 0 && E.contains(sx, sy) && E.contains(sx + region.width - 1, sy)) {
        std::memcpy(dst, source.at(sx, sy), size_t(region.width) * 4 * sizeof(float));  // upright, unflipped
        continue;
      }
      for (int i = 0; i < region.width; ++i, sx += dx, sy += dy) {
        float* d = dst + size_t(i) * 4;
        if (E.contains(sx, sy)) {
          const float* s = source.at(sx, sy);
          d[0] = s[0]; d[1] = s[1]; d[2] = s[2]; d[3] = s[3];
        } else {
          d[0] = d[1] = d[2] = d[3] = 0.0f;
        }
      }
      continue;
    }
    for (int i = 0; i < region.width; ++i) {
      float* d = dst + size_t(i) * 4;
      PointF s = toSource({region.x + i + 0.5, y + 0.5});
      if (!(s.x >= E.x && s.x <= E.right() && s.y >= E.y && s.y <= E.bottom())) {
        d[0] = d[1] = d[2] = d[3] = 0.0f;
        continue;
      }
      double fx = s.x - 0.5, fy = s.y - 0.5;
      int ix = int(std::floor(fx)), iy = int(std::floor(fy));
      float wx[4], wy[4];
      cubicWeights(float(fx - ix), wx);
      cubicWeights(float(fy - iy), wy);
      float acc[4] = {0, 0, 0, 0};
      for (int m = 0; m < 4; ++m) {
        int ry = std::clamp(iy - 1 + m, E.y, E.bottom() - 1);
        const float* srow = source.row(ry);
        float rowAcc[4] = {0, 0, 0, 0};
        for (int n = 0; n < 4; ++n) {
          int rx = std::clamp(ix - 1 + n, E.x, E.right() - 1);
          const float* p = srow + size_t(rx - E.x) * 4;
          for (int c = 0; c < 4; ++c) rowAcc[c] += wx[n] * p[c];
        }
        for (int c = 0; c < 4; ++c) acc[c] += wy[m] * rowAcc[c];
      }
      for (int c = 0; c < 4; ++c) d[c] = acc[c];
    }
  }
}

}  // namespace vg
