// Helpers of the widget tests: waiting on the Qt event loop for a condition.
#pragma once

#include <functional>

namespace vg::app::test {

// Processes events until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

}  // namespace vg::app::test
