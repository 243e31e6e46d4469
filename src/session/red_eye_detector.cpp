// The one translation unit that includes dlib (it compiles slowly).
#include "session/red_eye_detector.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>

#include <dlib/image_processing.h>
#include <dlib/image_processing/frontal_face_detector.h>
#include <dlib/image_transforms.h>

#include "render/heal_bitmap.h"
#include "session/analysis_image.h"

namespace vg {

namespace {

// The reduced picture and where it lies on the source: a point (x, y) of it is
// at (x * scaleX, y * scaleY) source pixels.
struct Reduced {
  dlib::array2d<dlib::rgb_pixel> pixels;
  double scaleX = 1, scaleY = 1;
};

Reduced reduce(const Image& source) {
  const int longSide = std::max(source.width(), source.height());
  const int f = std::max(1, longSide / RedEyeDetector::kMaxSide);
  const Image blocks = averageBlocks(source, f);
  dlib::array2d<dlib::rgb_pixel> encoded(blocks.height(), blocks.width());
  for (int y = 0; y < blocks.height(); ++y) {
    const float* p = blocks.row(y);
    for (int x = 0; x < blocks.width(); ++x, p += 4) {
      uint8_t rgba[4];
      encodeHealPixel(p, rgba);
      encoded[y][x] = dlib::rgb_pixel(rgba[0], rgba[1], rgba[2]);
    }
  }
  Reduced r;
  const int blockLong = std::max(blocks.width(), blocks.height());
  if (blockLong > RedEyeDetector::kMaxSide) {
    const double s = double(RedEyeDetector::kMaxSide) / blockLong;
    r.pixels.set_size(std::max(1L, std::lround(blocks.height() * s)), std::max(1L, std::lround(blocks.width() * s)));
    dlib::resize_image(encoded, r.pixels);
  } else {
    dlib::swap(r.pixels, encoded);
  }
  r.scaleX = double(blocks.width()) * f / double(r.pixels.nc());
  r.scaleY = double(blocks.height()) * f / double(r.pixels.nr());
  return r;
}

bool cancelled(const AsyncCancelToken* cancel) { return cancel && cancel->isCancelled(); }

}  // namespace

struct RedEyeDetector::Impl {
  std::filesystem::path modelPath;
  std::mutex lock;  // one detection (and one load) at a time
  bool loaded = false;
  dlib::frontal_face_detector faces = dlib::get_frontal_face_detector();
  dlib::shape_predictor landmarks;

  std::optional<std::string> loadLocked() {
    if (loaded) return std::nullopt;
    std::error_code ec;
    if (!std::filesystem::is_regular_file(modelPath, ec)) return "找不到人脸特征点模型 " + modelPath.string();
    try {
      dlib::deserialize(modelPath.string()) >> landmarks;
    } catch (const std::exception& e) {
      return "无法读取人脸特征点模型 " + modelPath.string() + "（" + e.what() + "）";
    }
    loaded = true;
    return std::nullopt;
  }
};

std::filesystem::path RedEyeDetector::defaultModelPath() {
  if (const char* env = std::getenv("VERDANTGLASS_FACE_MODEL"); env && *env) return env;
  return "/usr/share/dlib/shape_predictor_68_face_landmarks.dat";
}

RedEyeDetector& RedEyeDetector::shared() {
  static RedEyeDetector detector;
  return detector;
}

RedEyeDetector::RedEyeDetector(std::filesystem::path modelPath) : impl_(std::make_unique<Impl>()) {
  impl_->modelPath = std::move(modelPath);
}

RedEyeDetector::~RedEyeDetector() = default;

std::optional<std::string> RedEyeDetector::load() {
  std::lock_guard<std::mutex> guard(impl_->lock);
  return impl_->loadLocked();
}

std::optional<RedEyeDetectionOutcome> RedEyeDetector::detect(const Image& source, const AsyncCancelToken* cancel) {
  std::lock_guard<std::mutex> guard(impl_->lock);
  RedEyeDetectionOutcome outcome;
  if (std::optional<std::string> error = impl_->loadLocked()) {
    outcome.failed = true;
    outcome.message = std::string(kFailedPrefix) + *error;
    return outcome;
  }
  if (cancelled(cancel)) return std::nullopt;
  if (source.empty()) {
    outcome.message = std::string(kNoFaceText);
    return outcome;
  }
  const Reduced reduced = reduce(source);
  if (cancelled(cancel)) return std::nullopt;
  std::vector<dlib::rect_detection> found;
  impl_->faces(reduced.pixels, found, kMinFaceScore);
  std::vector<dlib::rectangle> faces;
  for (const dlib::rect_detection& d : found) faces.push_back(d.rect);
  const double width = source.width(), height = source.height(), shorter = std::min(width, height);
  for (const dlib::rectangle& face : faces) {
    if (cancelled(cancel)) return std::nullopt;
    const dlib::full_object_detection shape = impl_->landmarks(reduced.pixels, face);
    const double radius = std::max(kMinRadius, kRadiusOfFace * double(face.width()) * reduced.scaleX / shorter);
    for (unsigned first : {36u, 42u}) {
      double x = 0, y = 0;
      for (unsigned i = first; i < first + 6; ++i) x += double(shape.part(i).x()) + 0.5, y += double(shape.part(i).y()) + 0.5;
      const Point centre{x / 6 * reduced.scaleX / width, y / 6 * reduced.scaleY / height};
      if (centre.x < 0 || centre.x > 1 || centre.y < 0 || centre.y > 1) continue;  // an eye outside the picture
      RedEyeSpot spot;
      spot.center = centre;
      spot.radius = radius;
      outcome.spots.push_back(spot);
    }
  }
  if (outcome.spots.empty()) outcome.message = std::string(kNoFaceText);
  return outcome;
}

}  // namespace vg
