// The encoder: round trips through the (vector-anchored) decoder, the block
// structure it writes, and its compression against the reference encoder.
#include <gtest/gtest.h>

#include <random>

#include "codec/lzfse.h"
#include "codec/lzfse_bits.h"
#include "codec/lzfse_block.h"
#include "lzfse_test_util.h"

namespace vg {
namespace {

using test::Bytes;

struct BlockCounts {
  int raw = 0;
  int lzvn = 0;
  int lzfse = 0;
};

// Walks an encoded stream and checks what every conforming decoder relies
// on; returns how many blocks of each kind it holds.
BlockCounts checkStructure(const Bytes& s) {
  BlockCounts counts;
  size_t at = 0;
  for (;;) {
    EXPECT_LE(at + 4, s.size());
    if (at + 4 > s.size()) return counts;
    const std::string magic(s.begin() + ptrdiff_t(at), s.begin() + ptrdiff_t(at) + 4);
    if (magic == "bvx$") {
      EXPECT_EQ(at + 4, s.size()) << "bytes after the end block";
      return counts;
    }
    if (magic == "bvx-") {
      ++counts.raw;
      at += 8 + lzfse::load32(&s[at + 4]);
    } else if (magic == "bvxn") {
      ++counts.lzvn;
      EXPECT_NE(lzfse::load32(&s[at + 4]), 0u) << "empty LZVN block";
      at += 12 + lzfse::load32(&s[at + 8]);
    } else {
      EXPECT_EQ(magic, "bvx2");
      ++counts.lzfse;
      lzfse::LzfseBlockHeader h;
      const auto err = lzfse::readLzfseHeader(std::span(s).subspan(at), false, h);
      EXPECT_EQ(err, std::nullopt);
      if (err) return counts;
      EXPECT_EQ(h.nLiterals % 4, 0u);
      EXPECT_LE(h.nLiterals, 40000u);
      EXPECT_LE(h.nMatches, 10000u);
      auto sum = [](const auto& table) {
        int total = 0;
        for (uint16_t f : table) total += f;
        return total;
      };
      EXPECT_EQ(sum(h.lFreq), 64);
      EXPECT_EQ(sum(h.mFreq), 64);
      EXPECT_EQ(sum(h.dFreq), 256);
      EXPECT_EQ(sum(h.literalFreq), 1024);
      // The L/M/D payload opens with 8 zero bytes.
      const size_t lmd = at + h.headerSize + h.nLiteralPayloadBytes;
      EXPECT_GE(h.nLmdPayloadBytes, 8u);
      for (size_t i = 0; i < 8; ++i) EXPECT_EQ(s[lmd + i], 0) << "L/M/D padding byte " << i;
      at += size_t(h.blockSize());
    }
  }
}

void expectRoundTrip(const Bytes& data) {
  const Bytes stream = encodeLzfse(data);
  const LzfseDecoded back = decodeLzfse(stream, data.size());
  ASSERT_TRUE(back.ok()) << describe(*back.error) << " for " << data.size() << " bytes";
  ASSERT_TRUE(back.bytes == data) << data.size() << " bytes";
  checkStructure(stream);
}

TEST(LzfseEncode, ReferenceRastersRoundTripWithinOneAndAHalfTimesTheReferenceSize) {
  struct Case {
    const char* name;
    Bytes raw;
    size_t referenceSize;
  };
  const Case cases[] = {
      {"zeros_64x64", Bytes(4096, 0), 147},
      {"full_300x200", Bytes(60000, 255), 181},
      {"gradient_1024x768", test::gradientMask(1024, 768), 1742},
      {"disc_512x512", test::readBytes("lzfse/disc_512x512.raw"), 11014},
      {"speckle_512x512", test::readBytes("lzfse/speckle_512x512.raw"), 47146},
      {"shapes_2048x1536", test::shapesMask(), 43277},
      {"mixed_80x50", test::readBytes("lzfse/mixed_80x50.raw"), 639},
      {"mixed_100x50", test::readBytes("lzfse/mixed_100x50.raw"), 758},
      {"tiny_1x1", Bytes{0xFF}, 13},
      {"empty_0x0", Bytes{}, 12},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes stream = encodeLzfse(c.raw);
    EXPECT_LE(double(stream.size()), 1.5 * double(c.referenceSize));
    RecordProperty(c.name, std::to_string(stream.size()) + " (reference " +
                               std::to_string(c.referenceSize) + ")");
    const LzfseDecoded back = decodeLzfse(stream, c.raw.size());
    ASSERT_TRUE(back.ok()) << describe(*back.error);
    EXPECT_TRUE(back.bytes == c.raw);
    checkStructure(stream);
  }
}

TEST(LzfseEncode, IncompressibleDataCostsAtMostTheRawFraming) {
  for (size_t n : {3200u, 10000u, 100000u}) {
    const Bytes noise = test::noiseBytes(n, 0x12345678u + uint32_t(n));
    const Bytes stream = encodeLzfse(noise);
    // One raw block per LZFSE block at worst, 8 bytes each, plus the end.
    EXPECT_LE(stream.size(), n + 8 * (n / 30000 + 1) + 4) << n;
    expectRoundTrip(noise);
  }
}

TEST(LzfseEncode, BlockTypesFollowTheInputSize) {
  // Under 8 bytes: raw. 8...4095: LZVN when it is smaller (for 8 equal
  // bytes it is not: 11 payload bytes). Above: LZFSE.
  for (size_t n : {0u, 1u, 7u}) {
    const BlockCounts c = checkStructure(encodeLzfse(Bytes(n, 7)));
    EXPECT_EQ(c.raw, 1) << n;
    EXPECT_EQ(c.lzvn + c.lzfse, 0) << n;
  }
  for (size_t n : {24u, 100u, 4095u}) {
    const BlockCounts c = checkStructure(encodeLzfse(Bytes(n, 7)));
    EXPECT_EQ(c.lzvn, 1) << n;
    EXPECT_EQ(c.raw + c.lzfse, 0) << n;
  }
  const BlockCounts big = checkStructure(encodeLzfse(Bytes(4096, 7)));
  EXPECT_EQ(big.lzfse, 1);
  // Over 10000 triples (speckle) or 40000 literals (noise) takes more blocks.
  EXPECT_GE(checkStructure(encodeLzfse(test::speckleMask(512, 512, 0x5EED5EED))).lzfse, 2);
  const BlockCounts noise = checkStructure(encodeLzfse(test::noiseBytes(120000, 99)));
  EXPECT_GE(noise.lzfse + noise.raw, 3);
}

TEST(LzfseEncode, RoundTripsMaskLikeData) {
  expectRoundTrip(Bytes(2048 * 1536, 0));
  expectRoundTrip(Bytes(2048 * 1536, 255));
  expectRoundTrip(test::gradientMask(333, 77));
  expectRoundTrip(test::discMask(640, 480, 300.5, 200.25, 150, 12));
  expectRoundTrip(test::discMask(61, 61, 30, 30, 20, 2));  // LZVN-sized
  expectRoundTrip(test::speckleMask(700, 300, 1));
  // Long runs (M far above 2359) and long unique stretches (L above 315),
  // alternating so that runs start mid-block.
  Bytes mixed;
  for (int i = 0; i < 20; ++i) {
    mixed.insert(mixed.end(), size_t(3000 + 977 * i), uint8_t(i * 13));
    const Bytes noise = test::noiseBytes(size_t(400 + 131 * i), uint32_t(i + 1));
    mixed.insert(mixed.end(), noise.begin(), noise.end());
  }
  expectRoundTrip(mixed);
}

TEST(LzfseEncode, RoundTripsRandomDataOfManySizes) {
  std::mt19937 rng(1234);
  std::vector<size_t> sizes = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 64, 255, 256, 1000,
                               4095, 4096, 4097, 8191, 40000, 40001, 65536, 65537, 300000};
  for (size_t n : sizes) {
    // Random bytes over a small alphabet: many short matches at every distance.
    Bytes data(n);
    std::uniform_int_distribution<int> symbol(0, 3);
    for (auto& b : data) b = uint8_t(symbol(rng) * 60);
    expectRoundTrip(data);
    expectRoundTrip(test::noiseBytes(n, uint32_t(n + 1)));
  }
}

TEST(LzfseEncode, RoundTripsSeveralMegabytesWithFarMatches) {
  // 5 MB where each 1 MB repeats the first one with small changes: matches
  // at distances beyond the format's limit must not be used.
  Bytes base = test::noiseBytes(1 << 20, 42);
  Bytes data;
  for (int i = 0; i < 5; ++i) {
    Bytes copy = base;
    for (size_t j = size_t(i); j < copy.size(); j += 4099) copy[j] ^= 0x5A;
    data.insert(data.end(), copy.begin(), copy.end());
  }
  // Also a short-period pattern reaching just under the largest distance.
  for (size_t j = 0; j < 300000; ++j) data.push_back(uint8_t(j % 262139 < 1000 ? j : 0));
  expectRoundTrip(data);
}

}  // namespace
}  // namespace vg
