// What every decoded GlobalAdjustments keeps, whichever file it came from (a
// recipe, a preset): 8 HSL bands, each scalar slider inside its range and
// every curve point inside 0...1. A broken invariant traps (fuzz_check.h).
#pragma once

#include "model/adjustments.h"

#include "fuzz_check.h"

namespace vg::fuzz {

inline void checkAdjustments(const GlobalAdjustments& a) {
  check(a.hsl.bands.size() == kHSLBandCount, "8 HSL bands");
  for (const auto& f : scalarFields()) {
    const double v = a.*f.member;
    check(v >= f.min && v <= f.max, "scalar in range");
  }
  for (CurveChannel c : kCurveChannels) {
    for (const auto& p : a.curves[c].points) {
      check(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1, "curve point in 0...1");
    }
  }
}

}  // namespace vg::fuzz
