// verdantglass-cli straighten: the one-click analyses on a file, printing what
// the editor would store, so scripts and the window get the same answers.
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/image_input.h"
#include "session/horizon_detector.h"

namespace vg::cli {
namespace {

int runStraighten(const ParsedArgs& args, Io& io) {
  PreparedImage p;
  if (auto code = prepareImage(args, io, p, ImageLoader::kPreviewMaxDimension)) return *code;
  std::optional<double> angle = detectHorizonAngle(*p.source, p.recipe.crop);
  if (!angle) {
    io.err << "未检测到可用的地平线\n";
    return kExitFailed;
  }
  nlohmann::ordered_json j;
  j["angle"] = *angle;
  io.out << j.dump() << "\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> analysisCommands() {
  return {
      {"straighten", "the straightening angle that levels the horizon",
       "usage: verdantglass-cli straighten IMAGE [--recipe F]\n"
       "\n"
       "Looks for the dominant near-horizontal line of IMAGE as its recipe shows it\n"
       "(quarter turns and flips applied; the preview, long edge at most 2400) and\n"
       "prints {\"angle\": degrees}, the value to store in the recipe's crop.angle to\n"
       "level it. Without --recipe the image's saved recipe is used. When the picture\n"
       "has no usable horizon it prints 未检测到可用的地平线 and exits 1.\n",
       {{"recipe", 0, true}},
       1,
       1,
       runStraighten},
  };
}

}  // namespace vg::cli
