// BatchEngine: develops every supported image of one folder with the same
// recipe rules and writes the results to an output folder. Stateless: the
// observable state of a run lives in BatchModel (batch_model.h).
//
// Names. The suffix is sanitised by replacing each of / \ : ? % * | " < >
// with "-" (an empty result becomes "-已编辑"); an output is
//   outputFolder / (source name without extension + suffix + "." + ext)
// with ext "jpg", "heic", "png" or "tiff" by format.
//
// Scan. The folder's direct children that are regular files with a supported
// image extension, minus those whose base name already ends with the
// sanitised suffix (earlier outputs, so re-running over a folder that is also
// the output folder never processes its own results); hidden files are kept.
// Sorted by file name in code-point order (stable). Cancellation is checked
// between entries; a cancelled scan returns nothing.
//
// Planning. Output names are compared case-insensitively on the standardised
// path: the first source keeps a name, each later one fails with
// "<file>：输出文件名与其他图片冲突".
//
// Workers: one when the largest image (by its header) has more than
// 50,000,000 pixels, otherwise two.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "io/export_options.h"
#include "store/filter_preset.h"

namespace vg {

class EditStore;
class RenderEngine;

// A failure of the batch itself (not of one file): domain "Verdantglass.Batch".
class BatchError : public std::runtime_error {
 public:
  static constexpr std::string_view kDomain = "Verdantglass.Batch";
  BatchError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

// Thrown by a step that noticed the run was cancelled; never a failure.
class BatchCancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "cancelled"; }
};

enum class BatchOutcome { wrote, skipped, failed, cancelled };

class BatchEngine {
 public:
  static constexpr std::string_view kDefaultSuffix = "-已编辑";
  static constexpr int64_t kSingleWorkerPixels = 50'000'000;

  struct Config {
    std::optional<FilterPreset> preset;  // absent: format conversion only
    double strength = 100;               // percent
    ExportOptions options;               // metadataSourceURL is set per file
    std::filesystem::path outputFolder;
    std::string nameSuffix = std::string(kDefaultSuffix);
    bool skipExisting = true;
    bool useSavedEdits = true;
  };

  static std::string sanitizedSuffix(std::string_view suffix);

  // Throws BatchError(2, "无法读取文件夹：<reason>") when the folder cannot be listed.
  static std::vector<std::filesystem::path> scanFolder(
      const std::filesystem::path& folder, std::string_view suffix,
      const std::function<bool()>& isCancelled = {});

  static std::filesystem::path outputURL(const std::filesystem::path& source, const Config& config);

  struct PlannedFile {
    std::filesystem::path source;
    std::filesystem::path output;
    std::optional<std::string> failure;  // the collision message
  };
  static std::vector<PlannedFile> plan(const std::vector<std::filesystem::path>& sources,
                                       const Config& config);

  // 1 or 2, by the largest image's header dimensions.
  static int workerCount(const std::vector<std::filesystem::path>& sources);

  // The recipe a file is developed with: its saved edit (when asked for and
  // there is one) with the preset laid over it at the configured strength.
  static EditDocument recipeFor(const std::filesystem::path& source, const Config& config,
                                EditStore* store);

  // Develops one file: true when written, false when skipped because the
  // output exists (and skipExisting is set).
  //  1. an output that names the source itself fails with BatchError(1,
  //     "输出位置不能覆盖原图") (same rule as the exporter: resolved paths or
  //     file identity);
  //  2. the recipe (recipeFor), the source loaded with its RAW settings;
  //  3. rendered at full resolution in bands and exported with the config's
  //     options, metadata from the source, into the output folder (created
  //     when missing).
  // Cancellation is checked between load, render and export and inside the
  // export; a cancelled file throws BatchCancelled and leaves no output.
  // Loader and exporter errors pass through unchanged.
  static bool process(const std::filesystem::path& source, const Config& config,
                      const std::function<bool()>& isCancelled, EditStore* store, RenderEngine& engine);

  // The message of one file's failure: "<file name>：<description>".
  static std::string failureMessage(const std::filesystem::path& source, std::string_view description);
};

}  // namespace vg
