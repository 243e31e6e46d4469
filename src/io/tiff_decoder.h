// TIFF decoding with libtiff, from memory: 8- and 16-bit integer and 16-, 32-
// and 64-bit float samples; grey (min-is-black or min-is-white), RGB, palette and
// CMYK; contiguous or planar; strips or tiles; any compression libtiff
// reads (none, LZW, Deflate, PackBits, JPEG, ...); straight or associated
// alpha; the ICC profile and the Orientation tag of the first directory.
// Layouts outside these (1-bit, YCbCr without JPEG, ...) go through libtiff's
// 8-bit RGBA reader. Only the first page of a multi-page file is read.
// A float file without a profile is taken as working-space data as is.
// Throws DecodeError.
#pragma once

#include <cstdint>
#include <span>

#include "io/decoded_image.h"

namespace vg {

DecodedImage decodeTiff(std::span<const uint8_t> bytes);

}  // namespace vg
