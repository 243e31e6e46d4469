// PhotoMetadata: the photographic facts a file carries, for the information
// panel. Every field is optional: absent means the file does not say.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vg {

struct PhotoMetadata {
  std::optional<std::string> camera;       // TIFF Model
  std::optional<std::string> lens;         // Exif LensModel
  std::optional<double> focalLength;       // millimetres
  std::optional<double> fNumber;
  std::optional<double> exposureTime;      // seconds
  std::optional<int> iso;                  // first value of ISOSpeedRatings
  std::optional<std::string> takenAt;      // DateTimeOriginal, verbatim
  std::optional<double> focalLength35mm;
  std::optional<std::string> whiteBalance; // "自动" (Exif 0) or "手动" (anything else)
  std::optional<double> exposureBias;      // EV
  // The RAW developer's facts about a camera RAW file (maker, model, ISO,
  // shutter, aperture, focal length, white-balance multipliers, black and
  // white levels), kept whole as a JSON object.
  std::optional<nlohmann::ordered_json> rawSummary;

  friend bool operator==(const PhotoMetadata&, const PhotoMetadata&) = default;
};

// The present fields as a JSON object keyed by field name (absent ones omitted).
nlohmann::ordered_json toJson(const PhotoMetadata& meta);

}  // namespace vg
