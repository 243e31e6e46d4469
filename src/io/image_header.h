// Pixel dimensions of an image file read from its header alone, without
// decoding any pixels: used to plan work (a batch runs one file at a time
// when any image is very large) before anything is loaded.
//
// JPEG (SOF marker), PNG (IHDR), TIFF (first directory), HEIC/HEIF (primary
// image) and camera RAW (LibRaw's identification, no unpacking). Stored size,
// not oriented: width x height is what matters. Absent when the file cannot be
// read or its header is not understood.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace vg {

struct ImageDimensions {
  int64_t width = 0;
  int64_t height = 0;
  int64_t pixels() const { return width * height; }
};

std::optional<ImageDimensions> readImageDimensions(const std::filesystem::path& file);

}  // namespace vg
