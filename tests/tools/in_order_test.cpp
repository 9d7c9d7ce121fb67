// stripetool::RunInOrder: every item once, results taken in order whatever
// the threads, a bounded number waiting, a stop, and exceptions.
#include "tools/stripe_tool/in_order.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using stripetool::RunInOrder;

// A pause of 0 to 400 microseconds that differs from item to item, so that
// threads finish their items out of order.
void Pause(std::size_t i) {
  std::mt19937 random(static_cast<unsigned>(i * 7919 + 1));
  std::this_thread::sleep_for(std::chrono::microseconds(random() % 400));
}

TEST(RunInOrderTest, ResultsAreTakenInOrderForEveryNumberOfJobs) {
  for (unsigned jobs : {1u, 2u, 3u, 8u, 64u}) {
    SCOPED_TRACE("jobs " + std::to_string(jobs));
    std::vector<std::size_t> taken;
    std::mutex mutex;
    std::multiset<std::size_t> worked;
    const bool completed = RunInOrder(
        200, jobs, 16,
        [&](std::size_t i) {
          Pause(i);
          std::lock_guard<std::mutex> lock(mutex);
          worked.insert(i);
          return std::to_string(i * i);
        },
        [&](std::size_t i, std::string&& result) {
          EXPECT_EQ(result, std::to_string(i * i));
          taken.push_back(i);
          return true;
        });
    EXPECT_TRUE(completed);
    ASSERT_EQ(taken.size(), 200u);
    for (std::size_t i = 0; i < taken.size(); ++i) EXPECT_EQ(taken[i], i);
    EXPECT_EQ(worked.size(), 200u);
    for (std::size_t i = 0; i < 200; ++i) EXPECT_EQ(worked.count(i), 1u) << i;
  }
}

TEST(RunInOrderTest, TakeRunsOnTheCallingThread) {
  const std::thread::id caller = std::this_thread::get_id();
  std::atomic<int> on_caller{0};
  RunInOrder(
      50, 4, 8,
      [](std::size_t i) {
        Pause(i);
        return i;
      },
      [&](std::size_t, std::size_t&&) {
        on_caller += std::this_thread::get_id() == caller ? 1 : 0;
        return true;
      });
  EXPECT_EQ(on_caller.load(), 50);
}

TEST(RunInOrderTest, NoItemStartsMoreThanAheadItemsBeforeTheLastTaken) {
  std::atomic<std::size_t> taken{0};
  std::atomic<std::size_t> furthest{0};  // how far an item ran ahead of the taken ones
  RunInOrder(
      300, 4, 5,
      [&](std::size_t i) {
        const std::size_t lead = i - taken.load();
        std::size_t seen = furthest.load();
        while (lead > seen && !furthest.compare_exchange_weak(seen, lead)) {
        }
        Pause(i);
        return i;
      },
      [&](std::size_t i, std::size_t&&) {
        taken = i + 1;
        return true;
      });
  EXPECT_LT(furthest.load(), 5u);
  EXPECT_GT(furthest.load(), 0u);  // the threads did run ahead
}

TEST(RunInOrderTest, AFalseFromTakeStopsTheRun) {
  for (unsigned jobs : {1u, 4u}) {
    SCOPED_TRACE("jobs " + std::to_string(jobs));
    std::atomic<std::size_t> started{0};
    std::vector<std::size_t> taken;
    const bool completed = RunInOrder(
        1000, jobs, 8,
        [&](std::size_t i) {
          ++started;
          Pause(i);
          return i;
        },
        [&](std::size_t i, std::size_t&&) {
          taken.push_back(i);
          return i < 9;
        });
    EXPECT_FALSE(completed);
    EXPECT_EQ(taken.size(), 10u);
    EXPECT_LE(started.load(), 10u + 8u);
  }
}

TEST(RunInOrderTest, AnExceptionFromWorkIsThrownOnTheCallingThreadInItsPlace) {
  for (unsigned jobs : {1u, 3u}) {
    SCOPED_TRACE("jobs " + std::to_string(jobs));
    std::vector<std::size_t> taken;
    try {
      RunInOrder(
          100, jobs, 8,
          [](std::size_t i) {
            Pause(i);
            if (i == 42) throw std::runtime_error("item 42");
            return i;
          },
          [&](std::size_t i, std::size_t&&) {
            taken.push_back(i);
            return true;
          });
      ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "item 42");
    }
    EXPECT_EQ(taken.size(), 42u);
  }
}

TEST(RunInOrderTest, ResultsThatCanOnlyBeMovedAreHandedOver) {
  std::size_t sum = 0;
  RunInOrder(
      20, 3, 4, [](std::size_t i) { return std::make_unique<std::size_t>(i); },
      [&](std::size_t, std::unique_ptr<std::size_t>&& value) {
        sum += *value;
        return true;
      });
  EXPECT_EQ(sum, 190u);
}

TEST(RunInOrderTest, NoItemsMeansNoCalls) {
  int calls = 0;
  EXPECT_TRUE(RunInOrder(
      0, 4, 4,
      [&](std::size_t) {
        ++calls;
        return 0;
      },
      [&](std::size_t, int&&) {
        ++calls;
        return true;
      }));
  EXPECT_EQ(calls, 0);
}

}  // namespace
