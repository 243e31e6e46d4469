// onEveryTarget: runs a test body once on every instruction set Highway
// compiled the render layer for (not only the one this processor picks),
// each under a trace naming it, and restores the normal choice afterwards.
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cstdint>

namespace vg::test {

template <class Fn>
void onEveryTarget(const Fn& fn) {
  struct RestoreTargets {
    ~RestoreTargets() { hwy::SetSupportedTargetsForTest(0); }
  } restore;
  for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    SCOPED_TRACE(hwy::TargetName(target));
    fn();
  }
}

}  // namespace vg::test
