#include "store/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace vg {
namespace {

constexpr std::string_view kTempMarker = ".tmp-";
constexpr size_t kTempRandomLength = 6;  // mkstemp's XXXXXX

std::string describeError(const std::filesystem::path& path, int error) {
  return path.filename().string() + ": " + std::generic_category().message(error);
}

// Closes a descriptor once; reports close()'s own error (which, on some file
// systems, is where a failed write surfaces).
int closeOnce(int& fd) {
  if (fd < 0) return 0;
  int result = ::close(fd);
  fd = -1;
  return result == 0 ? 0 : errno;
}

bool writeAll(int fd, std::string_view bytes, int& error) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      return false;
    }
    if (n == 0) {
      error = EIO;
      return false;
    }
    done += size_t(n);
  }
  return true;
}

int fsyncRetrying(int fd) {
  while (::fsync(fd) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace

AtomicFileWriter::AtomicFileWriter(std::filesystem::path path) : path_(std::move(path)) {}

AtomicFileWriter::~AtomicFileWriter() {
  closeOnce(fd_);
  if (!tempPath_.empty()) ::unlink(tempPath_.c_str());
}

std::string AtomicFileWriter::describe(int error) const { return describeError(path_, error); }

std::optional<std::string> AtomicFileWriter::open() {
  const std::filesystem::path folder = path_.has_parent_path() ? path_.parent_path() : ".";
  std::string tempName = ".";
  tempName += path_.filename().string();
  tempName += kTempMarker;
  tempName += "XXXXXX";
  std::string tempPath = (folder / tempName).string();
  std::vector<char> pattern(tempPath.begin(), tempPath.end());
  pattern.push_back('\0');

  fd_ = ::mkostemp(pattern.data(), O_CLOEXEC);
  if (fd_ < 0) return describe(errno);
  tempPath_.assign(pattern.data());
  // mkostemp creates 0600; sidecars and backups are ordinary user files.
  if (::fchmod(fd_, 0644) != 0) return describe(errno);
  return std::nullopt;
}

bool AtomicFileWriter::write(std::string_view bytes) {
  int error = 0;
  if (fd_ >= 0 && writeAll(fd_, bytes, error)) return true;
  errno = fd_ < 0 ? EBADF : error;
  return false;
}

std::optional<std::string> AtomicFileWriter::commit() {
  if (fd_ < 0) return describe(EBADF);
  if (int e = fsyncRetrying(fd_)) return describe(e);
  if (int e = closeOnce(fd_)) return describe(e);
  if (::rename(tempPath_.c_str(), path_.c_str()) != 0) return describe(errno);
  tempPath_.clear();

  // The new name is in place; make the folder entry durable. A folder that
  // cannot be opened or synced (some file systems refuse) does not undo the
  // write, which readers already see.
  const std::filesystem::path folder = path_.has_parent_path() ? path_.parent_path() : ".";
  int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    fsyncRetrying(dirFd);
    ::close(dirFd);
  }
  return std::nullopt;
}

std::optional<std::string> writeFileAtomically(const std::filesystem::path& path,
                                               std::string_view bytes) {
  AtomicFileWriter writer(path);
  if (auto error = writer.open()) return error;
  if (!writer.write(bytes)) return writer.describe(errno);
  return writer.commit();
}

bool isAtomicWriteTemporaryName(std::string_view name) {
  if (name.size() < 1 + kTempMarker.size() + kTempRandomLength || name.front() != '.') return false;
  const size_t marker = name.size() - kTempRandomLength - kTempMarker.size();
  return name.substr(marker, kTempMarker.size()) == kTempMarker;
}

int removeStaleTemporaryFiles(const std::filesystem::path& folder, std::chrono::seconds olderThan) {
  std::error_code ec;
  std::filesystem::directory_iterator it(folder, ec);
  if (ec) return 0;
  const auto cutoff = std::filesystem::file_time_type::clock::now() - olderThan;
  int removed = 0;
  for (const auto& entry : it) {
    const std::string name = entry.path().filename().string();
    if (!isAtomicWriteTemporaryName(name)) continue;
    std::error_code entryError;
    if (!entry.is_regular_file(entryError) || entryError) continue;
    const auto modified = entry.last_write_time(entryError);
    if (entryError || modified > cutoff) continue;
    if (std::filesystem::remove(entry.path(), entryError)) ++removed;
  }
  return removed;
}

}  // namespace vg
