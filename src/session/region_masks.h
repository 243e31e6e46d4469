// The colour region-growing masks: the sky and the magic wand, computed on an
// 8-bit RGBA drawing of the reduced image. Pure functions of their inputs;
// safe on any thread. A raster is one byte per pixel, 0 = not selected,
// 255 = fully selected, rows from the top, each row left to right.
//
// Sky (all arithmetic in doubles on 0...255 channel values):
//  1. Reference colours. The sample rows are the first min(4, h) rows when
//     h < 20, else the first floor(h/4). Band b (0, 1, 2) covers columns
//     floor(b w/3) up to floor((b+1) w/3). A sample pixel is bright when
//     (R+G+B)/3 > 60; a band with more than 15 bright pixels gets their mean
//     colour, the others fall back to the mean of all bright pixels. No bright
//     pixel at all gives the all-zero raster.
//  2. Growing, row by row from the top, left to right, with the tolerance
//     T = 90 (1 - 0.6 y/h). Pixel (x, y) compares with the reference of band
//     min(floor(3x/w), 2): at distance d >= T it stays 0; otherwise it is taken
//     when y = 0, or the pixel above is non-zero, or the pixel to its left is,
//     with strength trunc((1 - d/T) 255). So the sky is what joins the top edge
//     through similar colours, fading with colour distance.
//  3. Softening: a copy, box-softened with radius min(6, floor(min(w, h)/2)),
//     and per pixel the maximum of the two, so edges soften outwards only.
//
// Magic wand: the seed is (round(x w), round(y h)) of a point normalised to
// the image (y from the top), clamped into the raster. From it a 4-connected
// fill over an explicit stack selects (255) every reachable pixel whose RGB
// distance from the *seed's* colour is <= tolerance/100 x 441.67 (the largest
// RGB distance, rounded down, so black never joins a white seed even at 100).
// Comparing with the seed, never with the neighbour, keeps the selection from
// drifting along a gradient. Feather >= 1 replaces the raster by its box-
// softened self with radius min(feather, floor(min(w, h)/2)).
//
// Box softening: three passes, each first along every row, then along every
// column, replacing each value by the integer mean (truncating division) of
// the values within the radius that lie inside the raster: the window is cut
// at the borders, never padded. Running sums keep it linear in the number of
// pixels whatever the radius. Radius 0 changes nothing.
//
// The drawing's colour channels are read as they are stored (premultiplied
// by alpha, which an opaque photograph never notices).
#pragma once

#include <cstdint>
#include <vector>

#include "model/masks.h"
#include "render/healer.h"

namespace vg {

// 8-bit RGBA, 4 bytes per pixel, rows top to bottom without padding.
using Rgba8Bitmap = Healer::Bitmap;

struct MaskRaster {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> values;  // width x height

  MaskRaster() = default;
  MaskRaster(int w, int h) : width(w), height(h), values(std::size_t(w) * std::size_t(h), 0) {}
  std::uint8_t at(int x, int y) const { return values[std::size_t(y) * std::size_t(width) + std::size_t(x)]; }
  std::uint8_t& at(int x, int y) { return values[std::size_t(y) * std::size_t(width) + std::size_t(x)]; }
  friend bool operator==(const MaskRaster&, const MaskRaster&) = default;
};

// 255 x sqrt(3) rounded down to two decimals: the wand's full-scale distance.
inline constexpr double kMagicWandMaxDistance = 441.67;

MaskRaster skyRaster(const Rgba8Bitmap& bitmap);

// `point` is normalised to the bitmap, y from the top; tolerance 0...100
// (clamped; NaN counts as 0); feather in pixels (below 1: a hard edge).
MaskRaster magicWandRaster(const Rgba8Bitmap& bitmap, Point point, double tolerance, int feather);

// Three row-then-column box passes of the given radius (see above), in place.
void boxSoften(MaskRaster& raster, int radius);

// The same with plain per-pixel sums and divisions: the reference the running
// sums are tested against.
void boxSoftenReference(MaskRaster& raster, int radius);

}  // namespace vg
