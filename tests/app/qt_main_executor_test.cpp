// The Qt main executor: tasks from any thread run on the GUI thread, in
// order; timers wait at least their delay; a destroyed executor runs nothing.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <atomic>
#include <thread>
#include <vector>

#include "app/qt_main_executor.h"
#include "app_test_support.h"
#include "store/thread_pool.h"

namespace vg::app {
namespace {

using namespace std::chrono_literals;
using test::waitUntil;

TEST(QtMainExecutor, RunsPostsInOrderOnTheGuiThreadFromAnyThread) {
  QtMainExecutor main;
  std::vector<int> order;
  std::atomic<int> offThread{0};
  ThreadPool pool("exec-test", 2);
  for (int i = 0; i < 50; ++i) main.post([&, i] { order.push_back(i); });
  for (int i = 0; i < 20; ++i)
    pool.post([&] {
      main.post([&] {
        if (QThread::currentThread() != QCoreApplication::instance()->thread()) ++offThread;
        order.push_back(-1);
      });
    });
  pool.waitIdle();
  ASSERT_TRUE(waitUntil([&] { return order.size() == 70; }));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[size_t(i)], i);  // posted first, run first
  EXPECT_EQ(offThread.load(), 0);
}

TEST(QtMainExecutor, TimersWaitTheirDelayAndKeepPostingOrder) {
  QtMainExecutor main;
  std::vector<int> fired;
  QElapsedTimer clock;
  clock.start();
  qint64 firstAt = -1;
  main.postAfter(60ms, [&] { fired.push_back(2); });
  main.postAfter(30ms, [&] {
    firstAt = clock.elapsed();
    fired.push_back(1);
  });
  main.postAfter(60ms, [&] { fired.push_back(3); });
  main.post([&] { fired.push_back(0); });
  ASSERT_TRUE(waitUntil([&] { return fired.size() == 4; }));
  EXPECT_EQ(fired, (std::vector<int>{0, 1, 2, 3}));
  EXPECT_GE(firstAt, 30);
}

TEST(QtMainExecutor, DestroyedExecutorDropsWhatIsPendingAndThrowingTasksAreContained) {
  int ran = 0;
  {
    QtMainExecutor main;
    main.post([&] { ++ran; });
    main.postAfter(10ms, [&] { ++ran; });
  }
  test::waitUntil([] { return false; }, 50);
  EXPECT_EQ(ran, 0);

  QtMainExecutor main;
  main.post([] { throw std::runtime_error("boom"); });
  main.post([&] { ++ran; });
  ASSERT_TRUE(waitUntil([&] { return ran == 1; }));
}

}  // namespace
}  // namespace vg::app
