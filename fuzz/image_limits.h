// The raster size the image targets decode: about 256×256 pixels.
//
// Every image target runs under decode_limits::ScopedMaxPixels(kMaxPixels),
// so a mutated header that declares a large raster is refused before any
// pixel memory is taken, exactly as the loader refuses an absurd one. Runs
// then go to the parsing, colour and orientation paths instead of to
// filling megapixels of grey, and a target explores thousands of inputs a
// second. Seeds are kept within this size so they decode completely.
#pragma once

#include <cstdint>

namespace vg::fuzz {

inline constexpr int64_t kMaxPixels = 256 * 256;

}  // namespace vg::fuzz
