// JPEG decoding with libjpeg-turbo: baseline, progressive, greyscale and
// CMYK/YCCK (Adobe-inverted or not), with the embedded ICC profile.
//
// Decoding and colour conversion overlap: bands of decoded 8-bit rows are
// handed to the thread pool while libjpeg decodes the next band, so on two
// cores the float conversion costs little beyond the decode itself.
//
// A file that ends early keeps what was decoded (libjpeg fills the rest with
// grey) unless it ends before the first row of blocks. Progressive files with
// an absurd number of scans and rasters beyond decode_limits are refused.
// Throws DecodeError.
#pragma once

#include <cstdint>
#include <span>

#include "io/decoded_image.h"

namespace vg {

DecodedImage decodeJpeg(std::span<const uint8_t> bytes, const DecodeOptions& options);

}  // namespace vg
