#include "store/history_engine.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <variant>

namespace vg {
namespace {

constexpr int64_t kNoOverride = -1;
std::atomic<int64_t> gBudgetOverride{kNoOverride};

[[noreturn]] void counterOverflow() {
  std::fputs("HistoryEngine: byte counter overflow\n", stderr);
  std::abort();
}

int64_t checkedAdd(int64_t a, int64_t b) {
  int64_t sum;
  if (__builtin_add_overflow(a, b, &sum)) counterOverflow();
  return sum;
}

int64_t pointBytes(size_t points) {
  int64_t bytes;
  if (__builtin_mul_overflow(int64_t(points), int64_t(32), &bytes)) counterOverflow();
  return checkedAdd(64, bytes);
}

int64_t shapeBytes(const MaskKind& kind) {
  if (const auto* strokes = std::get_if<std::vector<BrushStroke>>(&kind)) {
    size_t points = 0;
    for (const BrushStroke& s : *strokes) points += s.points.size();
    return pointBytes(points);
  }
  if (const auto* bitmap = std::get_if<BitmapMaskData>(&kind)) {
    return int64_t(bitmap->compressedData.size());
  }
  return 0;
}

}  // namespace

HistoryEngine::HistoryEngine(const Clock& clock) : clock_(clock) {}

int64_t HistoryEngine::estimatedBytes(const EditDocument& doc) {
  int64_t bytes = 512;
  for (const MaskLayer& mask : doc.masks) {
    bytes = checkedAdd(bytes, shapeBytes(mask.kind));
    for (const MaskKind& subtract : mask.subtracts) bytes = checkedAdd(bytes, shapeBytes(subtract));
  }
  size_t healPoints = 0;
  for (const HealStroke& stroke : doc.heals) healPoints += stroke.points.size();
  return checkedAdd(bytes, pointBytes(healPoints));
}

int64_t HistoryEngine::byteBudget() {
  const int64_t override = gBudgetOverride.load(std::memory_order_relaxed);
  return override == kNoOverride ? kDefaultByteBudget : override;
}

void HistoryEngine::setByteBudgetOverride(std::optional<int64_t> bytes) {
  // A negative budget would mean "always over"; the 2-entry floor still holds.
  gBudgetOverride.store(bytes ? std::max<int64_t>(*bytes, 0) : kNoOverride,
                        std::memory_order_relaxed);
}

void HistoryEngine::append(EditDocument doc, std::string label) {
  const int64_t bytes = estimatedBytes(doc);
  entries_.push_back({Uuid::random(), std::move(label), clock_.now(), std::move(doc)});
  entryBytes_.push_back(bytes);
  totalBytes_ = checkedAdd(totalBytes_, bytes);
}

void HistoryEngine::dropOldest(size_t n) {
  for (size_t i = 0; i < n; ++i) totalBytes_ -= entryBytes_[i];
  entries_.erase(entries_.begin(), entries_.begin() + std::ptrdiff_t(n));
  entryBytes_.erase(entryBytes_.begin(), entryBytes_.begin() + std::ptrdiff_t(n));
}

void HistoryEngine::reset(EditDocument doc, std::string label) {
  entries_.clear();
  entryBytes_.clear();
  totalBytes_ = 0;
  append(std::move(doc), std::move(label));
  currentIndex_ = 0;
}

void HistoryEngine::push(EditDocument doc, std::string label) {
  if (currentIndex_ >= 0 && currentIndex_ < count() && entries_[size_t(currentIndex_)].document == doc) {
    return;  // a step that changes nothing is never recorded
  }
  if (currentIndex_ < count() - 1) {
    const size_t keep = size_t(currentIndex_ + 1);
    for (size_t i = keep; i < entryBytes_.size(); ++i) totalBytes_ -= entryBytes_[i];
    entries_.resize(keep);
    entryBytes_.resize(keep);
  }
  append(std::move(doc), std::move(label));

  const size_t n = entries_.size();
  size_t drop = n > kMaxEntries ? n - kMaxEntries : 0;
  int64_t dropped = 0;
  for (size_t i = 0; i < drop; ++i) dropped += entryBytes_[i];
  const int64_t budget = byteBudget();
  while (totalBytes_ - dropped > budget && n - drop > kMinEntriesKept) {
    dropped += entryBytes_[drop];
    ++drop;
  }
  dropOldest(drop);
  currentIndex_ = count() - 1;
}

std::optional<EditDocument> HistoryEngine::undo() {
  if (currentIndex_ < 1) return std::nullopt;
  --currentIndex_;
  return entries_[size_t(currentIndex_)].document;
}

std::optional<EditDocument> HistoryEngine::redo() {
  if (!canRedo()) return std::nullopt;
  ++currentIndex_;
  return entries_[size_t(currentIndex_)].document;
}

std::optional<EditDocument> HistoryEngine::jump(const Uuid& id) {
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].id == id) {
      currentIndex_ = int64_t(i);
      return entries_[i].document;
    }
  }
  return std::nullopt;
}

std::optional<Uuid> HistoryEngine::currentEntryID() const {
  if (currentIndex_ < 0 || currentIndex_ >= count()) return std::nullopt;
  return entries_[size_t(currentIndex_)].id;
}

}  // namespace vg
