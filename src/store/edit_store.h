// EditStore: one EditDocument per source image, kept as a JSON sidecar in the
// edits folder (never next to the image), found again by the image's location.
//
// Names: see store/sidecar_name.h. Loading tries the current name, then the
// older one, then the oldest; new sidecars are always written under the
// current name, and a successful write removes the other two, so an image's
// edits migrate on their first save.
//
// Loading runs on the caller's thread. A sidecar that decodes has its
// modification date set to now (the folder's dates show which edits were used
// recently). One that does not decode (not JSON, or not an object at the top)
// is moved aside to "edit-<hex>.corrupt-<seconds>.json" and logged as
//   Verdantglass: sidecar 解码失败，已保留坏件副本 <corrupt copy's name>
// and is never read again; load then gives no document. The move never
// replaces an existing file. When it fails (a copy of that name exists
// already, from another bad file in the same second) the line above is
// still written, followed by one saying that the file stayed where it was
// and why; such a file is then never overwritten or removed: a write or
// removal of its name first tries again to move it aside (it has a new name
// a second later) and fails, leaving it in place, when it still cannot.
//
// Loads and the write queue never interleave on the files: one lock is held
// while a load finds, reads, touches or moves aside a sidecar, and while a
// queued write or removal changes the folder. A load therefore sees the
// folder before or after a write (never a sidecar migrated halfway), and
// never moves aside a good file that a write has just put in place.
//
// Saving encodes on the caller's thread and writes on one serial queue, so
// writes land in the order saves were requested. Each save takes a save
// number; a queued write whose number is older than the newest one taken for
// the same sidecar is skipped (reported as success), because a newer save of
// that image is already queued. Writes are atomic (store/atomic_file.h). A
// failed write is logged as
//   Verdantglass: sidecar 写入失败 <reason>
// and reported as false; nothing else changes.
//
// Thread-safe. The blocking calls (flush(), holdWrites(), waiting on a
// returned future) must not be made from the write queue itself.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "model/document.h"
#include "store/clock.h"
#include "store/save_numbers.h"
#include "store/serial_queue.h"
#include "store/sidecar_name.h"

namespace vg {

class EditStore {
 public:
  // A store over its own edits folder (created when first written to).
  explicit EditStore(std::filesystem::path editsFolder, const Clock& clock = SystemClock::shared());
  ~EditStore();  // waits for queued writes
  EditStore(const EditStore&) = delete;
  EditStore& operator=(const EditStore&) = delete;

  // The application's store, over <support folder>/Edits, created on first use.
  static EditStore& shared();

  const std::filesystem::path& editsFolder() const { return folder_; }

  // Where the image's sidecar is written (its current name).
  std::filesystem::path sidecarPath(const std::filesystem::path& image) const;

  // The file load() would read: the first of the three names that exists.
  std::optional<std::filesystem::path> existingSidecarPath(const std::filesystem::path& image) const;

  // The saved document, or nothing when none is stored or it cannot be decoded.
  std::optional<EditDocument> load(const std::filesystem::path& image);

  // Takes the next save number for the image's sidecar: every write queued
  // for it with an older number is skipped from now on.
  uint64_t takeSaveNumber(const std::filesystem::path& image);

  // Saves with a fresh save number. The future becomes true once the
  // document is on disk (or the write was superseded), false when it failed.
  std::future<bool> save(const EditDocument& doc, const std::filesystem::path& image);

  // Saves under a number taken earlier with takeSaveNumber(). An
  // unconditional save is written even when a newer number exists.
  std::future<bool> save(const EditDocument& doc, const std::filesystem::path& image,
                         uint64_t saveNumber, bool unconditional = false);

  // The same, reporting through `done` instead of a future, so that nobody
  // has to wait: it is called on the write queue once the write has
  // finished (or was skipped as superseded), and should only hand the result
  // on (post it to the thread that wants it).
  using WriteDone = std::function<void(bool saved)>;
  void save(const EditDocument& doc, const std::filesystem::path& image, uint64_t saveNumber,
            bool unconditional, WriteDone done);

  // Removes the image's sidecar under all three names, on the write queue
  // (after every write queued before it). True when none of them is left.
  std::future<bool> removeSidecars(const std::filesystem::path& image);

  // Waits until every write queued so far has finished.
  void flush();

  // Keeps the write queue still: holdWrites() waits for the write in
  // progress, if any, and from then on queued writes wait until the hold is
  // released (or destroyed). For copying the edits folder in one consistent
  // state, and for tests that need a write to stay queued. A hold must be
  // released before the store is destroyed.
  class WriteHold {
   public:
    WriteHold() = default;
    WriteHold(WriteHold&&) noexcept = default;
    WriteHold& operator=(WriteHold&& other) noexcept;
    ~WriteHold() { release(); }
    void release();

   private:
    friend class EditStore;
    std::shared_ptr<std::promise<void>> gate_;
  };
  WriteHold holdWrites();

  // Writes and removals queued and not yet started.
  size_t queuedWrites() const;

 private:
  struct Target {
    std::string key;  // the current name, which keys the save numbers
    std::filesystem::path current;
    std::vector<std::filesystem::path> retired;  // older/oldest names, when they differ
  };
  Target targetFor(const std::filesystem::path& image) const;
  void queueWrite(std::string bytes, Target target, uint64_t saveNumber, bool unconditional,
                  WriteDone done);
  // The rest run with filesMutex_ held.
  void prepareFolder();  // on the write queue
  std::optional<EditDocument> readSidecar(const std::filesystem::path& file);
  // Moves an undecodable sidecar to its corrupt copy name; false (with the
  // reason) when it stays where it is.
  bool setAside(const std::filesystem::path& file, std::string& copyName, std::string& reason);
  // False (with the reason) when `file` is an undecodable sidecar that could
  // not be moved aside and still cannot: it must be neither replaced nor
  // removed.
  bool clearToReplace(const std::filesystem::path& file, std::string& reason);

  const std::filesystem::path folder_;
  const Clock& clock_;
  SaveNumbers saveNumbers_;
  std::mutex filesMutex_;  // see "Loads and the write queue" above
  bool folderPrepared_ = false;
  std::set<std::filesystem::path> keptInPlace_;  // undecodable sidecars that could not be moved aside
  // Declared last: destroyed first, running the queued writes while the
  // members they use are still alive.
  SerialQueue writeQueue_;
};

// The saved recipe of an image from the application's store, for tools that
// render or export an image with the edits the editor left on it.
std::optional<EditDocument> loadSavedRecipe(const std::filesystem::path& image);

}  // namespace vg
