// The point edits of the curves editor, on plain ToneCurve values.
//
// The editor keeps a curve's points sorted by x with a minimum gap of
// kMinGap between neighbours, so the function the renderer draws
// (model/curve_function.h) goes through every point the user sees. Points
// the user drags stay between their neighbours; the two outermost points
// may move but are never removed, so a curve always has at least two.
#pragma once

#include <optional>

#include "model/adjustments.h"

namespace vg::app {

inline constexpr double kMinGap = 0.01;

// Sorted by x, coordinates clamped to 0...1, points closer than kMinGap to
// their left neighbour dropped (a curve from an old or hand-edited recipe).
ToneCurve tidyCurve(const ToneCurve& curve);

// The index of the point within `radius` (curve units) of (x, y), nearest first.
std::optional<size_t> pointAt(const ToneCurve& curve, double x, double y, double radius);

// Inserts a point at x (the curve's own y there when y is absent); nothing
// when x is within kMinGap of an existing point. Returns its index.
std::optional<size_t> addPoint(ToneCurve& curve, double x, std::optional<double> y = std::nullopt);

// Moves point i, keeping it kMinGap inside its neighbours and inside 0...1.
void movePoint(ToneCurve& curve, size_t i, double x, double y);

// Removes point i unless it is the first or the last. True when removed.
bool removePoint(ToneCurve& curve, size_t i);

}  // namespace vg::app
