// Recipes and user presets name their LUT by its file name in the LUT
// folder ("lut": {"filename": ...}). These functions find and follow those
// references when a library file is renamed or about to be removed.
//
// Both look at every sidecar of the edits folder and every preset file of
// the presets folder (only files whose names follow those folders' patterns)
// that parses as a JSON object. retargetLutReferences() rewrites each file
// that names `from` so that it names `to`, changing nothing else in it, one
// atomic write per file; a file that cannot be rewritten is reported and
// left as it was.
//
// An editor window holding one of those recipes in memory still names the
// old file; its next save writes that name back.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vg {

struct LutReferenceFolders {
  std::filesystem::path edits;
  std::filesystem::path presets;

  // <support folder>/Edits and <support folder>/Presets.
  static LutReferenceFolders in(const std::filesystem::path& supportFolder);
};

// How many recipes and presets use the LUT file `filename`.
int countLutReferences(const LutReferenceFolders& folders, std::string_view filename);

struct RetargetResult {
  int updated = 0;
  std::vector<std::string> failures;  // "<file name>: <reason>"
};
RetargetResult retargetLutReferences(const LutReferenceFolders& folders, std::string_view from,
                                     std::string_view to);

}  // namespace vg
