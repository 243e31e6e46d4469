// ShowOriginalGesture: the \ key of the canvas. Holding it shows the
// original while it is held ("按住查看原图，松开恢复"); two quick taps switch
// between original and edited for good ("点按两下在两者间切换"). While the
// switch shows the original, holding the key shows the edited picture: the
// key always shows "the other one".
//
// A tap is a press released within kTapMax; two taps make a double tap when
// the second press comes within kDoubleTapGap of the first release. Times are
// passed in, so the rule is tested without waiting.
#pragma once

#include <chrono>
#include <optional>

namespace vg::app {

class ShowOriginalGesture {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::milliseconds kTapMax{300};
  static constexpr std::chrono::milliseconds kDoubleTapGap{400};

  // Both return showingOriginal() after the event. Key auto-repeat must not
  // be passed in.
  bool press(TimePoint t);
  bool release(TimePoint t);
  // Sets the switch directly (the View menu's toggle); ends any hold.
  void setToggled(bool on);

  bool showingOriginal() const { return held_ != toggled_; }
  bool toggled() const { return toggled_; }

 private:
  bool held_ = false;
  bool toggled_ = false;
  TimePoint pressedAt_{};
  std::optional<TimePoint> lastTapEnd_;
};

}  // namespace vg::app
