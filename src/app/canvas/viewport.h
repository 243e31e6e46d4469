// Viewport: which part of the picture the canvas shows, and how big.
//
// Coordinates. Image coordinates are pixels of the edited picture at full
// resolution (the output frame: after crop and rotation), y down. View
// coordinates are the canvas widget's device pixels, y down, origin top left.
// `scale` is view pixels per image pixel: 1 is "100 %", one image pixel on
// one screen pixel. `center` is the image point shown at the view's centre.
//
// Rules every operation keeps:
// - the scale stays within [minScale(), kMaxScale];
// - a picture smaller than the view is centred on that axis; a larger one
//   never leaves an empty gap at an edge that it could cover (clampCenter);
// - zoomAt(p, s) keeps the image point under view point p where it was.
// `fitted` marks the fit mode: the scale follows the view's size until the
// user zooms or pans.
#pragma once

namespace vg::app {

struct ViewPoint {
  double x = 0;
  double y = 0;
  bool operator==(const ViewPoint&) const = default;
};

struct ViewRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool empty() const { return !(width > 0 && height > 0); }
  bool operator==(const ViewRect&) const = default;
};

struct Viewport {
  static constexpr double kMaxScale = 16.0;  // 1600 %
  static constexpr double kFitMargin = 0.96;  // the fitted picture leaves a thin border

  double viewWidth = 0;
  double viewHeight = 0;
  double imageWidth = 0;
  double imageHeight = 0;
  double scale = 1;
  ViewPoint center;
  bool fitted = true;

  bool valid() const { return viewWidth > 0 && viewHeight > 0 && imageWidth > 0 && imageHeight > 0; }
  double fitScale() const;
  // Never smaller than a quarter of the fit, and never forcing more than fit.
  double minScale() const;

  ViewPoint toView(ViewPoint image) const;
  ViewPoint toImage(ViewPoint view) const;
  // The picture's rectangle in view coordinates.
  ViewRect imageRectInView() const;
  // The part of the picture inside the view, in image coordinates.
  ViewRect visibleImageRect() const;

  // The operations; each leaves the viewport clamped.
  void resize(double width, double height);
  void setImageSize(double width, double height);
  void fit();
  void zoomAt(ViewPoint anchor, double newScale);
  void panBy(double dx, double dy);  // view pixels; the picture moves with the pointer
  void clampCenter();
};

}  // namespace vg::app
