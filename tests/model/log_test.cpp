#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "model/log.h"

namespace vg {
namespace {

TEST(Log, CaptureCollectsWholeLinesFromManyThreadsAndRestoresOnExit) {
  std::vector<std::string> outer;
  {
    ScopedLogCapture outerCapture([&](std::string_view l) { outer.emplace_back(l); });
    {
      ScopedLogCapture capture;
      std::vector<std::thread> threads;
      for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
          for (int i = 0; i < 100; ++i) logLine("Verdantglass: line");
        });
      }
      for (auto& t : threads) t.join();
      auto lines = capture.lines();
      ASSERT_EQ(lines.size(), 400u);
      for (const auto& l : lines) EXPECT_EQ(l, "Verdantglass: line");
    }
    logLine("after");
  }
  EXPECT_EQ(outer, std::vector<std::string>{"after"});
}

}  // namespace
}  // namespace vg
