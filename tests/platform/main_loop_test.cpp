// The host main loop: timers on the virtual clock (and a real-clock run).
#include "platform/kiv/main_loop.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/kiv_timer.h"
#include "platform/kiv/describe.h"
#include "platform/kiv/host.h"

namespace {

TEST(MainLoopTest, TimersRunAtDelayThenEveryPeriod) {
  kiv::MainLoop loop;
  std::vector<int64_t> at;
  loop.AddTimer([&] { at.push_back(loop.Now()); }, 5, 10, "a");
  loop.Advance(35);
  EXPECT_EQ(at, (std::vector<int64_t>{5, 15, 25, 35}));
  EXPECT_EQ(loop.Now(), 35);
}

TEST(MainLoopTest, DueTimersRunInTimeOrderThenIdOrder) {
  kiv::MainLoop loop;
  std::vector<std::string> order;
  loop.AddTimer([&] { order.push_back("b@" + std::to_string(loop.Now())); }, 10, 10, "b");
  loop.AddTimer([&] { order.push_back("a@" + std::to_string(loop.Now())); }, 5, 5, "a");
  loop.Advance(20);
  EXPECT_EQ(order, (std::vector<std::string>{"a@5", "b@10", "a@10", "a@15", "b@20", "a@20"}));
}

TEST(MainLoopTest, ATimerMayDeleteItselfAndOthers) {
  kiv::MainLoop loop;
  int runs = 0;
  int other = loop.AddTimer([] {}, 100, 100, "other");
  int self = 0;
  self = loop.AddTimer(
      [&] {
        ++runs;
        loop.DelTimer(self);
        loop.DelTimer(other);
      },
      1, 1, "self");
  loop.Advance(1000);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(loop.TimerCount(), 0u);
  EXPECT_FALSE(loop.DelTimer(self));
}

TEST(MainLoopTest, IdsAreNotReusedAndUnknownDeletesAreHarmless) {
  kiv::MainLoop loop;
  const int a = loop.AddTimer([] {}, 1, 1, "a");
  EXPECT_TRUE(loop.DelTimer(a));
  EXPECT_FALSE(loop.DelTimer(a));
  EXPECT_FALSE(loop.DelTimer(12345));
  EXPECT_GT(loop.AddTimer([] {}, 1, 1, "b"), a);
}

TEST(MainLoopTest, APeriodOfZeroRunsOnce) {
  kiv::MainLoop loop;
  int runs = 0;
  loop.AddTimer([&] { ++runs; }, 3, 0, "once");
  loop.Advance(100);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(loop.TimerCount(), 0u);
}

TEST(MainLoopTest, RunTicksCountsCallbacksAndMovesTheClock) {
  kiv::MainLoop loop;
  int runs = 0;
  loop.AddTimer([&] { ++runs; }, 10000, 10000, "frame");
  EXPECT_EQ(loop.RunTicks(7), 7);
  EXPECT_EQ(runs, 7);
  EXPECT_EQ(loop.Now(), 70000);
  kiv::MainLoop idle;
  EXPECT_EQ(idle.RunTicks(3), 0);
}

TEST(MainLoopTest, RunTicksTakesCountsBeyondInt) {
  kiv::MainLoop loop;
  int runs = 0;
  const int id = loop.AddTimer([&] { ++runs; }, 1, 1, "every microsecond");
  // A count past INT_MAX is not cut down to a few: it runs until the timer goes.
  loop.AddTimer([&] { loop.DelTimer(id); }, 1000, 0, "stop");
  EXPECT_EQ(loop.RunTicks(int64_t{4294967301}), 1001);
  EXPECT_EQ(runs, 1000);
}

// The clock ends at kEndOfTime: nothing overflows, nothing runs forever.
TEST(MainLoopTest, TimeArithmeticSaturatesAtTheEndOfTheClock) {
  constexpr int64_t kEnd = kiv::MainLoop::kEndOfTime;
  kiv::MainLoop loop;
  loop.Advance(kEnd - 10);
  EXPECT_EQ(loop.Now(), kEnd - 10);
  std::vector<int64_t> frames, late;
  // A camera opened now: its frame timer runs until its next run would pass the end.
  loop.AddTimer([&] { frames.push_back(loop.Now()); }, 4, 4, "frame");
  // Due past the end (the longest delay a timer takes, 32 or 64 bits): due at the end.
  loop.AddTimer([&] { late.push_back(loop.Now()); }, std::numeric_limits<long>::max(), 0, "late");
  loop.Advance(kEnd);  // past the end: to the end
  EXPECT_EQ(loop.Now(), kEnd);
  EXPECT_EQ(frames, (std::vector<int64_t>{kEnd - 6, kEnd - 2}));
  EXPECT_EQ(late, (std::vector<int64_t>{kEnd}));
  EXPECT_EQ(loop.TimerCount(), 0u);
  loop.Advance(kEnd);
  EXPECT_EQ(loop.Now(), kEnd);

  // At the end of the clock, a timer with a period runs once more, then goes.
  int runs = 0;
  loop.AddTimer([&] { ++runs; }, 1, 1, "at the end");
  EXPECT_EQ(loop.RunTicks(10), 1);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(loop.TimerCount(), 0u);
  loop.RunRealtime(kEnd);  // ends at once: the clock is at its end
  EXPECT_EQ(loop.Now(), kEnd);
}

TEST(MainLoopTest, AThrowingCallbackIsReportedAndTheLoopGoesOn) {
  kiv::MainLoop loop;
  std::vector<std::string> reports;
  loop.SetExceptionHandler([&](const std::string& name, std::exception_ptr e) {
    reports.push_back(name + ": " + kiv::DescribeException(e).type + ": " +
                      kiv::DescribeException(e).what);
  });
  int runs = 0;
  loop.AddTimer(
      [&] {
        ++runs;
        throw std::runtime_error("boom");
      },
      1, 1, "src/t_1");
  loop.Advance(3);
  EXPECT_EQ(runs, 3);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(reports[0], "src/t_1: std::runtime_error: boom");
}

TEST(MainLoopTest, TheRealClockRunsTimersUntilStopped) {
  kiv::MainLoop loop;
  int runs = 0;
  loop.AddTimer([&] { ++runs; }, 1000, 1000, "real");
  loop.RunRealtime(10'000'000, [&] { return runs == 5; });
  EXPECT_EQ(runs, 5);
  EXPECT_EQ(loop.RealtimeLateness().ticks, 5u);
  // A tick a whole period late is skipped, never run in a burst; the clock
  // stands at the due time of the last tick that ran.
  EXPECT_EQ(loop.Now(), 1000 * (5 + static_cast<int64_t>(loop.RealtimeLateness().skipped)));
}

TEST(MainLoopTest, HostFunctionsReachTheCurrentHost) {
  kiv::Host host;
  int runs = 0;
  const int id = kiv::AddTimerWithName([&] { ++runs; }, 10000, 10000, "src/caligetpic_310");
  EXPECT_EQ(host.Loop().TimerName(id), "src/caligetpic_310");
  host.Loop().Advance(20000);
  EXPECT_EQ(runs, 2);
  kiv::DelTimer(id);
  kiv::DelTimer(id);
  EXPECT_EQ(host.Loop().TimerCount(), 0u);
}

}  // namespace
