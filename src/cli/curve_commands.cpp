// curve sample [FILE]: the 1024 values of a tone curve as the render engine
// samples it into its look-up image (x = i / 1023).
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/commands.h"
#include "model/json.h"
#include "render/curve_lut.h"

namespace vg::cli {
namespace {

// Points may be written as [x, y] pairs or as {"x": ..., "y": ...} objects;
// pairs become objects so the recipe's own lenient decoder reads both.
nlohmann::json pairsToObjects(nlohmann::json curve) {
  if (!curve.is_object()) return curve;
  auto it = curve.find("points");
  if (it == curve.end() || !it->is_array()) return curve;
  for (auto& p : *it) {
    if (p.is_array() && p.size() == 2) p = nlohmann::json{{"x", p[0]}, {"y", p[1]}};
  }
  return curve;
}

int curveSample(const ParsedArgs& args, Io& io) {
  std::optional<std::string> path;
  if (!args.positionals.empty()) path = args.positionals[0];
  auto text = readInputText(path, io);
  if (!text) return kExitFailed;
  nlohmann::json json = nlohmann::json::parse(*text, nullptr, false);
  const std::string name = path ? *path : "stdin";
  if (json.is_discarded()) {
    io.err << "verdantglass-cli: " << name << " is not JSON\n";
    return kExitFailed;
  }
  std::optional<ToneCurve> curve = decodeToneCurve(pairsToObjects(std::move(json)));
  if (!curve) {
    io.err << "verdantglass-cli: " << name << " is not a tone curve (expected {\"points\": [[x, y], ...]})\n";
    return kExitFailed;
  }
  nlohmann::json out = sampleCurve(*curve);
  io.out << out.dump() << "\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> curveCommands() {
  return {Command{
      "curve sample",
      "print the 1024 samples of a tone curve",
      "Usage: verdantglass-cli curve sample [FILE]\n\n"
      "Reads a tone curve as JSON ({\"points\": [[x, y], ...]}, points also as\n"
      "{\"x\": x, \"y\": y}) from FILE or stdin, decoded leniently like a recipe, and\n"
      "prints the JSON array of its values at x = i/1023, i = 0...1023: the\n"
      "monotone cubic the render engine uses, flat beyond the outermost points.\n",
      {},
      0,
      1,
      &curveSample,
  }};
}

}  // namespace vg::cli
