// LZFSE blocks ("bvx1" with a fixed 772-byte header, "bvx2" with a packed
// one): n_literals FSE-coded literal bytes (four interleaved decoders) and
// n_matches (L, M, D) triples, L/M/D each an FSE symbol plus extra bits, in
// a second bit stream. Executing a triple outputs L literals, then M bytes
// from D back (D = 0: the block's previous distance). Internal to src/codec.
//
// v2 header layout (little-endian 64-bit words after magic and n_raw_bytes):
//   word0: n_literals 0-19, literal payload bytes 20-39, n_matches 40-59,
//          literal_bits + 7 at 60-62
//   word1: literal states 10 bits each at 0/10/20/30, L/M/D payload bytes
//          40-59, lmd_bits + 7 at 60-62
//   word2: header size 0-31, L/M/D states at 32/42/52 (10 bits each)
// then the 360 frequencies (L 20, M 20, D 64, literal 256) in a
// variable-length code: xx0 -> 0-1 (2 bits), x01 -> 2-3 (3), xx011 -> 4-7 (5),
// xxxx0111 -> 8-23 (8), 10 bits + 1111 -> 24-1047 (14), low bit first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "codec/lzfse.h"
#include "codec/lzfse_fse.h"

namespace vg::lzfse {

constexpr uint32_t kMagicV1 = 0x31787662;  // "bvx1"
constexpr uint32_t kMagicV2 = 0x32787662;  // "bvx2"
constexpr size_t kV1HeaderSize = 772;
constexpr size_t kV2FixedHeaderSize = 32;
constexpr uint32_t kMaxLiteralsPerBlock = 40000;
constexpr uint32_t kMaxMatchesPerBlock = 10000;

struct LzfseBlockHeader {
  uint32_t nRawBytes = 0;
  uint32_t nLiterals = 0;
  uint32_t nMatches = 0;
  uint32_t nLiteralPayloadBytes = 0;
  uint32_t nLmdPayloadBytes = 0;
  int32_t literalBits = 0;
  int32_t lmdBits = 0;
  std::array<uint16_t, 4> literalState{};
  uint16_t lState = 0;
  uint16_t mState = 0;
  uint16_t dState = 0;
  uint32_t headerSize = 0;
  std::array<uint16_t, kLSymbols> lFreq{};
  std::array<uint16_t, kMSymbols> mFreq{};
  std::array<uint16_t, kDSymbols> dFreq{};
  std::array<uint16_t, kLiteralSymbols> literalFreq{};

  // Header plus both payloads.
  uint64_t blockSize() const {
    return uint64_t(headerSize) + nLiteralPayloadBytes + nLmdPayloadBytes;
  }
};

// Reads the header of a v1 or v2 block starting at block[0] (its magic).
// With `sizesOnly`, only the fields that give the block's extent and output
// size are read (the frequency tables are left alone). Checks counts, bit
// fields and the packed table's length; the block must fit in `block`.
std::optional<LzfseError> readLzfseHeader(std::span<const uint8_t> block, bool sizesOnly,
                                          LzfseBlockHeader& header);

// Decodes LZFSE blocks; holds the tables and the literal buffer, reused
// from block to block.
class LzfseBlockDecoder {
 public:
  LzfseBlockDecoder();
  ~LzfseBlockDecoder();

  // Decodes the block whose header was read from `block` into out[pos...],
  // which must receive exactly header.nRawBytes bytes (out.size() >= pos +
  // nRawBytes). pos advances on success.
  std::optional<LzfseError> decode(std::span<const uint8_t> block, const LzfseBlockHeader& header,
                                   std::span<uint8_t> out, size_t& pos);

 private:
  struct Scratch;
  std::unique_ptr<Scratch> scratch_;
};

// One LZFSE triple as the encoder holds it (D = the real distance, >= 1).
struct Triple {
  uint32_t l = 0;
  uint32_t m = 0;
  uint32_t d = 0;
};

// Appends a v2 block for `triples` (each within kMaxL / kMaxM / kMaxD, at
// most kMaxMatchesPerBlock of them) whose literals, in order, are `literals`
// (at most kMaxLiteralsPerBlock - 3).
void encodeLzfseBlock(std::span<const Triple> triples, std::span<const uint8_t> literals,
                      std::vector<uint8_t>& out);

}  // namespace vg::lzfse
