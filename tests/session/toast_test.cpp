#include <gtest/gtest.h>

#include "session/toast.h"
#include "store/manual_executor.h"

namespace vg {
namespace {

using namespace std::chrono_literals;
using Kind = ToastMessage::Kind;

TEST(ToastTest, DisplayTimeGrowsWithTheTextAndIsCapped) {
  EXPECT_DOUBLE_EQ(toastDisplaySeconds("12345", Kind::info, false), 2.2);
  EXPECT_DOUBLE_EQ(toastDisplaySeconds(std::string(20, 'x'), Kind::success, false), 3.6);
  EXPECT_DOUBLE_EQ(toastDisplaySeconds(std::string(100, 'x'), Kind::error, true), 10.0);
  EXPECT_DOUBLE_EQ(toastDisplaySeconds(std::string(10, 'x'), Kind::error, true), 1.2 + 1.2 + 2.0 + 2.5);
  // Characters, not bytes: 20 Chinese characters are 60 bytes of UTF-8.
  EXPECT_EQ(characterCount("已粘贴调整参数"), 7u);
  EXPECT_DOUBLE_EQ(toastDisplaySeconds("编辑已变化，自动调整结果已丢弃编辑已变化", Kind::warning, false), 3.6);
}

TEST(ToastTest, ANewerToastIsNeverTakenDownByAnOlderTimer) {
  FakeClock clock;
  ManualExecutor main(clock);
  int changes = 0;
  ToastPresenter toasts(main, [&] { ++changes; });

  const Uuid first = toasts.show("12345", Kind::info);  // 2.2 s
  main.advance(clock, 1s);
  const Uuid second = toasts.show(std::string(20, 'x'), Kind::info);  // 3.6 s from now
  EXPECT_NE(first, second);
  main.advance(clock, 1500ms);  // the first toast's timer has fired
  ASSERT_TRUE(toasts.current());
  EXPECT_EQ(toasts.current()->id, second);
  main.advance(clock, 2s);  // 3.5 s after the second
  EXPECT_TRUE(toasts.current());
  main.advance(clock, 200ms);
  EXPECT_FALSE(toasts.current());
  EXPECT_EQ(changes, 3);  // shown, replaced, taken down
}

TEST(ToastTest, ATimerArrivingAfterThePresenterIsGoneDoesNothing) {
  FakeClock clock;
  ManualExecutor main(clock);
  int changes = 0;
  {
    ToastPresenter toasts(main, [&] { ++changes; });
    toasts.show("bye", Kind::info);
  }
  main.advance(clock, 5s);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(main.pendingCount(), 0u);
}

}  // namespace
}  // namespace vg
