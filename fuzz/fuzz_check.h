// An invariant a fuzz target asserts about what the code under test returned.
// A broken one names itself on stderr (when given a name) and traps, so
// libFuzzer (and the replay run under CTest) report it as a crash with the
// input that caused it.
#pragma once

#include <cstdio>

namespace vg::fuzz {

inline void check(bool ok, const char* what = nullptr) {
  if (ok) return;
  if (what) std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  __builtin_trap();
}

}  // namespace vg::fuzz
