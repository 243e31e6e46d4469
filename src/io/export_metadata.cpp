#include "io/export_metadata.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string_view>

#include "io/export_error.h"
#include "model/log.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace vg {
namespace {

// --- The policy, as explicit field sets ------------------------------------

// Exif groups that are copied at all (IFD0, the Exif IFD, GPS). Everything else
// Exiv2 decodes — maker-note groups, thumbnail IFD1, interoperability, sub-IFDs
// of RAW files — describes the camera's own files, not the export.
constexpr std::array<std::string_view, 3> kCopiedExifGroups = {"Image", "Photo", "GPSInfo"};

// IFD0 tags that describe the stored image rather than the photograph.
constexpr std::array<std::string_view, 40> kDroppedImageTags = {
    "NewSubfileType", "SubfileType", "ImageWidth", "ImageLength", "BitsPerSample", "Compression",
    "PhotometricInterpretation", "FillOrder", "Orientation", "StripOffsets", "SamplesPerPixel",
    "RowsPerStrip", "StripByteCounts", "XResolution", "YResolution", "ResolutionUnit",
    "PlanarConfiguration", "TransferFunction", "WhitePoint", "PrimaryChromaticities", "Predictor",
    "TileWidth", "TileLength", "TileOffsets", "TileByteCounts", "SubIFDs", "ExtraSamples",
    "SampleFormat", "JPEGInterchangeFormat", "JPEGInterchangeFormatLength", "YCbCrCoefficients",
    "YCbCrSubSampling", "YCbCrPositioning", "ReferenceBlackWhite", "InterColorProfile", "ExifTag",
    "GPSTag", "XMLPacket", "IPTCNAA", "ImageResources"};
// ... and any IFD0 tag of these families (DNG and CFA layout data).
constexpr std::array<std::string_view, 3> kDroppedImageTagPrefixes = {"DNG", "CFA", "Tile"};

constexpr std::array<std::string_view, 5> kDroppedPhotoTags = {
    "PixelXDimension", "PixelYDimension", "ColorSpace", "MakerNote", "InteroperabilityTag"};

constexpr std::array<std::string_view, 5> kIptcLocationKeys = {
    "Iptc.Application2.City", "Iptc.Application2.SubLocation", "Iptc.Application2.ProvinceState",
    "Iptc.Application2.CountryCode", "Iptc.Application2.CountryName"};

// XMP properties always dropped: they restate the stored image's layout or a
// thumbnail of it, or digests of tags that no longer match.
constexpr std::array<std::string_view, 17> kDroppedXmpKeys = {
    "Xmp.tiff.Orientation", "Xmp.tiff.ImageWidth", "Xmp.tiff.ImageLength", "Xmp.tiff.XResolution",
    "Xmp.tiff.YResolution", "Xmp.tiff.ResolutionUnit", "Xmp.tiff.BitsPerSample", "Xmp.tiff.Compression",
    "Xmp.tiff.PhotometricInterpretation", "Xmp.tiff.SamplesPerPixel", "Xmp.tiff.NativeDigest",
    "Xmp.exif.PixelXDimension", "Xmp.exif.PixelYDimension", "Xmp.exif.ColorSpace",
    "Xmp.exif.NativeDigest", "Xmp.photoshop.ICCProfile", "Xmp.xmp.Thumbnails"};

// XMP location, dropped without includeLocation (prefixes: structures and
// arrays appear as several keys, e.g. "Xmp.iptcExt.LocationShown[1]/...").
constexpr std::array<std::string_view, 8> kXmpLocationPrefixes = {
    "Xmp.exif.GPS", "Xmp.photoshop.City", "Xmp.photoshop.State", "Xmp.photoshop.Country",
    "Xmp.iptc.Location", "Xmp.iptc.CountryCode", "Xmp.iptcExt.LocationCreated",
    "Xmp.iptcExt.LocationShown"};

template <size_t N>
bool contains(const std::array<std::string_view, N>& set, std::string_view s) {
  return std::find(set.begin(), set.end(), s) != set.end();
}
template <size_t N>
bool startsWithAny(const std::array<std::string_view, N>& prefixes, std::string_view s) {
  return std::any_of(prefixes.begin(), prefixes.end(), [&](std::string_view p) { return s.starts_with(p); });
}

bool keepExif(const Exiv2::Exifdatum& d, bool includeLocation) {
  const std::string group = d.groupName(), tag = d.tagName();
  if (!contains(kCopiedExifGroups, group)) return false;
  if (group == "GPSInfo") return includeLocation;
  if (group == "Image") return !contains(kDroppedImageTags, tag) && !startsWithAny(kDroppedImageTagPrefixes, tag);
  return !contains(kDroppedPhotoTags, tag);
}

bool keepXmp(const std::string& key, bool includeLocation) {
  if (contains(kDroppedXmpKeys, key)) return false;
  return includeLocation || !startsWithAny(kXmpLocationPrefixes, key);
}

// --- Exiv2 set-up -----------------------------------------------------------

std::mutex gXmpToolkitMutex;
void lockXmpToolkit(void* mutex, bool lock) {
  auto* m = static_cast<std::mutex*>(mutex);
  if (lock) m->lock(); else m->unlock();
}

void initExiv2() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::XmpParser::initialize(&lockXmpToolkit, &gXmpToolkitMutex);
    Exiv2::enableBMFF(true);
  });
}

// --- Resolution from the source ----------------------------------------------

struct Dpi {
  double x = 0, y = 0;
  bool valid() const { return std::isfinite(x) && std::isfinite(y) && x > 0 && y > 0; }
};

Dpi dpiFromExif(const Exiv2::ExifData& exif) {
  auto xr = exif.findKey(Exiv2::ExifKey("Exif.Image.XResolution"));
  auto yr = exif.findKey(Exiv2::ExifKey("Exif.Image.YResolution"));
  if (xr == exif.end() || yr == exif.end() || xr->count() == 0 || yr->count() == 0) return {};
  double unit = 1.0;  // inches (2) is the default unit
  auto ru = exif.findKey(Exiv2::ExifKey("Exif.Image.ResolutionUnit"));
  if (ru != exif.end() && ru->count() > 0) {
    long u = ru->toLong();
    if (u == 3) unit = 2.54;  // per centimetre
    else if (u != 2) return {};  // no absolute unit
  }
  return {double(xr->toFloat()) * unit, double(yr->toFloat()) * unit};
}

uint32_t be32(const unsigned char* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

// JFIF APP0 density (JPEG) or pHYs (PNG) from the file's first bytes.
Dpi dpiFromHeader(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<unsigned char> head(64 * 1024);
  in.read(reinterpret_cast<char*>(head.data()), std::streamsize(head.size()));
  head.resize(size_t(in.gcount()));
  const unsigned char* p = head.data();
  size_t n = head.size();
  if (n >= 20 && p[0] == 0xFF && p[1] == 0xD8 && p[2] == 0xFF && p[3] == 0xE0 &&
      std::memcmp(p + 6, "JFIF\0", 5) == 0) {
    int units = p[13];
    double x = p[14] << 8 | p[15], y = p[16] << 8 | p[17];
    if (units == 1) return {x, y};
    if (units == 2) return {x * 2.54, y * 2.54};
    return {};
  }
  static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (n >= 8 && std::memcmp(p, kPng, 8) == 0) {
    for (size_t at = 8; at + 12 <= n;) {
      uint32_t len = be32(p + at);
      if (std::memcmp(p + at + 4, "pHYs", 4) == 0 && len == 9 && at + 8 + 9 <= n) {
        const unsigned char* d = p + at + 8;
        if (d[8] != 1) return {};  // unit unknown: aspect ratio only
        return {be32(d) * 0.0254, be32(d + 4) * 0.0254};
      }
      if (std::memcmp(p + at + 4, "IDAT", 4) == 0 || len > n) break;
      at += size_t(len) + 12;
    }
  }
  return {};
}

}  // namespace

struct ExportMetadata::Data {
  Exiv2::ExifData exif;
  Exiv2::IptcData iptc;
  Exiv2::XmpData xmp;
  std::optional<double> dpiX, dpiY;
};

ExportMetadata::ExportMetadata() : d_(std::make_unique<Data>()) {}
ExportMetadata::~ExportMetadata() = default;
ExportMetadata::ExportMetadata(ExportMetadata&&) noexcept = default;
ExportMetadata& ExportMetadata::operator=(ExportMetadata&&) noexcept = default;

ExportMetadata ExportMetadata::fromSource(const std::filesystem::path& source, bool includeLocation,
                                          std::optional<int64_t> longEdge) {
  initExiv2();
  ExportMetadata out;
  Data& d = *out.d_;
  Exiv2::Image::AutoPtr image;
  try {
    image = Exiv2::ImageFactory::open(source.string());
    image->readMetadata();
  } catch (const std::exception& e) {
    logLine("Verdantglass: no metadata copied from " + source.filename().string() + ": " + e.what());
    return ExportMetadata();
  }

  for (const auto& datum : image->exifData())
    if (keepExif(datum, includeLocation)) d.exif.add(datum);
  for (const auto& datum : image->iptcData()) {
    if (!includeLocation && contains(kIptcLocationKeys, datum.key())) continue;
    d.iptc.add(datum);
  }
  for (const auto& datum : image->xmpData())
    if (keepXmp(datum.key(), includeLocation)) d.xmp.add(datum);

  Dpi dpi = dpiFromExif(image->exifData());
  if (!dpi.valid()) dpi = dpiFromHeader(source);
  if (dpi.valid()) {
    double scale = 1.0;
    double sourceLong = double(std::max(image->pixelWidth(), image->pixelHeight()));
    if (longEdge && sourceLong > 0) scale = std::min(1.0, double(*longEdge) / sourceLong);
    auto scaled = [&](double v) { return std::max(1.0, std::round(v * scale)); };
    d.dpiX = scaled(dpi.x);
    d.dpiY = scaled(dpi.y);
    auto rational = [](double v) {
      return Exiv2::URational(uint32_t(std::min(v, 4294967295.0)), 1);
    };
    d.exif["Exif.Image.XResolution"] = rational(*d.dpiX);
    d.exif["Exif.Image.YResolution"] = rational(*d.dpiY);
    d.exif["Exif.Image.ResolutionUnit"] = uint16_t(2);
  }
  return out;
}

bool ExportMetadata::empty() const {
  return d_->exif.empty() && d_->iptc.empty() && d_->xmp.empty() && !d_->dpiX;
}

std::optional<double> ExportMetadata::dpiX() const { return d_->dpiX; }
std::optional<double> ExportMetadata::dpiY() const { return d_->dpiY; }

void ExportMetadata::writeInto(const std::filesystem::path& file) const {
  if (d_->exif.empty() && d_->iptc.empty() && d_->xmp.empty()) return;
  initExiv2();
  try {
    auto image = Exiv2::ImageFactory::open(file.string());
    image->readMetadata();  // keeps the file's own tags and ICC profile
    Exiv2::ExifData& exif = image->exifData();
    for (const auto& datum : d_->exif) {
      auto it = exif.findKey(Exiv2::ExifKey(datum.key()));
      if (it != exif.end()) exif.erase(it);
      exif.add(datum);
    }
    image->setIptcData(d_->iptc);
    image->setXmpData(d_->xmp);
    image->writeMetadata();
  } catch (const std::exception& e) {
    throw ExportError(ExportError::kWriteFailed, std::string("metadata: ") + e.what());
  }
}

std::string ExportMetadata::exifBlock() const {
  if (d_->exif.empty()) return {};
  Exiv2::Blob blob;
  Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, d_->exif);
  return std::string(blob.begin(), blob.end());
}

std::string ExportMetadata::xmpPacket() const {
  if (d_->xmp.empty() && d_->iptc.empty()) return {};
  initExiv2();
  Exiv2::XmpData xmp = d_->xmp;
  if (!d_->iptc.empty()) Exiv2::copyIptcToXmp(d_->iptc, xmp);
  std::string packet;
  if (Exiv2::XmpParser::encode(packet, xmp, Exiv2::XmpParser::useCompactFormat) != 0) return {};
  return packet;
}

std::vector<std::string> ExportMetadata::keys() const {
  std::vector<std::string> out;
  for (const auto& d : d_->exif) out.push_back(d.key());
  for (const auto& d : d_->iptc) out.push_back(d.key());
  for (const auto& d : d_->xmp) out.push_back(d.key());
  return out;
}

}  // namespace vg
