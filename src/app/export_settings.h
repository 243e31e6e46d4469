// The export sheet's choices and their stored form, the "export.*" keys of
// the application's settings:
//   export.format (string, "JPEG"), export.quality (double, 0.9),
//   export.colorSpace (string, "sRGB"), export.includeMetadata (bool, true),
//   export.includeLocation (bool, false), export.useLongEdge (bool, false),
//   export.longEdge (double, 2048), export.outputSharpening (string, "off"),
//   export.tiffCompression (integer, 1).
// Defaults come from StoredExportSettings (io/export_options.h). A stored
// value that does not parse (an unknown format, a TIFF compression other than
// 1, 5 or 8, a quality that is not a number) falls back to that key's default;
// quality is kept in 0...1 and the long edge at least 1 pixel.
#pragma once

#include <filesystem>
#include <optional>

#include "io/export_options.h"

class QSettings;

namespace vg::app {

struct ExportSheetValues {
  ExportFormat format = ExportFormat::jpeg;
  double quality = 0.9;
  ExportColorSpace colorSpace = ExportColorSpace::srgb;
  bool includeMetadata = true;
  bool includeLocation = false;
  bool useLongEdge = false;
  double longEdge = 2048;
  OutputSharpening outputSharpening = OutputSharpening::off;
  TIFFCompression tiffCompression = TIFFCompression::none;

  // The exporter's options; longEdge only when useLongEdge is on, the stored
  // double taken as an integer.
  ExportOptions toOptions(std::optional<std::filesystem::path> source) const;
  bool operator==(const ExportSheetValues&) const = default;
};

ExportSheetValues loadExportSettings(QSettings& settings);
void saveExportSettings(QSettings& settings, const ExportSheetValues& values);

}  // namespace vg::app
