// HistoryEngine: the undo/redo history of one editor window, as whole
// document snapshots (undo and redo are look-ups; any entry can be jumped to).
//
// push(doc, label) records a step: a document equal to the current entry's is
// ignored; entries after the current one (the redo branch) are dropped; the
// new entry becomes current. Then the oldest entries are trimmed: down to 120
// entries, and further while the estimated bytes exceed the budget (128 MiB,
// or the process-wide override) — but never below 2 entries.
//
// The byte estimate of a document counts what makes documents big: 512, plus
// per brush shape (mask or subtract) 64 + 32 per point, per bitmap shape its
// compressed size, plus 64 + 32 per heal-stroke point.
//
// Main thread only (no locking), except the budget override, which is atomic.
// Byte counters overflowing int64 is a programming error and stops the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/document.h"
#include "model/uuid.h"
#include "store/clock.h"

namespace vg {

struct HistoryEntry {
  Uuid id;            // fresh per entry; the history list selects by it
  std::string label;  // shown in the history list
  Clock::TimePoint date;
  EditDocument document;  // the complete document after the step

  bool operator==(const HistoryEntry&) const = default;
};

class HistoryEngine {
 public:
  static constexpr size_t kMaxEntries = 120;
  static constexpr size_t kMinEntriesKept = 2;
  static constexpr int64_t kDefaultByteBudget = 134'217'728;  // 128 MiB

  explicit HistoryEngine(const Clock& clock = SystemClock::shared());

  // Discards every entry and starts over with this one as current.
  void reset(EditDocument doc, std::string label);
  void push(EditDocument doc, std::string label);

  // Each returns the document of the entry that became current, or nothing
  // (and changes nothing) at the ends / for an unknown id.
  std::optional<EditDocument> undo();
  std::optional<EditDocument> redo();
  std::optional<EditDocument> jump(const Uuid& id);

  bool canUndo() const { return currentIndex_ >= 1; }
  bool canRedo() const { return currentIndex_ >= 0 && currentIndex_ < count() - 1; }
  std::optional<Uuid> currentEntryID() const;

  const std::vector<HistoryEntry>& entries() const { return entries_; }
  int64_t currentIndex() const { return currentIndex_; }  // -1 when empty
  const std::vector<int64_t>& entryBytes() const { return entryBytes_; }
  int64_t totalBytes() const { return totalBytes_; }

  static int64_t estimatedBytes(const EditDocument& doc);

  // The budget in force: the override when one is set, else the default.
  static int64_t byteBudget();
  // Process-wide; nullopt restores the default. Takes effect at the next push.
  static void setByteBudgetOverride(std::optional<int64_t> bytes);

 private:
  int64_t count() const { return int64_t(entries_.size()); }
  void append(EditDocument doc, std::string label);
  void dropOldest(size_t n);

  const Clock& clock_;
  std::vector<HistoryEntry> entries_;
  int64_t currentIndex_ = -1;
  std::vector<int64_t> entryBytes_;
  int64_t totalBytes_ = 0;
};

}  // namespace vg
