// The export sheet's stored settings and the destination it builds.
#include <gtest/gtest.h>

#include <QSettings>

#include "app/export_settings.h"
#include "app/export_sheet.h"
#include "support/test_support.h"

namespace vg::app {
namespace {

TEST(ExportSettings, DefaultsRoundTripAndBadValues) {
  vg::test::TempDir dir;
  QSettings s(QString::fromStdString((dir / "s.conf").string()), QSettings::IniFormat);
  EXPECT_EQ(loadExportSettings(s), ExportSheetValues{});

  ExportSheetValues v;
  v.format = ExportFormat::tiff;
  v.quality = 0.42;
  v.colorSpace = ExportColorSpace::displayP3;
  v.includeMetadata = false;
  v.includeLocation = true;
  v.useLongEdge = true;
  v.longEdge = 1600;
  v.outputSharpening = OutputSharpening::glossy;
  v.tiffCompression = TIFFCompression::zip;
  saveExportSettings(s, v);
  s.sync();
  QSettings again(QString::fromStdString((dir / "s.conf").string()), QSettings::IniFormat);
  EXPECT_EQ(loadExportSettings(again), v);
  EXPECT_EQ(again.value("export.format").toString(), "TIFF");
  EXPECT_EQ(again.value("export.colorSpace").toString(), "Display P3");
  EXPECT_EQ(again.value("export.tiffCompression").toInt(), 8);

  // Every bad key falls back on its own default; the good ones stay.
  again.setValue("export.format", "GIF");
  again.setValue("export.quality", "loud");
  again.setValue("export.tiffCompression", 7);
  again.setValue("export.longEdge", -5);
  again.setValue("export.outputSharpening", "matte");
  const ExportSheetValues repaired = loadExportSettings(again);
  EXPECT_EQ(repaired.format, ExportFormat::jpeg);
  EXPECT_EQ(repaired.quality, 0.9);
  EXPECT_EQ(repaired.tiffCompression, TIFFCompression::none);
  EXPECT_EQ(repaired.longEdge, 1.0);
  EXPECT_EQ(repaired.outputSharpening, OutputSharpening::matte);
  EXPECT_EQ(repaired.colorSpace, ExportColorSpace::displayP3);

  // The options: the long edge only when switched on.
  EXPECT_EQ(v.toOptions("/p/a.jpg").longEdge, std::optional<int64_t>(1600));
  v.useLongEdge = false;
  const ExportOptions o = v.toOptions("/p/a.jpg");
  EXPECT_FALSE(o.longEdge);
  EXPECT_EQ(o.metadataSourceURL, std::optional<std::filesystem::path>("/p/a.jpg"));
  EXPECT_EQ(o.tiffCompression, TIFFCompression::zip);
}

TEST(ExportSheet, DestinationTakesTheFormatsExtension) {
  EXPECT_EQ(destinationForFormat("/o/a", ExportFormat::jpeg), "/o/a.jpg");
  EXPECT_EQ(destinationForFormat("/o/a.png", ExportFormat::jpeg), "/o/a.jpg");
  EXPECT_EQ(destinationForFormat("/o/a.JPEG", ExportFormat::jpeg), "/o/a.JPEG");
  EXPECT_EQ(destinationForFormat("/o/a.tif", ExportFormat::tiff), "/o/a.tif");
  EXPECT_EQ(destinationForFormat("/o/a.b.final", ExportFormat::heic), "/o/a.b.final");
  EXPECT_EQ(suggestedDestination("/in/rocket.jpg", "/out", ExportFormat::png), "/out/rocket-已编辑.png");
}

}  // namespace
}  // namespace vg::app
