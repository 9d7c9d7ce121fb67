#include "platform/kiv/main_loop.h"

#include <chrono>
#include <iostream>
#include <thread>

#include "platform/kiv/describe.h"

namespace kiv {
namespace {

// a + b for b >= 0, saturating at kEndOfTime.
int64_t Later(int64_t a, int64_t b) {
  return b > MainLoop::kEndOfTime - a ? MainLoop::kEndOfTime : a + b;
}

}  // namespace

int MainLoop::AddTimer(std::function<void()> callback, long delay_us, long period_us,
                       std::string name) {
  const int id = next_id_++;
  timers_[id] = Timer{std::make_shared<const Body>(Body{std::move(callback), std::move(name)}),
                      Later(now_us_, delay_us > 0 ? delay_us : 0), period_us > 0 ? period_us : 0};
  return id;
}

bool MainLoop::DelTimer(int id) { return timers_.erase(id) != 0; }

std::string MainLoop::TimerName(int id) const {
  auto it = timers_.find(id);
  return it == timers_.end() ? std::string() : it->second.body->name;
}

int MainLoop::NextDue() const {
  int best = 0;
  int64_t best_due = 0;
  for (const auto& [id, timer] : timers_) {
    if (best == 0 || timer.due_us < best_due) {
      best = id;
      best_due = timer.due_us;
    }
  }
  return best;
}

void MainLoop::Fire(int id) {
  const std::shared_ptr<const Body> body = timers_.at(id).body;
  try {
    body->callback();
  } catch (...) {
    if (on_exception_) {
      on_exception_(body->name, std::current_exception());
    } else {
      const ExceptionInfo info = DescribeException(std::current_exception());
      std::cerr << "kiv: timer " << body->name << " threw " << info.type << ": " << info.what
                << std::endl;
    }
  }
  auto it = timers_.find(id);
  if (it == timers_.end()) return;  // deleted by its own callback
  // A one-shot timer, or one whose next run would fall past the end of
  // the clock, is done.
  if (it->second.period_us <= 0 || it->second.due_us > kEndOfTime - it->second.period_us) {
    timers_.erase(it);
  } else {
    it->second.due_us += it->second.period_us;
  }
}

void MainLoop::Advance(int64_t us) {
  const int64_t target = Later(now_us_, us > 0 ? us : 0);
  for (int id = NextDue(); id != 0 && timers_.at(id).due_us <= target; id = NextDue()) {
    now_us_ = timers_.at(id).due_us;
    Fire(id);
  }
  now_us_ = target;
}

int64_t MainLoop::RunTicks(int64_t count) {
  int64_t ran = 0;
  for (; ran < count; ++ran) {
    const int id = NextDue();
    if (id == 0) break;
    if (timers_.at(id).due_us > now_us_) now_us_ = timers_.at(id).due_us;
    Fire(id);
  }
  return ran;
}

void MainLoop::RunRealtime(int64_t duration_us, const std::function<bool()>& stop) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const int64_t origin = now_us_;  // loop time at `start`
  const int64_t end = Later(origin, duration_us > 0 ? duration_us : 0);
  auto wall_now = [&] {
    return origin +
           std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  };
  for (;;) {
    const int id = NextDue();
    const int64_t due = id != 0 ? timers_.at(id).due_us : end;
    if (due >= end) {
      std::this_thread::sleep_until(start + std::chrono::microseconds(end - origin));
      now_us_ = end;
      return;
    }
    std::this_thread::sleep_until(start + std::chrono::microseconds(due - origin));
    const int64_t actual = wall_now();
    Timer& timer = timers_.at(id);
    // A tick a whole period or more behind is dropped, not run in a burst.
    if (timer.period_us > 0 && actual - due >= timer.period_us) {
      const int64_t behind = (actual - due) / timer.period_us;
      lateness_.skipped += static_cast<uint64_t>(behind);
      timer.due_us += behind * timer.period_us;
    }
    const double late = static_cast<double>(actual - timer.due_us);
    lateness_.ticks += 1;
    lateness_.sum_us += late;
    if (late > lateness_.max_us) lateness_.max_us = late;
    now_us_ = timer.due_us;
    Fire(id);
    if (stop && stop()) return;
  }
}

}  // namespace kiv
