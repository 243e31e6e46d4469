// The export options of the command line, shared by `export` and `batch`:
// --format, --quality, --long-edge, --color-space, --no-metadata,
// --include-location, --output-sharpening and --tiff-compression, laid over
// the stored export defaults.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "io/export_options.h"

namespace vg::cli {

std::vector<OptionSpec> exportOptionSpecs();

// The help lines of those options (each "  --name ARG   what it does").
std::string exportOptionsHelp();

// Applies the options given in `args` over `options`. Without --format, a
// destination whose extension names a format chooses it. Returns the usage
// error for a bad value.
std::optional<std::string> applyExportOptionArgs(const ParsedArgs& args, ExportOptions& options,
                                                 const std::optional<std::filesystem::path>& destination);

// An export allocates and frees a band of float pixels (up to ~25 MB) many
// times over. glibc's defaults hand such blocks back to the kernel on every
// free and fault them in again (measured: a third of a 24 MP export's CPU time
// in page faults); keeping them in the heap makes the reuse free. For the
// one-shot commands that export (export, batch); memory returns at exit.
void keepBandsInTheHeap();

// Whole-string number parsing for option values (no trailing text).
std::optional<double> parseNumberArg(const std::string& text);
std::optional<int64_t> parseIntegerArg(const std::string& text);

}  // namespace vg::cli
