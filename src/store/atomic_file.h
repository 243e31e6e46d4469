// Crash-safe replacement of a whole file.
//
// writeFileAtomically(path, bytes):
//   1. create a temporary file beside `path` (same folder, so the rename below
//      stays on one file system), named ".<name>.tmp-XXXXXX";
//   2. write all bytes, fsync the file, close it;
//   3. rename it over `path` (atomic: readers see the old or the new file);
//   4. fsync the folder, so the rename itself survives a power loss.
// On any failure the temporary file is removed, `path` is untouched, and the
// result is a one-line description ("<name>: <reason>"). Nothing is logged here;
// the caller decides what the failure means.
//
// AtomicFileWriter takes the same steps for output produced piece by piece
// (a backup archive too large to hold in memory): open() creates the
// temporary file, the caller writes to fd(), commit() syncs, closes and
// renames it into place. Destroyed without a successful commit, it removes
// the temporary file and leaves `path` as it was.
//
// A process killed between 1 and 3 leaves its temporary file behind;
// removeStaleTemporaryFiles() clears such leftovers from a folder.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vg {

// Empty on success, otherwise the reason.
std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                               std::string_view bytes);

class AtomicFileWriter {
 public:
  explicit AtomicFileWriter(std::filesystem::path path);
  ~AtomicFileWriter();
  AtomicFileWriter(const AtomicFileWriter&) = delete;
  AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;

  // Creates the temporary file. Empty on success, otherwise the reason.
  std::optional<std::string> open();
  int fd() const { return fd_; }
  // Writes all of `bytes` to the temporary file; false (with errno set) on failure.
  bool write(std::string_view bytes);
  // Makes the written bytes the content of `path`; the reason on failure.
  std::optional<std::string> commit();

  // "<name>: <reason>" for an error number, the form every failure here takes.
  std::string describe(int error) const;

 private:
  std::filesystem::path path_;
  std::string tempPath_;
  int fd_ = -1;
};

// True for the names writeFileAtomically gives its temporary files.
bool isAtomicWriteTemporaryName(std::string_view name);

// Removes temporary files of interrupted writes in `folder` that were last
// modified more than `olderThan` ago (younger ones may belong to a write in
// progress in another process). Errors are ignored. Returns how many went.
int removeStaleTemporaryFiles(const std::filesystem::path& folder,
                              std::chrono::seconds olderThan = std::chrono::hours(1));

}  // namespace vg
