// HealCache. See heal_cache.h.
#include "render/heal_cache.h"

#include <algorithm>

namespace vg {

bool HealPrefixEntry::extendsTo(const HealCacheKey& key) const {
  return image && source == key.source && fingerprint == key.fingerprint && geometry == key.geometry && rect == key.rect &&
         applied.size() <= key.heals.size() && std::equal(applied.begin(), applied.end(), key.heals.begin());
}

HealCache::HealCache(std::mutex& cacheLock, size_t byteBudget) : lock_(cacheLock), byteBudget_(byteBudget) {}

std::shared_ptr<const Image> HealCache::find(const HealCacheKey& key) const {
  std::lock_guard<std::mutex> guard(lock_);
  for (const Entry& e : healCache_) {
    if (e.key == key) return e.image;
  }
  return nullptr;
}

bool HealCache::hasFailed(const HealCacheKey& key) const {
  std::lock_guard<std::mutex> guard(lock_);
  return std::find(healFailedKeys_.begin(), healFailedKeys_.end(), key) != healFailedKeys_.end();
}

void HealCache::markFailed(const HealCacheKey& key) {
  std::lock_guard<std::mutex> guard(lock_);
  if (std::find(healFailedKeys_.begin(), healFailedKeys_.end(), key) != healFailedKeys_.end()) return;
  healFailedKeys_.push_back(key);
  while (healFailedKeys_.size() > kMaxFailedKeys) healFailedKeys_.pop_front();
}

std::optional<HealPrefixEntry> HealCache::prefixFor(const HealCacheKey& key) const {
  std::lock_guard<std::mutex> guard(lock_);
  if (healPrefix_ && healPrefix_->extendsTo(key)) return healPrefix_;
  return std::nullopt;
}

void HealCache::insert(const HealCacheKey& key, std::shared_ptr<const Image> image,
                       std::shared_ptr<const Healer::Bitmap> bitmap) {
  std::lock_guard<std::mutex> guard(lock_);
  if (bitmap) healPrefix_ = HealPrefixEntry{key.source, key.fingerprint, key.geometry, key.rect, key.heals, std::move(bitmap)};
  if (!image) return;
  for (auto it = healCache_.begin(); it != healCache_.end(); ++it) {
    if (it->key == key) {
      healCacheBytes_ -= it->bytes;
      healCache_.erase(it);
      break;
    }
  }
  const size_t size = image->byteSize();
  healCache_.push_back({key, std::move(image), size});
  healCacheBytes_ += size;
  // Oldest first, but never the entry just made: a banded render looks its
  // frame up once per band, however large it is.
  while (healCache_.size() > 1 && (healCache_.size() > kMaxEntries || healCacheBytes_ > byteBudget_)) {
    healCacheBytes_ -= healCache_.front().bytes;
    healCache_.pop_front();
  }
}

size_t HealCache::bytes() const {
  std::lock_guard<std::mutex> guard(lock_);
  return healCacheBytes_;
}

size_t HealCache::entryCount() const {
  std::lock_guard<std::mutex> guard(lock_);
  return healCache_.size();
}

void HealCache::clear() {
  std::lock_guard<std::mutex> guard(lock_);
  healCache_.clear();
  healCacheBytes_ = 0;
  healFailedKeys_.clear();
  healPrefix_.reset();
}

}  // namespace vg
