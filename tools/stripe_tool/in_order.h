// Work on many items on several threads, with the results taken in order.
//
// RunInOrder calls work(i) for every i from 0 to count - 1 on `jobs` threads
// and hands each result to take(i, result) on the calling thread, strictly in
// the order of i, as soon as the results up to i are there. So whatever the
// number of threads, take sees the same calls in the same order, and the
// output it writes is the same byte for byte. At most `ahead` results wait to
// be taken: a thread does not start item i before item i - ahead was taken,
// which bounds the memory the waiting results hold. When take returns false,
// no item is started any more; RunInOrder waits for the items under way and
// returns false. An exception thrown by work (or take) stops the run the same
// way and is thrown again by RunInOrder on the calling thread, in its place in
// the order, once the threads are done.
// With one job (or one item) everything runs on the calling thread.
//
// work runs on the worker threads at the same time for different items: it
// must not touch state shared between items without a lock.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_IN_ORDER_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_IN_ORDER_H_

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace stripetool {

template <typename Work, typename Take>
bool RunInOrder(std::size_t count, unsigned jobs, std::size_t ahead, Work work, Take take) {
  using Result = decltype(work(std::size_t{0}));
  ahead = std::max<std::size_t>(ahead, 1);
  if (jobs <= 1 || count <= 1) {
    for (std::size_t i = 0; i < count; ++i) {
      if (!take(i, work(i))) return false;
    }
    return true;
  }

  struct Slot {
    std::optional<Result> result;
    std::exception_ptr error;
    bool done = false;
  };
  std::vector<Slot> slots(count);
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;   // the next item to start
  std::size_t taken = 0;  // items taken so far
  bool stop = false;

  auto worker = [&]() {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      changed.wait(lock, [&] { return stop || next >= count || next < taken + ahead; });
      if (stop || next >= count) return;
      const std::size_t i = next++;
      lock.unlock();
      std::optional<Result> result;
      std::exception_ptr error;
      try {
        result.emplace(work(i));
      } catch (...) {
        error = std::current_exception();
      }
      lock.lock();
      slots[i].result = std::move(result);
      slots[i].error = error;
      slots[i].done = true;
      changed.notify_all();
    }
  };

  std::vector<std::thread> threads;
  const unsigned started = static_cast<unsigned>(std::min<std::size_t>(jobs, count));
  threads.reserve(started);
  for (unsigned t = 0; t < started; ++t) {
    try {
      threads.emplace_back(worker);
    } catch (const std::system_error&) {
      break;  // the threads there are do the work
    }
  }
  if (threads.empty()) return RunInOrder(count, 1, ahead, work, take);

  bool completed = true;
  std::exception_ptr error;
  std::unique_lock<std::mutex> lock(mutex);
  while (taken < count) {
    changed.wait(lock, [&] { return slots[taken].done; });
    Slot slot = std::move(slots[taken]);
    slots[taken] = Slot();
    lock.unlock();
    bool go_on = false;
    if (slot.error) {
      error = slot.error;
    } else {
      try {
        go_on = take(taken, std::move(*slot.result));
      } catch (...) {
        error = std::current_exception();
      }
    }
    lock.lock();
    ++taken;
    if (!go_on) {
      stop = true;
      completed = false;
    }
    changed.notify_all();
    if (stop) break;
  }
  lock.unlock();
  for (std::thread& thread : threads) thread.join();
  if (error) std::rethrow_exception(error);
  return completed;
}

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_IN_ORDER_H_
