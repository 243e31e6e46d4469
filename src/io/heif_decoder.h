// HEIC/HEIF decoding with libheif: the primary image only, 8-bit or deeper
// (10/12-bit kept in 16-bit samples), with alpha when present. libheif applies
// the container's rotation (irot) and mirror (imir); the EXIF orientation
// that phones also write describes the same turn and is NOT applied again.
// Colour: an ICC profile (prof/rICC) when present, else the nclx primaries
// and transfer, else sRGB. HDR files (nclx PQ or HLG transfer) keep their
// range: HDR reference white (203 cd/m²) becomes 1.0 and brighter light
// stays above it (input_color.h). The Exif block is returned for the metadata.
//
// Reduced decode: when minLongSide is a positive number, the smallest
// thumbnail of the primary image whose longer side reaches it is decoded
// instead (with its own transforms, and its own colour profile when it has
// one, else the primary's); without one the primary is decoded. A
// thumbnail that is not smaller than the primary, or does not decode, is
// passed over. The profile name, full size and Exif are always the primary
// image's; the full size is the size the primary decodes to (a container
// that declares another is not believed), or its declared size when a
// thumbnail stood in.
// Throws DecodeError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "io/decoded_image.h"

namespace vg {

struct HeifDecoded {
  DecodedImage decoded;
  std::vector<uint8_t> exif;  // the bare Exif block (TIFF header first), may be empty
};

HeifDecoded decodeHeif(std::span<const uint8_t> bytes, double minLongSide = 0);

// The bare Exif block of the primary image without decoding pixels.
std::vector<uint8_t> heifExifBlock(std::span<const uint8_t> bytes);

}  // namespace vg
