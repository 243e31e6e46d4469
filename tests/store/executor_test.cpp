#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "store/manual_executor.h"
#include "store/serial_queue.h"

namespace vg {
namespace {

using namespace std::chrono_literals;

TEST(ManualExecutor, RunsDueTasksInDueTimeThenPostingOrder) {
  FakeClock clock;
  ManualExecutor main(clock);
  std::vector<std::string> ran;
  main.postAfter(300ms, [&] { ran.push_back("c@300"); });
  main.postAfter(100ms, [&] { ran.push_back("b@100"); });
  main.post([&] { ran.push_back("a1"); });
  main.post([&] {
    ran.push_back("a2");
    main.post([&] { ran.push_back("a3 posted by a2"); });
  });
  main.postAfter(100ms, [&] { ran.push_back("b2@100"); });

  EXPECT_EQ(main.runReady(), 3u);
  EXPECT_EQ(ran, (std::vector<std::string>{"a1", "a2", "a3 posted by a2"}));
  EXPECT_EQ(main.pendingCount(), 3u);

  std::vector<Clock::TimePoint> seenAt;
  main.postAfter(200ms, [&] { seenAt.push_back(clock.now()); });
  main.advance(clock, 250ms);
  EXPECT_EQ(ran, (std::vector<std::string>{"a1", "a2", "a3 posted by a2", "b@100", "b2@100"}));
  ASSERT_EQ(seenAt.size(), 1u);
  EXPECT_EQ(seenAt[0], FakeClock::kDefaultStart + 200ms) << "a timer sees its own due time";
  EXPECT_EQ(clock.now(), FakeClock::kDefaultStart + 250ms);

  main.advance(clock, 49ms);
  EXPECT_EQ(ran.size(), 5u);
  main.advance(clock, 1ms);
  EXPECT_EQ(ran.back(), "c@300");
  EXPECT_EQ(main.pendingCount(), 0u);
}

TEST(ManualExecutor, WaitsForWorkPostedFromAnotherThread) {
  ManualExecutor main(SystemClock::shared());
  EXPECT_EQ(main.waitAndRunReady(10ms), 0u);
  std::atomic<bool> ranOnMain = false;
  const auto mainThread = std::this_thread::get_id();
  std::thread worker([&] {
    std::this_thread::sleep_for(5ms);
    main.post([&] { ranOnMain = std::this_thread::get_id() == mainThread; });
  });
  size_t ran = 0;
  for (int i = 0; i < 200 && ran == 0; ++i) ran = main.waitAndRunReady(50ms);
  worker.join();
  EXPECT_EQ(ran, 1u);
  EXPECT_TRUE(ranOnMain);
}

TEST(SerialQueue, RunsTasksOneAtATimeInPostingOrder) {
  SerialQueue queue("vg.test.serial");
  std::vector<int> order;  // touched only by the queue until drain() returns
  std::atomic<int> running = 0, overlaps = 0;
  std::vector<std::thread> posters;
  for (int p = 0; p < 4; ++p) {
    posters.emplace_back([&, p] {
      for (int i = 0; i < 250; ++i) {
        queue.post([&, p, i] {
          if (running.fetch_add(1) != 0) overlaps++;
          order.push_back(p * 1000 + i);
          running.fetch_sub(1);
        });
      }
    });
  }
  for (auto& t : posters) t.join();
  ASSERT_TRUE(queue.drain());
  EXPECT_EQ(overlaps.load(), 0);
  ASSERT_EQ(order.size(), 1000u);
  // Each poster's tasks keep their relative order.
  std::vector<int> last(4, -1);
  for (int v : order) {
    EXPECT_GT(v % 1000, last[size_t(v / 1000)]);
    last[size_t(v / 1000)] = v % 1000;
  }
}

TEST(SerialQueue, DrainFromItsOwnThreadIsRefusedAndDestructionRunsTheRest) {
  std::atomic<int> count = 0;
  {
    SerialQueue queue("vg.test.drain");
    std::atomic<bool> refused = false, onQueue = false;
    queue.post([&] {
      onQueue = queue.isCurrent();
      refused = !queue.drain();
    });
    ASSERT_TRUE(queue.drain());
    EXPECT_TRUE(onQueue);
    EXPECT_TRUE(refused);
    EXPECT_FALSE(queue.isCurrent());
    for (int i = 0; i < 50; ++i) {
      queue.post([&] {
        std::this_thread::sleep_for(100us);
        count++;
      });
    }
  }
  EXPECT_EQ(count.load(), 50);
}

}  // namespace
}  // namespace vg
