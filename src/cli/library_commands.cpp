// verdantglass-cli library backup|restore: the whole library of the support
// folder (saved edits, user presets, imported LUTs) to and from one archive.
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "session/lut_inspection.h"
#include "store/library_backup.h"
#include "store/library_restore.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

void print(Io& io, const nlohmann::ordered_json& json) {
  io.out << json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

int runBackup(const ParsedArgs& args, Io& io) {
  const BackupResult result = backupLibrary(supportFolder(), args.positionals[0]);
  if (!result.summary) {
    io.err << result.error << "\n";
    return kExitFailed;
  }
  const BackupSummary& s = *result.summary;
  print(io, {{"edits", s.edits}, {"presets", s.presets}, {"luts", s.luts}, {"bytes", s.archiveBytes}});
  io.err << s.text() << "\n";
  return kExitOk;
}

int runRestore(const ParsedArgs& args, Io& io) {
  RestoreOptions options;
  options.replaceNewer = args.has("replace-newer");
  options.lutCheck = &checkLutFile;
  const RestoreResult result = restoreLibrary(args.positionals[0], supportFolder(), options);
  if (!result.summary) {
    io.err << result.error << "\n";
    return kExitFailed;
  }
  const RestoreSummary& s = *result.summary;
  nlohmann::ordered_json skipped = nlohmann::ordered_json::array();
  for (const auto& entry : s.skipped) skipped.push_back({{"entry", entry.entry}, {"reason", entry.reason}});
  print(io, {{"added", s.added},
             {"updated", s.updated},
             {"kept", s.kept},
             {"unchanged", s.unchanged},
             {"skipped", skipped}});
  io.err << s.text() << "\n";
  if (!s.kept.empty() && !options.replaceNewer) {
    io.err << "本地较新的文件已保留；要用备份中的版本替换它们，请加 --replace-newer\n";
  }
  return kExitOk;
}

}  // namespace

std::vector<Command> libraryCommands() {
  return {
      {"library backup", "back up saved edits, presets and LUTs into one archive",
       "Usage: verdantglass-cli library backup OUT\n"
       "\n"
       "Writes the library of the support folder (the saved edits of Edits/, the\n"
       "user presets of Presets/ and the LUTs of LUTs/) into the ZIP archive OUT,\n"
       "replacing OUT in one step when the archive is complete. Prints\n"
       "{\"edits\", \"presets\", \"luts\", \"bytes\"}; the summary goes to stderr.\n",
       {},
       1,
       1,
       runBackup},
      {"library restore", "restore saved edits, presets and LUTs from a backup",
       "Usage: verdantglass-cli library restore ARCHIVE [--replace-newer]\n"
       "\n"
       "Restores a backup made by 'library backup' into the support folder. Only\n"
       "library files are taken; an archive with unsafe entries (absolute paths,\n"
       "\"..\", links, devices, oversized or too many entries) is refused as a whole\n"
       "and nothing changes. A local file that is newer than the backup's copy is\n"
       "kept unless --replace-newer is given. Prints {\"added\", \"updated\", \"kept\",\n"
       "\"unchanged\", \"skipped\"}; the summary goes to stderr.\n"
       "\n"
       "Options:\n"
       "  --replace-newer   replace local files even when they are newer\n",
       {{"replace-newer", 0, false}},
       1,
       1,
       runRestore},
  };
}

}  // namespace vg::cli
