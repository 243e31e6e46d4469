// FilterPreset: a named look — a set of global adjustments and optionally a
// LUT — and the rules for laying it over a recipe at a strength.
//
// Applying a preset to a document at strength p (percent):
//   base   = the document's preFilterAdjustments when a filter is already
//            applied (re-applying blends from the manual state again), else
//            its adjustments;
//   target = base with the preset's look laid over it: every scalar slider
//            the preset moves away from its default, each non-identity curve,
//            each HSL band the preset changes, its split toning when it has
//            any, and its monochrome mix when it is black and white. Sliders
//            the preset leaves at default keep the photographer's values, so a
//            warm look does not undo a manual exposure;
//   adjustments = interpolate(base, target, p / 100)
// and the document records filterID, filterStrength = p and
// preFilterAdjustments = base. A preset with a LUT sets the document's LUT
// with its strength scaled by p / 100. Removing the filter restores
// preFilterAdjustments and drops the preset's LUT.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "model/adjustments.h"
#include "model/document.h"

namespace vg {

struct FilterPreset {
  std::string id;    // stable: built-in ids are fixed words, user ids "user-<UUID>"
  std::string name;  // shown to the user
  GlobalAdjustments adjustments;
  std::optional<AppliedLUT> lut;
  bool operator==(const FilterPreset&) const = default;
};

// The built-in looks, in menu order. Built once; ids never change.
std::span<const FilterPreset> builtInPresets();
const FilterPreset* findBuiltInPreset(std::string_view id);

// `base` with the preset's look laid over it (the target of the blend above).
GlobalAdjustments layPresetOver(const GlobalAdjustments& base, const GlobalAdjustments& look);

// Applies `preset` to `doc` at `strengthPercent` (clamped to 0...100).
EditDocument applyPreset(const EditDocument& doc, const FilterPreset& preset,
                         double strengthPercent);

// Removes an applied filter: the manual adjustments come back and the
// preset's LUT (if it set one) goes. A document without a filter is returned
// unchanged.
EditDocument removePreset(const EditDocument& doc, const FilterPreset* appliedPreset);

}  // namespace vg
