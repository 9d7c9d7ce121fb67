// Timers of the kiv framework.
//
// A timer repeats its callback on the node main thread, first after `delay`
// and then every `period` microseconds, until it is deleted. Ids are
// positive and never reused within a process. Deleting an id that is not (or
// no longer) running is harmless.
#ifndef LASERCALI_FRAMEWORK_KIV_TIMER_H_
#define LASERCALI_FRAMEWORK_KIV_TIMER_H_

#include <functional>
#include <string>

namespace kiv {

// Starts a repeating timer named `name` (a trace tag) and returns its id.
int AddTimerWithName(std::function<void()> callback, long delay, long period,
                     const std::string& name);
// Stops the timer with that id.
void DelTimer(int id);

}  // namespace kiv

#endif  // LASERCALI_FRAMEWORK_KIV_TIMER_H_
