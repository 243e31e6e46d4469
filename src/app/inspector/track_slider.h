// TrackSlider: the inspector's slider. It draws the fill from the field's
// default (its origin) to the handle, so a bipolar slider at 0 shows no fill
// and one pulled left fills leftwards; a colour track (temperature, tint,
// HSL bands, hues) replaces the plain groove with a gradient of what the
// slider does. Hit testing and keyboard handling stay QSlider's own.
#pragma once

#include <QColor>
#include <QSlider>
#include <vector>

namespace vg::app {

class TrackSlider : public QSlider {
 public:
  explicit TrackSlider(QWidget* parent = nullptr);
  void setOrigin(int position) { origin_ = position; update(); }
  // Colours spread evenly along the groove; empty for the plain groove.
  void setTrack(std::vector<QColor> colours) { track_ = std::move(colours); update(); }

 protected:
  void paintEvent(QPaintEvent*) override;

 private:
  int origin_ = 0;
  std::vector<QColor> track_;
};

}  // namespace vg::app
