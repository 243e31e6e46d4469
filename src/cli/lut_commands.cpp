// lut check FILE: validates a .cube file the way the LUT library does when the
// user imports one, and prints what it found.
#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/commands.h"
#include "render/lut_loader.h"

namespace vg::cli {
namespace {

// The float as the shortest decimal that reads back to it (0.1f prints 0.1).
double shortest(float v) {
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  double d = v;
  if (ec == std::errc()) std::from_chars(buf, end, d);
  return d;
}

nlohmann::ordered_json triple(const std::array<float, 3>& v) {
  return nlohmann::ordered_json::array({shortest(v[0]), shortest(v[1]), shortest(v[2])});
}

int lutCheck(const ParsedArgs& args, Io& io) {
  LUTResult result = LUTLoader::load(args.positionals[0]);
  if (const auto* error = std::get_if<LUTError>(&result)) {
    io.err << error->description() << "\n";
    return kExitFailed;
  }
  const auto& lut = std::get<ParsedLUT>(result);
  nlohmann::ordered_json out;
  out["title"] = lut.title;
  out["size"] = lut.size;
  out["domainMin"] = triple(lut.domainMin);
  out["domainMax"] = triple(lut.domainMax);
  io.out << out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> lutCommands() {
  return {Command{
      "lut check",
      "validate a .cube 3D LUT file",
      "Usage: verdantglass-cli lut check FILE\n\n"
      "Reads FILE as a .cube 3D colour look-up table with the same rules as the\n"
      "LUT library (size 2...128, DOMAIN_MIN/DOMAIN_MAX, at most 256 MB) and prints\n"
      "{\"title\", \"size\", \"domainMin\", \"domainMax\"} as JSON on stdout.\n"
      "A rejected file prints \"LUT 文件格式错误：<reason>\" on stderr and exits 1.\n",
      {},
      1,
      1,
      &lutCheck,
  }};
}

}  // namespace vg::cli
