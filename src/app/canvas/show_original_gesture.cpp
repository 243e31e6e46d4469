#include "app/canvas/show_original_gesture.h"

namespace vg::app {

bool ShowOriginalGesture::press(TimePoint t) {
  if (!held_) {
    held_ = true;
    pressedAt_ = t;
  }
  return showingOriginal();
}

bool ShowOriginalGesture::release(TimePoint t) {
  if (!held_) return showingOriginal();
  held_ = false;
  if (t - pressedAt_ <= kTapMax) {
    if (lastTapEnd_ && pressedAt_ - *lastTapEnd_ <= kDoubleTapGap) {
      toggled_ = !toggled_;
      lastTapEnd_.reset();
    } else {
      lastTapEnd_ = t;
    }
  } else {
    lastTapEnd_.reset();
  }
  return showingOriginal();
}

void ShowOriginalGesture::setToggled(bool on) {
  toggled_ = on;
  held_ = false;
  lastTapEnd_.reset();
}

}  // namespace vg::app
