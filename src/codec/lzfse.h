// LZFSE: the compressed form of bitmap mask rasters (one byte per pixel,
// rows top to bottom) stored inside edit recipes.
//
// A stream is a sequence of blocks, each opened by a 4-byte magic:
//   "bvx-" uncompressed bytes, "bvxn" LZVN, "bvx1"/"bvx2" LZFSE (FSE-coded
//   literals and (L, M, D) triples, with a plain or a packed header), and
//   "bvx$" end of stream. Matches may reach into earlier blocks' output.
//
// Decoding contract:
// - The caller says how many bytes the stream must produce (a mask's
//   width x height). The decoder never writes or allocates more than that,
//   and anything but exactly that many bytes is an error: more is
//   `outputOverflow` (detected from block headers, before any work), fewer is
//   `outputMismatch`. A header claiming more than its block's triples or
//   opcodes could ever produce is `badHeader`. The caller caps width x height
//   itself: a stream of many tiny blocks can legitimately claim a lot.
// - Any malformed input (truncated, corrupted, lying sizes, bad tables,
//   distances before the start, missing end of stream) yields an error; the
//   decoder never reads outside `stream`. Bytes after the end-of-stream block
//   are ignored.
// - Checks go beyond what other decoders enforce: frequency tables must fill
//   their states exactly, bit-stream padding must be zero, a block's triples
//   must add up to its declared size, and LZVN/LZFSE repeat matches need a
//   distance set earlier in the same block.
//
// Encoding contract: encodeLzfse() returns a complete stream that any
// conforming decoder reads back to `data`: a raw block under 8 bytes, LZVN
// under 4096 bytes (raw when that is not smaller), otherwise LZFSE blocks
// with packed headers (each falling back to a raw block when that is
// smaller), then the end-of-stream block.
//
// Thread-safe: no shared state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vg {

enum class LzfseError {
  truncated,          // the stream ends inside a block, or has no end-of-stream block
  badMagic,           // a block starts with an unknown magic
  badHeader,          // impossible header fields (counts, bit fields, header size)
  badTable,           // frequency table not summing to its states, or a state out of range
  badPayload,         // bit stream padding not zero, or a read before its first bit
  badOpcode,          // undefined LZVN opcode, or an LZVN payload not ending in its end marker
  badDistance,        // match distance 0, before the start of the output, or repeat with none
  literalOverrun,     // LZFSE triples use more literals than the block holds
  blockSizeMismatch,  // a block's contents do not add up to its declared size
  outputOverflow,     // the stream would produce more than the expected size
  outputMismatch,     // the stream ends having produced fewer than the expected size
};

// A short English description for logs ("LZFSE: frequency table ...").
const char* describe(LzfseError error);

struct LzfseDecoded {
  std::vector<uint8_t> bytes;  // empty on error
  std::optional<LzfseError> error;
  bool ok() const { return !error; }
};

// Decodes `stream`, which must produce exactly `expectedSize` bytes.
// Allocates expectedSize bytes only after the block headers add up to it.
LzfseDecoded decodeLzfse(std::span<const uint8_t> stream, size_t expectedSize);

// Decodes into `out`, which the stream must fill exactly. On error the
// contents of `out` are unspecified.
std::optional<LzfseError> decodeLzfseInto(std::span<const uint8_t> stream, std::span<uint8_t> out);

// Compresses `data` into a complete stream.
std::vector<uint8_t> encodeLzfse(std::span<const uint8_t> data);

}  // namespace vg
