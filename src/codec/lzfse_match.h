// The match finder shared by the LZVN and LZFSE encoders: turns input bytes
// into a parse of (literal run, match) sequences. Internal to src/codec.
//
// Greedy with one step of lazy evaluation over a 4-way hash table of 4-byte
// prefixes, plus the previous distance as a free candidate (mask rows often
// repeat the row above, and runs repeat at distance 1). Matches are extended
// backwards into pending literals. On data without matches the search step
// grows, so incompressible input stays fast.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vg::lzfse {

// `literals` bytes copied from the input, then `matchLength` bytes copied
// from `distance` bytes back. The last sequence of a parse may have
// matchLength 0 (trailing literals; distance 0 then).
struct Sequence {
  uint32_t literals = 0;
  uint32_t matchLength = 0;
  uint32_t distance = 0;
};

struct MatchLimits {
  uint32_t maxDistance = 0;  // 1...2^31
  uint32_t minMatch = 4;     // >= 4
};

// Parses data[0, size) into sequences covering every byte. Matches never
// reach before data[0].
std::vector<Sequence> findMatches(std::span<const uint8_t> data, const MatchLimits& limits);

}  // namespace vg::lzfse
