// Scripted editing: the operations of `verdantglass-cli edit`, applied to an
// editor session as the window applies them (committed edits, the window's
// undo labels), and the runner that opens an image, applies a list of them in
// order and closes the session again. Tests drive sessions through it too.
//
// The operations are one table (editOps()); a new operation is a new row:
// its option name, whether it takes a value, its help line, a check of the
// value made before anything is opened (a message means bad usage), and the
// function that applies it. apply() returns false when the operation failed;
// it has said why with a toast (an operation whose background work ends with
// a warning or an error toast failed too).
//
// runEditScript(): opens the image through EditorSession::open (the saved
// recipe restored), waits for the background, applies the steps in order,
// waiting for the background after each, stops at the first failed step,
// closes the session (which writes the sidecar unless dryRun) and returns the
// final document, the undoable and redoable step labels and every toast.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "session/editor_session.h"
#include "session/headless_host.h"

namespace vg {

struct ToastRecord {
  std::string kind;  // "success", "info", "warning", "error"
  std::string text;
  bool operator==(const ToastRecord&) const = default;
};

struct EditScriptContext {
  EditorSession& session;
  std::function<void()> settle;            // waits for the session's background work
  const std::vector<ToastRecord>& toasts;  // every toast so far
};

struct EditOp {
  std::string_view name;       // the long option, without dashes
  bool takesValue = false;
  std::string_view valueName;  // shown in the help ("KEY=VALUE")
  std::string_view help;
  std::optional<std::string> (*check)(std::string_view value) = nullptr;
  bool (*apply)(EditScriptContext& context, std::string_view value) = nullptr;
};

std::span<const EditOp> editOps();
const EditOp* findEditOp(std::string_view name);

struct EditScriptStep {
  const EditOp* op = nullptr;
  std::string value;
};

struct EditScriptResult {
  std::optional<std::string> openError;  // the image could not be opened
  EditDocument document;
  std::vector<std::string> undo;  // labels of the undoable steps, oldest first
  std::vector<std::string> redo;  // labels of the redoable steps, next first
  std::vector<ToastRecord> toasts;
  std::optional<size_t> failedStep;  // index of the step that failed
  bool stored = true;                // the sidecar write (or removal) succeeded
};

struct EditScriptOptions {
  bool dryRun = false;
  std::function<void(const ToastRecord&)> onToast;  // told of each toast as it appears
};

EditScriptResult runEditScript(HeadlessHost& host, const std::filesystem::path& image,
                               const std::vector<EditScriptStep>& steps, const EditScriptOptions& options = {});

// The undo label of a change to a scalar adjustment: its field's label, or,
// for the unlabelled fields, the label of the labelled field of their group
// ("vignetteMidpoint" is named like "vignetteAmount": "暗角").
std::string adjustmentStepLabel(std::string_view key);

}  // namespace vg
