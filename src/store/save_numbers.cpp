#include "store/save_numbers.h"

namespace vg {

uint64_t SaveNumbers::take(const std::string& key) {
  std::lock_guard lock(mutex_);
  const uint64_t number = ++last_;
  newest_[key] = number;
  return number;
}

uint64_t SaveNumbers::newest(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = newest_.find(key);
  return it == newest_.end() ? 0 : it->second;
}

}  // namespace vg
