// The loader as the editor uses it: errors, labels, colour-space names,
// metadata and the preview/thumbnail shrink.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <functional>

#include <exiv2/exiv2.hpp>

#include "io/heif_decoder.h"
#include "io/image_loader.h"
#include "io_test_files.h"
#include "support/test_support.h"

namespace vg {
namespace {

int codeOf(const std::filesystem::path& p) {
  try {
    ImageLoader::load(p);
  } catch (const ImageLoadError& e) {
    return e.code();
  }
  return 0;
}

std::string messageOf(const std::filesystem::path& p) {
  try {
    ImageLoader::load(p);
  } catch (const ImageLoadError& e) {
    return e.what();
  }
  return {};
}

TEST(ImageLoader, LocationsThatAreNotLocalFilesAreCodeTwo) {
  EXPECT_EQ(codeOf("https://example.com/photo.jpg"), 2);
  EXPECT_EQ(messageOf("https://example.com/photo.jpg"), "只能打开本机图片文件");
  EXPECT_EQ(codeOf("smb://server/share/photo.jpg"), 2);
  test::TempDir dir;
  auto fifo = dir / "pipe.jpg";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(codeOf(fifo), 2);  // never blocks reading a pipe
}

TEST(ImageLoader, FileUrlsArePercentDecoded) {
  test::TempDir dir;
  auto path = dir / "my photo.jpg";
  std::filesystem::copy_file(test::dataPath("jpeg/iphone4s-gps-test1.jpg"), path);
  std::string url = "file://" + (dir / "my%20photo.jpg").string();
  auto loaded = ImageLoader::load(url);
  EXPECT_EQ(loaded.url, path);
  EXPECT_EQ(loaded.pixelSize.width, 180);
  ASSERT_TRUE(loaded.access);
  EXPECT_EQ(loaded.access->url, path);
}

TEST(ImageLoader, UndecodableFilesAreCodeOneWithTheFileName) {
  test::TempDir dir;
  EXPECT_EQ(messageOf(dir / "missing.jpg"), "无法解码图片：missing.jpg");
  EXPECT_EQ(codeOf(dir.path()), 1);
  test::writeFile(dir / "empty.png", "");
  EXPECT_EQ(messageOf(dir / "empty.png"), "无法解码图片：empty.png");
  test::writeFile(dir / "text.jpg", "hello, not a picture");
  EXPECT_EQ(codeOf(dir / "text.jpg"), 1);
  for (const char* file : {"corrupt/invalid-crc32.png", "corrupt/skimage-truncated.jpg",
                           "corrupt/max_uint32_exif.jpg"}) {
    EXPECT_EQ(codeOf(test::dataPath(file)), 1) << file;
  }
  // A truncated HEIF container.
  std::string heic = test::readFile(test::dataPath("heic/rocket-adobergb.converted.heic"));
  test::writeFile(dir / "cut.heic", heic.substr(0, heic.size() * 6 / 10));
  EXPECT_EQ(messageOf(dir / "cut.heic"), "无法解码图片：cut.heic");
}

TEST(ImageLoader, ContentDecidesTheDecoderExtensionTheLabel) {
  test::TempDir dir;
  // A PNG named .jpg still opens (as the file it is) and keeps its label.
  std::filesystem::copy_file(test::dataPath("png/pngsuite-basn2c16.png"), dir / "named.jpg");
  auto loaded = ImageLoader::load(dir / "named.jpg");
  EXPECT_EQ(loaded.pixelSize.width, 32);
  EXPECT_EQ(loaded.fileFormat, "JPEG");
  EXPECT_FALSE(loaded.isRAW);
}

TEST(ImageLoader, ColourSpaceNames) {
  auto name = [](const char* f) { return ImageLoader::load(test::dataPath(f)).colorSpaceName; };
  EXPECT_EQ(name("png/pngsuite-basn2c16.png"), "sRGB");  // no profile
  EXPECT_EQ(name("png/pngsuite-basn0g08.png"), "Gray");
  EXPECT_EQ(name("jpeg/test-issue-6.jpg"), "sRGB IEC61966-2.1");
  EXPECT_EQ(name("jpeg/video-001.cmyk.jpeg"), "CMYK");
  EXPECT_EQ(name("heic/rocket-adobergb.converted.heic"), "Adobe RGB (1998)");

  test::TempDir dir;
  const double adobe[6] = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06};
  auto icc = test::makeRgbProfile(adobe, 2.2, "Studio Wide Gamut");
  const uint8_t green[3] = {0, 255, 0};
  test::writePng(dir / "wide.png", 1, 1, 3, 8, green, icc);
  auto wide = ImageLoader::load(dir / "wide.png");
  EXPECT_EQ(wide.colorSpaceName, "Studio Wide Gamut");
  EXPECT_LT(wide.image->at(0, 0)[0], -0.05f);  // converted, not ignored
}

TEST(ImageLoader, GreyImagesAreNamedAfterTheirEmbeddedProfile) {
  // A grey photograph (JPEG), a 16-bit grey TIFF and a grey PNG, plain, with
  // a grey profile, then with an RGB one (which cannot convert grey samples
  // but still names the file's colour space).
  test::TempDir dir;
  using Make = std::function<std::filesystem::path(const std::vector<uint8_t>& icc)>;
  auto copied = [&](const char* file) -> Make {
    return [&dir, file](const std::vector<uint8_t>& icc) {
      const auto path = dir.path() / std::filesystem::path(file).filename();
      std::filesystem::copy_file(test::dataPath(file), path,
                                 std::filesystem::copy_options::overwrite_existing);
      std::filesystem::permissions(path, std::filesystem::perms::owner_write,
                                   std::filesystem::perm_options::add);
      if (!icc.empty()) test::embedIccProfile(path, icc);
      return path;
    };
  };
  // PNG through libpng: Exiv2 writes an iCCP chunk without the profile name
  // the PNG format requires, which decoders rightly refuse. (PNG does not
  // allow an RGB profile on grey samples at all.)
  uint8_t ramp[16];
  for (int i = 0; i < 16; ++i) ramp[i] = uint8_t(i * 17);
  Make png = [&dir, &ramp](const std::vector<uint8_t>& icc) {
    test::writePng(dir / "ramp.png", 16, 1, 1, 8, ramp, icc);
    return dir / "ramp.png";
  };

  const double adobe[6] = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06};
  const auto grey = test::makeGrayProfile(2.2, "Dot Gain 18%");
  const auto rgb = test::makeRgbProfile(adobe, 2.2, "Adobe RGB (1998)");
  struct File {
    const char* format;
    Make make;
    bool takesRgbProfile;
  };
  const File files[] = {{"jpeg", copied("jpeg/tower_grayscale.jpg"), true},
                        {"tiff", copied("tiff/chessboard_GRAY_U16.tif"), true},
                        {"png", png, false}};
  for (const auto& [format, make, takesRgbProfile] : files) {
    SCOPED_TRACE(format);
    const auto plain = ImageLoader::load(make({}));
    EXPECT_EQ(plain.colorSpaceName, "Gray");

    const auto profiled = ImageLoader::load(make(grey));
    EXPECT_EQ(profiled.colorSpaceName, "Dot Gain 18%");
    // Converted through the profile: gamma 2.2 is not the sRGB curve the
    // plain file is read with.
    EXPECT_GT(test::maxDifference(*profiled.image, *plain.image), 1e-4);

    if (!takesRgbProfile) continue;
    const auto mismatched = ImageLoader::load(make(rgb));
    EXPECT_EQ(mismatched.colorSpaceName, "Adobe RGB (1998)");
    EXPECT_EQ(test::maxDifference(*mismatched.image, *plain.image), 0);
  }
}

TEST(ImageLoader, HeifDecodes) {
  auto loaded = ImageLoader::load(test::dataPath("heic/rocket-adobergb.converted.heic"));
  EXPECT_EQ(loaded.fileFormat, "HEIC");
  EXPECT_EQ(loaded.pixelSize.width, 640);
  EXPECT_EQ(loaded.pixelSize.height, 427);  // odd height
  // The rocket photo is a dusk sky: blue dominates the top.
  const float* sky = loaded.image->at(320, 20);
  EXPECT_GT(sky[2], sky[0]);
}

// Values as exiftool reports them.
TEST(ImageLoader, MetadataFromExif) {
  auto phone = ImageLoader::load(test::dataPath("jpeg/iphone4s-gps-test1.jpg")).meta;
  EXPECT_EQ(phone.camera, "iPhone 4S");
  EXPECT_DOUBLE_EQ(*phone.focalLength, 4.28);
  EXPECT_DOUBLE_EQ(*phone.fNumber, 2.4);
  EXPECT_NEAR(*phone.exposureTime, 0.0002170138889, 1e-12);
  EXPECT_EQ(phone.iso, 50);
  EXPECT_EQ(phone.takenAt, "2013:02:06 16:00:03");
  EXPECT_EQ(phone.focalLength35mm, 35.0);
  EXPECT_EQ(phone.whiteBalance, "自动");
  EXPECT_FALSE(phone.lens.has_value());
  EXPECT_FALSE(phone.exposureBias.has_value());
  EXPECT_FALSE(phone.rawSummary.has_value());

  auto canon = ImageLoader::load(test::dataPath("jpeg/test-issue-6.jpg")).meta;
  EXPECT_EQ(canon.camera, "Canon EOS 350D DIGITAL");
  EXPECT_EQ(canon.lens, "28.0-105.0 mm");
  EXPECT_DOUBLE_EQ(*canon.focalLength, 66);
  EXPECT_DOUBLE_EQ(*canon.fNumber, 9);
  EXPECT_DOUBLE_EQ(*canon.exposureTime, 0.005);
  EXPECT_EQ(canon.iso, 100);
  EXPECT_DOUBLE_EQ(*canon.exposureBias, 0.0);

  // Manual white balance and a missing file's metadata.
  test::TempDir dir;
  test::writeJpeg(dir / "wb.jpg", test::quadrants(16, 16));
  {
    test::setExifOrientation(dir / "wb.jpg", 1);
    auto image = Exiv2::ImageFactory::open((dir / "wb.jpg").string());
    image->readMetadata();
    Exiv2::ExifData exif = image->exifData();
    exif["Exif.Photo.WhiteBalance"] = uint16_t(1);
    exif["Exif.Photo.ISOSpeedRatings"] = "400 800";
    exif["Exif.Photo.FNumber"] = Exiv2::URational(0, 0);
    image->setExifData(exif);
    image->writeMetadata();
  }
  auto manual = ImageLoader::load(dir / "wb.jpg").meta;
  EXPECT_EQ(manual.whiteBalance, "手动");
  EXPECT_EQ(manual.iso, 400);  // the first value
  EXPECT_FALSE(manual.fNumber.has_value());  // 0/0 is no value
  EXPECT_EQ(ImageLoader::load(test::dataPath("png/pngsuite-basn2c16.png")).meta, PhotoMetadata{});
}

TEST(ImageLoader, HostileExifDoesNotStopTheLoad) {
  auto loaded = ImageLoader::load(test::dataPath("corrupt/infinite_loop_exif.jpg"));
  EXPECT_EQ(loaded.pixelSize.width, 8);
}

TEST(Downscale, HalvingPassesFollowTheRule) {
  auto passes = ImageLoader::downscalePasses(12000, 192);
  ASSERT_EQ(passes.size(), 5u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(passes[i], 0.5);
  EXPECT_NEAR(passes[4], 0.256, 1e-12);
  EXPECT_TRUE(ImageLoader::downscalePasses(2400, 2400).empty());
  EXPECT_TRUE(ImageLoader::downscalePasses(100, 2400).empty());
  EXPECT_TRUE(ImageLoader::downscalePasses(5000, std::nan("")).empty());
  EXPECT_TRUE(ImageLoader::downscalePasses(5000, 0).empty());
  EXPECT_TRUE(ImageLoader::downscalePasses(5000, -3).empty());
  EXPECT_TRUE(ImageLoader::downscalePasses(INFINITY, 100).empty());
  ASSERT_EQ(ImageLoader::downscalePasses(6000, 2400).size(), 1u);  // 0.4 needs no halving
  EXPECT_EQ(ImageLoader::downscalePasses(4000, 1000).size(), 1u);  // exactly 0.25
}

TEST(Downscale, ShrinksToTheLimitAndKeepsSmallImages) {
  auto image = std::make_shared<const Image>(Image(1003, 401));
  auto same = ImageLoader::downscaled(image, 2400);
  EXPECT_EQ(same.get(), image.get());
  EXPECT_EQ(ImageLoader::downscaled(image, 1003).get(), image.get());

  Image big(3000, 1999);
  for (int y = 0; y < big.height(); ++y)
    for (int x = 0; x < big.width(); ++x) {
      float* p = big.at(x, y);
      p[0] = 0.25f, p[1] = 0.5f, p[2] = 0.75f, p[3] = 1.0f;
    }
  auto shared = std::make_shared<const Image>(std::move(big));
  auto thumb = ImageLoader::downscaled(shared, 192);  // 0.064: two halvings first
  EXPECT_EQ(thumb->width(), 192);
  EXPECT_EQ(thumb->height(), 128);
  EXPECT_NEAR(thumb->at(100, 60)[1], 0.5f, 1e-5);
  EXPECT_NEAR(thumb->at(0, 0)[3], 1.0f, 1e-5);
  auto preview = ImageLoader::downscaled(shared, 2400);
  EXPECT_EQ(preview->width(), 2400);
  EXPECT_EQ(preview->height(), 1599);
}

}  // namespace
}  // namespace vg
