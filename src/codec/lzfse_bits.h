// Bit streams of LZFSE blocks and the little-endian loads and stores shared
// by the codec's files. Internal to src/codec.
//
// An LZFSE payload is written forwards and read backwards: the writer appends
// each field least significant bit first to a stream growing from bit 0, and
// the reader starts at the last meaningful bit and walks towards bit 0, so
// the field written last is read first. Reading k bits and then j bits equals
// reading k + j bits at once with the first k as the high part.
//
// The reader never touches a byte outside its payload and fails (instead of
// inventing zeros) when asked for a bit below position 0.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vg::lzfse {

inline uint16_t load16(const uint8_t* p) {
  return uint16_t(p[0] | (p[1] << 8));
}
inline uint32_t load32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;  // the codec targets little-endian hosts (x86-64, arm64)
}
inline uint64_t load64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}
inline void store16(uint8_t* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline void store32(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }
inline void store64(uint8_t* p, uint64_t v) { std::memcpy(p, &v, 8); }

static_assert(std::endian::native == std::endian::little, "little-endian host required");

// Reads a backward bit stream. `lastByteBits` is the payload's bits field
// (-7...0): minus the number of unused (zero) top bits of the last byte.
class BackwardBitReader {
 public:
  // Returns false when the padding bits are not zero or the bits field is
  // impossible for the payload size.
  bool init(const uint8_t* begin, size_t size, int lastByteBits) {
    begin_ = begin;
    next_ = begin + size;
    acc_ = 0;
    count_ = 0;
    if (lastByteBits > 0 || lastByteBits < -7) return false;
    if (size == 0) return lastByteBits == 0;
    const int pad = -lastByteBits;
    const uint8_t top = begin[size - 1];
    if (pad > 0 && (top >> (8 - pad)) != 0) return false;
    refill();
    count_ -= pad;  // the pad bits are the highest ones, and they are zero
    return true;
  }

  // Tops the accumulator up to at least 56 bits while bytes remain.
  inline void refill() {
    if (count_ > 55) return;
    if (next_ - begin_ >= 8) {
      const int n = (63 - count_) >> 3;  // 1...7 whole bytes fit
      const uint64_t w = load64(next_ - 8) >> (64 - 8 * n);
      next_ -= n;
      acc_ = (acc_ << (8 * n)) | w;
      count_ += 8 * n;
    } else {
      while (count_ <= 55 && next_ > begin_) {
        acc_ = (acc_ << 8) | *--next_;
        count_ += 8;
      }
    }
  }

  // Bits available without a refill.
  int available() const { return count_; }

  // Reads k <= count bits (the caller checked available()).
  inline uint32_t take(int k) {
    count_ -= k;
    return uint32_t((acc_ >> count_) & ((uint64_t(1) << k) - 1));
  }

  // Meaningful bits not yet read.
  size_t remainingBits() const { return size_t(next_ - begin_) * 8 + size_t(count_); }

 private:
  const uint8_t* begin_ = nullptr;
  const uint8_t* next_ = nullptr;  // bytes [begin_, next_) are not yet loaded
  uint64_t acc_ = 0;               // the low count_ bits are the next to read, highest first
  int count_ = 0;
};

// Appends fields to a forward bit stream (the writer side of the reader
// above). Fields are at most 32 bits wide.
class ForwardBitWriter {
 public:
  explicit ForwardBitWriter(std::vector<uint8_t>& out) : out_(out) {}

  inline void put(uint32_t value, int bits) {
    acc_ |= uint64_t(value) << count_;
    count_ += bits;
    while (count_ >= 8) {
      out_.push_back(uint8_t(acc_));
      acc_ >>= 8;
      count_ -= 8;
    }
  }

  // Pads the last byte with zeros; returns the bits field (-7...0).
  int finish() {
    int pad = 0;
    if (count_ > 0) {
      pad = 8 - count_;
      out_.push_back(uint8_t(acc_));
      acc_ = 0;
      count_ = 0;
    }
    return -pad;
  }

 private:
  std::vector<uint8_t>& out_;
  uint64_t acc_ = 0;
  int count_ = 0;
};

}  // namespace vg::lzfse
