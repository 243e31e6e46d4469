#include "render/image.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include <sys/mman.h>

namespace vg {
namespace {

constexpr size_t kAlign = 64;
constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kHugeThreshold = size_t(8) << 20;

// Free large blocks, oldest first. A request takes the smallest block that
// holds it without wasting more than a quarter of the block; a request no
// block fits drops the blocks that have gone unused for a while and those
// too small for it.
class BufferPool {
 public:
  void* take(size_t bytes, size_t& capacity) {
    std::lock_guard<std::mutex> guard(lock_);
    size_t best = blocks_.size();
    for (size_t i = 0; i < blocks_.size(); ++i) {
      const size_t c = blocks_[i].capacity;
      if (c >= bytes && c - bytes <= c / 4 && (best == blocks_.size() || c < blocks_[best].capacity)) best = i;
    }
    ++clock_;
    if (best == blocks_.size()) {
      // A miss grows the process: first let go of the blocks nobody has
      // asked for lately and of those smaller than the request (sizes of
      // another, smaller picture or scale), which would only add to the peak.
      for (size_t i = 0; i < blocks_.size();) {
        if (clock_ - blocks_[i].lastUse > kStaleAfter || blocks_[i].capacity < bytes) {
          drop(i);
        } else {
          ++i;
        }
      }
      return nullptr;
    }
    void* p = blocks_[best].p;
    capacity = blocks_[best].capacity;
    pooled_ -= capacity;
    blocks_.erase(blocks_.begin() + std::ptrdiff_t(best));
    return p;
  }

  void put(void* p, size_t capacity) {
    if (capacity > Image::kPoolBytes) {
      std::free(p);
      return;
    }
    std::lock_guard<std::mutex> guard(lock_);
    ++clock_;
    while (!blocks_.empty() && pooled_ + capacity > Image::kPoolBytes) drop(0);
    blocks_.push_back({p, capacity, clock_});
    pooled_ += capacity;
  }

  void release() {
    std::lock_guard<std::mutex> guard(lock_);
    while (!blocks_.empty()) drop(0);
  }

  size_t pooled() {
    std::lock_guard<std::mutex> guard(lock_);
    return pooled_;
  }

  ~BufferPool() { release(); }

 private:
  // Pool operations after which a block nobody took counts as stale: a
  // render takes and returns each of its buffers once, a few dozen at most.
  static constexpr uint64_t kStaleAfter = 64;

  struct Block {
    void* p;
    size_t capacity;
    uint64_t lastUse;  // clock_ when it was returned
  };
  void drop(size_t i) {
    std::free(blocks_[i].p);
    pooled_ -= blocks_[i].capacity;
    blocks_.erase(blocks_.begin() + std::ptrdiff_t(i));
  }

  std::mutex lock_;
  std::vector<Block> blocks_;
  size_t pooled_ = 0;
  uint64_t clock_ = 0;
};

BufferPool& pool() {
  static BufferPool* instance = new BufferPool;  // outlives every static Image
  return *instance;
}

}  // namespace

void Image::Free::operator()(float* p) const {
  if (p && capacity >= kHugeThreshold) {
    pool().put(p, capacity);
  } else {
    std::free(p);
  }
}

void Image::releasePool() { pool().release(); }
size_t Image::pooledBytes() { return pool().pooled(); }

Image::Image(Rect bounds) : Image(bounds, true) {}

Image Image::uninitialized(Rect bounds) { return Image(bounds, false); }

Image::Image(Rect bounds, bool zeroed) : bounds_(bounds) {
  if (bounds.empty()) {
    bounds_ = Rect{bounds.x, bounds.y, 0, 0};
    return;
  }
  size_t rowBytes = size_t(bounds.width) * kChannels * sizeof(float);
  rowBytes = (rowBytes + kAlign - 1) / kAlign * kAlign;
  stride_ = rowBytes / sizeof(float);
  size_t total = rowBytes * size_t(bounds.height);
  if (total / rowBytes != size_t(bounds.height)) throw std::bad_alloc();
  void* p = nullptr;
  size_t capacity = total;
  if (total >= kHugeThreshold) {
    // Large rasters in 2 MiB pages: far fewer page faults when first written.
    capacity = (total + kHugePage - 1) / kHugePage * kHugePage;
    p = pool().take(capacity, capacity);
    if (!p) {
      p = std::aligned_alloc(kHugePage, capacity);
      if (p) madvise(p, capacity, MADV_HUGEPAGE);
    }
  } else {
    p = std::aligned_alloc(kAlign, total);
  }
  if (!p) throw std::bad_alloc();
  if (zeroed) std::memset(p, 0, total);
  data_ = std::unique_ptr<float[], Free>(static_cast<float*>(p), Free{capacity});
}

Image Image::clone() const {
  Image copy = uninitialized(bounds_);
  if (!empty()) std::memcpy(copy.data_.get(), data_.get(), byteSize());
  return copy;
}

}  // namespace vg
