// SubjectSegmenter: the per-pixel probability that a pixel belongs to the
// photo's main subject, from the salient-object network U²-Net-p (Apache-2.0
// weights, models/u2netp.onnx) run with OpenCV's DNN module.
//
// - Input "input.1", 1 x 3 x 320 x 320, RGB planes (NCHW): the bitmap
//   resized to 320 x 320 ignoring its aspect, divided by its largest channel
//   value, then per channel minus (0.485, 0.456, 0.406) over
//   (0.229, 0.224, 0.225).
// - Output "1959", the network's fused map (0...1); a plain forward would
//   return a coarser side output instead. The map is resized bilinearly to
//   the bitmap's size and scaled to 0...255 (truncated).
//
// The model file is read on first use and checked against its SHA-256 before
// OpenCV parses it, so a damaged or substituted file is refused rather than
// parsed. A missing, damaged or unloadable model, or a failing forward pass,
// throws SubjectModelError with the cause in English (for the log); nothing
// is cached after a failure, so a repaired file is picked up on the next run.
//
// Thread-safe: one network per segmenter, runs take turns on it.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>

#include "session/region_masks.h"

namespace vg {

class SubjectModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class SubjectSegmenter {
 public:
  static constexpr int kInputSize = 320;
  static constexpr std::string_view kModelFileName = "u2netp.onnx";
  static constexpr std::string_view kModelSha256 =
      "309c8469258dda742793dce0ebea8e6dd393174f89934733ecc8b14c76f4ddd8";

  explicit SubjectSegmenter(std::filesystem::path modelFile);
  ~SubjectSegmenter();
  SubjectSegmenter(const SubjectSegmenter&) = delete;
  SubjectSegmenter& operator=(const SubjectSegmenter&) = delete;

  // $VERDANTGLASS_MODELS_DIR/u2netp.onnx when that variable is set, else the
  // models folder of the source tree this program was built from.
  static std::filesystem::path defaultModelFile();
  // The segmenter of the default model file, shared by the whole process
  // (a new one when the default file has changed since the last call).
  static std::shared_ptr<SubjectSegmenter> shared();

  const std::filesystem::path& modelFile() const { return file_; }

  // Loads the model now (it is loaded lazily otherwise). Throws SubjectModelError.
  void load();

  // Subject probability x 255 per pixel of `bitmap` (which must not be
  // empty). Throws SubjectModelError.
  MaskRaster probabilities(const Rgba8Bitmap& bitmap);

 private:
  struct Network;
  void loadLocked();

  std::filesystem::path file_;
  std::mutex lock_;
  std::unique_ptr<Network> network_;
};

}  // namespace vg
