// AsyncEditOperation and NewestWins on two manual queues: the test decides
// when background work and main-thread hops run.
#include <gtest/gtest.h>

#include <stdexcept>

#include "session/async_edit_operation.h"
#include "session/newest_wins.h"
#include "store/manual_executor.h"

namespace vg {
namespace {

struct AsyncFixture : ::testing::Test {
  FakeClock clock;
  ManualExecutor main{clock};
  ManualExecutor background{clock};
  std::vector<bool> busyFlags;
  int64_t replacements = 0;
  std::vector<std::pair<int, bool>> results;  // (value, stale)

  std::unique_ptr<AsyncEditOperation<int>> operation() {
    return std::make_unique<AsyncEditOperation<int>>(
        main, background, [this](bool b) { busyFlags.push_back(b); }, [this] { return replacements; });
  }
  AsyncEditOperation<int>::OnResult record() {
    return [this](int v, bool stale) { results.emplace_back(v, stale); };
  }
  void settle() {
    while (background.runReady() + main.runReady() > 0) {
    }
  }
};

using AsyncEditOperationTest = AsyncFixture;

TEST_F(AsyncEditOperationTest, StartingTwiceDeliversOnlyTheSecondResult) {
  auto op = operation();
  bool firstRan = false;
  op->start([&](const AsyncCancelToken&) { firstRan = true; return 1; }, record());
  op->start([](const AsyncCancelToken&) { return 2; }, record());
  settle();
  EXPECT_FALSE(firstRan) << "a run cancelled before it started does not compute";
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0], std::make_pair(2, false));
  EXPECT_EQ(busyFlags, (std::vector<bool>{true, false}));
  EXPECT_EQ(op->generation(), 2);
}

TEST_F(AsyncEditOperationTest, ALateResultAfterCancelIsDroppedWithoutAWord) {
  auto op = operation();
  op->start([](const AsyncCancelToken&) { return 7; }, record());
  background.runReady();  // computed; the hop to the main thread is queued
  op->cancel();
  EXPECT_EQ(busyFlags, (std::vector<bool>{true, false}));
  EXPECT_FALSE(op->busy());
  settle();
  EXPECT_TRUE(results.empty());
  EXPECT_EQ(busyFlags.size(), 2u);
}

TEST_F(AsyncEditOperationTest, AReplacedDocumentMakesTheResultStale) {
  auto op = operation();
  op->start([](const AsyncCancelToken&) { return 3; }, record());
  ++replacements;  // an undo while the work computes
  settle();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_TRUE(results[0].second);
}

TEST_F(AsyncEditOperationTest, NothingArrivesAfterTheOperationIsGoneOrItsWorkThrew) {
  auto op = operation();
  op->start([](const AsyncCancelToken&) { return 4; }, record());
  op.reset();
  settle();
  EXPECT_TRUE(results.empty());

  auto throwing = operation();
  busyFlags.clear();
  throwing->start([](const AsyncCancelToken&) -> int { throw std::runtime_error("no"); }, record());
  settle();
  EXPECT_TRUE(results.empty());
  EXPECT_EQ(busyFlags, (std::vector<bool>{true, false}));
}

using NewestWinsTest = AsyncFixture;

TEST_F(NewestWinsTest, OneRunsAtATimeAndOnlyTheNewestOfABurstIsDelivered) {
  std::vector<int> ran, delivered;
  std::vector<bool> busy;
  NewestWins<int> lane(main, background, [&](bool b) { busy.push_back(b); });
  const AsyncCancelToken* firstToken = nullptr;
  auto work = [&](int v) {
    return [&, v](const AsyncCancelToken& t) -> std::optional<int> {
      ran.push_back(v);
      if (v == 1) firstToken = &t;
      return v;
    };
  };
  auto deliver = [&](int v) { delivered.push_back(v); };
  lane.request(work(1), deliver);
  background.runReady();  // the first render has run; its result is on its way
  ASSERT_TRUE(firstToken);
  EXPECT_FALSE(firstToken->isCancelled());
  lane.request(work(2), deliver);  // waits, then is replaced
  lane.request(work(3), deliver);
  EXPECT_TRUE(firstToken->isCancelled()) << "an outdated render is told to stop";
  EXPECT_EQ(background.pendingCount(), 0u) << "one render at a time";
  settle();
  EXPECT_EQ(ran, (std::vector<int>{1, 3}));
  EXPECT_EQ(delivered, (std::vector<int>{3}));
  EXPECT_EQ(busy, (std::vector<bool>{true, false}));
  EXPECT_FALSE(lane.busy());

  lane.request(work(4), deliver);
  lane.cancel();
  settle();
  EXPECT_EQ(delivered, (std::vector<int>{3}));
  EXPECT_EQ(busy, (std::vector<bool>{true, false, true, false}));
}

}  // namespace
}  // namespace vg
