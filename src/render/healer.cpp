// Healer: bitmaps, the forbidden set, strokes to dabs and the run over all
// strokes. The disc heal itself is in healer_disc.cpp.
#include "render/healer.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vg {

Healer::Bitmap::Bitmap(int w, int h) : width(std::max(0, w)), height(std::max(0, h)) {
  pixels.assign(pixelCount() * 4, 0);
}

Healer::ForbiddenMask::ForbiddenMask(size_t count) : words((count + 63) / 64, 0), pixelCount(count) {}

void Healer::ForbiddenMask::markDisc(int width, int height, double cx, double cy, double radius) {
  if (!(radius > 0) || size_t(std::max(0, width)) * size_t(std::max(0, height)) != pixelCount) return;
  // Pixel centres (x + 0.5) within radius: x in [cx - radius - 0.5, cx + radius - 0.5].
  int y0 = std::max(0, int(std::ceil(cy - radius - 0.5)));
  int y1 = std::min(height - 1, int(std::floor(cy + radius - 0.5)));
  int x0 = std::max(0, int(std::ceil(cx - radius - 0.5)));
  int x1 = std::min(width - 1, int(std::floor(cx + radius - 0.5)));
  double r2 = radius * radius;
  for (int y = y0; y <= y1; ++y) {
    double dy = y + 0.5 - cy;
    size_t rowStart = size_t(y) * size_t(width);
    for (int x = x0; x <= x1; ++x) {
      double dx = x + 0.5 - cx;
      if (dx * dx + dy * dy <= r2) set(rowStart + size_t(x));
    }
  }
}

std::optional<double> Healer::strokeRadius(double size, int width, int height) {
  double r = size * width * 0.5;
  if (std::isnan(r)) return std::nullopt;
  r = std::min(r, 0.2 * std::min(width, height));
  r = std::max(r, 3.0);
  if (!std::isfinite(r) || r <= 0) return std::nullopt;
  return r;
}

double Healer::forbiddenRadius(double radius) { return radius + std::max(2.0, 0.25 * radius); }

namespace {

// The part [t0, t1] of the segment a + t (b - a), t in [0, 1], that lies in
// the closed box [0, w] x [0, h]; false when it misses the box.
bool clipToBox(double ax, double ay, double bx, double by, double w, double h, double& t0, double& t1) {
  t0 = 0;
  t1 = 1;
  const double p[4] = {-(bx - ax), bx - ax, -(by - ay), by - ay};
  const double q[4] = {ax, w - ax, ay, h - ay};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
      continue;
    }
    double t = q[i] / p[i];
    if (p[i] < 0) {
      t0 = std::max(t0, t);
    } else {
      t1 = std::min(t1, t);
    }
  }
  return t0 <= t1;
}

}  // namespace

std::vector<Healer::Dab> Healer::strokeDabs(const Stroke& stroke, int width, int height) {
  std::vector<Dab> dabs;
  if (width <= 0 || height <= 0) return dabs;
  std::optional<double> radius = strokeRadius(stroke.size, width, height);
  if (!radius) return dabs;
  const double r = *radius;
  const double spacing = std::max(0.5 * r, 1.0);
  const double w = width, h = height;
  auto inside = [&](double x, double y) { return x >= 0 && x <= w && y >= 0 && y <= h; };

  bool havePrevious = false;
  double ax = 0, ay = 0;
  for (const Point& point : stroke.points) {
    if (!std::isfinite(point.x) || !std::isfinite(point.y)) continue;
    double bx = point.x * w, by = point.y * h;
    if (!havePrevious) {
      if (inside(bx, by)) dabs.push_back({bx, by, r});
    } else {
      // n evenly spaced dabs after a, the last one on b; only those inside
      // the image are kept, found by clipping instead of walking the segment
      // (points may lie far outside the picture).
      double d = std::hypot(bx - ax, by - ay);
      double n = std::max(std::floor(d / spacing), 1.0);
      double t0, t1;
      if (clipToBox(ax, ay, bx, by, w, h, t0, t1)) {
        double jFirst = std::max(1.0, std::ceil(t0 * n));
        double jLast = std::min(n, std::floor(t1 * n));
        for (double j = jFirst; j <= jLast; j += 1.0) {
          double t = j / n;
          double x = ax + (bx - ax) * t, y = ay + (by - ay) * t;
          if (j == n) x = bx, y = by;
          if (inside(x, y)) dabs.push_back({x, y, r});
        }
      }
    }
    ax = bx;
    ay = by;
    havePrevious = true;
  }
  return dabs;
}

bool Healer::healInPlace(Bitmap& bitmap, std::span<const Stroke> strokes, size_t alreadyApplied,
                         const AsyncCancelToken* token, Options options) {
  if (bitmap.width <= 0 || bitmap.height <= 0) return true;  // no pixel, no dab
  if (bitmap.pixels.size() != bitmap.pixelCount() * 4) {
    throw std::invalid_argument("Healer: bitmap buffer does not match its size");
  }
  ForbiddenMask forbidden(bitmap.pixelCount());
  for (size_t k = 0; k < strokes.size(); ++k) {
    std::vector<Dab> dabs = strokeDabs(strokes[k], bitmap.width, bitmap.height);
    for (const Dab& dab : dabs) {
      forbidden.markDisc(bitmap.width, bitmap.height, dab.cx, dab.cy, forbiddenRadius(dab.radius));
    }
    if (k < alreadyApplied) continue;
    for (const Dab& dab : dabs) {
      if (token && token->isCancelled()) return false;
      healDisc(bitmap, forbidden, dab, options);
    }
  }
  return true;
}

std::optional<Healer::Bitmap> Healer::heal(Bitmap bitmap, std::span<const Stroke> strokes,
                                           const AsyncCancelToken* token, Options options) {
  if (!healInPlace(bitmap, strokes, 0, token, options)) return std::nullopt;
  return bitmap;
}

}  // namespace vg
