#include "store/clock.h"

namespace vg {

SystemClock& SystemClock::shared() {
  static SystemClock clock;
  return clock;
}

}  // namespace vg
