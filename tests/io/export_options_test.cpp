// The exporter's choices as they are stored and the long-edge arithmetic.
#include <gtest/gtest.h>

#include <cmath>

#include "io/image_exporter.h"

namespace vg {
namespace {

TEST(ExportOptions, StoredValuesRoundTripAndUnknownValuesAreNoChoice) {
  for (auto f : {ExportFormat::jpeg, ExportFormat::heic, ExportFormat::png, ExportFormat::tiff})
    EXPECT_EQ(parseExportFormat(storedValue(f)), f);
  EXPECT_EQ(parseExportFormat("jpeg"), std::nullopt);  // values are case-exact
  for (auto c : {ExportColorSpace::srgb, ExportColorSpace::displayP3, ExportColorSpace::adobeRGB})
    EXPECT_EQ(parseExportColorSpace(storedValue(c)), c);
  EXPECT_EQ(storedValue(ExportColorSpace::adobeRGB), "Adobe RGB");
  for (auto s : {OutputSharpening::off, OutputSharpening::screen, OutputSharpening::matte, OutputSharpening::glossy})
    EXPECT_EQ(parseOutputSharpening(storedValue(s)), s);
  EXPECT_EQ(label(OutputSharpening::matte), "哑光纸");
  EXPECT_EQ(unsharpParams(OutputSharpening::off), std::nullopt);
  EXPECT_DOUBLE_EQ(unsharpParams(OutputSharpening::glossy)->radius, 1.6);
  EXPECT_DOUBLE_EQ(unsharpParams(OutputSharpening::screen)->intensity, 0.35);

  EXPECT_EQ(parseTIFFCompression(8), TIFFCompression::zip);
  EXPECT_EQ(parseTIFFCompression(5), TIFFCompression::lzw);
  for (int64_t bad : {0, 2, 7, 32773, -1}) EXPECT_EQ(parseTIFFCompression(bad), std::nullopt) << bad;
  EXPECT_EQ(label(TIFFCompression::zip), "ZIP (Deflate)");

  EXPECT_EQ(exportFormatForExtension(".JPG"), ExportFormat::jpeg);
  EXPECT_EQ(exportFormatForExtension("tif"), ExportFormat::tiff);
  EXPECT_EQ(exportFormatForExtension("heif"), ExportFormat::heic);
  EXPECT_EQ(exportFormatForExtension("gif"), std::nullopt);
}

TEST(ExportOptions, StoredSettingsBuildTheOptions) {
  StoredExportSettings stored;
  ImageExporter::Options o = stored.toOptions(std::filesystem::path("/photos/a.jpg"));
  EXPECT_EQ(o.format, ExportFormat::jpeg);
  EXPECT_DOUBLE_EQ(o.quality, 0.9);
  EXPECT_EQ(o.longEdge, std::nullopt);  // useLongEdge is off by default
  EXPECT_EQ(o.colorSpace, ExportColorSpace::srgb);
  EXPECT_TRUE(o.includeMetadata);
  EXPECT_FALSE(o.includeLocation);
  EXPECT_EQ(o.outputSharpening, OutputSharpening::off);
  EXPECT_EQ(o.tiffCompression, TIFFCompression::none);
  EXPECT_EQ(o.metadataSourceURL, std::filesystem::path("/photos/a.jpg"));

  stored.useLongEdge = true;
  stored.longEdge = 1600.7;  // taken as an integer
  stored.format = "TIFF";
  stored.tiffCompression = 6;  // no valid choice: the default
  stored.colorSpace = "ProPhoto";
  o = stored.toOptions(std::nullopt);
  EXPECT_EQ(o.longEdge, 1600);
  EXPECT_EQ(o.format, ExportFormat::tiff);
  EXPECT_EQ(o.tiffCompression, TIFFCompression::none);
  EXPECT_EQ(o.colorSpace, ExportColorSpace::srgb);
  stored.longEdge = std::nan("");
  EXPECT_THROW(ImageExporter::validate(stored.toOptions(std::nullopt)), ExportError);
}

TEST(ExportOptions, LongEdgeNeverEnlargesAndRoundsTheShortSide) {
  using S = ImageExporter::Size;
  EXPECT_EQ(ImageExporter::targetSize(1600, 1200, 2048), (S{1600, 1200}));
  EXPECT_EQ(ImageExporter::targetSize(6000, 4000, 2048), (S{2048, 1365}));
  EXPECT_EQ(ImageExporter::targetSize(4000, 6000, 2048), (S{1365, 2048}));
  EXPECT_EQ(ImageExporter::targetSize(3000, 3000, 1000), (S{1000, 1000}));
  EXPECT_EQ(ImageExporter::targetSize(3000, 2000, 3000), (S{3000, 2000}));  // equal: unchanged
  EXPECT_EQ(ImageExporter::targetSize(999, 1000, 500), (S{500, 500}));      // 499.5 rounds up
  EXPECT_EQ(ImageExporter::targetSize(5000, 3, 100), (S{100, 1}));          // never below one pixel
  EXPECT_EQ(ImageExporter::targetSize(6000, 4000, std::nullopt), (S{6000, 4000}));
}

TEST(ExportOptions, MemoryBudgetIsAQuarterOfMemoryAtMostTwoGiB) {
  uint64_t budget = ImageExporter::memoryBudget();
  EXPECT_GT(budget, 0u);
  EXPECT_LE(budget, uint64_t(2) << 30);
}

}  // namespace
}  // namespace vg
