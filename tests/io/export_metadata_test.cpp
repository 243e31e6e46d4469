// The metadata policy, read back with Exiv2 from real exports of a photograph
// that carries Exif with a maker note, GPS, IPTC location fields and XMP.
#include <gtest/gtest.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include <set>

#include "export_readback.h"
#include "io/export_metadata.h"
#include "io/image_exporter.h"
#include "render/color_profiles.h"
#include "support/test_support.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vg {
namespace {

std::filesystem::path source() { return test::dataPath("jpeg/test-issue-6.jpg"); }  // 200 x 133, 240 dpi

struct Keys {
  std::set<std::string> all;
  bool has(const std::string& k) const { return all.count(k) > 0; }
  bool hasPrefix(const std::string& p) const {
    return std::any_of(all.begin(), all.end(), [&](const std::string& k) { return k.rfind(p, 0) == 0; });
  }
};

Keys keysOf(const std::filesystem::path& file) {
  auto image = Exiv2::ImageFactory::open(file.string());
  image->readMetadata();
  Keys k;
  for (const auto& d : image->exifData()) k.all.insert(d.key());
  for (const auto& d : image->iptcData()) k.all.insert(d.key());
  for (const auto& d : image->xmpData()) k.all.insert(d.key());
  return k;
}

std::string exifValue(const std::filesystem::path& file, const char* key) {
  auto image = Exiv2::ImageFactory::open(file.string());
  image->readMetadata();
  auto it = image->exifData().findKey(Exiv2::ExifKey(key));
  return it == image->exifData().end() ? std::string() : it->toString();
}

Image grey(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = 0.3f;
      p[3] = 1;
    }
  return img;
}

ImageExporter::Options withSource(ExportFormat format, bool includeMetadata, bool includeLocation) {
  ImageExporter::Options o;
  o.format = format;
  o.metadataSourceURL = source();
  o.includeMetadata = includeMetadata;
  o.includeLocation = includeLocation;
  return o;
}

void expectDescriptiveFieldsKept(const Keys& k, const std::string& where) {
  EXPECT_TRUE(k.has("Exif.Image.Make")) << where;
  EXPECT_TRUE(k.has("Exif.Image.Artist")) << where;
  EXPECT_TRUE(k.has("Exif.Photo.FNumber")) << where;
  EXPECT_TRUE(k.has("Exif.Photo.DateTimeOriginal")) << where;
  EXPECT_TRUE(k.has("Iptc.Application2.Byline")) << where;
  EXPECT_TRUE(k.has("Xmp.aux.Lens")) << where;
  // Never carried over: the maker note, the old thumbnail, stale sizes.
  EXPECT_FALSE(k.hasPrefix("Exif.Canon")) << where;
  EXPECT_FALSE(k.has("Exif.Photo.MakerNote")) << where;
  EXPECT_FALSE(k.hasPrefix("Exif.Thumbnail")) << where;
  EXPECT_FALSE(k.has("Exif.Photo.PixelXDimension")) << where;
  EXPECT_FALSE(k.has("Exif.Photo.ColorSpace")) << where;
}

constexpr const char* kIptcLocation[] = {"Iptc.Application2.City", "Iptc.Application2.SubLocation",
                                         "Iptc.Application2.ProvinceState", "Iptc.Application2.CountryName"};
constexpr const char* kXmpLocation[] = {"Xmp.photoshop.City", "Xmp.photoshop.State", "Xmp.photoshop.Country"};

TEST(ExportMetadata, LocationIsStrippedUnlessAskedForInEveryExiv2WrittenFormat) {
  test::TempDir dir;
  Image img = grey(40, 30);
  for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::png, ExportFormat::tiff}) {
    const std::string ext(defaultExtension(f));
    for (bool location : {false, true}) {
      auto path = dir / ((location ? "with." : "without.") + ext);
      ImageExporter::exportImage(img, path, withSource(f, true, location));
      Keys k = keysOf(path);
      std::string where = ext + (location ? " with location" : " without location");
      expectDescriptiveFieldsKept(k, where);
      EXPECT_EQ(k.hasPrefix("Exif.GPSInfo"), location) << where;
      for (const char* key : kIptcLocation) EXPECT_EQ(k.has(key), location) << where << " " << key;
      for (const char* key : kXmpLocation) EXPECT_EQ(k.has(key), location) << where << " " << key;
    }
  }
}

TEST(ExportMetadata, OrientationAndPixelSizesOfTheSourceAreDropped) {
  // Stored 450 x 600 with Orientation 6: the exported pixels are upright.
  test::TempDir dir;
  Image img = grey(60, 45);
  ImageExporter::Options o;
  o.metadataSourceURL = test::dataPath("orientation/image_6.jpg");
  for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::tiff}) {
    o.format = f;
    auto path = dir / ("upright." + std::string(defaultExtension(f)));
    ImageExporter::exportImage(img, path, o);
    std::string orientation = exifValue(path, "Exif.Image.Orientation");
    EXPECT_TRUE(orientation.empty() || orientation == "1") << path << " " << orientation;
    EXPECT_EQ(exifValue(path, "Exif.Photo.PixelXDimension"), "") << path;
    EXPECT_EQ(exifValue(path, "Exif.Image.XResolution"), "72/1") << path;
  }
}

TEST(ExportMetadata, NoMetadataMeansNoSourceExifAtAll) {
  test::TempDir dir;
  Image img = grey(40, 30);
  for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::png, ExportFormat::tiff}) {
    auto path = dir / ("plain." + std::string(defaultExtension(f)));
    ImageExporter::exportImage(img, path, withSource(f, false, true));
    Keys k = keysOf(path);
    EXPECT_FALSE(k.has("Exif.Image.Make")) << path;
    EXPECT_FALSE(k.hasPrefix("Exif.Photo")) << path;
    EXPECT_FALSE(k.hasPrefix("Exif.GPSInfo")) << path;
    EXPECT_FALSE(k.hasPrefix("Iptc.")) << path;
    EXPECT_FALSE(k.hasPrefix("Xmp.photoshop")) << path;
  }
}

TEST(ExportMetadata, HeicCarriesExifAndXmpThroughTheContainer) {
  test::TempDir dir;
  Image img = grey(40, 30);
  for (bool location : {false, true}) {
    auto path = dir / (location ? "with.heic" : "without.heic");
    ImageExporter::exportImage(img, path, withSource(ExportFormat::heic, true, location));
    auto heic = test::readHeic(path);
    ASSERT_FALSE(heic.exif.empty());
    // libheif prefixes the Exif item with the offset of the TIFF header.
    size_t at = heic.exif.find("II*");
    ASSERT_NE(at, std::string::npos);
    Exiv2::ExifData exif;
    Exiv2::ExifParser::decode(exif, reinterpret_cast<const Exiv2::byte*>(heic.exif.data() + at),
                              uint32_t(heic.exif.size() - at));
    EXPECT_NE(exif.findKey(Exiv2::ExifKey("Exif.Image.Model")), exif.end());
    EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude")) != exif.end(), location);
    // IPTC fields travel in the XMP packet; the city only with location.
    EXPECT_NE(heic.xmp.find("unknown"), std::string::npos);  // the byline / creator
    EXPECT_EQ(heic.xmp.find("Langkawi") != std::string::npos, location);
  }
}

TEST(ExportMetadata, ResolutionIsScaledByTheLongEdgeSoThePrintSizeStays) {
  test::TempDir dir;
  Image img = grey(200, 133);
  auto o = withSource(ExportFormat::jpeg, true, false);
  ImageExporter::exportImage(img, dir / "full.jpg", o);
  EXPECT_EQ(exifValue(dir / "full.jpg", "Exif.Image.XResolution"), "240/1");
  EXPECT_DOUBLE_EQ(test::readJpeg(dir / "full.jpg").dpiX, 240);

  o.longEdge = 100;  // half the source's long edge
  ImageExporter::exportImage(img, dir / "half.jpg", o);
  EXPECT_EQ(exifValue(dir / "half.jpg", "Exif.Image.XResolution"), "120/1");
  EXPECT_EQ(exifValue(dir / "half.jpg", "Exif.Image.YResolution"), "120/1");
  EXPECT_DOUBLE_EQ(test::readJpeg(dir / "half.jpg").dpiX, 120);

  o.format = ExportFormat::tiff;
  ImageExporter::exportImage(img, dir / "half.tif", o);
  EXPECT_DOUBLE_EQ(test::readTiff(dir / "half.tif").dpiY, 120);
  o.format = ExportFormat::png;
  ImageExporter::exportImage(img, dir / "half.png", o);
  EXPECT_NEAR(test::readPng(dir / "half.png").dpiY, 120, 0.05);

  o.longEdge = 1;  // a tiny export never gets a resolution below 1
  o.format = ExportFormat::jpeg;
  ImageExporter::exportImage(img, dir / "tiny.jpg", o);
  EXPECT_EQ(exifValue(dir / "tiny.jpg", "Exif.Image.XResolution"), "1/1");
}

TEST(ExportMetadata, MetadataKeepsTheFilesOwnProfile) {
  test::TempDir dir;
  Image img = grey(40, 30);
  auto o = withSource(ExportFormat::jpeg, true, true);
  o.colorSpace = ExportColorSpace::displayP3;
  for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::png, ExportFormat::tiff}) {
    o.format = f;
    auto path = dir / ("p3." + std::string(defaultExtension(f)));
    ImageExporter::exportImage(img, path, o);
    std::vector<uint8_t> icc = f == ExportFormat::jpeg  ? test::readJpeg(path).icc
                               : f == ExportFormat::png ? test::readPng(path).icc
                                                        : test::readTiff(path).icc;
    EXPECT_EQ(icc, outputIccProfile(OutputColorSpace::displayP3)) << path;
  }
}

TEST(ExportMetadata, UnreadableSourceGivesNoMetadataNotAnError) {
  test::TempDir dir;
  test::writeFile(dir / "broken.jpg", "not an image at all");
  EXPECT_TRUE(ExportMetadata::fromSource(dir / "broken.jpg", true, std::nullopt).empty());
  EXPECT_TRUE(ExportMetadata::fromSource(dir / "missing.jpg", true, std::nullopt).empty());

  ImageExporter::Options o;
  o.metadataSourceURL = dir / "broken.jpg";
  Image img = grey(8, 8);
  EXPECT_EQ(ImageExporter::exportImage(img, dir / "out.jpg", o), ImageExporter::Result::written);
  EXPECT_EQ(test::readJpeg(dir / "out.jpg").width, 8);

  // Hostile Exif (looping IFDs, 0xFFFFFFFF counts): whatever is salvaged,
  // the export completes and its file reads back.
  for (const char* name : {"corrupt/infinite_loop_exif.jpg", "corrupt/max_uint32_exif.jpg"}) {
    o.metadataSourceURL = test::dataPath(name);
    for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::heic}) {
      o.format = f;
      auto path = dir / ("hostile." + std::string(defaultExtension(f)));
      EXPECT_EQ(ImageExporter::exportImage(img, path, o), ImageExporter::Result::written) << name;
      EXPECT_EQ(f == ExportFormat::jpeg ? test::readJpeg(path).width : test::readHeic(path).width, 8) << name;
    }
  }
}

}  // namespace
}  // namespace vg
