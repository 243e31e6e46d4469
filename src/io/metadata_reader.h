// Reads PhotoMetadata and the orientation from a file's Exif with Exiv2.
//
// Metadata never fail a load: a file whose metadata are missing, damaged or
// hostile gives an empty record and orientation 1 (the reason is logged).
// Values that are not finite (a rational with a zero denominator) are left
// out, and so are focal lengths, apertures, exposure times and ISO speeds of
// 0 (placeholders, not values). Strings lose trailing NULs and blanks; takenAt stays as stored.
#pragma once

#include <cstdint>
#include <span>

#include "io/photo_metadata.h"

namespace vg {

struct ExifFacts {
  PhotoMetadata meta;
  int orientation = 1;  // 1-8, EXIF meaning
};

// From a whole image file in memory (JPEG, PNG, TIFF, camera RAW).
ExifFacts readExifFacts(std::span<const uint8_t> fileBytes);

// From a bare Exif block starting with its TIFF header ("II*\0" / "MM\0*"),
// as HEIF stores it after a 4-byte offset.
ExifFacts readExifBlock(std::span<const uint8_t> tiffBlock);

}  // namespace vg
