// DecodedImage: what every format decoder returns, before the loader adds
// the file-level facts (format label, metadata).
#pragma once

#include <string>

#include "render/image.h"

namespace vg {

struct DecodedImage {
  Image image;                 // upright, linear working space, premultiplied
  std::string profileName;     // description of the embedded profile used, or empty
  std::string colorModel;      // "RGB", "Gray" or "CMYK": what the samples were
};

// Options shared by the plain decoders.
struct DecodeOptions {
  // EXIF orientation (1-8) to apply; the TIFF decoder reads its own tag and
  // HEIF applies its container transforms instead.
  int orientation = 1;
};

}  // namespace vg
