// An invariant a fuzz target asserts about what the code under test returned.
// A broken one traps, so libFuzzer (and the replay run under CTest) report it
// as a crash with the input that caused it.
#pragma once

namespace vg::fuzz {

inline void check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace vg::fuzz
