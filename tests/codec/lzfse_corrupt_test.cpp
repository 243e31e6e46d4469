// Hostile input: truncated, bit-flipped and hand-corrupted streams must give
// an error (never a crash, an out-of-bounds access or a write past the
// caller's buffer). Run under ASan/UBSan by `make test-asan`.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/lzfse.h"
#include "codec/lzfse_bits.h"
#include "lzfse_test_util.h"

namespace vg {
namespace {

using test::Bytes;
using test::readBytes;

struct Stream {
  std::string name;
  Bytes bytes;
  size_t size;
};

// Small valid streams covering every block type.
std::vector<Stream> smallStreams() {
  std::vector<Stream> s = {
      {"zeros_64x64", readBytes("lzfse/zeros_64x64.lzfse"), 4096},
      {"mixed_80x50", readBytes("lzfse/mixed_80x50.lzfse"), 4000},
      {"mixed_100x50", readBytes("lzfse/mixed_100x50.lzfse"), 5000},
      {"synth_v1_mixed_100x50", readBytes("lzfse/synth_v1_mixed_100x50.lzfse"), 5000},
      {"synth_composite", readBytes("lzfse/synth_composite.lzfse"), 13198},
      {"tiny_1x1", readBytes("lzfse/tiny_1x1.lzfse"), 1},
      {"empty_0x0", readBytes("lzfse/empty_0x0.lzfse"), 0},
  };
  const Bytes disc = test::discMask(64, 64, 31.5, 31.5, 25, 4);
  s.push_back({"own_disc", encodeLzfse(disc), disc.size()});
  return s;
}

TEST(LzfseCorrupt, EveryProperPrefixFails) {
  for (const Stream& s : smallStreams()) {
    SCOPED_TRACE(s.name);
    ASSERT_TRUE(decodeLzfse(s.bytes, s.size).ok());
    for (size_t n = 0; n < s.bytes.size(); ++n) {
      // Copied so that ASan sees the end of the prefix as the end of memory.
      const Bytes prefix(s.bytes.begin(), s.bytes.begin() + ptrdiff_t(n));
      const LzfseDecoded d = decodeLzfse(prefix, s.size);
      ASSERT_FALSE(d.ok()) << "prefix of " << n << " bytes decoded";
      EXPECT_EQ(*d.error, LzfseError::truncated) << n;
    }
  }
}

TEST(LzfseCorrupt, FlippedBitsFailOrDecodeToTheExpectedSize) {
  for (const Stream& s : smallStreams()) {
    SCOPED_TRACE(s.name);
    int failures = 0;
    const size_t bits = s.bytes.size() * 8;
    const size_t step = bits > 8000 ? 7 : 1;  // every bit of the smaller ones
    for (size_t bit = 0; bit < bits; bit += step) {
      Bytes corrupt = s.bytes;
      corrupt[bit / 8] ^= uint8_t(1u << (bit % 8));
      Bytes out(s.size + 64, 0xCD);
      const auto err = decodeLzfseInto(corrupt, std::span<uint8_t>(out).first(s.size));
      if (err) ++failures;
      for (size_t i = s.size; i < out.size(); ++i) {
        ASSERT_EQ(out[i], 0xCD) << "wrote past the buffer, bit " << bit;
      }
    }
    // Most flips hit framing, headers, tables or distances.
    EXPECT_GT(failures, 0);
  }
}

TEST(LzfseCorrupt, DecodingNeverWritesPastTheCallersBuffer) {
  // The fast paths copy 16 bytes at a time; near the end they must not.
  for (const char* name : {"disc_512x512", "speckle_512x512", "mixed_80x50", "synth_composite",
                           "zeros_64x64", "noise_100x100"}) {
    SCOPED_TRACE(name);
    const Bytes stream = readBytes(std::string("lzfse/") + name + ".lzfse");
    const Bytes raw = readBytes(std::string("lzfse/") + name + ".raw");
    Bytes out(raw.size() + 64, 0xCD);
    ASSERT_EQ(decodeLzfseInto(stream, std::span<uint8_t>(out).first(raw.size())), std::nullopt);
    EXPECT_TRUE(std::equal(raw.begin(), raw.end(), out.begin()));
    for (size_t i = raw.size(); i < out.size(); ++i) ASSERT_EQ(out[i], 0xCD) << i;
  }
}

// zeros_64x64 is one bvx2 block: header of 131 bytes (fixed part 0-31,
// frequency table 32-130), no literal payload, 12 bytes of L/M/D payload
// (8 zero bytes, then 34 56 FF 3F), then bvx$ at 143.
class LzfseCorruptV2 : public ::testing::Test {
 protected:
  Bytes stream = readBytes("lzfse/zeros_64x64.lzfse");
  uint64_t word(int i) const { return lzfse::load64(&stream[8 + 8 * size_t(i)]); }
  void setWord(int i, uint64_t v) { lzfse::store64(&stream[8 + 8 * size_t(i)], v); }
  void setField(int w, int shift, int bits, uint64_t value) {
    const uint64_t mask = ((uint64_t(1) << bits) - 1) << shift;
    setWord(w, (word(w) & ~mask) | (value << shift));
  }
  std::optional<LzfseError> decode(size_t size = 4096) const { return decodeLzfse(stream, size).error; }
};

TEST_F(LzfseCorruptV2, ImpossibleHeaderFields) {
  ASSERT_EQ(decode(), std::nullopt);
  const Bytes original = stream;
  setField(0, 0, 20, 6);  // n_literals not a multiple of 4
  EXPECT_EQ(decode(), LzfseError::badHeader);
  stream = original;
  setField(0, 0, 20, 40004);  // too many literals
  EXPECT_EQ(decode(), LzfseError::badHeader);
  stream = original;
  setField(0, 40, 20, 10001);  // too many triples
  EXPECT_EQ(decode(), LzfseError::badHeader);
  stream = original;
  setField(2, 0, 32, 31);  // header shorter than its fixed part
  EXPECT_EQ(decode(), LzfseError::badHeader);
  stream = original;
  setField(2, 0, 32, 0xFFFFFFFF);
  EXPECT_EQ(decode(), LzfseError::badHeader);
  stream = original;
  setField(0, 40, 20, 2);  // one triple fewer: the block no longer adds up
  EXPECT_EQ(decode(), LzfseError::blockSizeMismatch);
}

TEST_F(LzfseCorruptV2, PackedTableMustEndInItsLastByte) {
  // One more (zero) byte in the table: the codes end a byte early.
  stream.insert(stream.begin() + 131, 0);
  setField(2, 0, 32, 132);
  EXPECT_EQ(decode(), LzfseError::badHeader);
  // One byte fewer: the last code runs past the table.
  stream = readBytes("lzfse/zeros_64x64.lzfse");
  stream.erase(stream.begin() + 130);
  setField(2, 0, 32, 130);
  EXPECT_EQ(decode(), LzfseError::badHeader);
}

TEST_F(LzfseCorruptV2, StatesOutsideTheirTables) {
  const Bytes original = stream;
  setField(2, 42, 10, 64);  // M state
  EXPECT_EQ(decode(), LzfseError::badTable);
  stream = original;
  setField(2, 52, 10, 256);  // D state
  EXPECT_EQ(decode(), LzfseError::badTable);
}

TEST_F(LzfseCorruptV2, BitStreamPaddingAndUnderrun) {
  const Bytes original = stream;
  // lmd_bits = -2: the top 2 bits of the last payload byte (0x3F) are
  // padding. Setting one of them is rejected.
  stream[142] = 0x7F;
  EXPECT_EQ(decode(), LzfseError::badPayload);
  // Only the last 2 payload bytes left: the first triple needs 15 bits.
  stream = original;
  stream.erase(stream.begin() + 131, stream.begin() + 141);
  setField(1, 40, 20, 2);
  EXPECT_EQ(decode(), LzfseError::badPayload);
  // A literal payload of 0 bytes must have literal_bits 0.
  stream = original;
  setField(0, 60, 3, 6);
  EXPECT_EQ(decode(), LzfseError::badPayload);
}

TEST(LzfseCorrupt, LyingSizesFailBeforeAnyAllocation) {
  // A raw block claiming 4 GiB, more than the stream holds.
  Bytes raw = {'b', 'v', 'x', '-', 0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 'b', 'v', 'x', '$'};
  EXPECT_EQ(decodeLzfse(raw, 1000).error, LzfseError::truncated);
  EXPECT_EQ(decodeLzfse(raw, size_t(1) << 33).error, LzfseError::truncated);
  // Blocks claiming more output than their triples or opcodes can make
  // (3 triples: at most 3 x 2674 bytes; 623 opcode bytes: at most 84728).
  Bytes v2 = readBytes("lzfse/zeros_64x64.lzfse");
  lzfse::store32(&v2[4], 3 * 2674 + 1);
  EXPECT_EQ(decodeLzfse(v2, 3 * 2674 + 1).error, LzfseError::badHeader);
  lzfse::store32(&v2[4], 0xFFFFFFFF);
  EXPECT_EQ(decodeLzfse(v2, 4096).error, LzfseError::badHeader);
  Bytes lzvn = readBytes("lzfse/mixed_80x50.lzfse");
  lzfse::store32(&lzvn[4], 623 * 136 + 1);
  EXPECT_EQ(decodeLzfse(lzvn, 623 * 136 + 1).error, LzfseError::badHeader);
  // More than the caller expects, in a plausible header: no allocation.
  lzfse::store32(&v2[4], 7000);
  EXPECT_EQ(decodeLzfse(v2, 4096).error, LzfseError::outputOverflow);
  // Block sizes that add up to more than the stream.
  lzvn = readBytes("lzfse/mixed_80x50.lzfse");
  lzfse::store32(&lzvn[8], 0xFFFFFFF0);
  EXPECT_EQ(decodeLzfse(lzvn, 4000).error, LzfseError::truncated);
}

TEST(LzfseCorrupt, LzvnFraming) {
  // bvxn, n_raw, n_payload, payload, bvx$.
  auto lzvn = [](uint32_t nRaw, Bytes payload) {
    Bytes s(12 + payload.size() + 4);
    std::memcpy(s.data(), "bvxn", 4);
    lzfse::store32(s.data() + 4, nRaw);
    lzfse::store32(s.data() + 8, uint32_t(payload.size()));
    std::copy(payload.begin(), payload.end(), s.begin() + 12);
    std::memcpy(s.data() + 12 + payload.size(), "bvx$", 4);
    return s;
  };
  const Bytes eos = {0x06, 0, 0, 0, 0, 0, 0, 0};
  auto withEos = [&](Bytes ops) {
    ops.insert(ops.end(), eos.begin(), eos.end());
    return ops;
  };
  // Valid: 2 literals, then (lrg_d) 5 more at distance 2, nop, sml_m 3.
  const Bytes ok = lzvn(10, withEos({0xE2, 'a', 'b', 0x17, 2, 0, 0x0E, 0xF3}));
  const LzfseDecoded d = decodeLzfse(ok, 10);
  ASSERT_TRUE(d.ok()) << describe(*d.error);
  EXPECT_EQ(std::string(d.bytes.begin(), d.bytes.end()), "ababababab");

  EXPECT_EQ(decodeLzfse(lzvn(0, eos), 0).error, LzfseError::badHeader);  // empty LZVN block
  EXPECT_EQ(decodeLzfse(lzvn(2, {0xE2, 'a', 'b'}), 2).error, LzfseError::badOpcode);  // no end
  Bytes late = withEos({0xE2, 'a', 'b'});
  late.push_back(0);  // a byte after the end marker
  EXPECT_EQ(decodeLzfse(lzvn(2, late), 2).error, LzfseError::badOpcode);
  // 15 literals announced, 9 payload bytes left.
  EXPECT_EQ(decodeLzfse(lzvn(15, withEos({0xEF, 'a'})), 15).error, LzfseError::truncated);
  EXPECT_EQ(decodeLzfse(lzvn(8, withEos({0xE2, 'a', 'b', 0x4E, 'c'})), 8).error,
            LzfseError::badDistance);  // pre_d with no distance yet
  EXPECT_EQ(decodeLzfse(lzvn(5, withEos({0xE2, 'a', 'b', 0x00, 0})), 5).error,
            LzfseError::badDistance);  // distance 0
  EXPECT_EQ(decodeLzfse(lzvn(9, withEos({0xE2, 'a', 'b', 0xD0})), 9).error, LzfseError::badOpcode);
  // Literals past the block's size.
  EXPECT_EQ(decodeLzfse(lzvn(1, withEos({0xE2, 'a', 'b'})), 1).error,
            LzfseError::blockSizeMismatch);

  // Distances reach into earlier blocks, not before the stream.
  Bytes two = {'b', 'v', 'x', '-', 2, 0, 0, 0, 'x', 'y'};
  const Bytes second = lzvn(4, withEos({0x08, 2}));  // sml_d: 4 bytes at distance 2 (M=4)
  two.insert(two.end(), second.begin(), second.end());
  const LzfseDecoded cross = decodeLzfse(two, 6);
  ASSERT_TRUE(cross.ok()) << describe(*cross.error);
  EXPECT_EQ(std::string(cross.bytes.begin(), cross.bytes.end()), "xyxyxy");
  EXPECT_EQ(decodeLzfse(lzvn(4, withEos({0x08, 2})), 4).error, LzfseError::badDistance);
}

}  // namespace
}  // namespace vg
