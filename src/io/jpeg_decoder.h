// JPEG decoding with libjpeg-turbo: baseline, progressive, greyscale and
// CMYK/YCCK (Adobe-inverted or not), with the embedded ICC profile.
//
// Decoding and colour conversion overlap: libjpeg decodes bands of 8-bit
// rows into a small ring of band buffers (a few megabytes, never the whole
// 8-bit raster), and each full band is converted to float on the thread pool
// while libjpeg decodes the next ones. On two idle cores a 24-megapixel file
// then takes about as long as libjpeg alone (the float output's first-touch
// page clearing and writing run beside the decode).
//
// A reduced decode (DecodeOptions::minLongSide) uses libjpeg's DCT scaling:
// the smallest n/8 (n = 1...8) whose longer side still reaches the limit.
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
