// Rect: the one integer rectangle of the render engine, half-open:
// it covers the pixels x <= px < x + width, y <= py < y + height.
// Pixel (px, py) has its centre at (px + 0.5, py + 0.5) in working-image
// coordinates. Every region of interest, tile, band and image bound is a Rect.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ostream>

namespace vg {

struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  constexpr int right() const { return x + width; }    // one past the last column
  constexpr int bottom() const { return y + height; }  // one past the last row
  constexpr bool empty() const { return width <= 0 || height <= 0; }
  constexpr int64_t area() const { return empty() ? 0 : int64_t(width) * height; }

  constexpr bool contains(int px, int py) const {
    return px >= x && px < right() && py >= y && py < bottom();
  }
  constexpr bool contains(const Rect& r) const {
    return r.empty() || (r.x >= x && r.y >= y && r.right() <= right() && r.bottom() <= bottom());
  }

  // Empty (all zero) when the two do not overlap.
  constexpr Rect intersected(const Rect& r) const {
    int x0 = std::max(x, r.x), y0 = std::max(y, r.y);
    int x1 = std::min(right(), r.right()), y1 = std::min(bottom(), r.bottom());
    if (x1 <= x0 || y1 <= y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
  }

  // Grown by n pixels on every side (shrunk for negative n).
  constexpr Rect grown(int n) const { return {x - n, y - n, width + 2 * n, height + 2 * n}; }
  constexpr Rect translated(int dx, int dy) const { return {x + dx, y + dy, width, height}; }

  friend constexpr bool operator==(const Rect&, const Rect&) = default;
};

inline std::ostream& operator<<(std::ostream& os, const Rect& r) {
  return os << "Rect(" << r.x << ", " << r.y << ", " << r.width << "x" << r.height << ")";
}

}  // namespace vg
