// ExportTempFile: where an export is written before it replaces the
// destination, and the replacement itself.
//
// - The constructor makes a private folder (mode 0700) beside the destination,
//   ".verdantglass-tmp-XXXXXX", so the file is on the destination's file system
//   and the final rename is atomic. Failure throws ExportError code 2.
// - path() is the file to write inside it: ".verdantglass-export-<UUID>.<ext>"
//   (upper-case UUID version 4). Nothing creates it; the encoder does.
// - commit() flushes the file to disk and renames it over the destination (an
//   existing file is replaced in one step, readers see the old or the new file,
//   never a mixture), then flushes the destination folder. Errors are passed on
//   as std::system_error, unchanged; the destination is then as it was.
// - The destructor removes the folder and whatever is still in it, whatever
//   happened; the destination is touched by commit() only.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vg {

class ExportTempFile {
 public:
  ExportTempFile(const std::filesystem::path& destination, std::string_view extension);
  ~ExportTempFile();
  ExportTempFile(const ExportTempFile&) = delete;
  ExportTempFile& operator=(const ExportTempFile&) = delete;

  const std::filesystem::path& path() const { return file_; }
  const std::filesystem::path& folder() const { return folder_; }
  void commit();

  static std::string newUuid();

 private:
  std::filesystem::path destination_;
  std::filesystem::path folder_;
  std::filesystem::path file_;
};

}  // namespace vg
