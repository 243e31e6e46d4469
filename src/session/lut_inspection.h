// The LUT library's view of a .cube file, given by this build's LUT parser:
// the library (store/lut_library.h) and a library restore
// (store/library_restore.h) take these functions, so that they accept and
// reject exactly the files the renderer can apply, with the parser's
// user-facing messages ("LUT 文件格式错误：...").
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "store/lut_library.h"

namespace vg {

// The title (without the quotes files put around it) and cube size of a
// valid file, else the rejection message.
LutLibrary::Inspector lutInspector();

// Nothing for a valid file, else the rejection message.
std::optional<std::string> checkLutFile(const std::filesystem::path& file);

// The LUT library of a support folder (<support folder>/LUTs).
LutLibrary lutLibraryIn(const std::filesystem::path& supportFolder);

}  // namespace vg
