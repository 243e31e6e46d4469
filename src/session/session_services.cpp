#include "session/session_services.h"

#include <atomic>

namespace vg {

HealSourceId nextHealSourceId() {
  static std::atomic<HealSourceId> counter{0};
  return ++counter;
}

OpenedImage loadImageForSession(const std::filesystem::path& file, EditStore& store) {
  OpenedImage opened;
  opened.savedRecipe = store.load(file);
  const RAWDevelopSettings raw = opened.savedRecipe ? opened.savedRecipe->raw : RAWDevelopSettings{};
  opened.loaded = ImageLoader::load(file, raw);
  opened.previewSource = ImageLoader::downscaled(opened.loaded.image, ImageLoader::kPreviewMaxDimension);
  if (opened.loaded.isRAW) opened.rawDecoderOptions = ImageLoader::rawDecoderOptions(file);
  return opened;
}

}  // namespace vg
