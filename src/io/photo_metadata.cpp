#include "io/photo_metadata.h"

namespace vg {

nlohmann::ordered_json toJson(const PhotoMetadata& m) {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  auto put = [&](const char* key, const auto& field) {
    if (field) j[key] = *field;
  };
  put("camera", m.camera);
  put("lens", m.lens);
  put("focalLength", m.focalLength);
  put("fNumber", m.fNumber);
  put("exposureTime", m.exposureTime);
  put("iso", m.iso);
  put("takenAt", m.takenAt);
  put("focalLength35mm", m.focalLength35mm);
  put("whiteBalance", m.whiteBalance);
  put("exposureBias", m.exposureBias);
  put("rawSummary", m.rawSummary);
  return j;
}

}  // namespace vg
