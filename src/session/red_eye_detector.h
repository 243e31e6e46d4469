// Red-eye detection: red-eye spots placed on the pupils of the faces in a
// picture, from dlib's frontal face detector and its 68-point landmark model.
//
// detect(source, cancel):
// - source is the upright working image (the preview source is the usual
//   input). It is reduced so that its long side is at most kMaxSide pixels
//   (whole-block averaging, then area resampling) and encoded as 8-bit sRGB.
// - Faces are found without upsampling (faces smaller than about 80 pixels
//   of the reduced picture are not found), keeping those the detector scores
//   at least kMinFaceScore: above its own threshold of 0, which lets patterns
//   on clothes and the like through. For each face the landmarks are
//   fitted; each eye's pupil is the mean of its six contour points (the
//   landmarks 36-41 and 42-47), the eye on the picture's left first.
// - A spot's radius is kRadiusOfFace of the face box's width, in units of the
//   shorter image side, at least kMinRadius; its centre is normalised to the
//   width and height of the source. Every spot gets a fresh id.
// - No face: no spots and the message kNoFaceText. The landmark model missing
//   or unreadable: `failed`, with "检测失败：" and the cause.
// - A set cancel token is checked between stages and faces; a cancelled run
//   returns nothing.
//
// The model (about 100 MB) is read once per detector, on the first detect()
// or load(), on the calling thread (callers run detection off the main
// thread). A failed load is tried again on the next call. One detection runs
// at a time per detector; detect() may be called from any thread.
// shared() is the process's detector on defaultModelPath().
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/masks.h"
#include "render/cancel_token.h"
#include "render/image.h"

namespace vg {

struct RedEyeDetectionOutcome {
  std::vector<RedEyeSpot> spots;
  std::optional<std::string> message;
  bool failed = false;
  bool operator==(const RedEyeDetectionOutcome&) const = default;
};

class RedEyeDetector {
 public:
  static constexpr int kMaxSide = 1200;
  static constexpr double kRadiusOfFace = 0.05;
  static constexpr double kMinRadius = 0.015;
  static constexpr double kMinFaceScore = 0.25;
  static constexpr std::string_view kNoFaceText = "未检测到人脸/红眼，可尝试手动模式";
  static constexpr std::string_view kFailedPrefix = "检测失败：";

  // $VERDANTGLASS_FACE_MODEL when set, else the model Debian's libdlib-data installs.
  static std::filesystem::path defaultModelPath();
  static RedEyeDetector& shared();

  explicit RedEyeDetector(std::filesystem::path modelPath = defaultModelPath());
  ~RedEyeDetector();
  RedEyeDetector(const RedEyeDetector&) = delete;
  RedEyeDetector& operator=(const RedEyeDetector&) = delete;

  // Reads the model if it is not read yet; the cause of a failure, else nothing.
  std::optional<std::string> load();

  std::optional<RedEyeDetectionOutcome> detect(const Image& source, const AsyncCancelToken* cancel = nullptr);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vg
