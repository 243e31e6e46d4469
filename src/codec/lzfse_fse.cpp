#include "codec/lzfse_fse.h"

#include <algorithm>
#include <bit>

namespace vg::lzfse {

const std::array<uint8_t, kLSymbols> kLExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                    0, 0, 0, 0, 0, 0, 2, 3, 5, 8};
const std::array<uint32_t, kLSymbols> kLBaseValue = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                                     10, 11, 12, 13, 14, 15, 16, 20, 28, 60};
const std::array<uint8_t, kMSymbols> kMExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                    0, 0, 0, 0, 0, 0, 3, 5, 8, 11};
const std::array<uint32_t, kMSymbols> kMBaseValue = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                                     10, 11, 12, 13, 14, 15, 16, 24, 56, 312};

// D symbols come in groups of four sharing an extra-bit count (s / 4); each
// base is the previous base plus the previous symbol's range.
static std::array<uint8_t, kDSymbols> makeDExtraBits() {
  std::array<uint8_t, kDSymbols> bits{};
  for (int s = 0; s < kDSymbols; ++s) bits[s] = uint8_t(s / 4);
  return bits;
}
static std::array<uint32_t, kDSymbols> makeDBaseValue() {
  std::array<uint32_t, kDSymbols> base{};
  for (int s = 1; s < kDSymbols; ++s) base[s] = base[s - 1] + (1u << ((s - 1) / 4));
  return base;
}
const std::array<uint8_t, kDSymbols> kDExtraBits = makeDExtraBits();
const std::array<uint32_t, kDSymbols> kDBaseValue = makeDBaseValue();

uint8_t lSymbol(uint32_t v) {
  if (v < 16) return uint8_t(v);
  if (v < 20) return 16;
  if (v < 28) return 17;
  if (v < 60) return 18;
  return 19;
}

uint8_t mSymbol(uint32_t v) {
  if (v < 16) return uint8_t(v);
  if (v < 24) return 16;
  if (v < 56) return 17;
  if (v < 312) return 18;
  return 19;
}

// Symbol 4q + r (r < 4) has base 4 * (2^q - 1) + r * 2^q and q extra bits,
// so v + 4 = (4 + r) * 2^q + extra: its top three bits are 1rr at bit q + 2.
uint8_t dSymbol(uint32_t v) {
  const uint32_t w = v + 4;
  const int q = std::bit_width(w) - 3;
  const uint32_t r = (w >> q) - 4;
  return uint8_t(4 * q + int(r));
}

namespace {

// Calls emit(state, bits, base) for every state of the table, in state
// order, or returns false when the frequencies do not sum to `states`.
template <typename Emit>
bool forEachState(int states, int symbols, const uint16_t* freq, Emit emit) {
  const int n = std::countr_zero(unsigned(states));
  int c = 0;
  for (int s = 0; s < symbols; ++s) {
    const int f = freq[s];
    if (f == 0) continue;
    if (f > states - c) return false;
    const int k = n - (std::bit_width(unsigned(f)) - 1);
    const int j0 = ((2 * states) >> k) - f;
    for (int j = 0; j < f; ++j) {
      if (j < j0) {
        emit(s, c + j, k, ((f + j) << k) - states);
      } else {
        emit(s, c + j, k - 1, (j - j0) << (k - 1));
      }
    }
    c += f;
  }
  return c == states;
}

}  // namespace

bool buildLiteralDecodeTable(const uint16_t* freq, LiteralDecodeEntry* table) {
  return forEachState(kLiteralStates, kLiteralSymbols, freq,
                      [&](int s, int state, int bits, int base) {
                        table[state] = {uint8_t(bits), uint8_t(s), uint16_t(base)};
                      });
}

bool buildValueDecodeTable(int states, int symbols, const uint16_t* freq,
                           const uint8_t* extraBits, const uint32_t* valueBase,
                           ValueDecodeEntry* table) {
  return forEachState(states, symbols, freq, [&](int s, int state, int bits, int base) {
    table[state] = {uint8_t(bits + extraBits[s]), extraBits[s], uint16_t(base), valueBase[s]};
  });
}

void normalizeFrequencies(const uint32_t* counts, int symbols, int states, uint16_t* freq) {
  uint64_t total = 0;
  int largest = 0;
  for (int s = 0; s < symbols; ++s) {
    total += counts[s];
    if (counts[s] > counts[largest]) largest = s;
  }
  std::fill(freq, freq + symbols, uint16_t(0));
  if (total == 0) {
    freq[0] = uint16_t(states);
    return;
  }
  int sum = 0;
  for (int s = 0; s < symbols; ++s) {
    if (counts[s] == 0) continue;
    uint64_t f = (uint64_t(counts[s]) * uint64_t(states) + total / 2) / total;
    freq[s] = uint16_t(std::max<uint64_t>(1, f));
    sum += freq[s];
  }
  if (sum < states) {
    freq[largest] = uint16_t(freq[largest] + (states - sum));
    return;
  }
  // Over budget because rare symbols were raised to 1: take the excess from
  // the biggest frequencies, where one state less costs the least.
  while (sum > states) {
    int biggest = 0;
    for (int s = 1; s < symbols; ++s) {
      if (freq[s] > freq[biggest]) biggest = s;
    }
    const int excess = sum - states;
    const int take = std::min(excess, std::max(1, freq[biggest] / 8));
    freq[biggest] = uint16_t(freq[biggest] - take);
    sum -= take;
  }
}

void FseEncoder::init(int states, int symbols, const uint16_t* freq) {
  const int n = std::countr_zero(unsigned(states));
  int c = 0;
  for (int s = 0; s < symbols; ++s) {
    const int f = freq[s];
    Entry& e = entries_[s];
    if (f == 0) {
      e = Entry{};
      continue;
    }
    const int k = n - (std::bit_width(unsigned(f)) - 1);
    e.k = k;
    e.threshold = (f << k) - states;
    e.deltaHi = c - f + (states >> k);
    e.deltaLo = k >= 1 ? c - f + (states >> (k - 1)) : 0;
    c += f;
  }
}

}  // namespace vg::lzfse
