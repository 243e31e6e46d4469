#include "app/export_settings.h"

#include <QSettings>
#include <algorithm>
#include <cmath>

namespace vg::app {
namespace {

QString text(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

std::optional<double> readNumber(QSettings& s, const char* key) {
  bool ok = false;
  const double v = s.value(key).toDouble(&ok);
  if (!ok || !std::isfinite(v)) return std::nullopt;
  return v;
}

bool readBool(QSettings& s, const char* key, bool fallback) {
  const QVariant v = s.value(key);
  if (!v.isValid()) return fallback;
  const QString t = v.toString().toLower();
  if (t == "true" || t == "1") return true;
  if (t == "false" || t == "0") return false;
  return fallback;
}

}  // namespace

ExportOptions ExportSheetValues::toOptions(std::optional<std::filesystem::path> source) const {
  ExportOptions o;
  o.format = format;
  o.quality = quality;
  o.longEdge = useLongEdge ? std::optional<int64_t>(int64_t(longEdge)) : std::nullopt;
  o.colorSpace = colorSpace;
  o.metadataSourceURL = std::move(source);
  o.includeMetadata = includeMetadata;
  o.includeLocation = includeLocation;
  o.outputSharpening = outputSharpening;
  o.tiffCompression = tiffCompression;
  return o;
}

ExportSheetValues loadExportSettings(QSettings& s) {
  const StoredExportSettings d;
  ExportSheetValues v;
  v.format = parseExportFormat(s.value("export.format", text(d.format)).toString().toStdString())
                 .value_or(*parseExportFormat(d.format));
  v.quality = std::clamp(readNumber(s, "export.quality").value_or(d.quality), 0.0, 1.0);
  v.colorSpace = parseExportColorSpace(s.value("export.colorSpace", text(d.colorSpace)).toString().toStdString())
                     .value_or(*parseExportColorSpace(d.colorSpace));
  v.includeMetadata = readBool(s, "export.includeMetadata", d.includeMetadata);
  v.includeLocation = readBool(s, "export.includeLocation", d.includeLocation);
  v.useLongEdge = readBool(s, "export.useLongEdge", d.useLongEdge);
  v.longEdge = std::clamp(readNumber(s, "export.longEdge").value_or(d.longEdge), 1.0, 1'000'000.0);
  v.outputSharpening =
      parseOutputSharpening(s.value("export.outputSharpening", text(d.outputSharpening)).toString().toStdString())
          .value_or(*parseOutputSharpening(d.outputSharpening));
  const auto tiff = readNumber(s, "export.tiffCompression");
  v.tiffCompression = (tiff ? parseTIFFCompression(int64_t(*tiff)) : std::nullopt)
                          .value_or(*parseTIFFCompression(d.tiffCompression));
  return v;
}

void saveExportSettings(QSettings& s, const ExportSheetValues& v) {
  s.setValue("export.format", text(storedValue(v.format)));
  s.setValue("export.quality", v.quality);
  s.setValue("export.colorSpace", text(storedValue(v.colorSpace)));
  s.setValue("export.includeMetadata", v.includeMetadata);
  s.setValue("export.includeLocation", v.includeLocation);
  s.setValue("export.useLongEdge", v.useLongEdge);
  s.setValue("export.longEdge", v.longEdge);
  s.setValue("export.outputSharpening", text(storedValue(v.outputSharpening)));
  s.setValue("export.tiffCompression", int(v.tiffCompression));
}

}  // namespace vg::app
