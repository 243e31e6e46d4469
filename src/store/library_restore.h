// Restoring the photographer's library from a backup archive (ZIP as
// store/library_backup.h writes it; tar, plain or gzip-compressed, is read
// too) into a support folder, treating the archive as hostile.
//
// Entries, in archive order:
//   - a path that is absolute, holds a ".." component (with "/" or "\" as
//     separator) or a drive letter, a symbolic or hard link, a device, FIFO
//     or socket, an entry claiming or holding more than its folder's largest
//     file (store/library_folders.h), more than `maxEntries` entries or more
//     than `maxTotalBytes` of library data: the whole archive is refused and
//     the support folder is left exactly as it was;
//   - "<Edits|Presets|LUTs>/<name>" whose name follows the folder's pattern
//     ("./" prefixes and empty components are ignored): a library file. An
//     edit that is not a JSON object, a preset that does not decode, or a LUT
//     the optional `lutCheck` rejects is skipped with the reason; a second
//     entry of the same name is skipped;
//   - the manifest: checked (a newer format version is refused); an archive
//     with neither a manifest nor any library entry is refused as not a
//     backup;
//   - directories are passed over; anything else is skipped as not part of
//     the library.
//
// Nothing is written from an archive name: every entry is first extracted
// into a staging folder inside the support folder (".restore-<UUID>", files
// named by number), capped while it is read, so a refusal or a failure
// (a full disk) removes the staging folder and changes nothing else. Only
// when the whole archive was read does each file move into place, one atomic
// rename each, by this rule:
//   - no local file of that name: added;
//   - a local file with the same bytes: unchanged;
//   - the archive's copy is newer (modification time, whole seconds), or
//     `replaceNewer` is set: the local file is replaced (updated);
//   - otherwise the newer (or same-age) local file is kept;
//   - a local directory or link of that name is never touched (skipped).
// A file that replaces a local one is flushed to disk before its rename.
// Restored files keep the modification time the archive gives them.
//
// Messages: "无法恢复备份：<reason>" for a refused or failed restore.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vg {

struct RestoreOptions {
  bool replaceNewer = false;
  std::size_t maxEntries = 200'000;
  std::uintmax_t maxTotalBytes = 8ull << 30;
  // Checks an extracted LUT file; the rejection message, or nothing when it
  // is a valid LUT. Unset: LUTs are taken as they are.
  std::function<std::optional<std::string>(const std::filesystem::path&)> lutCheck;
};

struct RestoreSummary {
  // Entries as "<folder>/<name>", in archive order.
  std::vector<std::string> added, updated, kept, unchanged;
  struct Skipped {
    std::string entry;
    std::string reason;
    bool operator==(const Skipped&) const = default;
  };
  std::vector<Skipped> skipped;

  // "新增 2 个，更新 1 个，保留较新的本地文件 1 个，相同 0 个，跳过 3 个".
  std::string text() const;
};

struct RestoreResult {
  std::optional<RestoreSummary> summary;  // set on success
  std::string error;                      // user-facing message when refused or failed
};

RestoreResult restoreLibrary(const std::filesystem::path& archive, const std::filesystem::path& supportFolder,
                             const RestoreOptions& options = {});
// The same from archive bytes in memory.
RestoreResult restoreLibraryFromMemory(std::string_view archiveBytes, const std::filesystem::path& supportFolder,
                                       const RestoreOptions& options = {});

}  // namespace vg
