// CanvasView: the picture of one editor window, drawn with QPainter on a
// raster widget (no OpenGL needed, so it also runs offscreen and under Xvfb).
//
// What it shows, bottom to top: the newest picture of the whole frame
// (scaled), the newest full-resolution detail of the visible part when zoomed
// in, the original instead (show original) or on the left of a draggable
// divider (split compare), the tool overlays, and a hint line (sampling
// prompt, compare state). A picture is replaced only when its successor
// arrives, so the canvas never goes blank while the next render runs, and
// however many pictures arrive between two frames, one repaint draws them.
//
// Input: the wheel zooms at the cursor; a drag pans (always with the space
// bar held, else when no overlay takes it); a double click switches between
// fit and 100 % at the pointer; near the split divider a drag moves it;
// while sampling, a click reports the image point instead.
//
// It changes nothing but its view: viewport changes, samples and divider
// moves are signals, handled by the window.
#pragma once

#include <QString>
#include <QWidget>
#include <vector>

#include "app/canvas/canvas_overlay.h"
#include "app/canvas/canvas_picture.h"
#include "app/canvas/viewport.h"

namespace vg::app {

class CanvasView : public QWidget {
  Q_OBJECT
 public:
  explicit CanvasView(QWidget* parent = nullptr);

  // The full-resolution size of the edited frame (changes with crop and turns).
  void setFrameSize(double width, double height);
  // The newest picture of the whole frame; clears nothing else.
  void setPicture(CanvasPicture picture);
  // The newest sharp picture of (part of) the view; dropped on the next fit.
  void setDetail(CanvasPicture detail);
  // The unedited picture and the size of the frame it covers (the source's
  // upright size for show original; the edited frame for split compare).
  void setOriginal(CanvasPicture original, double frameWidth, double frameHeight);
  void clearPictures();

  void setShowOriginal(bool on);
  void setSplitCompare(bool on);
  // Where the divider stands, as a fraction of the picture's width on screen.
  void setSplitPosition(double fraction);
  double splitPosition() const { return split_; }
  // A prompt shown while a click-to-sample mode is armed; empty disarms.
  void setSamplingPrompt(const QString& prompt);
  // A short state line ("正在显示原图"); empty hides it.
  void setBadge(const QString& text);
  // Space held: a drag pans whatever the tool.
  void setSpacePan(bool on);

  void addOverlay(CanvasOverlay* overlay);
  void removeOverlay(CanvasOverlay* overlay);

  const Viewport& viewport() const { return viewport_; }
  void fitToWindow();
  void actualSize();  // 100 %, centred on the view's centre
  void zoomBy(double factor);
  bool hasPicture() const { return picture_.valid(); }
  bool showsOriginal() const { return showOriginal_; }
  bool splitCompare() const { return splitCompare_; }
  // Generations of the picture and of the detail the last paint drew
  // (benchmarks and tests wait on them).
  uint64_t paintedGeneration() const { return paintedGeneration_; }
  uint64_t paintedDetailGeneration() const { return paintedDetailGeneration_; }

 signals:
  void viewportChanged();
  void sampleRequested(double imageX, double imageY);
  void splitPositionChanged(double fraction);

 protected:
  void paintEvent(QPaintEvent*) override;
  void resizeEvent(QResizeEvent*) override;
  void wheelEvent(QWheelEvent*) override;
  void mousePressEvent(QMouseEvent*) override;
  void mouseMoveEvent(QMouseEvent*) override;
  void mouseReleaseEvent(QMouseEvent*) override;
  void mouseDoubleClickEvent(QMouseEvent*) override;

 private:
  enum class Drag { none, pan, divider, overlay };
  ViewPoint toDevice(const QPointF& p) const;
  double dividerX() const;  // in view coordinates
  bool nearDivider(ViewPoint p) const;
  void drawPicture(QPainter& p, const CanvasPicture& picture, const Viewport& vp) const;
  void drawPill(QPainter& p, const QString& text, double centerX, double y, bool top) const;
  void updateCursor(ViewPoint at);
  void viewportMoved();

  Viewport viewport_;
  CanvasPicture picture_;
  CanvasPicture detail_;
  CanvasPicture original_;
  double originalWidth_ = 0;
  double originalHeight_ = 0;
  bool showOriginal_ = false;
  bool splitCompare_ = false;
  double split_ = 0.5;
  QString prompt_;
  QString badge_;
  bool spacePan_ = false;
  std::vector<CanvasOverlay*> overlays_;
  Drag drag_ = Drag::none;
  CanvasOverlay* dragOverlay_ = nullptr;
  ViewPoint lastPointer_;
  uint64_t paintedGeneration_ = 0;
  uint64_t paintedDetailGeneration_ = 0;
};

}  // namespace vg::app
