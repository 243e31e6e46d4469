// The image a command works on: IMAGE loaded upright with its recipe (--recipe
// FILE, else the saved sidecar, else the default recipe), optionally reduced.
#pragma once

#include <memory>
#include <optional>

#include "cli/command.h"
#include "io/image_loader.h"
#include "model/document.h"

namespace vg::cli {

struct PreparedImage {
  ImageLoader::Loaded loaded;
  std::shared_ptr<const Image> source;  // at the render scale
  EditDocument recipe;
  double scale = 1;
};

// Loads positional 0 and the recipe, then reduces the source by --scale (when
// the command offers it) and further to maxLongEdge. Writes the message and
// returns the exit code on failure.
std::optional<int> prepareImage(const ParsedArgs& args, Io& io, PreparedImage& p,
                                std::optional<double> maxLongEdge = {});

}  // namespace vg::cli
