// What kivrun shows a person while a round runs: the node's console lines
// (when asked), one line per finished "repeat" or "wait" step and, on a
// terminal, a progress bar under them that says which step runs and how far
// the main loop's clock has got.
//
// Lines are printed above the bar; the bar is redrawn at most 20 times a
// second and removed by Finish().
#ifndef LASERCALI_TOOLS_KIVRUN_PROGRESS_H_
#define LASERCALI_TOOLS_KIVRUN_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>

namespace kivrun {

class Progress {
 public:
  // `bar`: draw the bar (only on a terminal). `steps`: the scenario's steps.
  Progress(std::ostream& out, bool bar, int steps) : out_(out), bar_(bar), steps_(steps) {}

  // Prints one line.
  void Line(const std::string& text);
  // Step `step` (from 1) runs, doing `what`.
  void Step(int step, const std::string& what);
  // The clock moved on; redraws the bar now and then.
  void Clock(int64_t now_us);
  // Removes the bar for good; later lines are plain.
  void Finish();

 private:
  void Draw();
  void Clear();

  std::ostream& out_;
  bool bar_;
  int steps_;
  int step_ = 0;
  std::string what_;
  int64_t now_us_ = 0;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_draw_{};
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_PROGRESS_H_
