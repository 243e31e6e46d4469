// The crop tool's edits of CropSettings, as pure functions, and the snapshot
// the session keeps while the tool is open (so Esc can restore it).
//
// Conventions are the render engine's (render/geometry.h): the crop rectangle
// is normalised to the transformed frame F, x from the left and y from the
// top; quarter turns are clockwise on screen; a positive angle turns the
// picture clockwise; flips act on the upright source before the turns.
//
// Quarter turns. Clockwise: quarterTurn + 1 (mod 4); the rectangle turns with
// the picture by T(x, y, w, h) = (1 - (y + h), x, h, w); an aspect lock
// becomes its reciprocal. Counter-clockwise is the inverse: quarterTurn + 3,
// T applied three times. Absent rectangles and locks stay absent.
//
// Mirrors as seen on screen. A horizontal mirror toggles the source flip
// that shows as horizontal (flipHorizontal for an even turn count,
// flipVertical for an odd one), negates the straightening angle (a mirrored
// clockwise tilt is a counter-clockwise one) and mirrors the rectangle about
// the frame's centre line; the vertical mirror likewise across.
//
// Straightening. The picture rotated by the angle and scaled by the cover
// factor k fills F exactly along its own axes, so in F the valid pixels are
// F's own rectangle turned by the angle about its centre. fitCropRect keeps a
// rectangle that lies inside that turned rectangle and otherwise replaces it
// by the largest rectangle of its aspect ratio (the aspect lock, else its own
// pixel aspect) that fits, centred in the frame. Without a rectangle the
// output is the frame before scaling, which the turned picture always covers.
#pragma once

#include <optional>

#include "model/adjustments.h"
#include "model/uuid.h"
#include "session/editor_tool.h"

namespace vg {

struct CropSessionSnapshot {
  CropSettings crop;                     // as the tool opened
  std::optional<Uuid> historyEntryID;    // the undo step current then
  EditorTool returnTool = EditorTool::adjust;
  bool operator==(const CropSessionSnapshot&) const = default;
};

// One clockwise turn of a normalised rectangle with the picture.
NormalizedRect turnedClockwise(const NormalizedRect& r);

CropSettings rotatedQuarter(const CropSettings& crop, bool clockwise);
CropSettings mirroredOnScreen(const CropSettings& crop, bool horizontal);

// The crop with `angle` (clamped to -45...45) and its rectangle refitted.
// sourceWidth/Height: the upright source's size in pixels (any scale).
CropSettings straightened(const CropSettings& crop, double angle, double sourceWidth, double sourceHeight);

// The rectangle fitted to the rotated picture (rule above), for a crop whose
// angle is already set.
std::optional<NormalizedRect> fitCropRect(const CropSettings& crop, double sourceWidth, double sourceHeight);

}  // namespace vg
