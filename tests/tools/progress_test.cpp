// What kivrun shows while a round runs: the echoed console lines folded
// into one line with a count per run, and the progress lines.
#include "tools/kivrun/progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using kivrun::EchoFold;

struct Printed {
  std::vector<std::string> lines;
  EchoFold::Print Sink() {
    return [this](const std::string& line) { lines.push_back(line); };
  }
};

TEST(EchoFoldTest, ARunOfTheSameLineIsOneLineWithItsCount) {
  Printed printed;
  EchoFold fold(true, printed.Sink());
  fold.Add("xxx open camera success! ");
  for (int i = 0; i < 10; ++i) fold.Add("[STB] return_res success cc");
  fold.Add("xxx distance fail 5");
  fold.Flush();
  EXPECT_EQ(printed.lines, (std::vector<std::string>{"xxx open camera success! ",
                                                     "[STB] return_res success cc  (x10)",
                                                     "xxx distance fail 5"}));
}

TEST(EchoFoldTest, ALineKeepsItsOwnBytesBeforeTheCount) {
  // The node's line ends with a blank of its own: it stays, and the two
  // blanks of the count follow it.
  EXPECT_EQ(EchoFold::Folded("xxx dis_suit_flag = 1 ", 3), "xxx dis_suit_flag = 1   (x3)");
  EXPECT_EQ(EchoFold::Folded("[STB] return_res success cc", 10),
            "[STB] return_res success cc  (x10)");
  EXPECT_EQ(EchoFold::Folded("once", 1), "once");
  EXPECT_EQ(EchoFold::Folded("", 2), "  (x2)");
}

TEST(EchoFoldTest, ARunIsHeldBackUntilADifferentLineOrAFlush) {
  Printed printed;
  EchoFold fold(true, printed.Sink());
  fold.Add("a");
  fold.Add("a");
  EXPECT_TRUE(printed.lines.empty()) << "the run may go on";
  fold.Flush();
  EXPECT_EQ(printed.lines, std::vector<std::string>{"a  (x2)"});
  // After a flush a new run starts, even with the same line.
  fold.Add("a");
  fold.Add("b");
  fold.Flush();
  fold.Flush();  // nothing held back: nothing more
  EXPECT_EQ(printed.lines, (std::vector<std::string>{"a  (x2)", "a", "b"}));
}

TEST(EchoFoldTest, LinesThatDifferOnlyAtTheEndAreNotARun) {
  Printed printed;
  EchoFold fold(true, printed.Sink());
  fold.Add("xxx distance fail 5");
  fold.Add("xxx distance fail 5 ");
  fold.Add("xxx distance fail 5");
  fold.Flush();
  EXPECT_EQ(printed.lines.size(), 3u);
}

TEST(EchoFoldTest, RawEchoWritesEveryLineAtOnce) {
  Printed printed;
  EchoFold fold(false, printed.Sink());
  for (int i = 0; i < 3; ++i) {
    fold.Add("[STB] return_res success cc");
    EXPECT_EQ(printed.lines.size(), static_cast<std::size_t>(i + 1));
  }
  fold.Flush();
  EXPECT_EQ(printed.lines, std::vector<std::string>(3, "[STB] return_res success cc"));
}

TEST(ProgressTest, LinesWithoutABarArePlain) {
  std::ostringstream out;
  kivrun::Progress progress(out, false, 3);
  progress.Step(1, "distance 5 accepted");
  progress.Clock(100000);
  progress.Line("[0.80 s] distance 5 accepted: 9 requests, after 80 ticks");
  progress.Interrupt();
  progress.Finish();
  EXPECT_EQ(out.str(), "[0.80 s] distance 5 accepted: 9 requests, after 80 ticks\n");
}

TEST(ProgressTest, InterruptTakesTheBarAwayUntilTheNextRedraw) {
  std::ostringstream out;
  kivrun::Progress progress(out, true, 2);
  progress.Step(1, "waiting");
  const std::string drawn = out.str();
  ASSERT_NE(drawn.find("step 1/2"), std::string::npos) << drawn;
  progress.Interrupt();
  EXPECT_EQ(out.str(), drawn + "\r\033[K");
  progress.Interrupt();  // already gone
  EXPECT_EQ(out.str(), drawn + "\r\033[K");
  progress.Step(2, "waiting");
  EXPECT_NE(out.str().find("step 2/2", drawn.size()), std::string::npos);
}

}  // namespace
