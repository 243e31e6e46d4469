// A camera RAW file opened with LibRaw (thread-safe libraw_r), shared by the
// full development (raw_developer.h) and the quick preview (raw_preview.h).
//
// openRaw() parses the buffer's headers only (no pixel data is unpacked) and
// refuses what LibRaw does not take and what decode_limits.h calls absurd:
// raw or image sizes beyond the limits, or more raw data declared than the
// file holds (some of LibRaw's decoders allocate the declared size before
// reading), and, before LibRaw reads anything, a TIFF-based RAW whose CFA
// pattern length disagrees with its repeat size (LibRaw 0.20 writes past
// its own state on one). A refusal is logged and gives null; the caller
// reports code 3.
//
// rawFacts() reads LibRaw's facts about the file (maker, model, lens, ISO,
// shutter, aperture, focal length, date, white-balance multipliers, black
// and white level, raw size) as they are right after opening: development
// rewrites the black and white levels, so read them before it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "io/photo_metadata.h"

class LibRaw;

namespace vg {

struct LibRawDeleter {
  void operator()(LibRaw* p) const;
};
using LibRawPtr = std::unique_ptr<LibRaw, LibRawDeleter>;

// The buffer must outlive the returned object.
LibRawPtr openRaw(std::span<const uint8_t> bytes);

PhotoMetadata rawFacts(const LibRaw& raw);

}  // namespace vg
