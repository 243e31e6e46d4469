#include "io/metadata_reader.h"

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <mutex>

#include "model/log.h"

namespace vg {
namespace {

void initialiseExiv2() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
  });
}

std::optional<std::string> text(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end() || it->count() == 0) return std::nullopt;
  std::string s = it->toString();
  while (!s.empty() && (s.back() == '\0' || s.back() == ' ')) s.pop_back();
  size_t nul = s.find('\0');
  if (nul != std::string::npos) s.resize(nul);
  if (s.empty()) return std::nullopt;
  return s;
}

std::optional<double> number(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end() || it->count() == 0) return std::nullopt;
  if (it->typeId() == Exiv2::unsignedRational || it->typeId() == Exiv2::signedRational) {
    auto r = it->toRational(0);
    if (r.second == 0) return std::nullopt;
    return double(r.first) / double(r.second);
  }
  double v = double(it->toFloat(0));
  if (!std::isfinite(v)) return std::nullopt;
  return v;
}

std::optional<long> integer(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end() || it->count() == 0) return std::nullopt;
  return it->toLong(0);
}

// Focal lengths, apertures, times and speeds of 0 are placeholders some
// writers leave (a manual lens, a converter): not values.
std::optional<double> positive(std::optional<double> v) {
  if (v && *v > 0) return v;
  return std::nullopt;
}

ExifFacts factsFrom(const Exiv2::ExifData& exif) {
  ExifFacts facts;
  PhotoMetadata& m = facts.meta;
  m.camera = text(exif, "Exif.Image.Model");
  m.lens = text(exif, "Exif.Photo.LensModel");
  m.focalLength = positive(number(exif, "Exif.Photo.FocalLength"));
  m.fNumber = positive(number(exif, "Exif.Photo.FNumber"));
  m.exposureTime = positive(number(exif, "Exif.Photo.ExposureTime"));
  if (auto iso = integer(exif, "Exif.Photo.ISOSpeedRatings"); iso && *iso > 0) m.iso = int(*iso);
  m.takenAt = text(exif, "Exif.Photo.DateTimeOriginal");
  if (auto f35 = integer(exif, "Exif.Photo.FocalLengthIn35mmFilm"); f35 && *f35 > 0) m.focalLength35mm = double(*f35);
  if (auto wb = integer(exif, "Exif.Photo.WhiteBalance")) m.whiteBalance = *wb == 0 ? "自动" : "手动";
  m.exposureBias = number(exif, "Exif.Photo.ExposureBiasValue");
  if (auto o = integer(exif, "Exif.Image.Orientation"); o && *o >= 1 && *o <= 8) facts.orientation = int(*o);
  return facts;
}

}  // namespace

ExifFacts readExifFacts(std::span<const uint8_t> fileBytes) {
  initialiseExiv2();
  try {
    auto image = Exiv2::ImageFactory::open(fileBytes.data(), long(fileBytes.size()));
    if (!image.get()) return {};
    image->readMetadata();
    return factsFrom(image->exifData());
  } catch (const std::exception& e) {
    logLine(std::string("image loader: metadata not read: ") + e.what());
  }
  return {};
}

ExifFacts readExifBlock(std::span<const uint8_t> tiffBlock) {
  initialiseExiv2();
  try {
    Exiv2::ExifData exif;
    Exiv2::ExifParser::decode(exif, tiffBlock.data(), uint32_t(tiffBlock.size()));
    return factsFrom(exif);
  } catch (const std::exception& e) {
    logLine(std::string("image loader: metadata not read: ") + e.what());
  }
  return {};
}

}  // namespace vg
