// EXIF/TIFF orientation: how a stored raster is turned upright.
//
// Values 1-8 as the EXIF Orientation tag defines them (stored w × h):
//   1 as stored                      (x, y)           -> (x, y)
//   2 mirrored left-right            (x, y)           -> (w-1-x, y)
//   3 turned 180°                    (x, y)           -> (w-1-x, h-1-y)
//   4 mirrored top-bottom            (x, y)           -> (x, h-1-y)
//   5 transposed                     (x, y)           -> (y, x)
//   6 needs a 90° clockwise turn     (x, y)           -> (h-1-y, x)
//   7 transversed                    (x, y)           -> (h-1-y, w-1-x)
//   8 needs a 90° counter-clockwise  (x, y)           -> (y, w-1-x)
// Values 5-8 swap width and height. Anything outside 1-8 (absent, 0, 100)
// means 1: an unknown orientation never fails a load.
#pragma once

namespace vg::orientation {

struct Point {
  int x = 0;
  int y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

// 1-8 kept, anything else becomes 1.
inline int normalized(long value) { return value >= 1 && value <= 8 ? int(value) : 1; }

inline bool swapsAxes(int o) { return o >= 5 && o <= 8; }

// Where stored pixel (x, y) of a w × h raster lands in the upright image.
inline Point upright(int o, int w, int h, int x, int y) {
  switch (o) {
    case 2: return {w - 1 - x, y};
    case 3: return {w - 1 - x, h - 1 - y};
    case 4: return {x, h - 1 - y};
    case 5: return {y, x};
    case 6: return {h - 1 - y, x};
    case 7: return {h - 1 - y, w - 1 - x};
    case 8: return {y, w - 1 - x};
    default: return {x, y};
  }
}

}  // namespace vg::orientation
