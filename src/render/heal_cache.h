// HealCache: the render engine's memory of healing work, so that a render
// whose heal inputs did not change costs nothing and adding one more stroke
// only heals that stroke.
//
// - healCache: healed, geometry-corrected images by HealCacheKey, in insertion
//   order (healCacheOrder), bounded by kMaxEntries and by a byte budget
//   (healCacheBytes <= kByteBudget, 512 MiB: about eight previews of 2400
//   pixels, or one 24-megapixel frame beside a preview). The oldest entry is
//   dropped first, but the newest is always kept: a frame larger than the
//   whole budget (a 100-megapixel export) stays alone until the next result
//   replaces it, so that the bands of its render find it.
// - healFailedKeys: requests whose healing failed (the bitmap could not be
//   had); they are not tried again, the render goes on without healing. At
//   most kMaxFailedKeys are remembered, oldest dropped first.
// - healPrefix: the 8-bit bitmap of the last healed result with the strokes
//   baked into it. A request with the same source, geometry and rectangle
//   whose strokes start with those strokes continues from it. It is one
//   frame at a quarter of the float frame's size, held beside the budget.
//
// The key's geometry is the crop and the lens correction as they reach the
// geometry step (GeometryParams: distortion, flips, turns, straightening,
// crop, aspect lock); the lens vignette, applied after healing, is left out
// so that moving its slider does not heal again. `source` identifies the
// working source image: the caller gives every distinct source (the full
// image, each preview scale, each re-development) its own number. Beside it
// the key holds a fingerprint of the source pixels (heal_stage.h), so that two
// different pictures rendered under the same number (a caller that leaves it
// 0, a batch of equally sized images with the same dust-spot strokes) never
// share a heal result.
//
// Every member function takes the lock handed to the constructor (the render
// engine's one cache lock), so the cache is safe to share between renders.
// Healing itself runs outside the lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "model/masks.h"
#include "render/geometry.h"
#include "render/healer.h"
#include "render/image.h"
#include "render/rect.h"

namespace vg {

using HealSourceId = uint64_t;

struct HealCacheKey {
  HealSourceId source = 0;
  uint64_t fingerprint = 0;  // of the source pixels
  std::vector<HealStroke> heals;  // as in the recipe: normalised to the upright source
  GeometryParams geometry;  // crop and lens, as far as they shape the frame
  Rect rect;                // the output rectangle that was healed
  friend bool operator==(const HealCacheKey&, const HealCacheKey&) = default;
};

struct HealPrefixEntry {
  HealSourceId source = 0;
  uint64_t fingerprint = 0;
  GeometryParams geometry;
  Rect rect;
  std::vector<HealStroke> applied;         // strokes baked into image
  std::shared_ptr<const Healer::Bitmap> image;  // the healed frame, 8-bit

  // True when a request for key can start from this entry.
  bool extendsTo(const HealCacheKey& key) const;
};

class HealCache {
 public:
  static constexpr size_t kByteBudget = size_t(512) << 20;
  static constexpr size_t kMaxEntries = 8;
  static constexpr size_t kMaxFailedKeys = 32;

  explicit HealCache(std::mutex& cacheLock, size_t byteBudget = kByteBudget);
  HealCache(const HealCache&) = delete;
  HealCache& operator=(const HealCache&) = delete;

  std::shared_ptr<const Image> find(const HealCacheKey& key) const;
  bool hasFailed(const HealCacheKey& key) const;
  void markFailed(const HealCacheKey& key);
  // The prefix entry when key can start from it.
  std::optional<HealPrefixEntry> prefixFor(const HealCacheKey& key) const;

  // Keeps a produced result: the image in healCache (when it fits the budget)
  // and its bitmap as the new healPrefix.
  void insert(const HealCacheKey& key, std::shared_ptr<const Image> image,
              std::shared_ptr<const Healer::Bitmap> bitmap);

  size_t bytes() const;
  size_t entryCount() const;
  void clear();

 private:
  struct Entry {
    HealCacheKey key;
    std::shared_ptr<const Image> image;
    size_t bytes = 0;
  };

  std::mutex& lock_;
  size_t byteBudget_;
  std::deque<Entry> healCache_;  // oldest first: its order is healCacheOrder
  size_t healCacheBytes_ = 0;
  std::deque<HealCacheKey> healFailedKeys_;
  std::optional<HealPrefixEntry> healPrefix_;
};

}  // namespace vg
