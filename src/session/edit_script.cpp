#include "session/edit_script.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "model/json.h"
#include "session/auto_mode.h"
#include "session/lut_inspection.h"

namespace vg {

namespace {

// ---- Value parsing -------------------------------------------------------------------

std::optional<double> parseNumber(std::string_view text) {
  double v = 0;
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, v);
  if (text.empty() || ec != std::errc() || ptr != end || !std::isfinite(v)) return std::nullopt;
  return v;
}

// "NAME[:NUMBER]": the name, and the number after the last colon when that
// part is one (a colon followed by something else belongs to the name).
std::pair<std::string, std::optional<double>> splitStrength(std::string_view value) {
  const auto colon = value.rfind(':');
  if (colon != std::string_view::npos) {
    if (auto strength = parseNumber(value.substr(colon + 1)))
      return {std::string(value.substr(0, colon)), strength};
  }
  return {std::string(value), std::nullopt};
}

std::optional<std::string> readText(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return text.str();
}

bool failWith(EditScriptContext& c, std::string message, ToastMessage::Kind kind = ToastMessage::Kind::error) {
  c.session.showToast(std::move(message), kind);
  return false;
}

// Waits for the background and tells whether it ended without a warning or
// an error toast since `before` toasts.
bool settledCleanly(EditScriptContext& c, size_t before) {
  c.settle();
  return std::none_of(c.toasts.begin() + std::ptrdiff_t(std::min(before, c.toasts.size())), c.toasts.end(),
                      [](const ToastRecord& t) { return t.kind == "warning" || t.kind == "error"; });
}

// ---- Checks ------------------------------------------------------------------------------

std::optional<std::string> checkSet(std::string_view value) {
  const auto eq = value.find('=');
  if (eq == std::string_view::npos) return "--set needs KEY=VALUE, got '" + std::string(value) + "'";
  const std::string_view key = value.substr(0, eq);
  if (!findScalarField(key)) return "unknown adjustment key '" + std::string(key) + "'";
  if (!parseNumber(value.substr(eq + 1)))
    return "--set " + std::string(key) + " needs a number, got '" + std::string(value.substr(eq + 1)) + "'";
  return std::nullopt;
}

std::optional<std::string> checkRotate(std::string_view value) {
  if (value == "cw" || value == "ccw") return std::nullopt;
  return "--rotate takes cw or ccw, got '" + std::string(value) + "'";
}

std::optional<std::string> checkNumber(std::string_view value) {
  if (parseNumber(value)) return std::nullopt;
  return "expected a number, got '" + std::string(value) + "'";
}

std::optional<std::string> checkPoint(std::string_view value) {
  const auto comma = value.find(',');
  if (comma != std::string_view::npos && parseNumber(value.substr(0, comma)) && parseNumber(value.substr(comma + 1)))
    return std::nullopt;
  return "expected X,Y (normalised, y from the top), got '" + std::string(value) + "'";
}

std::optional<std::string> checkNamed(std::string_view value) {
  auto [name, strength] = splitStrength(value);
  if (name.empty()) return "expected NAME[:STRENGTH], got '" + std::string(value) + "'";
  if (strength && (*strength < 0 || *strength > 100)) return "a strength lies in 0...100, got '" + std::string(value) + "'";
  return std::nullopt;
}

std::optional<std::string> checkAutoMode(std::string_view value) {
  if (autoModeFromKey(value)) return std::nullopt;
  std::string keys;
  for (const AutoModeInfo& m : autoModes()) keys += (keys.empty() ? "" : ", ") + std::string(m.key);
  return "--auto takes one of " + keys + ", got '" + std::string(value) + "'";
}

std::optional<std::string> checkNonEmpty(std::string_view value) {
  if (!value.empty()) return std::nullopt;
  return "expected a file";
}

// ---- The operations ------------------------------------------------------------------------

bool applyRecipeFile(EditScriptContext& c, std::string_view value) {
  const std::filesystem::path file(value);
  auto text = readText(file);
  auto doc = text ? decodeEditDocument(*text) : std::nullopt;
  if (!doc) return failWith(c, "无法读取配方 " + file.filename().string());
  c.session.applyRecipe(std::move(*doc));
  return true;
}

bool applySet(EditScriptContext& c, std::string_view value) {
  const auto eq = value.find('=');
  const std::string key(value.substr(0, eq));
  const ScalarField* field = findScalarField(key);
  const double v = std::clamp(*parseNumber(value.substr(eq + 1)), field->min, field->max);
  c.session.applyEdit(adjustmentStepLabel(key), [&](EditDocument& doc) { doc.adjustments.*(field->member) = v; });
  return true;
}

bool applyRotate(EditScriptContext& c, std::string_view value) {
  c.session.rotate90(value == "cw");
  return true;
}

bool applyAngle(EditScriptContext& c, std::string_view value) {
  c.session.setStraightenAngle(*parseNumber(value));
  c.session.recordStep("拉直");
  return true;
}

bool applyStraighten(EditScriptContext& c, std::string_view) {
  const size_t before = c.toasts.size();
  c.session.autoStraighten();
  return settledCleanly(c, before);
}

bool applyAutoAdjust(EditScriptContext& c, std::string_view value) {
  const size_t before = c.toasts.size();
  c.session.autoAdjust(*autoModeFromKey(value));
  return settledCleanly(c, before);
}

bool applyRedEyes(EditScriptContext& c, std::string_view) {
  const size_t before = c.toasts.size();
  c.session.detectRedEyes();
  return settledCleanly(c, before);
}

bool applySampleWhiteBalance(EditScriptContext& c, std::string_view value) {
  const auto comma = value.find(',');
  const PointF at{*parseNumber(value.substr(0, comma)), *parseNumber(value.substr(comma + 1))};
  c.session.armSampling({SamplingMode::Kind::whiteBalance, std::nullopt});
  const bool applied = c.session.sampleAt(at) == EditorSession::SampleOutcome::applied;
  c.session.disarmSampling();
  return applied;
}

bool applyPresetOp(EditScriptContext& c, std::string_view value) {
  auto [id, strength] = splitStrength(value);
  const auto preset = c.session.findPreset(id);
  if (!preset) return failWith(c, "找不到该预设：" + id);
  c.session.applyFilterPreset(*preset, strength.value_or(100));
  return true;
}

bool applyLUTOp(EditScriptContext& c, std::string_view value) {
  auto [file, strength] = splitStrength(value);
  LutLibrary library(c.session.lutFolder(), lutInspector());
  // A name of the LUT folder is used as it is; any other file is imported first.
  std::string filename = file;
  if (file.find('/') != std::string::npos || !library.resolve(file)) {
    LutLibrary::Result imported = library.import(file);
    if (!imported.entry) return failWith(c, imported.error);
    filename = imported.entry->filename;
  }
  const std::string displayName = std::filesystem::path(filename).stem().string();
  c.session.applyLUT(AppliedLUT{filename, displayName, strength.value_or(100)});
  return true;
}

bool applyPasteAdjustments(EditScriptContext& c, std::string_view value) {
  const std::filesystem::path file(value);
  std::optional<GlobalAdjustments> adjustments;
  if (auto text = readText(file)) {
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    // A whole recipe gives its adjustments; anything else is read as adjustments.
    const bool recipe = json.is_object() && json.contains("adjustments");
    if (!json.is_discarded()) adjustments = decodeGlobalAdjustments(recipe ? json["adjustments"] : json);
  }
  if (!adjustments) return failWith(c, "无法读取调整参数 " + file.filename().string());
  c.session.pasteAdjustments(*adjustments);
  return true;
}

bool applyUndo(EditScriptContext& c, std::string_view) {
  return c.session.undo() || failWith(c, "没有可撤销的步骤", ToastMessage::Kind::warning);
}

bool applyRedo(EditScriptContext& c, std::string_view) {
  return c.session.redo() || failWith(c, "没有可重做的步骤", ToastMessage::Kind::warning);
}

bool applyReset(EditScriptContext& c, std::string_view) {
  c.session.resetAll();
  return true;
}

// ---- Automatic masks ----------------------------------------------------------------------

std::optional<AutoMaskSource> automaskKind(std::string_view value) {
  const auto kind = autoMaskSourceFromName(value);
  if (!kind || *kind == AutoMaskSource::magicWand) return std::nullopt;
  return kind;
}

std::optional<std::string> checkAutomask(std::string_view value) {
  if (automaskKind(value)) return std::nullopt;
  return "--automask takes subject, sky or background, got '" + std::string(value) + "'";
}

bool applyAutomask(EditScriptContext& c, std::string_view value) {
  const size_t before = c.toasts.size();
  c.session.generateAutoMask(*automaskKind(value));
  return settledCleanly(c, before);
}

struct WandClick {
  PointF at;
  std::optional<double> tolerance;
  std::optional<int> feather;
};

// "X,Y[:TOLERANCE[:FEATHER]]", the point normalised (y from the top).
std::optional<WandClick> parseWand(std::string_view value) {
  std::vector<std::string_view> parts;
  for (size_t start = 0;;) {
    const size_t colon = value.find(':', start);
    parts.push_back(value.substr(start, colon - start));
    if (colon == std::string_view::npos) break;
    start = colon + 1;
  }
  if (parts.size() > 3) return std::nullopt;
  const size_t comma = parts[0].find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  const auto x = parseNumber(parts[0].substr(0, comma)), y = parseNumber(parts[0].substr(comma + 1));
  if (!x || !y || *x < 0 || *x > 1 || *y < 0 || *y > 1) return std::nullopt;
  WandClick click{{*x, *y}, std::nullopt, std::nullopt};
  if (parts.size() > 1) {
    click.tolerance = parseNumber(parts[1]);
    if (!click.tolerance || *click.tolerance < 0 || *click.tolerance > 100) return std::nullopt;
  }
  if (parts.size() > 2) {
    const auto f = parseNumber(parts[2]);
    if (!f || *f < 0 || *f > MagicWandSettings::kMaxFeather || *f != std::floor(*f)) return std::nullopt;
    click.feather = int(*f);
  }
  return click;
}

std::optional<std::string> checkWand(std::string_view value) {
  if (parseWand(value)) return std::nullopt;
  return "--wand takes X,Y[:TOLERANCE[:FEATHER]] (X, Y in 0...1, tolerance 0...100, feather 0..." +
         std::to_string(MagicWandSettings::kMaxFeather) + " whole pixels), got '" + std::string(value) + "'";
}

bool applyWand(EditScriptContext& c, std::string_view value) {
  const WandClick click = *parseWand(value);
  EditorSession& s = c.session;
  s.setMagicWand(true, click.tolerance.value_or(s.magicWandTolerance()), click.feather.value_or(s.magicWandFeather()));
  const size_t before = c.toasts.size();
  if (!s.magicWandClick(click.at)) return failWith(c, std::string(autoMaskFailureText(AutoMaskSource::magicWand)));
  return settledCleanly(c, before);
}

constexpr EditOp kOps[] = {
    {"recipe", true, "FILE", "replace the recipe by the one in FILE", checkNonEmpty, applyRecipeFile},
    {"set", true, "KEY=VALUE", "set a numeric global adjustment by its JSON key (clamped to its range)", checkSet,
     applySet},
    {"rotate", true, "cw|ccw", "turn the picture by 90 degrees", checkRotate, applyRotate},
    {"angle", true, "DEG", "straighten by DEG degrees (-45...45); the crop is refitted", checkNumber, applyAngle},
    {"straighten", false, "", "level the horizon automatically", nullptr, applyStraighten},
    {"auto", true, "MODE", "automatic adjustment: balanced, portrait, landscape, nightScene, highKey, lowKey, vivid or bw",
     checkAutoMode, applyAutoAdjust},
    {"redeye", false, "", "find the faces' pupils and add red-eye spots", nullptr, applyRedEyes},
    {"sample-wb", true, "X,Y", "white balance from the pixel at X,Y (normalised, y from the top)", checkPoint,
     applySampleWhiteBalance},
    {"preset", true, "ID[:STRENGTH]", "apply a filter preset at STRENGTH percent (default 100)", checkNamed,
     applyPresetOp},
    {"lut", true, "FILE[:STRENGTH]", "apply a .cube LUT (imported into the LUT folder) at STRENGTH percent",
     checkNamed, applyLUTOp},
    {"paste-adjustments", true, "FILE", "paste the global adjustments of FILE (a recipe or adjustments)",
     checkNonEmpty, applyPasteAdjustments},
    {"undo", false, "", "undo the last step", nullptr, applyUndo},
    {"redo", false, "", "redo the step undone last", nullptr, applyRedo},
    {"reset", false, "", "reset every adjustment, mask, crop and heal", nullptr, applyReset},
    {"automask", true, "subject|sky|background", "add an automatic mask of the main subject, the sky or the background",
     checkAutomask, applyAutomask},
    {"wand", true, "X,Y[:TOL[:FEATHER]]",
     "add a magic-wand selection grown from X,Y (normalised, y from the top) with a colour tolerance of TOL "
     "percent and FEATHER pixels of softening (the wand's settings when left out)",
     checkWand, applyWand},
};

}  // namespace

std::span<const EditOp> editOps() { return kOps; }

const EditOp* findEditOp(std::string_view name) {
  for (const EditOp& op : kOps)
    if (op.name == name) return &op;
  return nullptr;
}

std::string adjustmentStepLabel(std::string_view key) {
  if (auto label = labelForKey(key)) return std::string(*label);
  // The group is the key's lower-case stem: "vignette" of "vignetteMidpoint".
  const auto stem = key.substr(0, size_t(std::find_if(key.begin(), key.end(), ::isupper) - key.begin()));
  for (const ScalarField& f : labelledFields())
    if (f.key.substr(0, stem.size()) == stem) return std::string(f.label);
  return std::string(key);
}

EditScriptResult runEditScript(HeadlessHost& host, const std::filesystem::path& image,
                               const std::vector<EditScriptStep>& steps, const EditScriptOptions& options) {
  EditScriptResult result;
  std::unique_ptr<EditorSession> session;
  EditorSession::open(image, host.services(!options.dryRun),
                      [&](std::unique_ptr<EditorSession> opened, std::optional<std::string> error) {
                        session = std::move(opened);
                        result.openError = std::move(error);
                      });
  host.settle();
  if (!session) {
    if (!result.openError) result.openError = "cannot open " + image.string();
    return result;
  }

  std::optional<Uuid> lastToast;
  session->addObserver([&](EditorSession::Change change) {
    const auto& toast = session->toast();
    if (change != EditorSession::Change::toast || !toast || toast->id == lastToast) return;
    lastToast = toast->id;
    result.toasts.push_back({std::string(toastKindName(toast->kind)), toast->text});
    if (options.onToast) options.onToast(result.toasts.back());
  });
  host.settle();

  EditScriptContext context{*session, [&] { host.settle(); }, result.toasts};
  for (size_t i = 0; i < steps.size(); ++i) {
    const bool ok = steps[i].op->apply(context, steps[i].value);
    host.settle();
    if (!ok) {
      result.failedStep = i;
      break;
    }
  }

  result.stored = session->close();
  result.document = session->document();
  const auto& entries = session->history().entries();
  const int64_t current = session->history().currentIndex();
  for (int64_t k = 1; k < int64_t(entries.size()); ++k) {
    (k <= current ? result.undo : result.redo).push_back(entries[size_t(k)].label);
  }
  session.reset();
  host.settle();
  return result;
}

}  // namespace vg
