// The main loop of the host framework: repeating timers on one thread.
//
// Time is counted in microseconds from the loop's start. Two clocks drive
// it. The virtual clock (Advance) jumps from one due timer to the next and
// runs every timer that falls due, in order of due time and, for equal
// times, of id; it is deterministic and as fast as the callbacks allow. The
// real clock (RunRealtime) sleeps until each due time on the steady wall
// clock; each next due time is the previous due time plus the period, so
// lateness never accumulates, and ticks that are a whole period or more late
// are skipped and counted. A timer may add or delete timers, itself
// included, from inside its callback.
//
// The clock ends at kEndOfTime (INT64_MAX microseconds, about 292,000
// years): time arithmetic saturates there and never overflows. A timer
// added with a delay that reaches past the end is due at kEndOfTime; a
// timer whose next run would fall past the end is not run again (it is
// removed after its last run); Advance never moves the clock past the end.
//
// A callback that throws does not stop the loop: the exception is handed to
// the exception handler, if one is set, else described on std::cerr.
#ifndef LASERCALI_PLATFORM_KIV_MAIN_LOOP_H_
#define LASERCALI_PLATFORM_KIV_MAIN_LOOP_H_

#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>

namespace kiv {

class MainLoop {
 public:
  static constexpr int64_t kEndOfTime = std::numeric_limits<int64_t>::max();

  using ExceptionHandler = std::function<void(const std::string& timer_name, std::exception_ptr)>;

  // Lateness of real-clock ticks, in microseconds.
  struct Lateness {
    uint64_t ticks = 0;
    uint64_t skipped = 0;
    double sum_us = 0;
    double max_us = 0;
    double mean_us() const { return ticks ? sum_us / static_cast<double>(ticks) : 0.0; }
  };

  // Starts a timer: first run `delay_us` from now, then every `period_us`
  // (a period of 0 or less runs it once). Returns its id (1, 2, ...).
  int AddTimer(std::function<void()> callback, long delay_us, long period_us, std::string name);
  // Stops the timer; false when no such timer runs.
  bool DelTimer(int id);
  // Stops every timer (before the code their callbacks live in goes away).
  void Clear() { timers_.clear(); }
  bool HasTimer(int id) const { return timers_.count(id) != 0; }
  std::size_t TimerCount() const { return timers_.size(); }
  // Name of a running timer, empty if none.
  std::string TimerName(int id) const;

  // Current time in microseconds since the loop started.
  int64_t Now() const { return now_us_; }

  // Virtual clock: moves time forward by `us` (at most to kEndOfTime),
  // running every timer that falls due on the way (one due at exactly
  // now + us runs too).
  void Advance(int64_t us);
  // Virtual clock: runs the next `count` timer callbacks, whatever timer
  // they belong to; returns how many ran (fewer when no timer is left).
  int64_t RunTicks(int64_t count);

  // Real clock: runs due timers for `duration_us` of wall time, or until
  // `stop` returns true (checked after each callback); at most to kEndOfTime.
  void RunRealtime(int64_t duration_us, const std::function<bool()>& stop = {});
  const Lateness& RealtimeLateness() const { return lateness_; }

  void SetExceptionHandler(ExceptionHandler handler) { on_exception_ = std::move(handler); }

 private:
  struct Body {  // shared, so a callback may delete its own timer while running
    std::function<void()> callback;
    std::string name;
  };
  struct Timer {
    std::shared_ptr<const Body> body;
    int64_t due_us;
    int64_t period_us;
  };
  // The timer due first (ties: lowest id), or 0 when none.
  int NextDue() const;
  // Runs timer `id`, which is due at Now(), and schedules its next run.
  void Fire(int id);

  std::map<int, Timer> timers_;
  int next_id_ = 1;
  int64_t now_us_ = 0;
  Lateness lateness_;
  ExceptionHandler on_exception_;
};

}  // namespace kiv

#endif  // LASERCALI_PLATFORM_KIV_MAIN_LOOP_H_
