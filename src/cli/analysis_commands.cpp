// verdantglass-cli straighten, auto stats, auto adjust, redeye: the one-click
// analyses on a file, printing what the editor would store, so scripts and
// the window get the same answers.
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/image_input.h"
#include "model/json.h"
#include "session/auto_adjust.h"
#include "session/horizon_detector.h"
#include "session/red_eye_detector.h"

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

int runAutoStats(const ParsedArgs& args, Io& io) {
  PreparedImage p;
  if (auto code = prepareImage(args, io, p, ImageLoader::kPreviewMaxDimension)) return *code;
  std::optional<AutoAdjust::ImageStats> stats = AutoAdjust::analyzeShown(*p.source, p.recipe);
  if (!stats) {
    io.err << "自动调整失败：无法分析图像\n";
    return kExitFailed;
  }
  io.out << AutoAdjust::toJson(*stats).dump() << "\n";
  return kExitOk;
}

std::string modeKeys() {
  std::string keys;
  for (const AutoModeInfo& m : autoModes()) keys += (keys.empty() ? "" : ", ") + std::string(m.key);
  return keys;
}

int runAutoAdjust(const ParsedArgs& args, Io& io) {
  const std::string modeKey = args.value("mode").value_or("");
  std::optional<AutoMode> mode = autoModeFromKey(modeKey);
  if (!mode) {
    io.err << "verdantglass-cli: --mode must be one of " << modeKeys() << (modeKey.empty() ? "" : ", got '" + modeKey + "'")
           << "\n";
    return kExitUsage;
  }
  if (!args.has("stats")) {
    io.err << "verdantglass-cli: --stats FILE is required\n";
    return kExitUsage;
  }
  std::optional<std::string> text = readInputText(args.value("stats"), io);
  if (!text) return kExitFailed;
  nlohmann::json value = nlohmann::json::parse(*text, nullptr, false);
  std::string error = "not JSON";
  std::optional<AutoAdjust::ImageStats> stats = value.is_discarded() ? std::nullopt : AutoAdjust::statsFromJson(value, &error);
  if (!stats) {
    io.err << "verdantglass-cli: " << *args.value("stats") << ": " << error << "\n";
    return kExitFailed;
  }
  io.out << toJson(AutoAdjust::adjustments(*stats, *mode)).dump() << "\n";
  return kExitOk;
}

int runRedEye(const ParsedArgs& args, Io& io) {
  PreparedImage p;
  if (auto code = prepareImage(args, io, p, ImageLoader::kPreviewMaxDimension)) return *code;
  std::optional<RedEyeDetectionOutcome> outcome = RedEyeDetector::shared().detect(*p.source);
  if (!outcome || outcome->spots.empty()) {
    io.err << (outcome && outcome->message ? *outcome->message : std::string(RedEyeDetector::kNoFaceText)) << "\n";
    return kExitFailed;
  }
  nlohmann::ordered_json spots = nlohmann::ordered_json::array();
  for (const RedEyeSpot& s : outcome->spots) {
    nlohmann::ordered_json spot;
    spot["center"] = {s.center.x, s.center.y};
    spot["radius"] = s.radius;
    spots.push_back(spot);
  }
  nlohmann::ordered_json j;
  j["spots"] = spots;
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
      {"auto stats", "the measurements automatic adjustment starts from",
       "usage: verdantglass-cli auto stats IMAGE [--recipe F]\n"
       "\n"
       "Measures IMAGE as its recipe frames it (crop, turns, straightening; not its\n"
       "adjustments) the way automatic adjustment does and prints the statistics as\n"
       "JSON: meanLuminance, medianLuminance, p2Luminance, p98Luminance, p10Luminance,\n"
       "p90Luminance, stdDevLuminance, meanSaturation, highlightRatio, shadowRatio,\n"
       "darkChannelMean, meanR, meanG, meanB, noiseEnergy (all 0...1, sRGB-encoded).\n"
       "Without --recipe the image's saved recipe is used. When the picture cannot be\n"
       "measured it prints 自动调整失败：无法分析图像 and exits 1.\n",
       {{"recipe", 0, true}},
       1,
       1,
       runAutoStats},
      {"auto adjust", "the global adjustments of one automatic style",
       "usage: verdantglass-cli auto adjust --stats FILE --mode MODE\n"
       "\n"
       "Maps statistics (as printed by 'auto stats'; FILE '-' reads stdin) to the\n"
       "global adjustments of style MODE and prints them as a recipe's \"adjustments\"\n"
       "object. MODE: balanced (均衡), portrait (人像), landscape (风光), nightScene\n"
       "(夜景), highKey (高调), lowKey (低调), vivid (鲜艳) or bw (黑白); any other\n"
       "exits 2. Every statistic must be present as a finite number.\n",
       {{"stats", 0, true}, {"mode", 0, true}},
       0,
       0,
       runAutoAdjust},
      {"redeye", "red-eye spots on the pupils of the faces in an image",
       "usage: verdantglass-cli redeye IMAGE\n"
       "\n"
       "Finds the faces of IMAGE (reduced to at most 1200 pixels) and their pupils,\n"
       "and prints {\"spots\":[{\"center\":[x,y],\"radius\":r},...]} in recipe units:\n"
       "centres normalised to the upright image, radii to its shorter side. With no\n"
       "face it prints 未检测到人脸/红眼，可尝试手动模式 and exits 1; when the landmark\n"
       "model cannot be read (VERDANTGLASS_FACE_MODEL, else Debian's libdlib-data\n"
       "file) it prints 检测失败： and the cause, and exits 1.\n",
       {},
       1,
       1,
       runRedEye},
  };
}

}  // namespace vg::cli
