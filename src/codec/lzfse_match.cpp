#include "codec/lzfse_match.h"

#include <algorithm>
#include <bit>
#include <memory>

#include "codec/lzfse_bits.h"

namespace vg::lzfse {

namespace {

// Hash table of up to 2^15 buckets, smaller for small inputs (it is cleared
// for every call).
constexpr int kMaxHashBits = 15;
constexpr int kMinHashBits = 8;
constexpr int kWays = 4;
constexpr uint32_t kEmpty = 0xFFFFFFFFu;
// Lazy evaluation is skipped for matches at least this long: they rarely
// improve, and long runs are where the time would go.
constexpr uint32_t kLazyLimit = 32;
// Positions of a long match that are indexed: the first and the last few.
constexpr uint32_t kIndexedHead = 16;
constexpr uint32_t kIndexedTail = 32;


// Length of the common prefix of a and b, at most `limit`.
inline uint32_t commonLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  uint32_t n = 0;
  while (n + 8 <= limit) {
    const uint64_t x = load64(a + n) ^ load64(b + n);
    if (x != 0) return n + uint32_t(std::countr_zero(x) >> 3);
    n += 8;
  }
  while (n < limit && a[n] == b[n]) ++n;
  return n;
}

struct Match {
  uint32_t length = 0;
  uint32_t distance = 0;
};

class Finder {
 public:
  Finder(std::span<const uint8_t> data, const MatchLimits& limits)
      : data_(data.data()),
        size_(uint32_t(data.size())),
        limits_(limits),
        hashBits_(std::clamp(int(std::bit_width(data.size())), kMinHashBits, kMaxHashBits)),
        table_(std::make_unique<uint32_t[]>(size_t(kWays) << hashBits_)) {
    std::fill(table_.get(), table_.get() + (size_t(kWays) << hashBits_), kEmpty);
  }

  // Positions whose 4 bytes can be hashed: [0, hashEnd()).
  uint32_t hashEnd() const { return size_ >= 4 ? size_ - 3 : 0; }

  void insert(uint32_t pos) {
    uint32_t* bucket = table_.get() + (size_t(hash4(data_ + pos)) * kWays);
    for (int w = kWays - 1; w > 0; --w) bucket[w] = bucket[w - 1];
    bucket[0] = pos;
  }

  // Longest match at pos (pos < hashEnd()), trying the previous distance
  // first so that equal lengths keep it (it codes cheaper).
  Match best(uint32_t pos, uint32_t prevD) const {
    Match m;
    const uint32_t limit = size_ - pos;
    const uint8_t* cur = data_ + pos;
    if (prevD != 0 && prevD <= pos) {
      m.length = commonLength(cur, cur - prevD, limit);
      m.distance = prevD;
    }
    const uint32_t* bucket = table_.get() + (size_t(hash4(cur)) * kWays);
    for (int w = 0; w < kWays; ++w) {
      const uint32_t cand = bucket[w];
      if (cand == kEmpty || cand >= pos) continue;
      const uint32_t d = pos - cand;
      if (d > limits_.maxDistance) continue;
      if (m.length >= limit) break;
      // Cheap reject: the byte that would make this candidate longer.
      if (data_[cand + m.length] != cur[m.length]) continue;
      const uint32_t len = commonLength(cur, data_ + cand, limit);
      if (len > m.length) {
        m.length = len;
        m.distance = d;
      }
    }
    if (m.length < limits_.minMatch) m.length = 0;
    return m;
  }

 private:
  const uint8_t* data_;
  uint32_t size_;
  MatchLimits limits_;
  int hashBits_;
  std::unique_ptr<uint32_t[]> table_;

  uint32_t hash4(const uint8_t* p) const {
    return (load32(p) * 2654435761u) >> (32 - hashBits_);
  }
};

}  // namespace

std::vector<Sequence> findMatches(std::span<const uint8_t> data, const MatchLimits& limits) {
  std::vector<Sequence> out;
  const uint32_t size = uint32_t(data.size());
  const uint8_t* bytes = data.data();
  Finder finder(data, limits);
  const uint32_t end = finder.hashEnd();
  uint32_t litStart = 0;
  uint32_t prevD = 0;
  uint32_t pos = 0;
  uint32_t misses = 0;
  uint32_t inserted = 0;  // positions below this one are in the table (or skipped)
  while (pos < end) {
    Match m = finder.best(pos, prevD);
    if (m.length == 0) {
      finder.insert(pos);
      inserted = pos + 1;
      // Skip faster through data that keeps failing to match.
      pos += 1 + (misses++ >> 6);
      continue;
    }
    misses = 0;
    // One step of lazy evaluation: a longer match at pos + 1 wins.
    while (m.length < kLazyLimit && pos + 1 < end) {
      finder.insert(pos);
      inserted = pos + 1;
      const Match next = finder.best(pos + 1, prevD);
      if (next.length <= m.length) break;
      ++pos;
      m = next;
    }
    // Extend backwards over pending literals.
    while (pos > litStart && m.distance < pos && bytes[pos - 1] == bytes[pos - 1 - m.distance]) {
      --pos;
      ++m.length;
    }
    out.push_back({pos - litStart, m.length, m.distance});
    const uint32_t matchEnd = pos + m.length;
    // Index the positions the match covers; of a long match only its head
    // and tail (runs and repeated rows would fill the table with copies of
    // themselves, and cost most of the time).
    const uint32_t from = std::max(pos, inserted);
    const uint32_t to = std::min(matchEnd, end);
    if (to > from + kIndexedHead + kIndexedTail) {
      for (uint32_t p = from; p < from + kIndexedHead; ++p) finder.insert(p);
      for (uint32_t p = to - kIndexedTail; p < to; ++p) finder.insert(p);
    } else {
      for (uint32_t p = from; p < to; ++p) finder.insert(p);
    }
    inserted = matchEnd;
    pos = matchEnd;
    litStart = pos;
    prevD = m.distance;
  }
  if (litStart < size) out.push_back({size - litStart, 0, 0});
  return out;
}

}  // namespace vg::lzfse
