#include "codec/lzfse_lzvn.h"

#include <algorithm>
#include <array>

#include "codec/lzfse_bits.h"
#include "codec/lzfse_copy.h"

namespace vg::lzfse {

namespace {

enum class Op : uint8_t {
  smlD,       // LLMMMDDD dddddddd: D = DDD * 256 + d
  medD,       // 101LLMMM w16: M = (MMM * 4 + (w & 3)) + 3, D = w >> 2
  lrgD,       // LLMMM111 D16
  preD,       // LLMMM110 (LL >= 1): previous distance
  smlM,       // 1111MMMM (M >= 1): previous distance
  lrgM,       // 0xF0 m: M = m + 16
  smlL,       // 1110LLLL (L >= 1)
  lrgL,       // 0xE0 l: L = l + 16
  nop,        // 0x0E, 0x16
  eos,        // 0x06 + 7 bytes
  undefined,  // 0x1E, 0x26, 0x2E, 0x36, 0x3E, 0x70-0x7F, 0xD0-0xDF
};

constexpr std::array<Op, 256> makeOpTable() {
  std::array<Op, 256> t{};
  for (int b = 0; b < 256; ++b) {
    Op op;
    if (b >= 0xF0) {
      op = b == 0xF0 ? Op::lrgM : Op::smlM;
    } else if (b >= 0xE0) {
      op = b == 0xE0 ? Op::lrgL : Op::smlL;
    } else if (b >= 0xD0 || (b >= 0x70 && b <= 0x7F)) {
      op = Op::undefined;
    } else if (b >= 0xA0 && b <= 0xBF) {
      op = Op::medD;
    } else if ((b & 7) == 7) {
      op = Op::lrgD;
    } else if ((b & 7) == 6) {
      if (b >= 0x40) {
        op = Op::preD;
      } else if (b == 0x06) {
        op = Op::eos;
      } else if (b == 0x0E || b == 0x16) {
        op = Op::nop;
      } else {
        op = Op::undefined;
      }
    } else {
      op = Op::smlD;
    }
    t[size_t(b)] = op;
  }
  return t;
}

constexpr std::array<Op, 256> kOps = makeOpTable();

}  // namespace

std::optional<LzfseError> decodeLzvnPayload(std::span<const uint8_t> payload, size_t nRaw,
                                            std::span<uint8_t> out, size_t& posRef) {
  const uint8_t* p = payload.data();
  const uint8_t* const pe = p + payload.size();
  uint8_t* const base = out.data();
  const size_t cap = out.size();
  size_t pos = posRef;
  const size_t blockEnd = pos + nRaw;
  size_t prevD = 0;

  for (;;) {
    if (p >= pe) return LzfseError::badOpcode;  // ran out before the end marker
    const uint8_t b = *p;
    size_t l = 0;
    size_t m = 0;
    size_t d = 0;
    const size_t have = size_t(pe - p);
    switch (kOps[b]) {
      case Op::smlD:
        if (have < 2) return LzfseError::truncated;
        l = b >> 6;
        m = ((b >> 3) & 7) + 3;
        d = (size_t(b & 7) << 8) | p[1];
        p += 2;
        prevD = d;
        break;
      case Op::medD: {
        if (have < 3) return LzfseError::truncated;
        const uint16_t w = load16(p + 1);
        l = (b >> 3) & 3;
        m = (size_t(b & 7) << 2 | (w & 3)) + 3;
        d = w >> 2;
        p += 3;
        prevD = d;
        break;
      }
      case Op::lrgD:
        if (have < 3) return LzfseError::truncated;
        l = b >> 6;
        m = ((b >> 3) & 7) + 3;
        d = load16(p + 1);
        p += 3;
        prevD = d;
        break;
      case Op::preD:
        l = b >> 6;
        m = ((b >> 3) & 7) + 3;
        d = prevD;
        p += 1;
        break;
      case Op::smlM:
        m = b & 15;
        d = prevD;
        p += 1;
        break;
      case Op::lrgM:
        if (have < 2) return LzfseError::truncated;
        m = size_t(p[1]) + 16;
        d = prevD;
        p += 2;
        break;
      case Op::smlL:
        l = b & 15;
        p += 1;
        break;
      case Op::lrgL:
        if (have < 2) return LzfseError::truncated;
        l = size_t(p[1]) + 16;
        p += 2;
        break;
      case Op::nop:
        p += 1;
        continue;
      case Op::eos:
        if (have != 8) return LzfseError::badOpcode;
        if (pos != blockEnd) return LzfseError::blockSizeMismatch;
        posRef = pos;
        return std::nullopt;
      case Op::undefined:
        return LzfseError::badOpcode;
    }

    if (l + m > blockEnd - pos) return LzfseError::blockSizeMismatch;
    if (size_t(pe - p) < l) return LzfseError::truncated;
    const bool wide = cap - pos >= l + m + 2 * kWideSlack;
    if (l > 0) {
      if (wide && size_t(pe - p) >= l + kWideSlack) {
        copyLiteralsWide(base + pos, p, l);
      } else {
        copyLiteralsExact(base + pos, p, l);
      }
      p += l;
      pos += l;
    }
    if (m > 0) {
      if (d == 0 || d > pos) return LzfseError::badDistance;
      if (wide) {
        copyMatchWide(base + pos, d, m);
      } else {
        copyMatchExact(base + pos, d, m);
      }
      pos += m;
    }
  }
}

namespace {

void putLiterals(const uint8_t* src, size_t n, std::vector<uint8_t>& out) {
  while (n > 0) {
    size_t run;
    if (n >= 16) {
      run = std::min<size_t>(n, 271);
      out.push_back(0xE0);
      out.push_back(uint8_t(run - 16));
    } else {
      run = n;
      out.push_back(uint8_t(0xE0 + run));
    }
    out.insert(out.end(), src, src + run);
    src += run;
    n -= run;
  }
}

// The rest of a match at the previous distance: lrg_m (16...271), sml_m (1...15).
void putRepeatMatch(size_t m, std::vector<uint8_t>& out) {
  while (m > 0) {
    if (m >= 16) {
      const size_t run = std::min<size_t>(m, 271);
      out.push_back(0xF0);
      out.push_back(uint8_t(run - 16));
      m -= run;
    } else {
      out.push_back(uint8_t(0xF0 + m));
      m = 0;
    }
  }
}

}  // namespace

void encodeLzvnPayload(std::span<const uint8_t> data, size_t begin,
                       std::span<const Sequence> sequences, std::vector<uint8_t>& out) {
  // Longest first match part a d-instruction can carry after 0...3 literals.
  static constexpr size_t kMaxFirstMatch[4] = {10, 8, 6, 4};
  const uint8_t* src = data.data() + begin;
  size_t prevD = 0;
  for (const Sequence& s : sequences) {
    if (s.matchLength == 0) {
      putLiterals(src, s.literals, out);
      src += s.literals;
      continue;
    }
    const size_t d = s.distance;
    size_t m = s.matchLength;
    const size_t carried = std::min<size_t>(s.literals, 3);
    putLiterals(src, s.literals - carried, out);
    src += s.literals - carried;

    if (d == prevD && carried == 0) {
      putRepeatMatch(m, out);
    } else {
      size_t first;
      if (d == prevD) {  // pre_d carries 1...3 literals
        first = std::min(m, kMaxFirstMatch[carried]);
        out.push_back(uint8_t(carried << 6 | (first - 3) << 3 | 6));
      } else if (d <= 1535) {
        first = std::min(m, kMaxFirstMatch[carried]);
        out.push_back(uint8_t(carried << 6 | (first - 3) << 3 | (d >> 8)));
        out.push_back(uint8_t(d & 0xFF));
      } else if (d <= 16383) {
        first = std::min<size_t>(m, 34);
        const size_t code = first - 3;
        out.push_back(uint8_t(0xA0 | carried << 3 | code >> 2));
        out.push_back(uint8_t(((d << 2) | (code & 3)) & 0xFF));
        out.push_back(uint8_t(d >> 6));
      } else {
        first = std::min(m, kMaxFirstMatch[carried]);
        out.push_back(uint8_t(carried << 6 | (first - 3) << 3 | 7));
        out.push_back(uint8_t(d & 0xFF));
        out.push_back(uint8_t(d >> 8));
      }
      out.insert(out.end(), src, src + carried);
      putRepeatMatch(m - first, out);
    }
    src += carried + m;
    prevD = d;
  }
  static constexpr uint8_t kEnd[8] = {0x06, 0, 0, 0, 0, 0, 0, 0};
  out.insert(out.end(), kEnd, kEnd + 8);
}

}  // namespace vg::lzfse
