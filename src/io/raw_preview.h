// A quick preview of a camera RAW file, for opening it fast: the picture
// the camera embedded in the file when it is large enough, else a
// half-size development with the document's RAW settings.
//
// previewRaw(bytes, settings, fileName, maxDimension):
//  1. The embedded preview (LibRaw's thumbnail: a JPEG, or an 8-bit RGB or
//     grey bitmap) is used when its longer side is at least maxDimension / 2
//     and its shape matches the developed image's within 2 % (a preview of
//     another crop or aspect is not the photograph being edited). JPEG
//     previews decode through the JPEG decoder at the smallest DCT scale
//     that still reaches maxDimension. The camera's orientation (LibRaw's
//     flip) turns it upright, as the development does; its colours come
//     from its own profile (sRGB when it has none), i.e. the camera's
//     rendering, not the recipe's RAW settings.
//  2. Otherwise the file is developed as developRaw() does, at half size
//     when the full development's longer side exceeds maxDimension, else at
//     full size.
// The result's longer side can therefore lie anywhere from maxDimension / 2
// up to the full size; the caller shrinks it (ImageLoader::downscaled).
// facts and fullWidth × fullHeight are exactly what developRaw() reports
// for a full development. A maxDimension that is not a positive finite
// number develops at full size.
//
// Errors as developRaw(): ImageLoadError code 3 when LibRaw cannot open the
// file. A development failure (code 4 or 5) only shows when step 2 runs: a
// file whose raw data cannot be developed may still show its embedded
// preview.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "io/photo_metadata.h"
#include "model/adjustments.h"
#include "render/image.h"

namespace vg {

struct RawPreview {
  Image image;         // upright, linear working space
  PhotoMetadata facts;  // as developRaw() reports them
  int fullWidth = 0;    // the size of the full development
  int fullHeight = 0;
  bool embedded = false;  // true when the camera's own preview was used
};

RawPreview previewRaw(std::span<const uint8_t> bytes, const RAWDevelopSettings& settings,
                      std::string_view fileName, double maxDimension);

// The EXIF orientation (1-8) of a LibRaw flip code.
int orientationOfFlip(int flip);

// The camera's embedded preview alone, upright, in the working space, as
// step 1 decodes it (a JPEG at the smallest DCT scale that still reaches
// minLongSide, 0 for full size), whatever its size or shape; nothing when
// the file has none we can read or LibRaw cannot open it.
std::optional<Image> rawEmbeddedPreview(std::span<const uint8_t> bytes, double minLongSide = 0);

}  // namespace vg
