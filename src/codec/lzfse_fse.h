// Finite State Entropy (tANS) coding as LZFSE blocks use it: the four
// alphabets, their decode tables, frequency normalisation and the encoder.
// Internal to src/codec.
//
// A table of N = 2^n states is described by symbol frequencies f[s] summing
// to N. Symbol s owns the f[s] consecutive states starting at
// c[s] = f[0] + ... + f[s-1]. With k = n - floor(log2 f) and
// j0 = 2N / 2^k - f, the j-th state of s reads k bits with base
// (f + j) * 2^k - N when j < j0, else k - 1 bits with base (j - j0) * 2^(k-1);
// one decode step outputs the owner of state x and moves to base + bits read.
// The encoder below is the exact inverse of that step.
//
// Literals are byte symbols (1024 states). L, M and D values are a symbol
// (the "base") plus raw extra bits; the tables of bases and extra-bit counts
// are format constants.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "codec/lzfse_bits.h"

namespace vg::lzfse {

constexpr int kLiteralSymbols = 256;
constexpr int kLiteralStates = 1024;
constexpr int kLSymbols = 20;
constexpr int kLStates = 64;
constexpr int kMSymbols = 20;
constexpr int kMStates = 64;
constexpr int kDSymbols = 64;
constexpr int kDStates = 256;

// Largest values an L, M or D symbol can code (D = 0 means "repeat").
constexpr uint32_t kMaxL = 315;
constexpr uint32_t kMaxM = 2359;
constexpr uint32_t kMaxD = 262139;

// Extra-bit counts and base values of the L, M and D alphabets.
extern const std::array<uint8_t, kLSymbols> kLExtraBits;
extern const std::array<uint32_t, kLSymbols> kLBaseValue;
extern const std::array<uint8_t, kMSymbols> kMExtraBits;
extern const std::array<uint32_t, kMSymbols> kMBaseValue;
extern const std::array<uint8_t, kDSymbols> kDExtraBits;
extern const std::array<uint32_t, kDSymbols> kDBaseValue;

// The symbol coding value v: the largest symbol whose base value is <= v.
uint8_t lSymbol(uint32_t v);
uint8_t mSymbol(uint32_t v);
uint8_t dSymbol(uint32_t v);

struct LiteralDecodeEntry {
  uint8_t bits;    // state bits to read
  uint8_t symbol;  // the byte this state outputs
  uint16_t base;   // next state = base + bits read
};

struct ValueDecodeEntry {
  uint8_t totalBits;   // state bits + extra bits, read as one number X
  uint8_t extraBits;   // the low extraBits of X are the extra value
  uint16_t base;       // next state = base + (X >> extraBits)
  uint32_t valueBase;  // value = valueBase + (X mod 2^extraBits)
};

// Fill `table` (kLiteralStates entries). Fails unless the frequencies sum to
// exactly kLiteralStates: an incomplete table leaves states undefined.
bool buildLiteralDecodeTable(const uint16_t* freq, LiteralDecodeEntry* table);

// Same for an L, M or D alphabet (`states` entries in `table`).
bool buildValueDecodeTable(int states, int symbols, const uint16_t* freq,
                           const uint8_t* extraBits, const uint32_t* valueBase,
                           ValueDecodeEntry* table);

// Scales symbol counts to frequencies summing to exactly `states`, each used
// symbol getting at least 1. With no counts at all, symbol 0 gets every state.
void normalizeFrequencies(const uint32_t* counts, int symbols, int states, uint16_t* freq);

// Encoder of one alphabet. State x lives in [0, states); it starts anywhere
// (0 here) and ends as the decoder's initial state.
class FseEncoder {
 public:
  void init(int states, int symbols, const uint16_t* freq);

  // Appends the state bits of symbol s and steps the state backwards.
  inline void encode(uint32_t& x, int s, ForwardBitWriter& out) const {
    const Entry& e = entries_[s];
    int m;
    int32_t delta;
    if (int32_t(x) >= e.threshold) {
      m = e.k;
      delta = e.deltaHi;
    } else {
      m = e.k - 1;
      delta = e.deltaLo;
    }
    out.put(x & ((1u << m) - 1), m);
    x = uint32_t(delta + int32_t(x >> m));
  }

 private:
  struct Entry {
    int k = 0;
    int32_t threshold = 0;
    int32_t deltaHi = 0;
    int32_t deltaLo = 0;
  };
  std::array<Entry, kLiteralSymbols> entries_{};
};

}  // namespace vg::lzfse
