#include "codec/base64.h"

#include <array>

namespace vg::codec {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Value of each alphabet character, -1 for everything else.
constexpr std::array<std::int8_t, 256> makeReverse() {
  std::array<std::int8_t, 256> table{};
  for (auto& v : table) v = -1;
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
  }
  return table;
}
constexpr auto kReverse = makeReverse();

}  // namespace

std::string base64Encode(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t v = (std::uint32_t(bytes[i]) << 16) | (std::uint32_t(bytes[i + 1]) << 8) |
                            std::uint32_t(bytes[i + 2]);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest == 1) {
    const std::uint32_t v = std::uint32_t(bytes[i]) << 16;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += "==";
  } else if (rest == 2) {
    const std::uint32_t v = (std::uint32_t(bytes[i]) << 16) | (std::uint32_t(bytes[i + 1]) << 8);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
  // Strip the padding, then check it was a legal amount for the data length.
  std::size_t padding = 0;
  while (!text.empty() && text.back() == '=' && padding < 2) {
    text.remove_suffix(1);
    ++padding;
  }
  const std::size_t tail = text.size() % 4;
  if (tail == 1) return std::nullopt;  // 6 bits cannot make a byte
  if (padding > 0 && (tail == 0 || padding != 4 - tail)) return std::nullopt;

  std::vector<std::uint8_t> out;
  out.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t acc = 0;
  int bits = 0;
  for (char c : text) {
    const int v = kReverse[static_cast<unsigned char>(c)];
    if (v < 0) return std::nullopt;
    acc = (acc << 6) | std::uint32_t(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<std::uint8_t>((acc >> bits) & 0xFF));
    }
  }
  // Leftover bits of the last character must be zero in canonical text.
  if (bits > 0 && (acc & ((1u << bits) - 1)) != 0) return std::nullopt;
  return out;
}

}  // namespace vg::codec
