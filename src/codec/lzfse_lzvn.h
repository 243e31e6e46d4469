// LZVN blocks ("bvxn"): a byte-oriented LZ77 opcode stream, used for small
// inputs. Internal to src/codec.
//
// Each instruction is an opcode byte, 0-2 operand bytes and 0-271 literal
// bytes; it outputs its literals, then copies a match of M bytes from D bytes
// back (D is either carried by the instruction or the block's previous
// distance, reset to "none" at every block). The payload ends with the 8-byte
// end marker 0x06 00 00 00 00 00 00 00 exactly at its last byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "codec/lzfse.h"
#include "codec/lzfse_match.h"

namespace vg::lzfse {

// Decodes one LZVN payload that must produce exactly nRaw bytes at
// out[pos...]. `out` holds the whole stream's output so far ([0, pos)) and
// at least pos + nRaw bytes; pos advances on success.
std::optional<LzfseError> decodeLzvnPayload(std::span<const uint8_t> payload, size_t nRaw,
                                            std::span<uint8_t> out, size_t& pos);

// Appends the LZVN payload (instructions and end marker) that reproduces
// data[begin, end) from `sequences`, a parse of that range whose distances
// are at most kLzvnMaxDistance and whose matches are at least 3 long.
void encodeLzvnPayload(std::span<const uint8_t> data, size_t begin,
                       std::span<const Sequence> sequences, std::vector<uint8_t>& out);

constexpr uint32_t kLzvnMaxDistance = 65535;

}  // namespace vg::lzfse
