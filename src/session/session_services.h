// What an editor session is given and what it is built from.
//
// SessionServices: the services of the world around a session, injected so
// that tests drive it on a manual queue and fake time. The executors, clock
// and store must outlive the session and the work it started.
//
// OpenedImage and loadImageForSession(): the loader's result for one file,
// the saved recipe and the reduced source of the interactive preview. When
// `loaded.image` is null, only the reduced source has been decoded so far and
// the session decodes the full-resolution source itself, in the background.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "io/image_loader.h"
#include "model/document.h"
#include "render/cancel_token.h"
#include "render/render_engine.h"
#include "session/red_eye_detector.h"
#include "session/subject_segmenter.h"
#include "store/clock.h"
#include "store/edit_store.h"
#include "store/executor.h"

namespace vg {

// The straightening angle (degrees, the value of crop.angle) that levels the
// horizon of `previewSource` as the crop shows it, or nothing when the
// picture gives no usable horizon. Runs on the background executor.
using HorizonDetectorFn = std::function<std::optional<double>(const Image& previewSource, const CropSettings& crop,
                                                              const AsyncCancelToken* cancel)>;

// The red-eye spots on the pupils of the faces in `previewSource`, or nothing
// when cancelled (red_eye_detector.h). Runs on the background executor.
using RedEyeDetectorFn =
    std::function<std::optional<RedEyeDetectionOutcome>(const Image& previewSource, const AsyncCancelToken* cancel)>;

struct SessionServices {
  MainExecutor& main;
  Executor& background;
  const Clock& clock;
  EditStore& store;
  std::shared_ptr<RenderEngine> engine;  // may be shared by every window
  std::filesystem::path supportFolder;   // holds Presets/ and LUTs/
  HorizonDetectorFn detectHorizon = {};  // empty: the built-in detector (horizon_detector.h)
  bool persist = true;                   // false: the sidecar is never written (dry runs)
  std::shared_ptr<SubjectSegmenter> subjectSegmenter = {};  // empty: SubjectSegmenter::shared()
  RedEyeDetectorFn detectRedEyes = {};   // empty: the shared dlib detector (red_eye_detector.h)
};

struct OpenedImage {
  ImageLoader::Loaded loaded;                  // the facts; image is the full source, or null (above)
  std::shared_ptr<const Image> previewSource;  // longer side at most ImageLoader::kPreviewMaxDimension
  std::optional<EditDocument> savedRecipe;
  std::vector<ImageLoader::RAWDecoderOption> rawDecoderOptions;
};

// The saved recipe of `file` (through `store`), then the decode with the
// recipe's RAW settings and the preview source. Any thread. Throws
// ImageLoadError.
OpenedImage loadImageForSession(const std::filesystem::path& file, EditStore& store);

// A new identity for the heal cache: every distinct working source (the
// full image, a preview, each RAW re-development) needs its own.
HealSourceId nextHealSourceId();

}  // namespace vg
