// CanvasOverlay: what a tool draws over the picture and the pointer input it
// takes (crop handles, mask handles, brush cursors). The canvas asks its
// overlays, newest first, before it pans; an overlay that returns true owns
// the gesture until the button is released. Overlays never change the
// document themselves: they emit intents that the window hands to the session.
#pragma once

#include <QCursor>
#include <optional>

#include "app/canvas/viewport.h"

class QMouseEvent;
class QPainter;

namespace vg::app {

class CanvasOverlay {
 public:
  virtual ~CanvasOverlay() = default;
  // Painted in view (device pixel) coordinates, after the picture.
  virtual void paint(QPainter& painter, const Viewport& viewport) = 0;
  // `at` is the pointer in view coordinates.
  virtual bool press(ViewPoint at, const QMouseEvent& event, const Viewport& viewport) { return false; }
  virtual void move(ViewPoint at, const QMouseEvent& event, const Viewport& viewport) {}
  virtual void release(ViewPoint at, const QMouseEvent& event, const Viewport& viewport) {}
  // The cursor over `at` when the overlay wants one.
  virtual std::optional<QCursor> cursorAt(ViewPoint at, const Viewport& viewport) { return std::nullopt; }
};

}  // namespace vg::app
