#include <gtest/gtest.h>

#include "io/decode_limits.h"
#include "io/image_formats.h"
#include "support/test_support.h"
#include "io/image_loader.h"

namespace vg {
namespace {

TEST(ImageFormats, SupportedByExtensionOnlyAndCaseInsensitive) {
  for (const char* name : {"a.jpg", "a.JPEG", "b.png", "c.heic", "c.HEIF", "d.tif", "d.tiff", "e.dng", "f.NEF",
                           "g.cr3", "h.rw2", "i.raf", "j.arw", "k.orf", "l.pef", "m.hif"}) {
    EXPECT_TRUE(isSupportedImage(name)) << name;
  }
  for (const char* name : {"a.gif", "b.txt", "noextension", "c.jpg.bak", ".jpg.", "d.webp"}) {
    EXPECT_FALSE(isSupportedImage(name)) << name;
  }
}

TEST(ImageFormats, UnknownExtensionIsUnsupportedEvenWithJpegBytes) {
  test::TempDir dir;
  std::string jpegBytes = test::readFile(test::dataPath("jpeg/iphone4s-gps-test1.jpg"));
  test::writeFile(dir / "photo.dat", jpegBytes);
  EXPECT_FALSE(isSupportedImage(dir / "photo.dat"));
}

TEST(ImageFormats, LabelsFollowTheExtension) {
  EXPECT_EQ(formatLabel("jpeg"), "JPEG");
  EXPECT_EQ(formatLabel("JPG"), "JPEG");
  EXPECT_EQ(formatLabel("png"), "PNG");
  EXPECT_EQ(formatLabel("heic"), "HEIC");
  EXPECT_EQ(formatLabel("heif"), "HEIC");
  EXPECT_EQ(formatLabel("tif"), "TIFF");
  EXPECT_EQ(formatLabel("tiff"), "TIFF");
  EXPECT_EQ(formatLabel("dng"), "DNG RAW");
  EXPECT_EQ(formatLabel("arw"), "Sony RAW");
  EXPECT_EQ(formatLabel("cr2"), "Canon RAW");
  EXPECT_EQ(formatLabel("raf"), "Fujifilm RAW");
  EXPECT_EQ(formatLabel("orf"), "Olympus RAW");
  EXPECT_EQ(formatLabel("nef"), "Nikon RAW");
  EXPECT_EQ(formatLabel("nrw"), "Nikon RAW");
  EXPECT_EQ(formatLabel("rw2"), "Panasonic RAW");
  EXPECT_EQ(formatLabel("raw"), "Panasonic RAW");
  EXPECT_EQ(formatLabel("pef"), "RAW");
  EXPECT_EQ(formatLabel("cr3"), "RAW");
  EXPECT_EQ(formatLabel("gif"), "");
  EXPECT_EQ(imageKindForExtension("kdc"), ImageKind::cameraRaw);
  EXPECT_EQ(imageKindForExtension("heic"), ImageKind::heic);
  EXPECT_EQ(imageKindForExtension("heif"), ImageKind::heif);
}

TEST(ImageLoadError, CodesMessagesAndDomain) {
  auto e = ImageLoadError::make(ImageLoadError::kUndecodable, "a.jpg");
  EXPECT_EQ(e.code(), 1);
  EXPECT_EQ(std::string(e.what()), "无法解码图片：a.jpg");
  EXPECT_EQ(e.domain(), "Verdantglass.ImageLoader");
  EXPECT_EQ(std::string(ImageLoadError::make(ImageLoadError::kNotLocalFile, "x").what()), "只能打开本机图片文件");
  EXPECT_EQ(std::string(ImageLoadError::make(ImageLoadError::kRawDecoderUnavailable, "b.nef").what()),
            "无法创建 RAW 解码器，系统可能不支持该相机格式：b.nef");
  EXPECT_EQ(std::string(ImageLoadError::make(ImageLoadError::kRawDecodeFailed, "c.dng").what()),
            "RAW 解码失败（所选解码器版本可能不受支持）：c.dng");
  EXPECT_EQ(std::string(ImageLoadError::make(ImageLoadError::kRawInvalidSize, "d.arw").what()),
            "RAW 解码输出尺寸无效：d.arw");
  EXPECT_EQ(ImageLoadError::make(ImageLoadError::kRawInvalidSize, "d.arw").code(), 5);
}

}  // namespace
}  // namespace vg

namespace vg {
namespace {

TEST(DecodeLimits, PlausibleSizesOnly) {
  EXPECT_NO_THROW(decode_limits::check(6000, 4000, 6'000'000));
  EXPECT_NO_THROW(decode_limits::check(1, 1, 0));
  EXPECT_THROW(decode_limits::check(0, 10, 100), DecodeError);
  EXPECT_THROW(decode_limits::check(70000, 10, 100), DecodeError);
  EXPECT_THROW(decode_limits::check(65535, 65535, size_t(1) << 30), DecodeError);  // 4 Gpx
  // 100 MP is fine from a real file, not from a 4 KB one.
  EXPECT_NO_THROW(decode_limits::check(12240, 8160, 20'000'000));
  EXPECT_THROW(decode_limits::check(12240, 8160, 4096), DecodeError);
}

TEST(DecodeLimits, ScopedLimitOnlyLowersAndIsRestored) {
  {
    decode_limits::ScopedMaxPixels outer(1000);
    EXPECT_THROW(decode_limits::check(40, 40, 1 << 20), DecodeError);
    {
      decode_limits::ScopedMaxPixels inner(1 << 30);  // cannot raise
      EXPECT_THROW(decode_limits::check(40, 40, 1 << 20), DecodeError);
    }
    EXPECT_NO_THROW(decode_limits::check(30, 30, 1 << 20));
  }
  EXPECT_NO_THROW(decode_limits::check(4000, 4000, 1 << 20));
}

}  // namespace
}  // namespace vg
