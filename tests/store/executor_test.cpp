#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "store/manual_executor.h"
#include "store/serial_queue.h"
#include "store/thread_pool.h"
#include "model/log.h"

namespace vg {
namespace {

using namespace std::chrono_literals;

TEST(ManualExecutor, RunsTasksInDueTimeThenPostingOrderOnFakeTime) {
  FakeClock clock;
  ManualExecutor main(clock);
  std::vector<std::string> ran;
  std::vector<Clock::TimePoint> seenAt;
  main.postAfter(300ms, [&] { ran.push_back("c"); });
  main.postAfter(100ms, [&] { ran.push_back("b1"); });
  main.post([&] { main.post([&] { ran.push_back("a2"); }); });
  main.postAfter(100ms, [&] {
    ran.push_back("b2");
    seenAt.push_back(clock.now());
  });

  EXPECT_EQ(main.runReady(), 2u);
  EXPECT_EQ(ran, std::vector<std::string>{"a2"});
  main.advance(clock, 250ms);
  EXPECT_EQ(ran, (std::vector<std::string>{"a2", "b1", "b2"}));
  EXPECT_EQ(seenAt, std::vector{FakeClock::kDefaultStart + 100ms}) << "a timer sees its due time";
  main.advance(clock, 49ms);
  EXPECT_EQ(ran.size(), 3u);
  main.advance(clock, 1ms);
  EXPECT_EQ(ran.back(), "c");
  EXPECT_EQ(main.pendingCount(), 0u);
}

TEST(SerialQueue, RunsTasksOneAtATimeInPostingOrder) {
  std::vector<int> order;  // touched only by the queue until drain() returns
  std::atomic<int> running = 0, overlaps = 0, afterDestruction = 0;
  std::atomic<bool> drainRefusedOnQueue = false;
  {
    SerialQueue queue("vg.test.serial");
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
    queue.post([&] { drainRefusedOnQueue = queue.isCurrent() && !queue.drain(); });
    ASSERT_TRUE(queue.drain());
    for (int i = 0; i < 20; ++i) queue.post([&] { afterDestruction++; });
  }
  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_TRUE(drainRefusedOnQueue);
  EXPECT_EQ(afterDestruction.load(), 20) << "the destructor runs what is still queued";
  ASSERT_EQ(order.size(), 1000u);
  std::vector<int> last(4, -1);  // each poster's tasks keep their order
  for (int v : order) {
    EXPECT_GT(v % 1000, last[size_t(v / 1000)]);
    last[size_t(v / 1000)] = v % 1000;
  }
}

TEST(ThreadPool, RunsTasksConcurrentlyWaitsForIdleAndSurvivesThrowingTasks) {
  ScopedLogCapture log;
  std::atomic<int> done = 0, peak = 0, running = 0, afterDestruction = 0;
  std::atomic<bool> waitRefusedOnWorker = false;
  {
    ThreadPool pool("vg.test.pool", 3);
    EXPECT_EQ(pool.threadCount(), 3u);
    for (int i = 0; i < 60; ++i) {
      pool.post([&, i] {
        const int now = running.fetch_add(1) + 1;
        int seen = peak.load();
        while (now > seen && !peak.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::sleep_for(1ms);
        running.fetch_sub(1);
        done++;
        if (i == 7) throw std::runtime_error("boom");
      });
    }
    pool.post([&] { waitRefusedOnWorker = pool.isCurrent() && !pool.waitIdle(); });
    ASSERT_TRUE(pool.waitIdle());
    EXPECT_EQ(done.load(), 60) << "waitIdle returns only once every task has run";
    for (int i = 0; i < 20; ++i) pool.post([&] { afterDestruction++; });
  }
  EXPECT_TRUE(waitRefusedOnWorker);
  EXPECT_GT(peak.load(), 1) << "tasks run side by side";
  EXPECT_EQ(afterDestruction.load(), 20) << "the destructor runs what is still queued";
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Verdantglass: 后台任务失败 boom"});
}

}  // namespace
}  // namespace vg
