// Base64 with the standard alphabet (RFC 4648 section 4), as used for byte
// fields inside recipe JSON.
//
// Encoding always pads with '='. Decoding accepts the padded form and the same
// text with its padding left off; anything else (characters outside the
// alphabet, whitespace, misplaced '=', a length that cannot come from whole
// bytes, non-zero bits left over in the last character) is rejected with
// nullopt rather than guessed at.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vg::codec {

std::string base64Encode(std::span<const std::uint8_t> bytes);

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

}  // namespace vg::codec
