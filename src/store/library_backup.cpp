#include "store/library_backup.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "store/atomic_file.h"
#include "store/library_folders.h"

namespace vg {
namespace {

constexpr size_t kChunkBytes = 256 << 10;

struct ArchiveWriteFree {
  void operator()(archive* a) const { archive_write_free(a); }
};
using WriteArchive = std::unique_ptr<archive, ArchiveWriteFree>;
struct EntryFree {
  void operator()(archive_entry* e) const { archive_entry_free(e); }
};
using Entry = std::unique_ptr<archive_entry, EntryFree>;

struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

struct LibraryFile {
  std::string entryName;  // "<folder>/<name>"
  std::filesystem::path path;
};

std::string failure(std::string_view reason) { return "无法备份资料库：" + std::string(reason); }

std::string archiveError(archive* a) {
  const char* text = archive_error_string(a);
  return text ? text : std::strerror(archive_errno(a) ? archive_errno(a) : EIO);
}

// The library's files, folder by folder, each folder sorted by name.
std::vector<LibraryFile> libraryFiles(const std::filesystem::path& supportFolder, BackupSummary& counts) {
  std::vector<LibraryFile> out;
  for (const auto& folder : libraryFolders()) {
    std::vector<std::string> names;
    std::error_code ec;
    const auto dir = supportFolder / folder.name;
    for (auto it = std::filesystem::directory_iterator(dir, ec);
         !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
      std::string name = it->path().filename().string();
      std::error_code typeError;
      // symlink_status: a link is not a library file, wherever it points.
      if (folder.isMemberName(name) && it->symlink_status(typeError).type() == std::filesystem::file_type::regular) {
        names.push_back(std::move(name));
      }
    }
    std::sort(names.begin(), names.end());
    for (auto& name : names) {
      out.push_back({std::string(folder.name) + "/" + name, dir / name});
    }
    using Kind = LibraryFolder::Kind;
    int& count = folder.kind == Kind::edits ? counts.edits : folder.kind == Kind::presets ? counts.presets : counts.luts;
    count = int(names.size());
  }
  return out;
}

std::string isoTime(Clock::TimePoint when) {
  const std::time_t t = std::chrono::system_clock::to_time_t(when);
  std::tm utc{};
  gmtime_r(&t, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// Writes one entry with the bytes of `file`; the reason on failure.
std::optional<std::string> addFile(archive* a, const LibraryFile& file) {
  Fd in{::open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
  struct stat info {};
  if (in.fd < 0 || ::fstat(in.fd, &info) != 0) {
    return "无法读取 " + file.entryName + "（" + std::strerror(errno) + "）";
  }
  Entry entry(archive_entry_new());
  archive_entry_set_pathname_utf8(entry.get(), file.entryName.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_size(entry.get(), info.st_size);
  archive_entry_set_mtime(entry.get(), info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
  if (archive_write_header(a, entry.get()) != ARCHIVE_OK) return archiveError(a);

  std::vector<char> buffer(kChunkBytes);
  off_t remaining = info.st_size;
  while (remaining > 0) {
    const ssize_t n = ::read(in.fd, buffer.data(), size_t(std::min<off_t>(remaining, off_t(buffer.size()))));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return "无法读取 " + file.entryName + "（" + std::strerror(errno) + "）";
    if (n == 0) return file.entryName + " 在备份过程中发生了变化";
    if (archive_write_data(a, buffer.data(), size_t(n)) != n) return archiveError(a);
    remaining -= n;
  }
  char extra;
  if (::read(in.fd, &extra, 1) > 0) return file.entryName + " 在备份过程中发生了变化";
  return std::nullopt;
}

std::optional<std::string> addManifest(archive* a, const BackupSummary& counts, Clock::TimePoint when) {
  nlohmann::ordered_json manifest;
  manifest["format"] = kBackupFormat;
  manifest["version"] = kBackupFormatVersion;
  manifest["created"] = isoTime(when);
  manifest["edits"] = counts.edits;
  manifest["presets"] = counts.presets;
  manifest["luts"] = counts.luts;
  const std::string bytes = manifest.dump(2) + "\n";
  Entry entry(archive_entry_new());
  archive_entry_set_pathname_utf8(entry.get(), std::string(kBackupManifestName).c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_size(entry.get(), la_int64_t(bytes.size()));
  archive_entry_set_mtime(entry.get(), std::chrono::system_clock::to_time_t(when), 0);
  if (archive_write_header(a, entry.get()) != ARCHIVE_OK ||
      archive_write_data(a, bytes.data(), bytes.size()) != la_ssize_t(bytes.size())) {
    return archiveError(a);
  }
  return std::nullopt;
}

}  // namespace

std::string BackupSummary::text() const {
  return "已备份 " + std::to_string(edits) + " 个编辑、" + std::to_string(presets) + " 个预设、" +
         std::to_string(luts) + " 个 LUT";
}

BackupResult backupLibrary(const std::filesystem::path& supportFolder, const std::filesystem::path& archivePath,
                           const Clock& clock) {
  BackupSummary summary;
  const auto files = libraryFiles(supportFolder, summary);

  AtomicFileWriter out(archivePath);
  if (auto error = out.open()) return {std::nullopt, failure(*error)};

  WriteArchive a(archive_write_new());
  if (!a || archive_write_set_format_zip(a.get()) != ARCHIVE_OK ||
      archive_write_zip_set_compression_deflate(a.get()) != ARCHIVE_OK ||
      archive_write_set_bytes_in_last_block(a.get(), 1) != ARCHIVE_OK ||
      archive_write_open_fd(a.get(), out.fd()) != ARCHIVE_OK) {
    return {std::nullopt, failure(a ? archiveError(a.get()) : std::string(std::strerror(ENOMEM)))};
  }
  if (auto error = addManifest(a.get(), summary, clock.now())) return {std::nullopt, failure(*error)};
  for (const auto& file : files) {
    if (auto error = addFile(a.get(), file)) return {std::nullopt, failure(*error)};
  }
  if (archive_write_close(a.get()) != ARCHIVE_OK) return {std::nullopt, failure(archiveError(a.get()))};

  struct stat info {};
  if (::fstat(out.fd(), &info) == 0) summary.archiveBytes = std::uintmax_t(info.st_size);
  if (auto error = out.commit()) return {std::nullopt, failure(*error)};
  return {summary, {}};
}

std::string suggestedBackupName(Clock::TimePoint when) {
  const std::time_t t = std::chrono::system_clock::to_time_t(when);
  std::tm local{};
  localtime_r(&t, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H%M", &local);
  return std::string("Verdantglass 资料库备份 ") + text + ".zip";
}

}  // namespace vg
