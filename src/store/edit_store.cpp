#include "store/edit_store.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "model/json.h"
#include "model/log.h"
#include "store/atomic_file.h"
#include "store/support_folder.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDecodeFailedLog = "Verdantglass: sidecar 解码失败，已保留坏件副本 ";
constexpr std::string_view kWriteFailedLog = "Verdantglass: sidecar 写入失败 ";

// Reads a whole regular file. Anything else under a sidecar name (a folder,
// a FIFO that would block the reader, a device) counts as unreadable.
bool readRegularFile(const fs::path& path, std::string& bytes) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  bool ok = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  if (ok) bytes.reserve(size_t(info.st_size));
  char buffer[65536];
  while (ok) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      bytes.append(buffer, size_t(n));
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      ok = false;
    }
  }
  ::close(fd);
  return ok;
}

// Renames without replacing an existing file: a second corrupt copy within the
// same second must not overwrite the first one. On failure, errno says why.
bool moveWithoutReplacing(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // File systems without RENAME_NOREPLACE: link() refuses existing names too.
  if (::link(from.c_str(), to.c_str()) != 0) return false;
  ::unlink(from.c_str());
  return true;
}

int64_t secondsOf(Clock::TimePoint t) {
  return std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()).count();
}

}  // namespace

EditStore::EditStore(fs::path editsFolder, const Clock& clock)
    : folder_(std::move(editsFolder)), clock_(clock), writeQueue_("vg.editstore.write") {}

EditStore::~EditStore() { writeQueue_.drain(); }

EditStore& EditStore::shared() {
  static EditStore store(vg::editsFolder());
  return store;
}

EditStore::Target EditStore::targetFor(const fs::path& image) const {
  const SidecarNames names = sidecarNames(image);
  Target target{names.current, folder_ / names.current, {}};
  for (const std::string* other : {&names.older, &names.oldest}) {
    fs::path path = folder_ / *other;
    if (path != target.current &&
        std::find(target.retired.begin(), target.retired.end(), path) == target.retired.end()) {
      target.retired.push_back(std::move(path));
    }
  }
  return target;
}

fs::path EditStore::sidecarPath(const fs::path& image) const {
  return folder_ / sidecarNames(image).current;
}

std::optional<fs::path> EditStore::existingSidecarPath(const fs::path& image) const {
  const Target target = targetFor(image);
  std::error_code ec;
  if (fs::exists(target.current, ec)) return target.current;
  for (const fs::path& other : target.retired) {
    if (fs::exists(other, ec)) return other;
  }
  return std::nullopt;
}

std::optional<EditDocument> EditStore::load(const fs::path& image) {
  std::lock_guard lock(filesMutex_);
  const std::optional<fs::path> file = existingSidecarPath(image);
  if (!file) return std::nullopt;
  return readSidecar(*file);
}

std::optional<EditDocument> EditStore::readSidecar(const fs::path& file) {
  std::string bytes;
  if (!readRegularFile(file, bytes)) return std::nullopt;  // unreadable: no sidecar, no report

  std::optional<EditDocument> doc = decodeEditDocument(std::string_view(bytes));
  const auto now = clock_.now();
  if (doc) {
    // Record the use; a sidecar whose date cannot be set is still good.
    const auto sinceEpoch = now.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const struct timespec times[2] = {
        {0, UTIME_OMIT},
        {time_t(seconds.count()),
         long(std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds).count())}};
    ::utimensat(AT_FDCWD, file.c_str(), times, 0);
    return doc;
  }

  std::string copyName, reason;
  const bool moved = setAside(file, copyName, reason);
  logLine(std::string(kDecodeFailedLog) + copyName);  // written whether or not the move succeeded
  if (!moved) {
    logLine("Verdantglass: " + file.filename().string() + " could not be moved aside to " + copyName + " (" +
            reason + "); it stays in place and will not be overwritten");
    keptInPlace_.insert(file);
  }
  return std::nullopt;
}

bool EditStore::setAside(const fs::path& file, std::string& copyName, std::string& reason) {
  copyName = corruptCopyName(file.filename().string(), secondsOf(clock_.now()));
  if (moveWithoutReplacing(file, file.parent_path() / copyName)) {
    keptInPlace_.erase(file);
    return true;
  }
  reason = std::error_code(errno, std::generic_category()).message();
  return false;
}

bool EditStore::clearToReplace(const fs::path& file, std::string& reason) {
  if (!keptInPlace_.count(file)) return true;
  std::string bytes;
  if (!readRegularFile(file, bytes) || decodeEditDocument(std::string_view(bytes))) {
    keptInPlace_.erase(file);  // gone, or repaired by hand: an ordinary sidecar again
    return true;
  }
  std::string copyName, why;
  if (setAside(file, copyName, why)) {
    logLine(std::string(kDecodeFailedLog) + copyName);
    return true;
  }
  reason = "an undecodable sidecar that cannot be moved aside to " + copyName + " is kept there (" + why + ")";
  return false;
}

uint64_t EditStore::takeSaveNumber(const fs::path& image) {
  return saveNumbers_.take(sidecarNames(image).current);
}

namespace {
// A WriteDone that fulfils a promise, and the future to wait on.
std::pair<EditStore::WriteDone, std::future<bool>> promised() {
  auto result = std::make_shared<std::promise<bool>>();
  std::future<bool> future = result->get_future();
  return {[result](bool saved) { result->set_value(saved); }, std::move(future)};
}
}  // namespace

std::future<bool> EditStore::save(const EditDocument& doc, const fs::path& image) {
  std::string bytes = encodeEditDocument(doc);
  Target target = targetFor(image);
  const uint64_t number = saveNumbers_.take(target.key);
  auto [done, future] = promised();
  queueWrite(std::move(bytes), std::move(target), number, false, std::move(done));
  return std::move(future);
}

std::future<bool> EditStore::save(const EditDocument& doc, const fs::path& image,
                                  uint64_t saveNumber, bool unconditional) {
  auto [done, future] = promised();
  save(doc, image, saveNumber, unconditional, std::move(done));
  return std::move(future);
}

void EditStore::save(const EditDocument& doc, const fs::path& image, uint64_t saveNumber,
                     bool unconditional, WriteDone done) {
  queueWrite(encodeEditDocument(doc), targetFor(image), saveNumber, unconditional, std::move(done));
}

void EditStore::queueWrite(std::string bytes, Target target, uint64_t saveNumber, bool unconditional,
                           WriteDone done) {
  writeQueue_.post([this, done = std::move(done), bytes = std::move(bytes), target = std::move(target),
                    saveNumber, unconditional] {
    if (!unconditional && saveNumbers_.isStale(target.key, saveNumber)) {
      done(true);  // a newer save of this image is queued behind us
      return;
    }
    bool saved = false;
    {
      std::lock_guard lock(filesMutex_);
      prepareFolder();
      std::string reason;
      if (!clearToReplace(target.current, reason)) {
        logLine(std::string(kWriteFailedLog) + target.current.filename().string() + ": " + reason);
      } else if (auto error = writeFileAtomically(target.current, bytes)) {
        logLine(std::string(kWriteFailedLog) + *error);
      } else {
        for (const fs::path& old : target.retired) {
          std::error_code ignored;
          if (clearToReplace(old, reason)) fs::remove(old, ignored);
        }
        saved = true;
      }
    }
    done(saved);
  });
}

std::future<bool> EditStore::removeSidecars(const fs::path& image) {
  auto result = std::make_shared<std::promise<bool>>();
  std::future<bool> future = result->get_future();
  writeQueue_.post([this, result, target = targetFor(image)] {
    bool allGone = true;
    {
      std::lock_guard lock(filesMutex_);
      auto removeOne = [&](const fs::path& path) {
        std::string reason;
        std::error_code ec;
        if (!clearToReplace(path, reason)) {
          allGone = false;  // an undecodable sidecar that must stay
          return;
        }
        fs::remove(path, ec);  // an absent file is no error
        if (ec) allGone = false;
      };
      removeOne(target.current);
      for (const fs::path& path : target.retired) removeOne(path);
    }
    result->set_value(allGone);
  });
  return future;
}

void EditStore::flush() { writeQueue_.drain(); }

EditStore::WriteHold& EditStore::WriteHold::operator=(WriteHold&& other) noexcept {
  if (this != &other) {
    release();
    gate_ = std::move(other.gate_);
  }
  return *this;
}

void EditStore::WriteHold::release() {
  if (gate_) gate_->set_value();
  gate_.reset();
}

EditStore::WriteHold EditStore::holdWrites() {
  WriteHold hold;
  if (writeQueue_.isCurrent()) return hold;  // nothing else runs on the queue meanwhile anyway
  auto started = std::make_shared<std::promise<void>>();
  hold.gate_ = std::make_shared<std::promise<void>>();
  writeQueue_.post([started, opened = hold.gate_->get_future().share()] {
    started->set_value();
    opened.wait();
  });
  started->get_future().wait();
  return hold;
}

size_t EditStore::queuedWrites() const { return writeQueue_.pendingCount(); }

void EditStore::prepareFolder() {
  std::error_code ec;
  if (!fs::is_directory(folder_, ec)) {
    // A folder that cannot be created makes the write below fail, and that
    // failure is what gets reported.
    fs::create_directories(folder_, ec);
  }
  if (!folderPrepared_ && fs::is_directory(folder_, ec)) {
    removeStaleTemporaryFiles(folder_);
    folderPrepared_ = true;
  }
}

std::optional<EditDocument> loadSavedRecipe(const fs::path& image) {
  return EditStore::shared().load(image);
}

}  // namespace vg
