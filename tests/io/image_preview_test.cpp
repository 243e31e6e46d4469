// The quick first picture of a file (ImageLoader::loadPreview): reduced
// decodes per format, the facts it must share with a full load, and the
// camera's own preview inside RAW files.
#include <gtest/gtest.h>

#include <libheif/heif.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "io/image_loader.h"
#include "io/jpeg_decoder.h"
#include "io/orientation.h"
#include "io_test_files.h"
#include "support/test_support.h"

namespace vg {
namespace {

std::vector<uint8_t> bytesOf(const std::filesystem::path& path) {
  std::string s = test::readFile(path);
  return {s.begin(), s.end()};
}

int longSide(const Image& image) { return std::max(image.width(), image.height()); }

// Correlation of the green channels of two pictures of one scene, `b`
// sampled at the relative position of each pixel of `a` (sizes may differ
// by the rounding of a reduced decode).
double correlation(const Image& a, const Image& b) {
  double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
  const double n = double(a.width()) * a.height();
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x) {
      const int bx = std::min(b.width() - 1, int((x + 0.5) * b.width() / a.width()));
      const int by = std::min(b.height() - 1, int((y + 0.5) * b.height() / a.height()));
      const double u = a.at(x, y)[1], v = b.at(bx, by)[1];
      sa += u, sb += v, saa += u * u, sbb += v * v, sab += u * v;
    }
  }
  const double cov = sab / n - sa / n * sb / n;
  return cov / std::sqrt((saa / n - sa / n * sa / n) * (sbb / n - sb / n * sb / n));
}

TEST(ReducedJpeg, SmallestDctScaleThatReachesTheLimit) {
  // 600 × 450: n/8 gives ceil(600 n / 8) × ceil(450 n / 8).
  auto landscape = bytesOf(test::dataPath("orientation/image_1.jpg"));
  auto size = [&](double minLongSide) {
    DecodeOptions options;
    options.minLongSide = minLongSide;
    Image image = decodeJpeg(landscape, options).image;
    return std::pair(image.width(), image.height());
  };
  EXPECT_EQ(size(70), std::pair(75, 57));      // 1/8
  EXPECT_EQ(size(140), std::pair(150, 113));   // 2/8
  EXPECT_EQ(size(150), std::pair(150, 113));   // 2/8 reaches it exactly
  EXPECT_EQ(size(151), std::pair(225, 169));   // 3/8
  EXPECT_EQ(size(0), std::pair(600, 450));     // full size
  EXPECT_EQ(size(5000), std::pair(600, 450));  // never larger than the file

  // Stored 450 × 600 with orientation 6: upright 600 × 450, and so is the
  // full size the decoder reports.
  DecodeOptions turned{6};
  turned.minLongSide = 140;
  DecodedImage upright = decodeJpeg(bytesOf(test::dataPath("orientation/image_6.jpg")), turned);
  EXPECT_EQ(upright.image.width(), 150);
  EXPECT_EQ(upright.image.height(), 113);
  EXPECT_EQ(upright.fullWidth, 600);
  EXPECT_EQ(upright.fullHeight, 450);

  // Upright and in the same colours: the picture of orientation 1, and the
  // full decode of the same file shrunk by the shared shrink.
  auto plain = ImageLoader::downscaled(std::make_shared<const Image>(decodeJpeg(landscape, {}).image), 150);
  EXPECT_GT(correlation(upright.image, *plain), 0.9);
  auto shrunk = ImageLoader::downscaled(
      std::make_shared<const Image>(decodeJpeg(bytesOf(test::dataPath("orientation/image_6.jpg")), {6}).image), 150);
  ASSERT_EQ(shrunk->height(), upright.image.height());
  EXPECT_LT(test::meanDifference(*shrunk, upright.image), 0.02);
}

TEST(LoadPreview, ReportsWhatLoadReports) {
  const char* files[] = {"orientation/image_6.jpg",          "jpeg/test-issue-6.jpg",
                         "jpeg/video-001.cmyk.jpeg",         "png/pngsuite-basn2c16.png",
                         "tiff/video-001-16bit.tiff",        "heic/rocket-adobergb.converted.heic",
                         "raw/lg-g4-h815-acr-lossy-linear.dng", "raw/kodak-dc120-compressed-good-P003913.kdc"};
  for (const char* file : files) {
    SCOPED_TRACE(file);
    const auto path = test::dataPath(file);
    const auto full = ImageLoader::load(path);
    const auto preview = ImageLoader::loadPreview(path, 64);
    EXPECT_EQ(preview.url, full.url);
    EXPECT_EQ(preview.pixelSize, full.pixelSize);
    EXPECT_EQ(preview.fileFormat, full.fileFormat);
    EXPECT_EQ(preview.colorSpaceName, full.colorSpaceName);
    EXPECT_EQ(preview.meta, full.meta);
    EXPECT_EQ(preview.isRAW, full.isRAW);
    ASSERT_TRUE(preview.access);
    // The same picture, shrunk to the limit. PNG and TIFF have no reduced
    // decode: theirs is exactly the shared shrink of the full image.
    const auto shrunk = ImageLoader::downscaled(full.image, 64);
    EXPECT_EQ(longSide(*preview.image), longSide(*shrunk));
    if (preview.fileFormat == "PNG" || preview.fileFormat == "TIFF") {
      EXPECT_EQ(test::maxDifference(*preview.image, *shrunk), 0.0);
    } else {
      EXPECT_GT(correlation(*preview.image, *shrunk), 0.9);
    }
  }
}

TEST(LoadPreview, FailsLikeLoad) {
  test::TempDir dir;
  test::writeFile(dir / "text.jpg", "hello, not a picture");
  test::writeFile(dir / "empty.heic", "");
  std::string heic = test::readFile(test::dataPath("heic/rocket-adobergb.converted.heic"));
  test::writeFile(dir / "cut.heic", heic.substr(0, heic.size() * 6 / 10));
  test::writeFile(dir / "notraw.nef", "not a camera file at all");
  const std::filesystem::path bad[] = {"https://example.com/a.jpg",   dir / "missing.jpg",
                                       dir / "text.jpg",              dir / "empty.heic",
                                       dir / "cut.heic",              dir / "notraw.nef",
                                       test::dataPath("corrupt/skimage-truncated.jpg"),
                                       test::dataPath("corrupt/invalid-crc32.png")};
  auto failure = [](auto&& fn) -> std::pair<int, std::string> {
    try {
      fn();
    } catch (const ImageLoadError& e) {
      return {e.code(), e.what()};
    }
    return {0, "loaded"};
  };
  for (const auto& path : bad) {
    auto expected = failure([&] { ImageLoader::load(path); });
    auto actual = failure([&] { ImageLoader::loadPreview(path, 100); });
    EXPECT_NE(expected.first, 0) << path;
    EXPECT_EQ(actual, expected) << path;
  }
}

// A HEIC of a 512 × 384 quadrant picture whose 128-pixel thumbnail shows
// something else (flat green), so that it is plain which one was decoded.
std::vector<uint8_t> heicWithThumbnail() {
  auto check = [](heif_error e) {
    if (e.code != heif_error_Ok) throw std::runtime_error(e.message ? e.message : "libheif");
  };
  auto makeImage = [&](const test::Raster8& r) {
    heif_image* image = nullptr;
    check(heif_image_create(r.width, r.height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image));
    check(heif_image_add_plane(image, heif_channel_interleaved, r.width, r.height, 8));
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (int y = 0; y < r.height; ++y) {
      std::copy_n(r.samples.data() + size_t(y) * r.width * 3, r.width * 3, plane + size_t(y) * stride);
    }
    return std::unique_ptr<heif_image, decltype(&heif_image_release)>(image, heif_image_release);
  };
  test::Raster8 green{512, 384, 3, std::vector<uint8_t>(512 * 384 * 3)};
  for (size_t i = 0; i < green.samples.size(); i += 3) green.samples[i + 1] = 200;
  auto primary = makeImage(test::quadrants(512, 384));
  auto thumbnail = makeImage(green);

  std::unique_ptr<heif_context, decltype(&heif_context_free)> context(heif_context_alloc(), heif_context_free);
  heif_encoder* encoder = nullptr;
  check(heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoder));
  std::unique_ptr<heif_encoder, decltype(&heif_encoder_release)> encoderGuard(encoder, heif_encoder_release);
  heif_encoder_set_lossy_quality(encoder, 90);
  heif_encoder_set_parameter_string(encoder, "preset", "ultrafast");
  heif_image_handle* handle = nullptr;
  check(heif_context_encode_image(context.get(), primary.get(), encoder, nullptr, &handle));
  std::unique_ptr<heif_image_handle, decltype(&heif_image_handle_release)> handleGuard(
      handle, heif_image_handle_release);
  heif_image_handle* thumb = nullptr;
  check(heif_context_encode_thumbnail(context.get(), thumbnail.get(), handle, encoder, nullptr, 128, &thumb));
  heif_image_handle_release(thumb);

  std::vector<uint8_t> bytes;
  heif_writer writer{};
  writer.writer_api_version = 1;
  writer.write = [](heif_context*, const void* data, size_t size, void* out) {
    auto* v = static_cast<std::vector<uint8_t>*>(out);
    v->insert(v->end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
  };
  check(heif_context_write(context.get(), &writer, &bytes));
  return bytes;
}

TEST(LoadPreview, HeifUsesAThumbnailOnlyWhenItReachesTheLimit) {
  test::TempDir dir;
  auto bytes = heicWithThumbnail();
  test::writeFile(dir / "thumb.heic", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});

  auto small = ImageLoader::loadPreview(dir / "thumb.heic", 100);
  EXPECT_EQ(small.pixelSize, (ImageLoader::PixelSize{512, 384}));
  ASSERT_EQ(small.image->width(), 100);
  EXPECT_EQ(small.image->height(), 75);
  const float* top = small.image->at(10, 10);  // the thumbnail is green everywhere
  EXPECT_GT(top[1], 4 * top[0]);

  auto large = ImageLoader::loadPreview(dir / "thumb.heic", 200);
  EXPECT_EQ(large.pixelSize, small.pixelSize);
  ASSERT_EQ(large.image->width(), 200);
  const float* topLeft = large.image->at(20, 20);  // the primary image: red in the top left
  EXPECT_GT(topLeft[0], 4 * topLeft[1]);
}

// Rewrites the image-size property (ispe) that says width × height.
void redeclareSize(std::vector<uint8_t>& heic, uint32_t width, uint32_t height, uint32_t newWidth,
                   uint32_t newHeight) {
  auto be32 = [](uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  };
  const std::string box = "ispe" + std::string(4, '\0');
  const std::string old = box + be32(width) + be32(height), now = box + be32(newWidth) + be32(newHeight);
  std::string bytes(heic.begin(), heic.end());
  const size_t at = bytes.find(old);
  if (at == std::string::npos) throw std::logic_error("no ispe of that size");
  bytes.replace(at, old.size(), now);
  heic.assign(bytes.begin(), bytes.end());
}

// Containers may declare sizes their coded images do not have; the pixels win.
TEST(LoadPreview, HeifBelievesTheCodedSizesOverTheDeclaredOnes) {
  test::TempDir dir;
  auto bytes = heicWithThumbnail();
  redeclareSize(bytes, 512, 384, 100, 75);  // the primary
  redeclareSize(bytes, 128, 96, 64, 48);    // the thumbnail, still smaller than the primary says it is
  test::writeFile(dir / "lying.heic", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});

  auto full = ImageLoader::load(dir / "lying.heic");
  EXPECT_EQ(full.pixelSize, (ImageLoader::PixelSize{512, 384}));
  EXPECT_EQ(full.image->width(), 512);
  // The thumbnail decodes no smaller than the primary claims to be: the
  // primary is decoded instead.
  auto preview = ImageLoader::loadPreview(dir / "lying.heic", 50);
  EXPECT_EQ(preview.pixelSize, full.pixelSize);
  ASSERT_EQ(preview.image->width(), 50);
  const float* topLeft = preview.image->at(5, 5);
  EXPECT_GT(topLeft[0], 4 * topLeft[1]);
}

// The LG file with its Orientation tag (the only one, in IFD0) set to `o`.
std::filesystem::path orientedLgDng(const test::TempDir& dir, int o) {
  std::string bytes = test::readFile(test::dataPath("raw/lg-g4-h815-acr-lossy-linear.dng"));
  const std::string tag("\x12\x01\x03\x00\x01\x00\x00\x00", 8);
  const size_t at = bytes.find(tag);
  if (at == std::string::npos || bytes.find(tag, at + 1) != std::string::npos) throw std::logic_error("tag");
  bytes[at + 8] = char(o);
  auto path = dir / ("lg-" + std::to_string(o) + ".dng");
  test::writeFile(path, bytes);
  return path;
}

TEST(LoadPreview, RawTakesTheCameraPreviewWhenLargeEnough) {
  // The LG file (600 × 338) embeds a 256 × 144 JPEG preview: at least half
  // of 400, so it is taken; for 600 the file is developed instead.
  test::TempDir dir;
  for (int o : {1, 3, 6, 8}) {
    SCOPED_TRACE(o);
    const auto path = orientedLgDng(dir, o);
    const auto preview = ImageLoader::loadPreview(path, 400);
    const auto full = ImageLoader::load(path);
    EXPECT_EQ(preview.pixelSize, full.pixelSize);
    ASSERT_EQ(preview.image->width(), orientation::swapsAxes(o) ? 144 : 256);
    ASSERT_EQ(preview.image->height(), orientation::swapsAxes(o) ? 256 : 144);
    // Turned by the camera's orientation the way the development is (a
    // wrong turn correlates negatively with this scene).
    EXPECT_GT(correlation(*preview.image, *ImageLoader::downscaled(full.image, 256)), 0.9);
  }
  EXPECT_EQ(ImageLoader::loadPreview(orientedLgDng(dir, 1), 600).image->width(), 600);
}

TEST(LoadPreview, RawDevelopsAtHalfSizeWithTheRecipesSettings) {
  // Kodak DC120: 848 × 976 sensor pixels 1.53 times as wide as tall,
  // developed to 1301 × 976; its 80 × 60 preview is too small for 400.
  const auto path = test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc");
  const auto full = ImageLoader::load(path);
  const auto preview = ImageLoader::loadPreview(path, 400);
  EXPECT_EQ(preview.pixelSize, (ImageLoader::PixelSize{1301, 976}));
  EXPECT_EQ(preview.pixelSize, full.pixelSize);
  ASSERT_EQ(preview.image->width(), 400);
  auto shrunk = ImageLoader::downscaled(full.image, 400);
  EXPECT_LT(test::meanDifference(*preview.image, *shrunk), 0.02);

  RAWDevelopSettings darker;
  darker.exposure = -1;
  const auto dim = ImageLoader::loadPreview(path, 400, darker);
  EXPECT_LT(test::channelMeans(*dim.image)[1], 0.8 * test::channelMeans(*preview.image)[1]);
  EXPECT_LT(test::meanDifference(*dim.image, *ImageLoader::downscaled(ImageLoader::load(path, darker).image, 400)),
            0.02);
}

}  // namespace
}  // namespace vg
