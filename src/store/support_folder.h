// The application's private data folder and the folders inside it.
//
// Resolution, first match wins:
//   1. $VERDANTGLASS_DATA_DIR (used as given),
//   2. $XDG_DATA_HOME/Verdantglass (only when XDG_DATA_HOME is absolute, as
//      the XDG base-directory rules require),
//   3. $HOME/.local/share/Verdantglass (HOME, else the password database),
//   4. <system temporary folder>/Verdantglass-<uid> when no home is known.
// Empty variables count as unset. Nothing is created here; each user of a
// folder creates it when it first writes.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vg {

// Reads one environment variable; absent when unset.
using EnvironmentLookup = std::function<std::optional<std::string>(std::string_view name)>;

// The process environment.
std::optional<std::string> processEnvironment(std::string_view name);

std::filesystem::path supportFolder(const EnvironmentLookup& env = processEnvironment);

// <support folder>/Edits, where the edit sidecars live.
std::filesystem::path editsFolder(const EnvironmentLookup& env = processEnvironment);

}  // namespace vg
