// PNG decoding with libpng: 1-16-bit grey, RGB, palette (with tRNS), alpha,
// Adam7 interlacing, and the iCCP profile.
//
// 16-bit samples keep their precision through the colour tables. A file whose
// critical chunks fail their CRC is refused; a damaged ancillary chunk or a
// missing end chunk after complete image data is tolerated. Non-interlaced
// files overlap decoding and colour conversion like the JPEG decoder.
// Throws DecodeError.
#pragma once

#include <cstdint>
#include <span>

#include "io/decoded_image.h"

namespace vg {

DecodedImage decodePng(std::span<const uint8_t> bytes, const DecodeOptions& options);

}  // namespace vg
