// The monitor's colour profile, found once when the application starts.
//
// Sources, first that answers wins:
//   1. colord over the system D-Bus: the first display device it knows and
//      that device's default (first) profile, read from its file;
//   2. the _ICC_PROFILE property of the X root window (set by colour
//      managers for screen 0), when the application runs on X11;
//   3. none: the monitor is taken to be sRGB.
// A profile that is found but cannot be used (not an RGB display profile)
// falls back to sRGB as well; `source` then says so.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/display_transform.h"

namespace vg::app {

struct DisplayProfile {
  std::shared_ptr<const DisplayTransform> transform;  // never null
  std::string source;  // "colord", "X11", or empty when none was found or usable
};

std::optional<std::vector<uint8_t>> colordDisplayProfile();
std::optional<std::vector<uint8_t>> x11DisplayProfile();

// Tries the sources in order. Must run on the GUI thread (X11 access).
DisplayProfile detectDisplayProfile();

// The profile made from ICC bytes (the fallback when they are unusable).
DisplayProfile displayProfileFrom(const std::optional<std::vector<uint8_t>>& icc, std::string source);

}  // namespace vg::app
