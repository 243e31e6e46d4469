// The building blocks under the block coders: bit streams, FSE tables and
// their encoder, value symbols, and the wide match copy against the plain one.
#include <gtest/gtest.h>

#include <random>

#include "codec/lzfse_bits.h"
#include "codec/lzfse_copy.h"
#include "codec/lzfse_fse.h"

namespace vg::lzfse {
namespace {

TEST(LzfseBits, FieldsComeBackInReverseOrder) {
  std::mt19937 rng(7);
  std::vector<std::pair<uint32_t, int>> fields;
  std::vector<uint8_t> bytes;
  ForwardBitWriter w(bytes);
  for (int i = 0; i < 5000; ++i) {
    const int bits = int(rng() % 24);
    const uint32_t v = bits == 0 ? 0 : uint32_t(rng()) & ((1u << bits) - 1);
    fields.emplace_back(v, bits);
    w.put(v, bits);
  }
  const int lastBits = w.finish();
  BackwardBitReader r;
  ASSERT_TRUE(r.init(bytes.data(), bytes.size(), lastBits));
  for (size_t i = fields.size(); i-- > 0;) {
    r.refill();
    ASSERT_LE(fields[i].second, r.available());
    ASSERT_EQ(r.take(fields[i].second), fields[i].first) << i;
  }
  EXPECT_EQ(r.remainingBits(), 0u);
}

TEST(LzfseBits, PaddingMustBeZeroAndReadsStopAtBitZero) {
  const uint8_t bytes[2] = {0xFF, 0x0F};  // 12 meaningful bits, 4 zero pad bits
  BackwardBitReader r;
  ASSERT_TRUE(r.init(bytes, 2, -4));
  r.refill();
  EXPECT_EQ(r.available(), 12);
  EXPECT_EQ(r.take(12), 0xFFFu);
  r.refill();
  EXPECT_EQ(r.available(), 0);
  EXPECT_FALSE(r.init(bytes, 2, -5));  // a set bit inside the padding
  EXPECT_FALSE(r.init(bytes, 0, -1));  // padding in an empty payload
  EXPECT_FALSE(r.init(bytes, 2, 1));
  EXPECT_TRUE(r.init(bytes, 0, 0));
}

TEST(LzfseFse, DecodeTableMatchesTheWorkedExample) {
  // L table of zeros_64x64: {0: 22, 1: 21, 3: 21}. State 36 is symbol 1,
  // j = 14 >= j0 = 11: one bit, base 6.
  uint16_t freq[kLSymbols] = {22, 21, 0, 21};
  ValueDecodeEntry table[kLStates];
  ASSERT_TRUE(buildValueDecodeTable(kLStates, kLSymbols, freq, kLExtraBits.data(),
                                    kLBaseValue.data(), table));
  EXPECT_EQ(table[36].valueBase, 1u);
  EXPECT_EQ(table[36].totalBits, 1);
  EXPECT_EQ(table[36].base, 6);
  // The first state of symbol 1 (j = 0 < j0) reads k = 2 bits.
  EXPECT_EQ(table[22].totalBits, 2);
  EXPECT_EQ(table[22].base, (21 << 2) - 64);
}

TEST(LzfseFse, TablesMustFillTheirStatesExactly) {
  std::vector<uint16_t> freq(kLiteralSymbols, 4);  // 256 x 4 = 1024
  std::vector<LiteralDecodeEntry> table(kLiteralStates);
  EXPECT_TRUE(buildLiteralDecodeTable(freq.data(), table.data()));
  freq[7] = 3;
  EXPECT_FALSE(buildLiteralDecodeTable(freq.data(), table.data()));
  freq[7] = 5;
  EXPECT_FALSE(buildLiteralDecodeTable(freq.data(), table.data()));
  freq.assign(kLiteralSymbols, 0);
  freq[200] = 1047;  // the largest storable value
  EXPECT_FALSE(buildLiteralDecodeTable(freq.data(), table.data()));
}

TEST(LzfseFse, NormalisedFrequenciesSumExactlyAndKeepEveryUsedSymbol) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 300; ++trial) {
    const int symbols = trial % 2 ? kLiteralSymbols : kDSymbols;
    const int states = trial % 2 ? kLiteralStates : kDStates;
    std::vector<uint32_t> counts(static_cast<size_t>(symbols), 0);
    const int used = 1 + int(rng() % uint32_t(symbols));
    for (int i = 0; i < used; ++i) {
      // Skewed: a few huge counts and many tiny ones push the rounding.
      counts[rng() % uint32_t(symbols)] += (rng() % 4 == 0) ? rng() % 100000 : 1 + rng() % 3;
    }
    std::vector<uint16_t> freq(static_cast<size_t>(symbols));
    normalizeFrequencies(counts.data(), symbols, states, freq.data());
    int sum = 0;
    for (int s = 0; s < symbols; ++s) {
      sum += freq[size_t(s)];
      ASSERT_EQ(freq[size_t(s)] > 0, counts[size_t(s)] > 0) << trial << " symbol " << s;
    }
    ASSERT_EQ(sum, states) << trial;
  }
  std::vector<uint32_t> none(kLSymbols, 0);
  std::vector<uint16_t> freq(kLSymbols);
  normalizeFrequencies(none.data(), kLSymbols, kLStates, freq.data());
  EXPECT_EQ(freq[0], kLStates);
}

TEST(LzfseFse, EncoderIsTheInverseOfTheDecodeTable) {
  std::mt19937 rng(3);
  for (int trial = 0; trial < 20; ++trial) {
    // A random distribution over the literal alphabet, some symbols absent.
    std::vector<uint32_t> counts(kLiteralSymbols, 0);
    for (int s = 0; s < kLiteralSymbols; ++s) {
      if (rng() % 3) counts[size_t(s)] = 1 + rng() % (trial % 2 ? 5 : 5000);
    }
    std::vector<uint16_t> freq(kLiteralSymbols);
    normalizeFrequencies(counts.data(), kLiteralSymbols, kLiteralStates, freq.data());
    std::vector<uint8_t> used;
    for (int s = 0; s < kLiteralSymbols; ++s) {
      if (freq[size_t(s)]) used.push_back(uint8_t(s));
    }
    std::vector<uint8_t> symbols(3000);
    for (auto& s : symbols) s = used[rng() % used.size()];

    FseEncoder enc;
    enc.init(kLiteralStates, kLiteralSymbols, freq.data());
    std::vector<uint8_t> bytes;
    ForwardBitWriter w(bytes);
    uint32_t x = 0;
    for (size_t i = symbols.size(); i-- > 0;) enc.encode(x, symbols[i], w);
    const int lastBits = w.finish();

    std::vector<LiteralDecodeEntry> table(kLiteralStates);
    ASSERT_TRUE(buildLiteralDecodeTable(freq.data(), table.data()));
    BackwardBitReader r;
    ASSERT_TRUE(r.init(bytes.data(), bytes.size(), lastBits));
    uint32_t state = x;
    for (size_t i = 0; i < symbols.size(); ++i) {
      r.refill();
      const LiteralDecodeEntry e = table[state];
      ASSERT_EQ(e.symbol, symbols[i]) << trial << " at " << i;
      state = e.base + r.take(e.bits);
    }
    EXPECT_EQ(state, 0u);  // back at the encoder's starting state
    EXPECT_EQ(r.remainingBits(), 0u);
  }
}

TEST(LzfseFse, ValueSymbolsCoverTheirRanges) {
  // Every value maps to a symbol whose base and extra bits reach it.
  auto check = [](uint32_t maxValue, auto symbolOf, const auto& base, const auto& extra) {
    for (uint32_t v = 0; v <= maxValue; ++v) {
      const uint8_t s = symbolOf(v);
      ASSERT_LE(base[s], v);
      ASSERT_LT(v - base[s], 1u << extra[s]) << v;
      if (s + 1u < base.size()) {
        ASSERT_LT(v, base[s + 1u]);
      }
    }
  };
  check(kMaxL, lSymbol, kLBaseValue, kLExtraBits);
  check(kMaxM, mSymbol, kMBaseValue, kMExtraBits);
  check(kMaxD, dSymbol, kDBaseValue, kDExtraBits);
  EXPECT_EQ(kDBaseValue[63] + (1u << kDExtraBits[63]) - 1, kMaxD);
  EXPECT_EQ(kMBaseValue[19] + (1u << kMExtraBits[19]) - 1, kMaxM);
  EXPECT_EQ(kLBaseValue[19] + (1u << kLExtraBits[19]) - 1, kMaxL);
}

TEST(LzfseCopy, WideMatchCopyEqualsTheBytewiseCopy) {
  std::mt19937 rng(5);
  for (size_t d = 1; d <= 40; ++d) {
    for (size_t m = 0; m <= 100; ++m) {
      std::vector<uint8_t> a(64 + m + kWideSlack);
      for (auto& b : a) b = uint8_t(rng());
      std::vector<uint8_t> b = a;
      copyMatchWide(a.data() + 64, d, m);
      for (size_t i = 0; i < m; ++i) b[64 + i] = b[64 + i - d];  // the definition
      ASSERT_TRUE(std::equal(b.begin(), b.begin() + ptrdiff_t(64 + m), a.begin()))
          << "d " << d << " m " << m;
      std::vector<uint8_t> c(a.size());
      std::copy(b.begin(), b.begin() + 64, c.begin());
      copyMatchExact(c.data() + 64, d, m);
      ASSERT_TRUE(std::equal(b.begin(), b.begin() + ptrdiff_t(64 + m), c.begin()));
    }
  }
}

}  // namespace
}  // namespace vg::lzfse
