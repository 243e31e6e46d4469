#include "model/uuid.h"

#include <openssl/rand.h>

#include <random>

namespace vg {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Offsets of the hyphens in the 36-character text form.
constexpr bool isHyphenPosition(std::size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

Uuid Uuid::random() {
  Uuid u;
  if (RAND_bytes(u.bytes.data(), static_cast<int>(u.bytes.size())) != 1) {
    // The OpenSSL generator is not seeded (very unusual); the OS source is
    // still unpredictable enough for identities.
    std::random_device rd;
    for (auto& b : u.bytes) b = static_cast<std::uint8_t>(rd());
  }
  u.bytes[6] = static_cast<std::uint8_t>((u.bytes[6] & 0x0F) | 0x40);  // version 4
  u.bytes[8] = static_cast<std::uint8_t>((u.bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return u;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  Uuid u;
  std::size_t byte = 0;
  for (std::size_t i = 0; i < 36;) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    const int hi = hexValue(text[i]);
    const int lo = hexValue(text[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    u.bytes[byte++] = static_cast<std::uint8_t>(hi * 16 + lo);
    i += 2;
  }
  return u;
}

std::string Uuid::toString() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0F];
  }
  return out;
}

}  // namespace vg
