#include "session/session_services.h"

#include <atomic>

#include "io/image_formats.h"

namespace vg {

HealSourceId nextHealSourceId() {
  static std::atomic<HealSourceId> counter{0};
  return ++counter;
}

OpenedImage loadImageForSession(const std::filesystem::path& file, EditStore& store) {
  OpenedImage opened;
  opened.savedRecipe = store.load(file);
  const RAWDevelopSettings raw = opened.savedRecipe ? opened.savedRecipe->raw : RAWDevelopSettings{};
  // A reduced decode first where the format has one; the session decodes
  // the full source in the background. PNG and TIFF have none: their full
  // decode is made once and reduced here.
  const auto kind = imageKindForPath(file);
  const bool reducible = kind && (*kind == ImageKind::jpeg || *kind == ImageKind::heic ||
                                  *kind == ImageKind::heif || *kind == ImageKind::cameraRaw);
  if (reducible) {
    opened.loaded = ImageLoader::loadPreview(file, ImageLoader::kPreviewMaxDimension, raw);
    opened.previewSource = std::move(opened.loaded.image);
  } else {
    opened.loaded = ImageLoader::load(file, raw);
    opened.previewSource = ImageLoader::downscaled(opened.loaded.image, ImageLoader::kPreviewMaxDimension);
  }
  if (opened.loaded.isRAW) opened.rawDecoderOptions = ImageLoader::rawDecoderOptions(file);
  return opened;
}

}  // namespace vg
