#include "io/image_encoder.h"

namespace vg {

std::unique_ptr<ImageEncoder> makeEncoder(ExportFormat format, const std::filesystem::path& path,
                                          const EncodeSpec& spec) {
  switch (format) {
    case ExportFormat::jpeg: return makeJpegEncoder(path, spec);
    case ExportFormat::png: return makePngEncoder(path, spec);
    case ExportFormat::tiff: return makeTiffEncoder(path, spec);
    case ExportFormat::heic: return makeHeicEncoder(path, spec);
  }
  return makeJpegEncoder(path, spec);
}

}  // namespace vg
