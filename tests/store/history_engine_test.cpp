#include <gtest/gtest.h>

#include "store/history_engine.h"
#include "test_documents.h"

namespace vg {
namespace {

using test::numberedDocument;

EditDocument brushDocument(int points) {
  EditDocument doc;
  MaskLayer mask;
  BrushStroke stroke;
  for (int i = 0; i < points; ++i) stroke.points.push_back({0.5, 0.001 * i});
  mask.kind = std::vector<BrushStroke>{stroke};
  doc.masks.push_back(mask);
  return doc;
}

struct BudgetOverride {
  explicit BudgetOverride(int64_t bytes) { HistoryEngine::setByteBudgetOverride(bytes); }
  ~BudgetOverride() { HistoryEngine::setByteBudgetOverride(std::nullopt); }
};

TEST(HistoryEstimate, CountsBrushPointsBitmapBytesAndHealPoints) {
  EXPECT_EQ(HistoryEngine::estimatedBytes(EditDocument{}), 512 + 64);

  EditDocument doc;
  MaskLayer brush;
  BrushStroke a, b;
  a.points.assign(3, Point{0.1, 0.1});
  b.points.assign(2, Point{0.2, 0.2});
  brush.kind = std::vector<BrushStroke>{a, b};
  BitmapMaskData bitmap;
  bitmap.compressedData.assign(1000, 7);
  brush.subtracts = {MaskKind{bitmap}, MaskKind{std::vector<BrushStroke>{a}},
                     MaskKind{RadialMaskGeometry{}}};
  MaskLayer radial;  // shapes other than brush and bitmap count nothing
  doc.masks = {brush, radial};
  HealStroke heal;
  heal.points.assign(4, Point{0.3, 0.3});
  doc.heals = {heal, heal};
  EXPECT_EQ(HistoryEngine::estimatedBytes(doc),
            512 + (64 + 32 * 5) + 1000 + (64 + 32 * 3) + (64 + 32 * 8));
}

TEST(HistoryEngineTest, UndoRedoJumpAndTheirEnds) {
  FakeClock clock;
  HistoryEngine history(clock);
  EXPECT_EQ(history.currentIndex(), -1);
  EXPECT_FALSE(history.canUndo());
  EXPECT_FALSE(history.canRedo());
  EXPECT_EQ(history.undo(), std::nullopt);
  EXPECT_EQ(history.redo(), std::nullopt);
  EXPECT_EQ(history.currentEntryID(), std::nullopt);

  history.reset(numberedDocument(0), "打开");
  history.push(numberedDocument(1), "曝光");
  clock.advance(std::chrono::seconds(3));
  history.push(numberedDocument(2), "对比度");
  ASSERT_EQ(history.entries().size(), 3u);
  EXPECT_EQ(history.entries()[2].label, "对比度");
  EXPECT_EQ(history.entries()[2].date, FakeClock::kDefaultStart + std::chrono::seconds(3));
  EXPECT_NE(history.entries()[1].id, history.entries()[2].id);
  EXPECT_EQ(history.redo(), std::nullopt) << "redo at the last entry";

  EXPECT_EQ(history.undo(), numberedDocument(1));
  EXPECT_EQ(history.undo(), numberedDocument(0));
  EXPECT_EQ(history.undo(), std::nullopt) << "undo at index 0";
  EXPECT_EQ(history.currentIndex(), 0);
  EXPECT_TRUE(history.canRedo());
  EXPECT_EQ(history.redo(), numberedDocument(1));

  const Uuid last = history.entries()[2].id;
  EXPECT_EQ(history.jump(last), numberedDocument(2));
  EXPECT_EQ(history.currentEntryID(), last);
  EXPECT_EQ(history.jump(Uuid::random()), std::nullopt);
  EXPECT_EQ(history.currentIndex(), 2) << "an unknown id changes nothing";

  history.reset(numberedDocument(9), "重新打开");
  EXPECT_EQ(history.entries().size(), 1u);
  EXPECT_EQ(history.currentIndex(), 0);
  EXPECT_EQ(history.totalBytes(), HistoryEngine::estimatedBytes(numberedDocument(9)));
}

TEST(HistoryEngineTest, EqualPushIsIgnoredAndPushDropsTheRedoBranch) {
  HistoryEngine history;
  history.reset(numberedDocument(0), "a");
  history.push(numberedDocument(0), "same");
  EXPECT_EQ(history.entries().size(), 1u);
  for (int k = 1; k <= 4; ++k) history.push(numberedDocument(k, k), "step");
  history.undo();
  history.undo();
  EXPECT_EQ(history.currentIndex(), 2);
  history.push(numberedDocument(2, 2), "equal to the current entry after undo");
  EXPECT_EQ(history.entries().size(), 5u) << "nothing recorded, redo branch kept";
  EXPECT_TRUE(history.canRedo());

  history.push(numberedDocument(7), "branch");
  EXPECT_EQ(history.entries().size(), 4u);
  EXPECT_EQ(history.currentIndex(), 3);
  EXPECT_FALSE(history.canRedo());
  EXPECT_EQ(history.entries()[3].document, numberedDocument(7));
  int64_t sum = 0;
  for (int64_t b : history.entryBytes()) sum += b;
  EXPECT_EQ(history.totalBytes(), sum);
  EXPECT_EQ(history.entryBytes().size(), history.entries().size());
}

TEST(HistoryEngineTest, KeepsTheNewest120Entries) {
  HistoryEngine history;
  history.reset(numberedDocument(0), "0");
  for (int k = 1; k <= 120; ++k) history.push(numberedDocument(k), std::to_string(k));
  EXPECT_EQ(history.entries().size(), 120u);
  EXPECT_EQ(history.currentIndex(), 119);
  EXPECT_EQ(history.entries().front().label, "1") << "the 121st entry pushed out the first";
  EXPECT_EQ(history.entries().back().label, "120");
  int64_t sum = 0;
  for (int64_t b : history.entryBytes()) sum += b;
  EXPECT_EQ(history.totalBytes(), sum);
}

TEST(HistoryEngineTest, ByteBudgetTrimsButKeepsTwoEntries) {
  const int64_t big = HistoryEngine::estimatedBytes(brushDocument(1000));
  {
    BudgetOverride tiny(10);
    HistoryEngine history;
    history.reset(brushDocument(1000), "0");
    for (int k = 1; k <= 5; ++k) history.push(brushDocument(1000 + k), std::to_string(k));
    EXPECT_EQ(history.entries().size(), 2u);
    EXPECT_EQ(history.currentIndex(), 1);
    EXPECT_EQ(history.entries()[0].label, "4");
    EXPECT_TRUE(history.canUndo());
  }
  {
    // Room for three of these documents: the oldest go once a fourth arrives.
    BudgetOverride room(3 * big + 32 * 100);
    HistoryEngine history;
    history.reset(brushDocument(1000), "0");
    for (int k = 1; k <= 6; ++k) history.push(brushDocument(1000 + k), std::to_string(k));
    EXPECT_EQ(history.entries().size(), 3u);
    EXPECT_EQ(history.entries().front().label, "4");
    EXPECT_LE(history.totalBytes(), HistoryEngine::byteBudget());
  }
  EXPECT_EQ(HistoryEngine::byteBudget(), HistoryEngine::kDefaultByteBudget);
}

}  // namespace
}  // namespace vg
