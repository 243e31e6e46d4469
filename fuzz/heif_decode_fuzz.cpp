// The HEIF decoder (container, primary image or a thumbnail of it, colour,
// Exif block) on arbitrary bytes: DecodeError or a non-empty image.
#include <cstdint>

#include "io/decode_limits.h"
#include "io/heif_decoder.h"
#include "io/load_error.h"
#include "io/metadata_reader.h"

#include "fuzz_check.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vg::decode_limits::ScopedMaxPixels limit(4 << 20);
  try {
    const double minLongSide = size > 0 && data[size - 1] % 2 ? data[size - 1] : 0;
    vg::HeifDecoded d = vg::decodeHeif({data, size}, minLongSide);
    check(d.decoded.image.width() >= 1 && d.decoded.image.height() >= 1);
    if (!d.exif.empty()) vg::readExifBlock(d.exif);
  } catch (const vg::DecodeError&) {
  }
  return 0;
}
