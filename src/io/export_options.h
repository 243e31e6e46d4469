// ImageExporter::Options and the choices it is made of: output format, colour
// space, output sharpening and TIFF compression, with their stored string or
// integer values, their labels, and the defaults of the export settings.
//
// Stored values are what settings and the command line use ("JPEG", "Display
// P3", "glossy", 5); parsing returns nothing for anything else, so the caller
// falls back to its default.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace vg {

// The option types of ImageExporter (image_exporter.h), kept apart so that
// settings, the command line and the batch engine can name them without the
// exporter itself. ImageExporter derives from this, so they read as
// ImageExporter::Format, ImageExporter::Options and so on.
struct ImageExporterTypes {
  enum class Format { jpeg, heic, png, tiff };
  enum class ColorSpaceOption { srgb, displayP3, adobeRGB };
  enum class OutputSharpening { off, screen, matte, glossy };
  enum class TIFFCompression : int { none = 1, lzw = 5, zip = 8 };
  struct Options;
};

using ExportFormat = ImageExporterTypes::Format;
using ExportColorSpace = ImageExporterTypes::ColorSpaceOption;
using OutputSharpening = ImageExporterTypes::OutputSharpening;
using TIFFCompression = ImageExporterTypes::TIFFCompression;

// "JPEG", "HEIC", "PNG", "TIFF".
std::string_view storedValue(ExportFormat format);
std::optional<ExportFormat> parseExportFormat(std::string_view value);
// The format an extension names (case-insensitive, with or without the dot):
// jpg/jpeg/jpe, heic/heif, png, tif/tiff.
std::optional<ExportFormat> exportFormatForExtension(std::string_view extension);
// The extension given to a file of this format when its name has none.
std::string_view defaultExtension(ExportFormat format);

// "sRGB", "Display P3", "Adobe RGB"; the value is also the label.
std::string_view storedValue(ExportColorSpace space);
std::optional<ExportColorSpace> parseExportColorSpace(std::string_view value);

// "off", "screen", "matte", "glossy"; labels "关闭", "屏幕", "哑光纸", "光泽纸".
std::string_view storedValue(OutputSharpening sharpening);
std::string_view label(OutputSharpening sharpening);
std::optional<OutputSharpening> parseOutputSharpening(std::string_view value);

// The unsharp mask an output sharpening applies, in output pixels.
struct UnsharpParams {
  double radius = 0;
  double intensity = 0;
};
// Absent for off; screen 0.8/0.35, matte 1.2/0.5, glossy 1.6/0.7.
std::optional<UnsharpParams> unsharpParams(OutputSharpening sharpening);

// The stored integer is the TIFF compression tag value (1, 5, 8); labels
// "不压缩", "LZW", "ZIP (Deflate)".
std::string_view label(TIFFCompression compression);
std::optional<TIFFCompression> parseTIFFCompression(int64_t value);

struct ImageExporterTypes::Options {
  ExportFormat format = ExportFormat::jpeg;
  double quality = 0.9;               // 0...1, JPEG and HEIC only
  std::optional<int64_t> longEdge;    // pixels; absent = full size
  ExportColorSpace colorSpace = ExportColorSpace::srgb;
  // The photograph whose metadata are copied; the exporter never writes it.
  std::optional<std::filesystem::path> metadataSourceURL;
  bool includeMetadata = true;
  bool includeLocation = false;
  OutputSharpening outputSharpening = OutputSharpening::off;
  TIFFCompression tiffCompression = TIFFCompression::none;

  friend bool operator==(const Options&, const Options&) = default;
};
using ExportOptions = ImageExporterTypes::Options;

// The export settings as the export sheet stores them (keys "export.*"), with
// their defaults. toOptions() builds Options from them: longEdge only when
// useLongEdge is on, the stored double taken as an integer.
struct StoredExportSettings {
  std::string_view format = "JPEG";
  double quality = 0.9;
  std::string_view colorSpace = "sRGB";
  bool includeMetadata = true;
  bool includeLocation = false;
  bool useLongEdge = false;
  double longEdge = 2048;
  std::string_view outputSharpening = "off";
  int64_t tiffCompression = 1;

  ExportOptions toOptions(std::optional<std::filesystem::path> source) const;
};

}  // namespace vg
