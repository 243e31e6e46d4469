// Backing up the photographer's library: the edit sidecars, user presets and
// imported LUTs of the support folder (store/library_folders.h), written as
// one ZIP archive.
//
// The archive holds "Edits/<name>", "Presets/<name>" and "LUTs/<name>" for
// every regular file whose name follows its folder's pattern (set-aside
// corrupt sidecars, damaged leftovers of other names, temporary files and
// symbolic links are not part of the library), each with its modification
// time, plus "verdantglass-library.json": {"format", "version", "created",
// "edits", "presets", "luts"}. Files are read in chunks, so LUTs of hundreds
// of megabytes never sit in memory.
//
// The archive is written atomically (store/atomic_file.h): an existing file
// at `archive` stays as it was until the new one is complete, and a failure
// leaves nothing behind. A library file that cannot be read, or that changes
// size while it is being read, fails the backup rather than leaving it
// incomplete. Messages: "无法备份资料库：<reason>".
//
// Reads the library folders and writes only `archive` (and its temporary
// file beside it). Safe to run on a background thread while the editor saves.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "store/clock.h"

namespace vg {

struct BackupSummary {
  int edits = 0;
  int presets = 0;
  int luts = 0;
  std::uintmax_t archiveBytes = 0;

  // "已备份 <edits> 个编辑、<presets> 个预设、<luts> 个 LUT".
  std::string text() const;
};

struct BackupResult {
  std::optional<BackupSummary> summary;  // set on success
  std::string error;                     // user-facing message on failure
};

BackupResult backupLibrary(const std::filesystem::path& supportFolder, const std::filesystem::path& archive,
                           const Clock& clock = SystemClock::shared());

// A file name for a backup made at `when` (local time):
// "Verdantglass 资料库备份 2024-01-01 0930.zip".
std::string suggestedBackupName(Clock::TimePoint when);

}  // namespace vg
