// The stream level of the codec: block framing, the output-size contract and
// the encoder's choice of block types.
#include "codec/lzfse.h"

#include <algorithm>
#include <memory>

#include "codec/lzfse_bits.h"
#include "codec/lzfse_block.h"
#include "codec/lzfse_lzvn.h"
#include "codec/lzfse_match.h"

namespace vg {

const char* describe(LzfseError error) {
  switch (error) {
    case LzfseError::truncated: return "LZFSE: stream truncated";
    case LzfseError::badMagic: return "LZFSE: unknown block magic";
    case LzfseError::badHeader: return "LZFSE: invalid block header";
    case LzfseError::badTable: return "LZFSE: invalid frequency table or state";
    case LzfseError::badPayload: return "LZFSE: corrupt bit stream";
    case LzfseError::badOpcode: return "LZFSE: invalid LZVN instruction";
    case LzfseError::badDistance: return "LZFSE: match distance out of range";
    case LzfseError::literalOverrun: return "LZFSE: block uses more literals than it holds";
    case LzfseError::blockSizeMismatch: return "LZFSE: block contents disagree with its size";
    case LzfseError::outputOverflow: return "LZFSE: stream decodes to more bytes than expected";
    case LzfseError::outputMismatch: return "LZFSE: stream decodes to fewer bytes than expected";
  }
  return "LZFSE: error";
}

namespace {

using namespace lzfse;

constexpr uint32_t kMagicEnd = 0x24787662;   // "bvx$"
constexpr uint32_t kMagicRaw = 0x2D787662;   // "bvx-"
constexpr uint32_t kMagicLzvn = 0x6E787662;  // "bvxn"
constexpr size_t kRawHeaderSize = 8;
constexpr size_t kLzvnHeaderSize = 12;

// Below this size the encoder stores the input as it is; below
// kLzfseThreshold it uses one LZVN block (smaller headers than LZFSE).
constexpr size_t kRawThreshold = 8;
constexpr size_t kLzfseThreshold = 4096;
// The match finder works on 32-bit positions: very large inputs are
// compressed in independent segments.
constexpr size_t kSegmentSize = size_t(1) << 30;

struct BlockInfo {
  uint32_t magic = 0;
  std::span<const uint8_t> bytes;  // the whole block, magic included
  uint32_t nRaw = 0;
  LzfseBlockHeader lzfse;  // v1/v2 only (sizes; tables not read)
};

// Calls visit(const BlockInfo&) for each block before the end-of-stream
// block, stopping at the first error (its own or one visit returns).
template <typename Visit>
std::optional<LzfseError> walkBlocks(std::span<const uint8_t> stream, Visit visit) {
  size_t at = 0;
  BlockInfo info;
  for (;;) {
    const std::span<const uint8_t> rest = stream.subspan(at);
    if (rest.size() < 4) return LzfseError::truncated;
    info.magic = load32(rest.data());
    uint64_t size = 0;
    if (info.magic == kMagicEnd) return std::nullopt;
    if (info.magic == kMagicRaw) {
      if (rest.size() < kRawHeaderSize) return LzfseError::truncated;
      info.nRaw = load32(rest.data() + 4);
      size = kRawHeaderSize + uint64_t(info.nRaw);
    } else if (info.magic == kMagicLzvn) {
      if (rest.size() < kLzvnHeaderSize) return LzfseError::truncated;
      info.nRaw = load32(rest.data() + 4);
      const uint32_t nPayload = load32(rest.data() + 8);
      // An instruction byte outputs at most 135.5 bytes (lrg_m: 2 bytes, 271).
      if (info.nRaw == 0 || info.nRaw > uint64_t(nPayload) * 136) return LzfseError::badHeader;
      size = kLzvnHeaderSize + uint64_t(nPayload);
    } else if (info.magic == kMagicV1 || info.magic == kMagicV2) {
      if (auto err = readLzfseHeader(rest, /*sizesOnly=*/true, info.lzfse)) return err;
      info.nRaw = info.lzfse.nRawBytes;
      size = info.lzfse.blockSize();
    } else {
      return LzfseError::badMagic;
    }
    if (size > rest.size()) return LzfseError::truncated;
    info.bytes = rest.first(size_t(size));
    if (auto err = visit(info)) return err;
    at += size_t(size);
  }
}

void putRaw(std::span<const uint8_t> data, std::vector<uint8_t>& out) {
  do {
    const size_t n = std::min(data.size(), kSegmentSize);
    const size_t at = out.size();
    out.resize(at + kRawHeaderSize);
    store32(out.data() + at, kMagicRaw);
    store32(out.data() + at + 4, uint32_t(n));
    out.insert(out.end(), data.begin(), data.begin() + ptrdiff_t(n));
    data = data.subspan(n);
  } while (!data.empty());
}

void putLzvnOrRaw(std::span<const uint8_t> data, std::vector<uint8_t>& out) {
  const std::vector<Sequence> parse = findMatches(data, {kLzvnMaxDistance, 4});
  std::vector<uint8_t> payload;
  payload.reserve(data.size() + 64);
  encodeLzvnPayload(data, 0, parse, payload);
  if (kLzvnHeaderSize + payload.size() >= kRawHeaderSize + data.size()) {
    putRaw(data, out);
    return;
  }
  const size_t at = out.size();
  out.resize(at + kLzvnHeaderSize);
  store32(out.data() + at, kMagicLzvn);
  store32(out.data() + at + 4, uint32_t(data.size()));
  store32(out.data() + at + 8, uint32_t(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
}

// Cuts a parse into LZFSE blocks within the per-block limits and writes
// each as a v2 block, or as a raw block when that is smaller.
class LzfseBlockWriter {
 public:
  LzfseBlockWriter(std::span<const uint8_t> data, std::vector<uint8_t>& out)
      : data_(data), out_(out) {}

  void add(const Sequence& s, size_t literalStart) {
    const uint8_t* lit = data_.data() + literalStart;
    uint32_t l = s.literals;
    while (l > kMaxL) {
      addTriple(lit, kMaxL, 0, 0);
      lit += kMaxL;
      l -= kMaxL;
    }
    uint32_t m = s.matchLength;
    if (m == 0) {
      if (l > 0) addTriple(lit, l, 0, 0);
      return;
    }
    do {
      const uint32_t chunk = std::min(m, kMaxM);
      addTriple(lit, l, chunk, s.distance);
      lit += l;
      l = 0;
      m -= chunk;
    } while (m > 0);
  }

  void finish() { flush(); }

 private:
  // d = 0 asks for a literal-only triple with any valid distance.
  void addTriple(const uint8_t* lit, uint32_t l, uint32_t m, uint32_t d) {
    const size_t paddedLiterals = (literals_.size() + l + 3) & ~size_t(3);
    if (triples_.size() >= kMaxMatchesPerBlock || paddedLiterals > kMaxLiteralsPerBlock) flush();
    if (d == 0) d = prevD_ != 0 ? prevD_ : 1;  // 1 is valid: the triple outputs >= 1 literal
    triples_.push_back({l, m, d});
    literals_.insert(literals_.end(), lit, lit + l);
    blockRaw_ += size_t(l) + m;
    prevD_ = d;
  }

  void flush() {
    if (triples_.empty()) return;
    const size_t at = out_.size();
    encodeLzfseBlock(triples_, literals_, out_);
    if (out_.size() - at >= kRawHeaderSize + blockRaw_) {
      out_.resize(at);
      putRaw(data_.subspan(blockStart_, blockRaw_), out_);
    }
    blockStart_ += blockRaw_;
    blockRaw_ = 0;
    triples_.clear();
    literals_.clear();
    prevD_ = 0;
  }

  std::span<const uint8_t> data_;
  std::vector<uint8_t>& out_;
  std::vector<Triple> triples_;
  std::vector<uint8_t> literals_;
  size_t blockStart_ = 0;
  size_t blockRaw_ = 0;
  uint32_t prevD_ = 0;
};

void putLzfseBlocks(std::span<const uint8_t> data, std::vector<uint8_t>& out) {
  const std::vector<Sequence> parse = findMatches(data, {kMaxD, 4});
  LzfseBlockWriter writer(data, out);
  size_t at = 0;
  for (const Sequence& s : parse) {
    writer.add(s, at);
    at += size_t(s.literals) + s.matchLength;
  }
  writer.finish();
}

}  // namespace

std::optional<LzfseError> decodeLzfseInto(std::span<const uint8_t> stream, std::span<uint8_t> out) {
  // First pass: framing and sizes only, so that lying sizes fail before any
  // decoding work.
  uint64_t total = 0;
  auto err = walkBlocks(stream, [&](const BlockInfo& b) -> std::optional<LzfseError> {
    total += b.nRaw;
    if (total > out.size()) return LzfseError::outputOverflow;
    return std::nullopt;
  });
  if (err) return err;
  if (total != out.size()) return LzfseError::outputMismatch;

  std::unique_ptr<LzfseBlockDecoder> lzfse;
  size_t pos = 0;
  return walkBlocks(stream, [&](const BlockInfo& b) -> std::optional<LzfseError> {
    if (b.magic == kMagicRaw) {
      std::copy_n(b.bytes.data() + kRawHeaderSize, b.nRaw, out.data() + pos);
      pos += b.nRaw;
      return std::nullopt;
    }
    if (b.magic == kMagicLzvn) {
      return decodeLzvnPayload(b.bytes.subspan(kLzvnHeaderSize), b.nRaw, out, pos);
    }
    LzfseBlockHeader header;
    if (auto e = readLzfseHeader(b.bytes, /*sizesOnly=*/false, header)) return e;
    if (!lzfse) lzfse = std::make_unique<LzfseBlockDecoder>();
    return lzfse->decode(b.bytes, header, out, pos);
  });
}

LzfseDecoded decodeLzfse(std::span<const uint8_t> stream, size_t expectedSize) {
  LzfseDecoded result;
  // Check the declared sizes before allocating what they promise.
  uint64_t total = 0;
  auto err = walkBlocks(stream, [&](const BlockInfo& b) -> std::optional<LzfseError> {
    total += b.nRaw;
    if (total > expectedSize) return LzfseError::outputOverflow;
    return std::nullopt;
  });
  if (!err && total != expectedSize) err = LzfseError::outputMismatch;
  if (!err) {
    result.bytes.resize(expectedSize);
    err = decodeLzfseInto(stream, result.bytes);
  }
  if (err) {
    result.bytes = {};
    result.error = err;
  }
  return result;
}

std::vector<uint8_t> encodeLzfse(std::span<const uint8_t> data) {
  std::vector<uint8_t> out;
  out.reserve(data.size() / 4 + 64);
  if (data.size() < kRawThreshold) {
    putRaw(data, out);
  } else if (data.size() < kLzfseThreshold) {
    putLzvnOrRaw(data, out);
  } else {
    for (size_t at = 0; at < data.size(); at += kSegmentSize) {
      putLzfseBlocks(data.subspan(at, std::min(kSegmentSize, data.size() - at)), out);
    }
  }
  const size_t at = out.size();
  out.resize(at + 4);
  store32(out.data() + at, kMagicEnd);
  return out;
}

}  // namespace vg
