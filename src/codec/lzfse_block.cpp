#include "codec/lzfse_block.h"

#include <algorithm>
#include <cstring>

#include "codec/lzfse_bits.h"
#include "codec/lzfse_copy.h"

namespace vg::lzfse {

namespace {

constexpr int kFreqCount = kLSymbols + kMSymbols + kDSymbols + kLiteralSymbols;  // 360

// Every table, in stored order.
std::array<uint16_t*, kFreqCount> freqSlots(LzfseBlockHeader& h) {
  std::array<uint16_t*, kFreqCount> slots{};
  int i = 0;
  for (auto& f : h.lFreq) slots[i++] = &f;
  for (auto& f : h.mFreq) slots[i++] = &f;
  for (auto& f : h.dFreq) slots[i++] = &f;
  for (auto& f : h.literalFreq) slots[i++] = &f;
  return slots;
}

// One packed frequency code from the low bits of c: value and length.
inline void decodeFreqCode(uint32_t c, uint32_t& value, int& length) {
  if ((c & 1) == 0) {
    value = (c >> 1) & 1;
    length = 2;
  } else if ((c & 3) == 1) {
    value = 2 + ((c >> 2) & 1);
    length = 3;
  } else if ((c & 7) == 3) {
    value = 4 + ((c >> 3) & 3);
    length = 5;
  } else if ((c & 15) == 7) {
    value = 8 + ((c >> 4) & 15);
    length = 8;
  } else {
    value = 24 + ((c >> 4) & 1023);
    length = 14;
  }
}

void encodeFreqCode(uint32_t v, ForwardBitWriter& w) {
  if (v < 2) {
    w.put(v << 1, 2);
  } else if (v < 4) {
    w.put((v - 2) << 2 | 1, 3);
  } else if (v < 8) {
    w.put((v - 4) << 3 | 3, 5);
  } else if (v < 24) {
    w.put((v - 8) << 4 | 7, 8);
  } else {
    w.put((v - 24) << 4 | 15, 14);
  }
}

std::optional<LzfseError> readPackedFrequencies(std::span<const uint8_t> table,
                                                LzfseBlockHeader& h) {
  auto slots = freqSlots(h);
  if (table.empty()) {  // header_size 32: every frequency is 0
    for (uint16_t* s : slots) *s = 0;
    return std::nullopt;
  }
  uint64_t acc = 0;
  int accBits = 0;
  size_t next = 0;
  for (uint16_t* slot : slots) {
    while (accBits < 14 && next < table.size()) {
      acc |= uint64_t(table[next++]) << accBits;
      accBits += 8;
    }
    uint32_t value;
    int length;
    decodeFreqCode(uint32_t(acc), value, length);
    if (length > accBits) return LzfseError::badHeader;
    acc >>= length;
    accBits -= length;
    *slot = uint16_t(value);
  }
  // The codes must end inside the last byte of the table.
  if (next != table.size() || accBits >= 8) return LzfseError::badHeader;
  return std::nullopt;
}

std::optional<LzfseError> readV1(std::span<const uint8_t> block, bool sizesOnly,
                                 LzfseBlockHeader& h) {
  if (block.size() < kV1HeaderSize) return LzfseError::truncated;
  const uint8_t* p = block.data();
  h.nRawBytes = load32(p + 4);
  h.nLiterals = load32(p + 12);
  h.nMatches = load32(p + 16);
  h.nLiteralPayloadBytes = load32(p + 20);
  h.nLmdPayloadBytes = load32(p + 24);
  h.literalBits = int32_t(load32(p + 28));
  for (int i = 0; i < 4; ++i) h.literalState[i] = load16(p + 32 + 2 * i);
  h.lmdBits = int32_t(load32(p + 40));
  h.lState = load16(p + 44);
  h.mState = load16(p + 46);
  h.dState = load16(p + 48);
  h.headerSize = kV1HeaderSize;
  if (h.literalBits < -7 || h.literalBits > 0 || h.lmdBits < -7 || h.lmdBits > 0) {
    return LzfseError::badHeader;
  }
  if (!sizesOnly) {
    auto slots = freqSlots(h);
    for (int i = 0; i < kFreqCount; ++i) *slots[i] = load16(p + 50 + 2 * i);
  }
  return std::nullopt;
}

std::optional<LzfseError> readV2(std::span<const uint8_t> block, bool sizesOnly,
                                 LzfseBlockHeader& h) {
  if (block.size() < kV2FixedHeaderSize) return LzfseError::truncated;
  const uint8_t* p = block.data();
  h.nRawBytes = load32(p + 4);
  const uint64_t w0 = load64(p + 8);
  const uint64_t w1 = load64(p + 16);
  const uint64_t w2 = load64(p + 24);
  h.nLiterals = uint32_t(w0 & 0xFFFFF);
  h.nLiteralPayloadBytes = uint32_t((w0 >> 20) & 0xFFFFF);
  h.nMatches = uint32_t((w0 >> 40) & 0xFFFFF);
  h.literalBits = int32_t((w0 >> 60) & 7) - 7;
  for (int i = 0; i < 4; ++i) h.literalState[i] = uint16_t((w1 >> (10 * i)) & 0x3FF);
  h.nLmdPayloadBytes = uint32_t((w1 >> 40) & 0xFFFFF);
  h.lmdBits = int32_t((w1 >> 60) & 7) - 7;
  h.headerSize = uint32_t(w2 & 0xFFFFFFFF);
  h.lState = uint16_t((w2 >> 32) & 0x3FF);
  h.mState = uint16_t((w2 >> 42) & 0x3FF);
  h.dState = uint16_t((w2 >> 52) & 0x3FF);
  // 360 codes of at most 14 bits each.
  constexpr size_t kMaxHeader = kV2FixedHeaderSize + (kFreqCount * 14 + 7) / 8;
  if (h.headerSize < kV2FixedHeaderSize || h.headerSize > kMaxHeader) return LzfseError::badHeader;
  if (h.headerSize > block.size()) return LzfseError::truncated;
  if (!sizesOnly) {
    return readPackedFrequencies(block.subspan(kV2FixedHeaderSize, h.headerSize - kV2FixedHeaderSize),
                                 h);
  }
  return std::nullopt;
}

}  // namespace

std::optional<LzfseError> readLzfseHeader(std::span<const uint8_t> block, bool sizesOnly,
                                          LzfseBlockHeader& h) {
  if (block.size() < 4) return LzfseError::truncated;
  const uint32_t magic = load32(block.data());
  std::optional<LzfseError> err;
  if (magic == kMagicV1) {
    err = readV1(block, sizesOnly, h);
  } else if (magic == kMagicV2) {
    err = readV2(block, sizesOnly, h);
  } else {
    return LzfseError::badMagic;
  }
  if (err) return err;
  if (h.nLiterals > kMaxLiteralsPerBlock || h.nLiterals % 4 != 0 ||
      h.nMatches > kMaxMatchesPerBlock) {
    return LzfseError::badHeader;
  }
  // Every triple outputs at most kMaxL literals and a kMaxM match, and the
  // literals come from the block's own: a larger size is a lie.
  const uint64_t mostRaw = std::min(uint64_t(h.nMatches) * (kMaxL + kMaxM),
                                    uint64_t(h.nLiterals) + uint64_t(h.nMatches) * kMaxM);
  if (h.nRawBytes > mostRaw) return LzfseError::badHeader;
  if (h.blockSize() > block.size()) return LzfseError::truncated;
  return std::nullopt;
}

struct LzfseBlockDecoder::Scratch {
  std::array<LiteralDecodeEntry, kLiteralStates> literalTable;
  std::array<ValueDecodeEntry, kLStates> lTable;
  std::array<ValueDecodeEntry, kMStates> mTable;
  std::array<ValueDecodeEntry, kDStates> dTable;
  // Decoded literals, with slack for 16-byte copies.
  std::array<uint8_t, kMaxLiteralsPerBlock + kWideSlack> literals{};
};

LzfseBlockDecoder::LzfseBlockDecoder() : scratch_(std::make_unique<Scratch>()) {}
LzfseBlockDecoder::~LzfseBlockDecoder() = default;

namespace {

// One L, M or D decode step; false when the stream has too few bits left.
inline bool decodeValue(const ValueDecodeEntry* table, uint32_t& state, BackwardBitReader& bits,
                        uint32_t& value) {
  const ValueDecodeEntry e = table[state];
  if (e.totalBits > bits.available()) return false;
  const uint32_t x = bits.take(e.totalBits);
  value = e.valueBase + (x & ((1u << e.extraBits) - 1));
  state = e.base + (x >> e.extraBits);
  return true;
}

// Checks a table that the block uses (exact sum) or ignores (at most N).
bool tableSumAtMost(const uint16_t* freq, int symbols, int states) {
  int sum = 0;
  for (int s = 0; s < symbols; ++s) sum += freq[s];
  return sum <= states;
}

}  // namespace

std::optional<LzfseError> LzfseBlockDecoder::decode(std::span<const uint8_t> block,
                                                    const LzfseBlockHeader& h,
                                                    std::span<uint8_t> out, size_t& posRef) {
  Scratch& s = *scratch_;
  if (!tableSumAtMost(h.literalFreq.data(), kLiteralSymbols, kLiteralStates) ||
      !tableSumAtMost(h.lFreq.data(), kLSymbols, kLStates) ||
      !tableSumAtMost(h.mFreq.data(), kMSymbols, kMStates) ||
      !tableSumAtMost(h.dFreq.data(), kDSymbols, kDStates)) {
    return LzfseError::badTable;
  }

  // Literals, all decoded up front.
  if (h.nLiterals > 0) {
    if (!buildLiteralDecodeTable(h.literalFreq.data(), s.literalTable.data())) {
      return LzfseError::badTable;
    }
    for (uint16_t st : h.literalState) {
      if (st >= kLiteralStates) return LzfseError::badTable;
    }
  }
  BackwardBitReader bits;
  if (!bits.init(block.data() + h.headerSize, h.nLiteralPayloadBytes, h.literalBits)) {
    return LzfseError::badPayload;
  }
  {
    uint32_t st[4] = {h.literalState[0], h.literalState[1], h.literalState[2], h.literalState[3]};
    const LiteralDecodeEntry* table = s.literalTable.data();
    uint8_t* lit = s.literals.data();
    for (uint32_t i = 0; i < h.nLiterals; i += 4) {
      bits.refill();
      if (bits.available() < 40) {  // near the start of the stream: check every read
        for (int q = 0; q < 4; ++q) {
          const LiteralDecodeEntry e = table[st[q]];
          if (e.bits > bits.available()) return LzfseError::badPayload;
          lit[i + q] = e.symbol;
          st[q] = e.base + bits.take(e.bits);
        }
        continue;
      }
      for (int q = 0; q < 4; ++q) {
        const LiteralDecodeEntry e = table[st[q]];
        lit[i + q] = e.symbol;
        st[q] = e.base + bits.take(e.bits);
      }
    }
  }

  // Triples.
  if (h.nMatches > 0) {
    if (!buildValueDecodeTable(kLStates, kLSymbols, h.lFreq.data(), kLExtraBits.data(),
                               kLBaseValue.data(), s.lTable.data()) ||
        !buildValueDecodeTable(kMStates, kMSymbols, h.mFreq.data(), kMExtraBits.data(),
                               kMBaseValue.data(), s.mTable.data()) ||
        !buildValueDecodeTable(kDStates, kDSymbols, h.dFreq.data(), kDExtraBits.data(),
                               kDBaseValue.data(), s.dTable.data())) {
      return LzfseError::badTable;
    }
    if (h.lState >= kLStates || h.mState >= kMStates || h.dState >= kDStates) {
      return LzfseError::badTable;
    }
  }
  if (!bits.init(block.data() + h.headerSize + h.nLiteralPayloadBytes, h.nLmdPayloadBytes,
                 h.lmdBits)) {
    return LzfseError::badPayload;
  }

  uint8_t* const base = out.data();
  const size_t cap = out.size();
  size_t pos = posRef;
  const size_t blockEnd = pos + h.nRawBytes;
  const uint8_t* lit = s.literals.data();
  const uint8_t* const litEnd = lit + h.nLiterals;
  uint32_t lState = h.lState;
  uint32_t mState = h.mState;
  uint32_t dState = h.dState;
  uint32_t prevD = 0;  // none yet in this block
  for (uint32_t n = 0; n < h.nMatches; ++n) {
    bits.refill();
    uint32_t l, m, d;
    if (!decodeValue(s.lTable.data(), lState, bits, l) ||
        !decodeValue(s.mTable.data(), mState, bits, m) ||
        !decodeValue(s.dTable.data(), dState, bits, d)) {
      return LzfseError::badPayload;
    }
    if (d == 0) {
      if (prevD == 0) return LzfseError::badDistance;
      d = prevD;
    } else {
      prevD = d;
    }
    if (l > size_t(litEnd - lit)) return LzfseError::literalOverrun;
    if (size_t(l) + m > blockEnd - pos) return LzfseError::blockSizeMismatch;
    const bool wide = cap - pos >= size_t(l) + m + 2 * kWideSlack;
    if (wide) {
      copyLiteralsWide(base + pos, lit, l);
    } else {
      copyLiteralsExact(base + pos, lit, l);
    }
    lit += l;
    pos += l;
    if (d > pos) return LzfseError::badDistance;
    if (wide) {
      copyMatchWide(base + pos, d, m);
    } else {
      copyMatchExact(base + pos, d, m);
    }
    pos += m;
  }
  if (pos != blockEnd) return LzfseError::blockSizeMismatch;
  posRef = pos;
  return std::nullopt;
}

void encodeLzfseBlock(std::span<const Triple> triples, std::span<const uint8_t> literals,
                      std::vector<uint8_t>& out) {
  LzfseBlockHeader h;

  // Literals padded to a multiple of 4 (the padding is never used).
  std::vector<uint8_t> lits(literals.begin(), literals.end());
  lits.resize((lits.size() + 3) & ~size_t(3), 0);
  h.nLiterals = uint32_t(lits.size());
  h.nMatches = uint32_t(triples.size());

  // Symbols of the triples, with D replaced by 0 when it repeats.
  struct Coded {
    uint32_t l, m, d;
    uint8_t ls, ms, ds;
  };
  std::vector<Coded> coded(triples.size());
  std::array<uint32_t, kLiteralSymbols> litCount{};
  std::array<uint32_t, kLSymbols> lCount{};
  std::array<uint32_t, kMSymbols> mCount{};
  std::array<uint32_t, kDSymbols> dCount{};
  uint32_t prevD = 0;
  uint64_t nRaw = 0;
  for (size_t i = 0; i < triples.size(); ++i) {
    const Triple& t = triples[i];
    Coded& c = coded[i];
    c.l = t.l;
    c.m = t.m;
    c.d = (i > 0 && t.d == prevD) ? 0 : t.d;
    prevD = t.d;
    c.ls = lSymbol(c.l);
    c.ms = mSymbol(c.m);
    c.ds = dSymbol(c.d);
    ++lCount[c.ls];
    ++mCount[c.ms];
    ++dCount[c.ds];
    nRaw += uint64_t(t.l) + t.m;
  }
  for (uint8_t b : lits) ++litCount[b];
  h.nRawBytes = uint32_t(nRaw);

  normalizeFrequencies(litCount.data(), kLiteralSymbols, kLiteralStates, h.literalFreq.data());
  normalizeFrequencies(lCount.data(), kLSymbols, kLStates, h.lFreq.data());
  normalizeFrequencies(mCount.data(), kMSymbols, kMStates, h.mFreq.data());
  normalizeFrequencies(dCount.data(), kDSymbols, kDStates, h.dFreq.data());

  // Packed header tables.
  std::vector<uint8_t> table;
  {
    ForwardBitWriter w(table);
    for (uint16_t* slot : freqSlots(h)) encodeFreqCode(*slot, w);
    w.finish();
  }

  // Literal stream: last group first, state 3 down to state 0 within a group,
  // so that the decoder reads literal 0 first.
  std::vector<uint8_t> litPayload;
  {
    FseEncoder enc;
    enc.init(kLiteralStates, kLiteralSymbols, h.literalFreq.data());
    ForwardBitWriter w(litPayload);
    uint32_t x[4] = {0, 0, 0, 0};
    for (size_t i = lits.size(); i >= 4; i -= 4) {
      for (int q = 3; q >= 0; --q) enc.encode(x[q], lits[i - 4 + size_t(q)], w);
    }
    h.literalBits = w.finish();
    for (int q = 0; q < 4; ++q) h.literalState[q] = uint16_t(x[q]);
  }

  // L/M/D stream: 8 zero bytes first (some decoders refill 8 bytes at a time
  // and never read below the payload), then the triples from last to first,
  // each as D, M, L with extra bits before the state bits.
  std::vector<uint8_t> lmdPayload(8, 0);
  {
    FseEncoder lEnc, mEnc, dEnc;
    lEnc.init(kLStates, kLSymbols, h.lFreq.data());
    mEnc.init(kMStates, kMSymbols, h.mFreq.data());
    dEnc.init(kDStates, kDSymbols, h.dFreq.data());
    ForwardBitWriter w(lmdPayload);
    uint32_t xl = 0, xm = 0, xd = 0;
    for (size_t i = coded.size(); i-- > 0;) {
      const Coded& c = coded[i];
      w.put(c.d - kDBaseValue[c.ds], kDExtraBits[c.ds]);
      dEnc.encode(xd, c.ds, w);
      w.put(c.m - kMBaseValue[c.ms], kMExtraBits[c.ms]);
      mEnc.encode(xm, c.ms, w);
      w.put(c.l - kLBaseValue[c.ls], kLExtraBits[c.ls]);
      lEnc.encode(xl, c.ls, w);
    }
    h.lmdBits = w.finish();
    h.lState = uint16_t(xl);
    h.mState = uint16_t(xm);
    h.dState = uint16_t(xd);
  }
  h.nLiteralPayloadBytes = uint32_t(litPayload.size());
  h.nLmdPayloadBytes = uint32_t(lmdPayload.size());
  h.headerSize = uint32_t(kV2FixedHeaderSize + table.size());

  const uint64_t w0 = uint64_t(h.nLiterals) | uint64_t(h.nLiteralPayloadBytes) << 20 |
                      uint64_t(h.nMatches) << 40 | uint64_t(h.literalBits + 7) << 60;
  const uint64_t w1 = uint64_t(h.literalState[0]) | uint64_t(h.literalState[1]) << 10 |
                      uint64_t(h.literalState[2]) << 20 | uint64_t(h.literalState[3]) << 30 |
                      uint64_t(h.nLmdPayloadBytes) << 40 | uint64_t(h.lmdBits + 7) << 60;
  const uint64_t w2 = uint64_t(h.headerSize) | uint64_t(h.lState) << 32 |
                      uint64_t(h.mState) << 42 | uint64_t(h.dState) << 52;
  const size_t at = out.size();
  out.resize(at + kV2FixedHeaderSize);
  store32(out.data() + at, kMagicV2);
  store32(out.data() + at + 4, h.nRawBytes);
  store64(out.data() + at + 8, w0);
  store64(out.data() + at + 16, w1);
  store64(out.data() + at + 24, w2);
  out.insert(out.end(), table.begin(), table.end());
  out.insert(out.end(), litPayload.begin(), litPayload.end());
  out.insert(out.end(), lmdPayload.begin(), lmdPayload.end());
}

}  // namespace vg::lzfse
