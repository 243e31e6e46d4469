// The preset file reader on arbitrary bytes, read as the text of the file
// user-<kId>.json. A preset it returns must
// - carry exactly that id and a non-empty name;
// - keep the recipe decoder's invariants in its adjustments, and a LUT
//   reference that is a bare file name at a strength in 0...100;
// - come back unchanged from encode -> decode (the file the library writes
//   reads as the same preset);
// - lay over an unedited recipe at any strength without leaving the ranges,
//   and come off again leaving the recipe as it was.
#include <cstdint>
#include <string_view>

#include "model/json.h"
#include "store/filter_preset.h"
#include "store/preset_library.h"

#include "adjustment_checks.h"
#include "fuzz_check.h"

using vg::fuzz::check;
using vg::fuzz::checkAdjustments;

namespace {
constexpr std::string_view kId = "user-0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto preset = vg::PresetLibrary::decode(text, kId);
  if (!preset) return 0;

  check(preset->id == kId, "the id is the file's");
  check(!preset->name.empty(), "a preset has a name");
  checkAdjustments(preset->adjustments);
  if (preset->lut) {
    check(preset->lut->filename == vg::bareLUTFileName(preset->lut->filename), "LUT file name is bare");
    check(preset->lut->strength >= 0 && preset->lut->strength <= 100, "LUT strength in range");
  }

  const auto again = vg::PresetLibrary::decode(vg::PresetLibrary::encode(*preset), kId);
  check(again.has_value() && *again == *preset, "encode -> decode gives the preset back");

  const vg::EditDocument unedited;
  for (double strength : {0.0, 37.0, 100.0}) {
    const vg::EditDocument applied = vg::applyPreset(unedited, *preset, strength);
    checkAdjustments(applied.adjustments);
    check(applied.filterID == preset->id && applied.filterStrength == strength, "the filter is recorded");
    check(vg::removePreset(applied, &*preset) == unedited, "removing the preset restores the recipe");
  }
  return 0;
}
