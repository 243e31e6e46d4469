// DecodedImage: what every format decoder returns, before the loader adds
// the file-level facts (format label, metadata).
#pragma once

#include <string>

#include "render/image.h"

namespace vg {

struct DecodedImage {
  Image image;                 // upright, linear working space, premultiplied
  std::string profileName;     // description of the embedded profile, or empty
  std::string colorModel;      // "RGB", "Gray" or "CMYK": what the samples were
  // The upright size a full-scale decode gives. Decoders that can decode
  // reduced (JPEG, HEIF) set it; 0 means the image's own size.
  int fullWidth = 0;
  int fullHeight = 0;
  bool opaque = true;          // every pixel has alpha 1 (no alpha sample, or all of it 1)
};

// Options shared by the plain decoders.
struct DecodeOptions {
  // EXIF orientation (1-8) to apply; the TIFF decoder reads its own tag and
  // HEIF applies its container transforms instead.
  int orientation = 1;
  // Reduced decode, for previews: the decoder may return a smaller image
  // whose longer side is still at least this (JPEG: a DCT scale of n/8;
  // HEIF: a thumbnail). 0, or a value the full size does not reach, decodes
  // at full size. Decoders without a reduced mode ignore it.
  double minLongSide = 0;
};

}  // namespace vg
