// Writing rendered images for numerical checks and tools, by file extension:
//   .tif / .tiff  32-bit float RGBA, the linear working-space values exactly
//                 as rendered (premultiplied alpha marked as associated; no
//                 ICC profile, no clamping, no dither), uncompressed;
//   .png          16-bit sRGB with the sRGB profile;
//   .jpg / .jpeg  8-bit sRGB with the sRGB profile, quality 0.92.
// PNG and JPEG go through the exporter's encoders and output conversion
// (RGB when every pixel is opaque, else RGBA for PNG).
// A grey mask is written as an 8-bit greyscale PNG, value x 255 rounded.
//
// Every file is written to a temporary file beside the destination and moved
// into place only when complete; on failure nothing is left behind and an
// existing destination is untouched. Failures throw std::runtime_error with a
// message naming the file.
#pragma once

#include <filesystem>
#include <string>

#include "render/grey_image.h"
#include "render/image.h"

namespace vg {

// True for the extensions writeWorkingImage() accepts (case-insensitive).
bool isWritableImageExtension(const std::filesystem::path& path);

void writeWorkingImage(const std::filesystem::path& path, const Image& image);
void writeGreyPng(const std::filesystem::path& path, const GreyImage& mask);

}  // namespace vg
