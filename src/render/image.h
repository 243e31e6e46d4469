// Image: a float RGBA raster in the linear working space (Rec.709 primaries,
// premultiplied alpha), the pixel currency of the render engine.
//
// - An image covers bounds(), a Rect in working-image coordinates that need not
//   start at (0, 0): a tile or a sub-rectangle render keeps its true position.
// - Pixels are 4 floats (R, G, B, A). Rows are contiguous and start 64-byte
//   aligned; strideFloats() is the distance between rows in floats.
// - Values may lie outside 0...1 (and may be NaN or infinite on bad input)
//   until a stage clamps them.
// - Move-only: copying hundreds of megabytes must be asked for (clone()).
//   Share immutable images through std::shared_ptr<const Image>.
// - Large buffers (8 MiB and more) are recycled: a freed one is kept in a
//   process-wide pool (at most kPoolBytes, oldest dropped first) and handed to
//   the next image that fits in it, so a render that allocates the same
//   working buffers again and again does not pay the kernel for fresh zeroed
//   pages each time. A request that no kept block fits drops the blocks
//   nobody has taken lately and those smaller than it, so buffers of sizes
//   no longer in use do not linger.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "render/rect.h"

namespace vg {

class Image {
 public:
  static constexpr int kChannels = 4;

  Image() = default;
  // Pixels start zeroed (transparent black). Throws std::bad_alloc when the
  // buffer cannot be had; callers that take sizes from files check them first.
  explicit Image(Rect bounds);
  Image(int width, int height) : Image(Rect{0, 0, width, height}) {}

  // Pixels left as the allocator gives them, for producers that write every
  // pixel anyway (decoders): saves a full pass over hundreds of megabytes.
  static Image uninitialized(Rect bounds);
  static Image uninitialized(int width, int height) { return uninitialized(Rect{0, 0, width, height}); }

  Image(Image&&) noexcept = default;
  Image& operator=(Image&&) noexcept = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  Image clone() const;

  // Bytes the pool may keep; releasePool() gives them all back to the system.
  static constexpr size_t kPoolBytes = size_t(1536) << 20;
  static void releasePool();
  static size_t pooledBytes();

  const Rect& bounds() const { return bounds_; }
  int width() const { return bounds_.width; }
  int height() const { return bounds_.height; }
  bool empty() const { return bounds_.empty(); }
  size_t strideFloats() const { return stride_; }
  size_t byteSize() const { return stride_ * sizeof(float) * size_t(std::max(0, bounds_.height)); }

  // Row y (working-image coordinates), starting at column bounds().x.
  float* row(int y) { return data_.get() + size_t(y - bounds_.y) * stride_; }
  const float* row(int y) const { return data_.get() + size_t(y - bounds_.y) * stride_; }
  // Pixel (x, y) in working-image coordinates; must lie inside bounds().
  float* at(int x, int y) { return row(y) + size_t(x - bounds_.x) * kChannels; }
  const float* at(int x, int y) const { return row(y) + size_t(x - bounds_.x) * kChannels; }

  // The same pixels, relabelled to start at a new origin (no copy).
  void setOrigin(int x, int y) { bounds_.x = x; bounds_.y = y; }

 private:
  Image(Rect bounds, bool zeroed);

  struct Free {
    Free() noexcept : capacity(0) {}
    explicit Free(size_t bytes) noexcept : capacity(bytes) {}
    size_t capacity;  // bytes allocated: large blocks go back to the pool
    void operator()(float* p) const;
  };
  Rect bounds_;
  size_t stride_ = 0;
  std::unique_ptr<float[], Free> data_;
};

}  // namespace vg
