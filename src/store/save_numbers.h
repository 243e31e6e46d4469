// The newest save number requested per sidecar key, shared between the
// threads that request saves and the write queue that performs them. A write
// whose number is older than the newest one for its key is stale: a newer
// save of the same image is already on its way, so the older write is skipped.
//
// Thread-safe; the lock is held only for one lookup or update.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

namespace vg {

class SaveNumbers {
 public:
  // A number greater than every number taken before (for any key), recorded
  // as the newest for `key`.
  uint64_t take(const std::string& key);

  // The newest number taken for `key`; 0 when none was.
  uint64_t newest(const std::string& key) const;

  // True when a number newer than `number` has been taken for `key`.
  bool isStale(const std::string& key, uint64_t number) const { return newest(key) > number; }

 private:
  mutable std::mutex mutex_;
  std::unordered_map<std::string, uint64_t> newest_;
  uint64_t last_ = 0;
};

}  // namespace vg
