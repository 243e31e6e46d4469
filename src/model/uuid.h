// A 128-bit universally unique identifier, the stable identity of masks,
// subtract shapes, bitmap rasters and red-eye spots inside a recipe.
//
// Text form: 8-4-4-4-12 hexadecimal digits, written upper-case; parsing
// accepts either case and nothing else (no braces, no missing hyphens).
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/hashing.h"

namespace vg {

struct Uuid {
  std::array<std::uint8_t, 16> bytes{};  // all zero: the nil UUID

  // A fresh version-4 (random) UUID from the system's secure random source.
  static Uuid random();
  static std::optional<Uuid> parse(std::string_view text);
  std::string toString() const;

  bool operator==(const Uuid&) const = default;
  auto operator<=>(const Uuid&) const = default;
};

inline void hashAppend(Hasher& h, const Uuid& u) { h.addBytes(u.bytes.data(), u.bytes.size()); }

}  // namespace vg

VG_STD_HASH(vg::Uuid);
