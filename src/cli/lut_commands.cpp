// lut check FILE: validates a .cube file the way the LUT library does when the
// user imports one, and prints what it found.
// luts import|list|rename|remove: the LUT library of the support folder.
#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/commands.h"
#include "render/lut_loader.h"
#include "session/lut_inspection.h"
#include "store/lut_references.h"
#include "store/support_folder.h"

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

nlohmann::ordered_json describe(const LutLibrary::Entry& entry) {
  nlohmann::ordered_json out;
  out["file"] = entry.filename;
  out["name"] = entry.displayName;
  if (entry.error.empty()) {
    out["title"] = entry.title;
    out["size"] = entry.size;
  } else {
    out["error"] = entry.error;
  }
  out["bytes"] = entry.bytes;
  return out;
}

void print(Io& io, const nlohmann::ordered_json& json) {
  io.out << json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

int report(const LutLibrary::Result& result, Io& io) {
  if (!result.entry) {
    io.err << result.error << "\n";
    return kExitFailed;
  }
  print(io, describe(*result.entry));
  return kExitOk;
}

// NAME as the user gives it: the file name, or the display name without ".cube".
std::string libraryFileName(const LutLibrary& library, const std::string& name) {
  if (library.resolve(name)) return name;
  return library.resolve(name + ".cube") ? name + ".cube" : name;
}

std::string referenceCount(int count) { return std::to_string(count) + " 个编辑或预设"; }

int lutsImport(const ParsedArgs& args, Io& io) {
  return report(lutLibraryIn(supportFolder()).import(args.positionals[0]), io);
}

int lutsList(const ParsedArgs&, Io& io) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& entry : lutLibraryIn(supportFolder()).list()) list.push_back(describe(entry));
  print(io, list);
  return kExitOk;
}

int lutsRename(const ParsedArgs& args, Io& io) {
  LutLibrary library = lutLibraryIn(supportFolder());
  const std::string from = libraryFileName(library, args.positionals[0]);
  const auto result = library.rename(from, args.positionals[1]);
  if (result.entry && result.entry->filename != from) {
    const auto retargeted =
        retargetLutReferences(LutReferenceFolders::in(supportFolder()), from, result.entry->filename);
    if (retargeted.updated > 0) io.err << "已更新 " << referenceCount(retargeted.updated) << "\n";
    for (const auto& failure : retargeted.failures) io.err << "无法更新 " << failure << "\n";
  }
  return report(result, io);
}

int lutsRemove(const ParsedArgs& args, Io& io) {
  LutLibrary library = lutLibraryIn(supportFolder());
  const std::string name = libraryFileName(library, args.positionals[0]);
  const int users = countLutReferences(LutReferenceFolders::in(supportFolder()), name);
  if (!library.remove(name)) {
    io.err << "找不到该 LUT\n";
    return kExitFailed;
  }
  if (users > 0) io.err << "注意：" << referenceCount(users) << "使用了此 LUT，它们将不再应用它\n";
  return kExitOk;
}

}  // namespace

std::vector<Command> lutCommands() {
  return {
      {"luts import", "copy a .cube file into the LUT library",
       "Usage: verdantglass-cli luts import FILE\n\n"
       "Checks FILE like 'lut check' and copies it into the LUT folder of the support\n"
       "folder as <name>.cube, never replacing a file there (a taken name becomes\n"
       "<name>-2.cube, ...). Prints {\"file\", \"name\", \"title\", \"size\", \"bytes\"};\n"
       "a rejected file prints \"LUT 文件格式错误：<reason>\" on stderr and exits 1.\n",
       {},
       1,
       1,
       &lutsImport},
      {"luts list", "list the LUT library with titles and sizes",
       "Usage: verdantglass-cli luts list\n\n"
       "Prints a JSON array with one {\"file\", \"name\", \"title\", \"size\", \"bytes\"}\n"
       "per .cube file of the LUT folder, by file name; a file that is not a valid LUT\n"
       "has \"error\" (the parser's message) in place of title and size.\n",
       {},
       0,
       0,
       &lutsList},
      {"luts rename", "rename a LUT of the library",
       "Usage: verdantglass-cli luts rename NAME NEWNAME\n\n"
       "Renames library file NAME (\"look.cube\" or \"look\") to NEWNAME.cube, never\n"
       "replacing another file, and points every saved edit and preset that used\n"
       "it at the new name. Prints the renamed entry like 'luts import'.\n",
       {},
       2,
       2,
       &lutsRename},
      {"luts remove", "remove a LUT from the library",
       "Usage: verdantglass-cli luts remove NAME\n\n"
       "Deletes library file NAME (\"look.cube\" or \"look\"). When saved edits or\n"
       "presets use it, says how many on stderr: they no longer apply it.\n",
       {},
       1,
       1,
       &lutsRemove},
      Command{
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
