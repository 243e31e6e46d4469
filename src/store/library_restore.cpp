#include "store/library_restore.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "model/json.h"
#include "model/uuid.h"
#include "store/library_folders.h"
#include "store/preset_library.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

constexpr size_t kChunkBytes = 256 << 10;
constexpr std::uintmax_t kMaxManifestBytes = 64 << 10;
constexpr std::string_view kStagingPrefix = ".restore-";

struct ArchiveReadFree {
  void operator()(archive* a) const { archive_read_free(a); }
};
using ReadArchive = std::unique_ptr<archive, ArchiveReadFree>;

struct Fd {
  int fd = -1;
  ~Fd() { reset(); }
  int reset() {
    int result = fd >= 0 ? ::close(fd) : 0;
    fd = -1;
    return result;
  }
};

std::string archiveError(archive* a) {
  const char* text = archive_error_string(a);
  return text ? text : std::strerror(archive_errno(a) ? archive_errno(a) : EIO);
}

// An archive name as it may appear in a message: control characters replaced
// and cut at 200 bytes.
std::string printable(std::string_view name) {
  std::string out;
  for (unsigned char c : name.substr(0, 200)) out += (c < 0x20 || c == 0x7f) ? '?' : char(c);
  return out;
}

// The components of an archive path, without "." and empty ones; nothing when
// the path is absolute, has a drive letter or climbs with "..".
std::optional<std::vector<std::string>> safeComponents(std::string_view path) {
  if (path.empty() || path[0] == '/' || path[0] == '\\') return std::nullopt;
  if (path.size() >= 2 && path[1] == ':') return std::nullopt;
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find_first_of("/\\", start);
    if (end == std::string_view::npos) end = path.size();
    std::string_view part = path.substr(start, end - start);
    if (part == "..") return std::nullopt;
    if (!part.empty() && part != ".") parts.emplace_back(part);
    start = end + 1;
  }
  return parts;
}

bool sameContent(const fs::path& a, const fs::path& b) {
  std::error_code ec1, ec2;
  if (fs::file_size(a, ec1) != fs::file_size(b, ec2) || ec1 || ec2) return false;
  Fd fa{::open(a.c_str(), O_RDONLY | O_CLOEXEC)}, fb{::open(b.c_str(), O_RDONLY | O_CLOEXEC)};
  if (fa.fd < 0 || fb.fd < 0) return false;
  std::vector<char> ba(kChunkBytes), bb(kChunkBytes);
  for (;;) {
    const ssize_t na = ::read(fa.fd, ba.data(), ba.size());
    if (na < 0) return false;
    ssize_t nb = 0;
    while (nb < na) {
      const ssize_t n = ::read(fb.fd, bb.data() + nb, size_t(na - nb));
      if (n <= 0) return false;
      nb += n;
    }
    if (na == 0) return ::read(fb.fd, bb.data(), 1) == 0;
    if (std::memcmp(ba.data(), bb.data(), size_t(na)) != 0) return false;
  }
}

// fsync of a file by name: 0, or the error number.
int syncFile(const fs::path& file) {
  Fd f{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  if (f.fd < 0 || ::fsync(f.fd) != 0) return errno;
  return f.reset() == 0 ? 0 : errno;
}

// Staging folders of restores that were killed half-way.
void removeStaleStagingFolders(const fs::path& supportFolder) {
  std::error_code ec;
  const auto cutoff = fs::file_time_type::clock::now() - std::chrono::hours(1);
  for (auto it = fs::directory_iterator(supportFolder, ec); !ec && it != fs::directory_iterator();
       it.increment(ec)) {
    std::error_code entryError;
    if (it->path().filename().string().rfind(kStagingPrefix, 0) == 0 &&
        it->symlink_status(entryError).type() == fs::file_type::directory &&
        it->last_write_time(entryError) < cutoff && !entryError) {
      fs::remove_all(it->path(), entryError);
    }
  }
}

struct StagedFile {
  std::string entry;  // "<folder>/<name>"
  fs::path target;
  fs::path staged;
  std::optional<std::int64_t> mtime;  // seconds since 1970, when the archive gave one
};

class Restorer {
 public:
  Restorer(archive* a, fs::path supportFolder, const RestoreOptions& options)
      : a_(a), support_(std::move(supportFolder)), options_(options) {}
  ~Restorer() {
    std::error_code ec;
    if (!staging_.empty()) fs::remove_all(staging_, ec);
  }

  // Phase 1: every entry checked and extracted into the staging folder.
  // The reason the archive is refused, or nothing.
  std::optional<std::string> extract();
  // Phase 2: the staged files moved into place.
  void place();

  RestoreSummary summary;

 private:
  std::optional<std::string> extractEntry(archive_entry* e);
  std::optional<std::string> readManifest(const std::string& name);
  std::optional<std::string> stage(const LibraryFolder& folder, const std::string& name, archive_entry* e);
  std::optional<std::string> validate(const LibraryFolder& folder, const std::string& name,
                                      const std::string& bytes, const fs::path& staged);

  archive* a_;
  fs::path support_;
  const RestoreOptions& options_;
  fs::path staging_;
  std::size_t entries_ = 0;
  std::uintmax_t totalBytes_ = 0;
  bool sawManifest_ = false;
  std::set<std::string> seen_;
  std::vector<StagedFile> staged_;
};

std::optional<std::string> Restorer::extract() {
  std::error_code ec;
  fs::create_directories(support_, ec);
  removeStaleStagingFolders(support_);
  staging_ = support_ / (std::string(kStagingPrefix) + Uuid::random().toString());
  if (::mkdir(staging_.c_str(), 0700) != 0) {
    const int error = errno;
    staging_.clear();
    return "无法创建临时文件夹（" + std::string(std::strerror(error)) + "）";
  }
  for (;;) {
    archive_entry* e = nullptr;
    const int r = archive_read_next_header(a_, &e);
    if (r == ARCHIVE_EOF) break;
    if (r < ARCHIVE_WARN) return "备份文件已损坏（" + archiveError(a_) + "）";
    if (++entries_ > options_.maxEntries) {
      return "条目数量超过上限（" + std::to_string(options_.maxEntries) + " 个）";
    }
    if (auto refusal = extractEntry(e)) return refusal;
  }
  if (!sawManifest_ && seen_.empty()) return "这不是 Verdantglass 资料库备份";
  return std::nullopt;
}

std::optional<std::string> Restorer::extractEntry(archive_entry* e) {
  const char* rawName = archive_entry_pathname_utf8(e);
  if (!rawName) rawName = archive_entry_pathname(e);
  if (!rawName) return "备份文件已损坏（条目没有名称）";
  const std::string name = rawName;
  const auto parts = safeComponents(name);
  if (!parts) return "条目路径不安全：" + printable(name);
  const auto type = archive_entry_filetype(e);
  if (archive_entry_hardlink(e) || archive_entry_symlink(e) || type == AE_IFLNK) {
    return "条目是链接：" + printable(name);
  }
  if (type == AE_IFDIR) return std::nullopt;
  if (type != AE_IFREG) return "条目不是普通文件：" + printable(name);

  const std::uintmax_t claimed = archive_entry_size_is_set(e) ? std::uintmax_t(std::max<la_int64_t>(0, archive_entry_size(e))) : 0;
  if (parts->size() == 1 && (*parts)[0] == kBackupManifestName) return readManifest(name);

  const LibraryFolder* folder = parts->size() == 2 ? findLibraryFolder((*parts)[0]) : nullptr;
  // An entry that is passed over is not written, but skipping it still
  // costs the reader its (decompressed) size.
  auto skip = [&](std::string entry, std::string reason) -> std::optional<std::string> {
    if (claimed > options_.maxTotalBytes - std::min(totalBytes_, options_.maxTotalBytes)) {
      return "备份内容总量超过上限";
    }
    totalBytes_ += claimed;
    summary.skipped.push_back({std::move(entry), std::move(reason)});
    return std::nullopt;
  };
  if (!folder || !folder->isMemberName((*parts)[1])) return skip(printable(name), "不属于资料库");
  if (claimed > folder->maxFileBytes) return "条目过大：" + printable(name);
  const std::string entryName = std::string(folder->name) + "/" + (*parts)[1];
  if (!seen_.insert(entryName).second) return skip(entryName, "重复条目");
  return stage(*folder, (*parts)[1], e);
}

std::optional<std::string> Restorer::readManifest(const std::string& name) {
  std::string bytes;
  char buffer[4096];
  for (;;) {
    const la_ssize_t n = archive_read_data(a_, buffer, sizeof buffer);
    if (n < 0) return "备份文件已损坏（" + archiveError(a_) + "）";
    if (n == 0) break;
    bytes.append(buffer, size_t(n));
    if (bytes.size() > kMaxManifestBytes) return "条目过大：" + printable(name);
  }
  sawManifest_ = true;
  const auto json = nlohmann::json::parse(bytes, nullptr, /*allow_exceptions=*/false);
  if (json.is_object()) {
    auto version = json.find("version");
    if (version != json.end() && version->is_number() && version->get<double>() > kBackupFormatVersion) {
      return "备份由更新版本的 Verdantglass 创建";
    }
  }
  return std::nullopt;
}

std::optional<std::string> Restorer::stage(const LibraryFolder& folder, const std::string& name, archive_entry* e) {
  const std::string entryName = std::string(folder.name) + "/" + name;
  StagedFile file{entryName, support_ / folder.name / name, staging_ / std::to_string(staged_.size()), std::nullopt};
  if (archive_entry_mtime_is_set(e)) file.mtime = archive_entry_mtime(e);

  Fd out{::open(file.staged.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0644)};
  if (out.fd < 0) return "无法写入（" + std::string(std::strerror(errno)) + "）";
  // Edits and presets are small and are checked from memory; LUTs stream through.
  const bool keepBytes = folder.kind != LibraryFolder::Kind::luts;
  std::string bytes;
  std::vector<char> buffer(kChunkBytes);
  std::uintmax_t written = 0;
  for (;;) {
    const la_ssize_t n = archive_read_data(a_, buffer.data(), buffer.size());
    if (n < 0) return "备份文件已损坏（" + archiveError(a_) + "）";
    if (n == 0) break;
    written += std::uintmax_t(n);
    totalBytes_ += std::uintmax_t(n);
    if (written > folder.maxFileBytes) return "条目过大：" + entryName;
    if (totalBytes_ > options_.maxTotalBytes) return "备份内容总量超过上限";
    if (keepBytes) bytes.append(buffer.data(), size_t(n));
    for (la_ssize_t done = 0; done < n;) {
      const ssize_t w = ::write(out.fd, buffer.data() + done, size_t(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) return "无法写入（" + std::string(std::strerror(w < 0 ? errno : EIO)) + "）";
      done += w;
    }
  }
  if (file.mtime) {
    const timespec times[2] = {{0, UTIME_NOW}, {*file.mtime, 0}};
    ::futimens(out.fd, times);
  }
  if (out.reset() != 0) return "无法写入（" + std::string(std::strerror(errno)) + "）";

  if (auto problem = validate(folder, name, bytes, file.staged)) {
    summary.skipped.push_back({entryName, *problem});
    std::error_code ec;
    fs::remove(file.staged, ec);
    return std::nullopt;
  }
  staged_.push_back(std::move(file));
  return std::nullopt;
}

std::optional<std::string> Restorer::validate(const LibraryFolder& folder, const std::string& name,
                                              const std::string& bytes, const fs::path& staged) {
  if (folder.kind == LibraryFolder::Kind::edits) {
    if (!decodeEditDocument(bytes)) return std::string("已损坏：不是有效的编辑记录");
  } else if (folder.kind == LibraryFolder::Kind::presets) {
    auto preset = PresetLibrary::decodeWithReason(bytes, fs::path(name).stem().string());
    if (auto* reason = std::get_if<std::string>(&preset)) return "已损坏：" + *reason;
  } else if (options_.lutCheck) {
    return options_.lutCheck(staged);
  }
  return std::nullopt;
}

void Restorer::place() {
  std::set<fs::path> touchedFolders;
  for (const auto& file : staged_) {
    std::error_code ec;
    fs::create_directories(file.target.parent_path(), ec);
    auto fail = [&](int error) {
      summary.skipped.push_back({file.entry, "无法写入（" + std::string(std::strerror(error)) + "）"});
    };
    struct stat local {};
    if (::lstat(file.target.c_str(), &local) != 0) {
      if (errno != ENOENT) {
        fail(errno);
      } else if (::renameat2(AT_FDCWD, file.staged.c_str(), AT_FDCWD, file.target.c_str(), RENAME_NOREPLACE) == 0) {
        summary.added.push_back(file.entry);
        touchedFolders.insert(file.target.parent_path());
      } else if (errno == EEXIST) {
        summary.kept.push_back(file.entry);  // appeared just now: the local file wins
      } else {
        fail(errno);
      }
      continue;
    }
    if (!S_ISREG(local.st_mode)) {
      summary.skipped.push_back({file.entry, "本地同名项不是普通文件"});
    } else if (sameContent(file.staged, file.target)) {
      summary.unchanged.push_back(file.entry);
    } else if (options_.replaceNewer || (file.mtime && *file.mtime > local.st_mtim.tv_sec)) {
      // The local file is gone once the rename is done: the new bytes are on
      // disk first. (An added file replaces nothing; a crash can at worst
      // leave it incomplete, to be restored again.)
      if (int e = syncFile(file.staged)) {
        fail(e);
      } else if (::rename(file.staged.c_str(), file.target.c_str()) == 0) {
        summary.updated.push_back(file.entry);
        touchedFolders.insert(file.target.parent_path());
      } else {
        fail(errno);
      }
    } else {
      summary.kept.push_back(file.entry);
    }
  }
  for (const auto& folder : touchedFolders) {
    if (Fd dir{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)}; dir.fd >= 0) ::fsync(dir.fd);
  }
}

RestoreResult run(ReadArchive a, int openResult, const fs::path& supportFolder, const RestoreOptions& options) {
  if (openResult != ARCHIVE_OK) {
    return {std::nullopt, "无法恢复备份：无法打开备份文件（" + archiveError(a.get()) + "）"};
  }
  Restorer restorer(a.get(), supportFolder, options);
  if (auto refusal = restorer.extract()) return {std::nullopt, "无法恢复备份：" + *refusal};
  restorer.place();
  return {std::move(restorer.summary), {}};
}

ReadArchive newReader() {
  ReadArchive a(archive_read_new());
  archive_read_support_format_zip(a.get());
  archive_read_support_format_tar(a.get());
  archive_read_support_filter_gzip(a.get());
  return a;
}

}  // namespace

std::string RestoreSummary::text() const {
  return "新增 " + std::to_string(added.size()) + " 个，更新 " + std::to_string(updated.size()) +
         " 个，保留较新的本地文件 " + std::to_string(kept.size()) + " 个，相同 " +
         std::to_string(unchanged.size()) + " 个，跳过 " + std::to_string(skipped.size()) + " 个";
}

RestoreResult restoreLibrary(const fs::path& archivePath, const fs::path& supportFolder,
                             const RestoreOptions& options) {
  ReadArchive a = newReader();
  const int opened = archive_read_open_filename(a.get(), archivePath.c_str(), kChunkBytes);
  return run(std::move(a), opened, supportFolder, options);
}

RestoreResult restoreLibraryFromMemory(std::string_view archiveBytes, const fs::path& supportFolder,
                                       const RestoreOptions& options) {
  ReadArchive a = newReader();
  const int opened = archive_read_open_memory(a.get(), archiveBytes.data(), archiveBytes.size());
  return run(std::move(a), opened, supportFolder, options);
}

}  // namespace vg
