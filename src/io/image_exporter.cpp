#include "io/image_exporter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "io/export_metadata.h"
#include "io/export_stages.h"
#include "io/export_temp_file.h"
#include "io/image_encoder.h"
#include "model/log.h"
#include "render/color_profiles.h"
#include "render/parallel.h"

namespace vg {
namespace {

// Rows per band: enough to keep both cores busy and the encoders streaming,
// small enough that a band of a 1,000,000-pixel-wide image stays bounded.
// A source with a halo (clarity reaches ~220 rows at full size) computes
// band + 2 x halo rows per band, so bands grow to four halos where the
// working set (band and halo, ~256 MB of float RGBA) allows: on a 12 MP
// recipe with clarity that cut the export's CPU time by more than half.
int bandRows(int width, int halo) {
  const int64_t w = std::max(1, width);
  const int64_t base = std::clamp<int64_t>(4 * 1024 * 1024 / w, 16, 256);
  if (halo <= 0) return int(base);
  const int64_t room = 16 * 1024 * 1024 / w - 2 * int64_t(halo);
  return int(std::max(base, std::min<int64_t>(4 * int64_t(halo), room)));
}

OutputColorSpace outputSpace(ExportColorSpace space) {
  switch (space) {
    case ExportColorSpace::srgb: return OutputColorSpace::sRGB;
    case ExportColorSpace::displayP3: return OutputColorSpace::displayP3;
    case ExportColorSpace::adobeRGB: return OutputColorSpace::adobeRGB1998;
  }
  return OutputColorSpace::sRGB;
}

std::string extensionFor(const std::filesystem::path& destination, ExportFormat format) {
  std::string ext = destination.extension().string();
  if (ext.size() > 1) return ext.substr(1);
  return std::string(defaultExtension(format));
}

}  // namespace

bool ImageExporter::sameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  std::error_code ec1, ec2;
  auto ca = std::filesystem::weakly_canonical(std::filesystem::absolute(a, ec1), ec1);
  auto cb = std::filesystem::weakly_canonical(std::filesystem::absolute(b, ec2), ec2);
  if (!ec1 && !ec2 && ca == cb) return true;
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0)
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  return false;
}

void ImageExporter::preflight(const std::filesystem::path& destination, const Options& options) {
  if (options.metadataSourceURL && sameFile(*options.metadataSourceURL, destination))
    throw ExportError(ExportError::kWouldOverwriteSource, destination.string());
  validate(options);
}

void ImageExporter::validate(const Options& options) {
  if (!std::isfinite(options.quality) || options.quality < 0.0 || options.quality > 1.0)
    throw ExportError(ExportError::kInvalidSettings, "quality out of range");
  if (options.longEdge && *options.longEdge < 1) throw ExportError(ExportError::kInvalidSettings, "long edge below 1");
}

ImageExporter::Size ImageExporter::targetSize(int64_t width, int64_t height, const std::optional<int64_t>& longEdge) {
  if (!longEdge || std::max(width, height) <= *longEdge) return {width, height};
  const double edge = double(*longEdge);
  if (width <= height)
    return {std::max<int64_t>(1, std::llround(double(width) * edge / double(height))), *longEdge};
  return {*longEdge, std::max<int64_t>(1, std::llround(double(height) * edge / double(width)))};
}

uint64_t ImageExporter::memoryBudget() {
  const uint64_t twoGiB = uint64_t(2) << 30;
  long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || pageSize <= 0) return twoGiB;
  return std::min(twoGiB, uint64_t(pages) * uint64_t(pageSize) / 4);
}

ImageExporter::Result ImageExporter::exportImage(const Image& image, const std::filesystem::path& destination,
                                                 const Options& options, const std::function<bool()>& isCancelled) {
  ImageBandSource source(image);
  return exportImage(source, destination, options, isCancelled);
}

ImageExporter::Result ImageExporter::exportImage(BandSource& image, const std::filesystem::path& destination,
                                                 const Options& options, const std::function<bool()>& isCancelled) {
  // 1-2. Protect the source, validate.
  preflight(destination, options);
  if (image.width() < 1 || image.height() < 1) throw ExportError(ExportError::kRenderFailed, "empty image");

  // 3-4. Resize and sharpen, as band stages over the source.
  BandSource* stage = &image;
  const Size size = targetSize(image.width(), image.height(), options.longEdge);
  std::unique_ptr<LanczosResizeSource> resized;
  if (size.width != image.width() || size.height != image.height()) {
    resized = std::make_unique<LanczosResizeSource>(*stage, int(size.width), int(size.height));
    stage = resized.get();
  }
  std::unique_ptr<UnsharpMaskSource> sharpened;
  if (auto usm = unsharpParams(options.outputSharpening)) {
    sharpened = std::make_unique<UnsharpMaskSource>(*stage, usm->radius, usm->intensity);
    stage = sharpened.get();
  }

  // 5-6. Output space, bit depth, limits.
  const int width = stage->width(), height = stage->height();
  const uint64_t bytesPerPixel = options.format == ExportFormat::jpeg ? 4 : 8;
  if (width > kMaxSide || height > kMaxSide)
    throw ExportError(ExportError::kRenderFailed, "side above 1,000,000 pixels");
  const uint64_t rowBytes = uint64_t(width) * bytesPerPixel;
  if (rowBytes / bytesPerPixel != uint64_t(width) || rowBytes * uint64_t(height) / uint64_t(height) != rowBytes ||
      rowBytes * uint64_t(height) > memoryBudget())
    throw ExportError(ExportError::kRenderFailed, "bitmap above the memory budget");
  const OutputColorSpace space = outputSpace(options.colorSpace);
  const OutputEncoding& outputEncoding = OutputEncoding::get(space);
  const OutputChannels channels =
      options.format != ExportFormat::jpeg && !stage->opaque() ? OutputChannels::rgba : OutputChannels::rgb;

  // 7. Metadata.
  std::optional<ExportMetadata> metadata;
  if (options.includeMetadata && options.metadataSourceURL)
    metadata = ExportMetadata::fromSource(*options.metadataSourceURL, options.includeLocation, options.longEdge);

  // 8-9. Encode into the temporary file.
  ExportTempFile temp(destination, extensionFor(destination, options.format));
  EncodeSpec spec;
  spec.width = width;
  spec.height = height;
  spec.channels = channels;
  spec.quality = options.quality;
  spec.compression = options.tiffCompression;
  spec.iccProfile = outputIccProfile(space);
  if (metadata && !metadata->empty()) {
    spec.metadata = &*metadata;
    spec.dpiX = metadata->dpiX();
    spec.dpiY = metadata->dpiY();
  }
  std::unique_ptr<ImageEncoder> encoder = makeEncoder(options.format, temp.path(), spec);
  const SampleLayout layout = encoder->sampleLayout();
  const size_t samples = size_t(width) * (channels == OutputChannels::rgba ? 4 : 3);
  const size_t sampleBytes = layout == SampleLayout::u8 ? 1 : 2;
  const size_t stride = (samples * sampleBytes + 63) / 64 * 64;
  const int rowsPerBand = bandRows(width, stage->haloRows());

  // Two row buffers: band k is rendered and converted into one while the
  // encoder, on its own thread, writes band k - 1 from the other. Declared
  // before `encoding` so that an unwinding exception waits for the encoder
  // before the buffers go.
  std::vector<uint8_t> rows[2];
  try {
    rows[0].resize(stride * size_t(std::min(rowsPerBand, height)));
    rows[1].resize(rows[0].size());
  } catch (const std::bad_alloc&) {
    throw ExportError(ExportError::kRenderFailed, "out of memory");
  }
  std::future<void> encoding;
  int band = 0;
  for (int y0 = 0; y0 < height; y0 += rowsPerBand, ++band) {
    const int n = std::min(rowsPerBand, height - y0);
    uint8_t* buffer = rows[band % 2].data();
    {
      Image pixels;
      try {
        pixels = stage->renderBand(Rect{0, y0, width, n});
      } catch (const std::bad_alloc&) {
        throw ExportError(ExportError::kRenderFailed, "out of memory");
      }
      parallelRows(Rect{0, y0, width, n}, 4, [&](int r0, int r1) {
        for (int y = r0; y < r1; ++y) {
          uint8_t* dst = buffer + size_t(y - y0) * stride;
          if (layout == SampleLayout::u8)
            encodeRow8(outputEncoding, pixels.row(y), width, channels, 0, y, true, dst);
          else
            encodeRow16(outputEncoding, pixels.row(y), width, channels, layout == SampleLayout::u10 ? 1023 : 65535,
                        reinterpret_cast<uint16_t*>(dst));
        }
      });
    }
    if (encoding.valid()) encoding.get();  // rethrows the encoder's failure
    encoding = std::async(std::launch::async, [&encoder, buffer, stride, n] { encoder->writeRows(buffer, stride, n); });
  }
  if (encoding.valid()) encoding.get();
  encoder->finish();
  encoder.reset();

  // 10-12. Cancellation, replacement; the folder goes with `temp`.
  if (isCancelled && isCancelled()) return Result::cancelled;
  temp.commit();
  return Result::written;
}

}  // namespace vg
