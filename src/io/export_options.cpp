#include "io/export_options.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

namespace vg {
namespace {

std::string lowered(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return out;
}

}  // namespace

std::string_view storedValue(ExportFormat format) {
  switch (format) {
    case ExportFormat::jpeg: return "JPEG";
    case ExportFormat::heic: return "HEIC";
    case ExportFormat::png: return "PNG";
    case ExportFormat::tiff: return "TIFF";
  }
  return "JPEG";
}

std::optional<ExportFormat> parseExportFormat(std::string_view value) {
  for (ExportFormat f : {ExportFormat::jpeg, ExportFormat::heic, ExportFormat::png, ExportFormat::tiff})
    if (storedValue(f) == value) return f;
  return std::nullopt;
}

std::optional<ExportFormat> exportFormatForExtension(std::string_view extension) {
  if (!extension.empty() && extension.front() == '.') extension.remove_prefix(1);
  std::string ext = lowered(extension);
  if (ext == "jpg" || ext == "jpeg" || ext == "jpe") return ExportFormat::jpeg;
  if (ext == "heic" || ext == "heif") return ExportFormat::heic;
  if (ext == "png") return ExportFormat::png;
  if (ext == "tif" || ext == "tiff") return ExportFormat::tiff;
  return std::nullopt;
}

std::string_view defaultExtension(ExportFormat format) {
  switch (format) {
    case ExportFormat::jpeg: return "jpg";
    case ExportFormat::heic: return "heic";
    case ExportFormat::png: return "png";
    case ExportFormat::tiff: return "tiff";
  }
  return "jpg";
}

std::string_view storedValue(ExportColorSpace space) {
  switch (space) {
    case ExportColorSpace::srgb: return "sRGB";
    case ExportColorSpace::displayP3: return "Display P3";
    case ExportColorSpace::adobeRGB: return "Adobe RGB";
  }
  return "sRGB";
}

std::optional<ExportColorSpace> parseExportColorSpace(std::string_view value) {
  for (ExportColorSpace c : {ExportColorSpace::srgb, ExportColorSpace::displayP3, ExportColorSpace::adobeRGB})
    if (storedValue(c) == value) return c;
  return std::nullopt;
}

std::string_view storedValue(OutputSharpening sharpening) {
  switch (sharpening) {
    case OutputSharpening::off: return "off";
    case OutputSharpening::screen: return "screen";
    case OutputSharpening::matte: return "matte";
    case OutputSharpening::glossy: return "glossy";
  }
  return "off";
}

std::string_view label(OutputSharpening sharpening) {
  switch (sharpening) {
    case OutputSharpening::off: return "关闭";
    case OutputSharpening::screen: return "屏幕";
    case OutputSharpening::matte: return "哑光纸";
    case OutputSharpening::glossy: return "光泽纸";
  }
  return "关闭";
}

std::optional<OutputSharpening> parseOutputSharpening(std::string_view value) {
  for (OutputSharpening s : {OutputSharpening::off, OutputSharpening::screen, OutputSharpening::matte,
                             OutputSharpening::glossy})
    if (storedValue(s) == value) return s;
  return std::nullopt;
}

std::optional<UnsharpParams> unsharpParams(OutputSharpening sharpening) {
  switch (sharpening) {
    case OutputSharpening::off: return std::nullopt;
    case OutputSharpening::screen: return UnsharpParams{0.8, 0.35};
    case OutputSharpening::matte: return UnsharpParams{1.2, 0.5};
    case OutputSharpening::glossy: return UnsharpParams{1.6, 0.7};
  }
  return std::nullopt;
}

std::string_view label(TIFFCompression compression) {
  switch (compression) {
    case TIFFCompression::none: return "不压缩";
    case TIFFCompression::lzw: return "LZW";
    case TIFFCompression::zip: return "ZIP (Deflate)";
  }
  return "不压缩";
}

std::optional<TIFFCompression> parseTIFFCompression(int64_t value) {
  switch (value) {
    case 1: return TIFFCompression::none;
    case 5: return TIFFCompression::lzw;
    case 8: return TIFFCompression::zip;
    default: return std::nullopt;
  }
}

ExportOptions StoredExportSettings::toOptions(std::optional<std::filesystem::path> source) const {
  ExportOptions defaults;
  ExportOptions o;
  o.format = parseExportFormat(format).value_or(defaults.format);
  o.quality = quality;
  if (useLongEdge) {
    // The stored double taken as an integer; a value no integer can hold is
    // passed on as an invalid size (0) so that validation rejects it.
    o.longEdge = std::isfinite(longEdge) && std::fabs(longEdge) < 9.0e18 ? int64_t(longEdge) : 0;
  }
  o.colorSpace = parseExportColorSpace(colorSpace).value_or(defaults.colorSpace);
  o.metadataSourceURL = std::move(source);
  o.includeMetadata = includeMetadata;
  o.includeLocation = includeLocation;
  o.outputSharpening = parseOutputSharpening(outputSharpening).value_or(defaults.outputSharpening);
  o.tiffCompression = parseTIFFCompression(tiffCompression).value_or(defaults.tiffCompression);
  return o;
}

}  // namespace vg
