#include "io/decode_limits.h"

#include <algorithm>
#include <string>

#include "io/load_error.h"

namespace vg::decode_limits {
namespace {
thread_local int64_t threadMaxPixels = kMaxPixels;
}

ScopedMaxPixels::ScopedMaxPixels(int64_t maxPixels) : previous_(threadMaxPixels) {
  threadMaxPixels = std::min(threadMaxPixels, std::max<int64_t>(1, maxPixels));
}

ScopedMaxPixels::~ScopedMaxPixels() { threadMaxPixels = previous_; }

void check(int64_t width, int64_t height, size_t fileBytes) {
  auto size = std::to_string(width) + "x" + std::to_string(height);
  if (width < 1 || height < 1) throw DecodeError("empty raster " + size);
  if (width > kMaxSide || height > kMaxSide) throw DecodeError("raster side too large: " + size);
  int64_t pixels = width * height;
  if (pixels > threadMaxPixels) throw DecodeError("raster too large: " + size);
  if (pixels > kFreePixels && int64_t(fileBytes) < pixels / kMaxPixelsPerByte) {
    throw DecodeError("raster " + size + " implausible for a file of " +
                      std::to_string(fileBytes) + " bytes");
  }
}

}  // namespace vg::decode_limits
