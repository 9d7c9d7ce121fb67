#include "tools/kivrun/progress.h"

#include <cstdio>

namespace kivrun {

namespace {
constexpr int kBarWidth = 30;
constexpr auto kRedraw = std::chrono::milliseconds(50);
}  // namespace

void Progress::Line(const std::string& text) {
  Clear();
  out_ << text << '\n';
  if (bar_) Draw();
  out_.flush();
}

void Progress::Step(int step, const std::string& what) {
  step_ = step;
  what_ = what;
  if (bar_) Draw();
}

void Progress::Clock(int64_t now_us) {
  now_us_ = now_us;
  if (bar_ && std::chrono::steady_clock::now() - last_draw_ >= kRedraw) Draw();
}

void Progress::Finish() {
  Clear();
  bar_ = false;  // what follows (the summary) is plain lines
  out_.flush();
}

void Progress::Draw() {
  const int done = steps_ > 0 ? (step_ - 1) * kBarWidth / steps_ : 0;
  std::string bar(static_cast<std::size_t>(kBarWidth), '.');
  for (int i = 0; i < done && i < kBarWidth; ++i) bar[static_cast<std::size_t>(i)] = '#';
  char head[96];
  std::snprintf(head, sizeof head, "\r[%s] step %d/%d  %7.2f s  ", bar.c_str(), step_, steps_,
                static_cast<double>(now_us_) / 1e6);
  // \033[K clears the rest of the terminal line.
  out_ << head << what_ << "\033[K" << std::flush;
  drawn_ = true;
  last_draw_ = std::chrono::steady_clock::now();
}

void Progress::Clear() {
  if (!drawn_) return;
  out_ << "\r\033[K";
  drawn_ = false;
}

void EchoFold::Add(const std::string& line) {
  if (!fold_) {
    print_(line);
    return;
  }
  if (count_ > 0 && line == line_) {
    ++count_;
    return;
  }
  Flush();
  line_ = line;
  count_ = 1;
}

void EchoFold::Flush() {
  if (count_ == 0) return;
  const uint64_t count = count_;
  count_ = 0;
  print_(Folded(line_, count));
}

std::string EchoFold::Folded(const std::string& line, uint64_t count) {
  if (count == 1) return line;
  return line + "  (x" + std::to_string(count) + ")";
}

}  // namespace kivrun
