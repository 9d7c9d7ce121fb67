// What kivrun shows a person while a round runs: the node's console lines
// (when asked), one line per finished "repeat" or "wait" step and, on a
// terminal, a progress bar under them that says which step runs and how far
// the main loop's clock has got.
//
// Lines are printed above the bar; the bar is redrawn at most 20 times a
// second and removed by Finish(). Interrupt() takes it away for someone
// else's output; it comes back at the next redraw.
//
// EchoFold shortens the node's console lines as they are echoed: a run of
// the same line, one after another, becomes one line with a count,
// "<line>  (xN)" (the line's own bytes, two blanks, "(x", the count, ")").
// A run is written out when a different line comes and by Flush(), which
// kivrun calls before any other output of its own and at the end, so the
// lines keep their order. A line that comes once is written as it is.
#ifndef LASERCALI_TOOLS_KIVRUN_PROGRESS_H_
#define LASERCALI_TOOLS_KIVRUN_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <functional>
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
  // Removes the bar until the next redraw, so others can write on the terminal.
  void Interrupt() { Clear(); }

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

class EchoFold {
 public:
  using Print = std::function<void(const std::string& line)>;
  // `fold`: fold runs (else every line is printed at once). `print` writes
  // one line, without its line end.
  EchoFold(bool fold, Print print) : fold_(fold), print_(std::move(print)) {}

  // The next console line.
  void Add(const std::string& line);
  // Writes the run held back, if any.
  void Flush();

  // A run as one line: "<line>  (xN)"; the line itself when `count` is 1.
  static std::string Folded(const std::string& line, uint64_t count);

 private:
  bool fold_;
  Print print_;
  std::string line_;
  uint64_t count_ = 0;  // how often line_ came in a row; 0: nothing held back
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_PROGRESS_H_
