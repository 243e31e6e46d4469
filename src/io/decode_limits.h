// Limits that keep hostile or absurd headers from turning into huge
// allocations (decompression bombs). Every decoder checks the stored size a
// file declares before it allocates anything for its pixels.
//
// - Each side at most kMaxSide pixels.
// - At most kMaxPixels pixels (a 256-megapixel float RGBA image is 4 GiB).
// - Above kFreePixels, the file must hold at least one byte for every
//   kMaxPixelsPerByte pixels: real photographs compress far less than that,
//   while a bomb declares a giant raster in a few kilobytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vg::decode_limits {

inline constexpr int64_t kMaxSide = 65535;
inline constexpr int64_t kMaxPixels = int64_t(256) << 20;
inline constexpr int64_t kFreePixels = int64_t(64) << 20;
inline constexpr int64_t kMaxPixelsPerByte = 2048;

// Throws DecodeError when a width × height raster declared by a file of
// fileBytes bytes is not plausible.
void check(int64_t width, int64_t height, size_t fileBytes);

// Lowers the pixel limit for decodes on the current thread while it lives
// (fuzzing, thumbnails of untrusted folders). Nested scopes restore the
// previous limit; the limit can only go down.
class ScopedMaxPixels {
 public:
  explicit ScopedMaxPixels(int64_t maxPixels);
  ~ScopedMaxPixels();
  ScopedMaxPixels(const ScopedMaxPixels&) = delete;
  ScopedMaxPixels& operator=(const ScopedMaxPixels&) = delete;

 private:
  int64_t previous_;
};

}  // namespace vg::decode_limits
