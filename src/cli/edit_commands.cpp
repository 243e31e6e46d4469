// verdantglass-cli edit: the editor session without a window. Opens an image
// as the window does, applies the operations in command-line order as
// committed edits with the window's undo labels, waits for background work,
// closes the session (the sidecar is written unless --dry-run) and prints
// the final recipe, or with --report the recipe, the undo and redo labels and
// the toasts. Toasts also go to stderr as "<kind>: <text>" as they appear.
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/commands.h"
#include "model/json.h"
#include "session/edit_script.h"
#include "store/support_folder.h"

namespace vg::cli {
namespace {

int runEdit(const ParsedArgs& args, Io& io) {
  std::vector<EditScriptStep> steps;
  for (const auto& [name, value] : args.ordered()) {
    const EditOp* op = findEditOp(name);
    if (!op) continue;  // --dry-run, --report
    if (op->check) {
      if (auto problem = op->check(value)) {
        io.err << "verdantglass-cli: " << *problem << "\nTry 'verdantglass-cli edit --help'.\n";
        return kExitUsage;
      }
    }
    steps.push_back({op, value});
  }

  HeadlessHost host(supportFolder());
  EditScriptOptions options;
  options.dryRun = args.has("dry-run");
  options.onToast = [&](const ToastRecord& t) { io.err << t.kind << ": " << t.text << "\n"; };
  const EditScriptResult result = runEditScript(host, args.positionals.at(0), steps, options);
  if (result.openError) {
    io.err << "verdantglass-cli: " << *result.openError << "\n";
    return kExitFailed;
  }

  if (args.has("report")) {
    nlohmann::ordered_json report;
    report["document"] = toJson(result.document);
    report["undo"] = result.undo;
    report["redo"] = result.redo;
    report["toasts"] = nlohmann::ordered_json::array();
    for (const ToastRecord& t : result.toasts) report["toasts"].push_back({{"kind", t.kind}, {"text", t.text}});
    io.out << dumpCompact(report) << "\n";
  } else {
    io.out << encodeEditDocument(result.document) << "\n";
  }
  if (!result.stored) {
    io.err << "verdantglass-cli: the recipe could not be saved\n";
    return kExitFailed;
  }
  return result.failedStep ? kExitFailed : kExitOk;
}

std::string editHelp() {
  std::string help =
      "Usage: verdantglass-cli edit IMAGE [OPS...] [--dry-run] [--report]\n"
      "\n"
      "Opens IMAGE as the editor window does (its saved recipe restored), applies\n"
      "OPS in the order given as committed edits with the window's undo labels,\n"
      "waits for background work, saves the recipe to IMAGE's sidecar and prints\n"
      "it. Toasts are printed on stderr as \"<kind>: <text>\". The first operation\n"
      "that fails ends the script with its toast and exit status 1; the edits made\n"
      "before it are kept. IMAGE itself is never written.\n"
      "\n"
      "Operations:\n";
  for (const EditOp& op : editOps()) {
    std::string left = "  --";
    left += op.name;
    if (op.takesValue) (left += ' ') += op.valueName;
    left.resize(std::max<size_t>(left.size() + 2, 30), ' ');
    help += left + std::string(op.help) + "\n";
  }
  help +=
      "\n"
      "  --dry-run                   apply and print, but write no sidecar\n"
      "  --report                    print {\"document\", \"undo\", \"redo\", \"toasts\"} instead\n";
  return help;
}

}  // namespace

std::vector<Command> editCommands() {
  static const std::string help = editHelp();
  std::vector<OptionSpec> options = {{"dry-run", 0, false}, {"report", 0, false}};
  for (const EditOp& op : editOps()) options.push_back({op.name, 0, op.takesValue});
  return {
      {"edit", "apply editing operations to an image's recipe, as the editor window does", help, std::move(options),
       1, 1, runEdit},
  };
}

}  // namespace vg::cli
