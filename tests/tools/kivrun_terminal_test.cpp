// What a person sees who runs kivrun on a terminal, and what a script sees
// that pipes it: on a pseudo-terminal a scenario run shows its progress and
// summary and says where the log and the page went (a folder named after
// the scenario); piped, or with "--log -", the event log is on standard
// output as always; the exit code is the round's either way. Runs that can
// follow each other share a folder: the second and third rounds on a
// terminal follow the first. ("--log=-" is read as "--log -":
// kivrun_command_line_test; a round that runs out, piped, exits with 4:
// the scenario test repeat_runs_out.)
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/program_run.h"
#include "tests/support/pty_run.h"
#include "tests/support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ReadFile;
using testsupport::RunOnTerminal;
using testsupport::TempFolder;

const std::string kScenario = LASERCALI_SOURCE_DIR "/scenarios/chessboard_round.json";
const std::string kRunsOut = LASERCALI_SOURCE_DIR "/tests/scenarios/repeat_runs_out.json";

bool HasLine(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

bool HasLogLine(const std::string& text) {
  return ("\n" + text).find("\n{\"t\":") != std::string::npos;
}

class KivrunTerminalTest : public ::testing::Test {
 protected:
  // `args` run in the test's folder on a terminal.
  testsupport::PtyRun OnTerminal(const std::string& args) {
    return RunOnTerminal("cd '" + dir_.path() + "' && " KIVRUN " " + args);
  }
  // `args` run in the test's folder with standard output into out.txt.
  int Piped(const std::string& args) {
    const std::string command = "cd '" + dir_.path() + "' && " KIVRUN " " + args + " >out.txt";
    const int raw = std::system(command.c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }

  TempFolder dir_;
};

TEST_F(KivrunTerminalTest, PipedTheLogOnATerminalTheRoundAndWhereItWent) {
  // Piped: the log, and no folder.
  ASSERT_EQ(Piped("'" + kScenario + "'"), 0);
  const std::string piped = ReadFile(dir_.File("out.txt"));
  EXPECT_EQ(piped.rfind("{\"t\":0,\"event\":\"load\",", 0), 0u) << piped.substr(0, 200);
  EXPECT_FALSE(fs::exists(dir_.File("chessboard_round"))) << "a pipe gets the log, no folder";

  const testsupport::PtyRun dash = OnTerminal("--log - '" + kScenario + "'");
  ASSERT_EQ(dash.status, 0) << dash.out;
  EXPECT_EQ(dash.out, piped) << "--log - on a terminal: the log, and nothing else";
  EXPECT_FALSE(fs::exists(dir_.File("chessboard_round")));
  EXPECT_FALSE(fs::exists(dir_.File("-"))) << "--log - names no file";

  const testsupport::PtyRun run = OnTerminal("'" + kScenario + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_FALSE(HasLogLine(run.out)) << "no event log on the terminal:\n" << run.out;
  EXPECT_TRUE(HasLine(run.out,
                      "kivrun: writing the round into chessboard_round/ (piped, or with --log -, "
                      "the event log goes to standard output)"))
      << run.out;
  EXPECT_TRUE(HasLine(run.out, "== the round ran to its end")) << run.out;
  EXPECT_NE(run.out.find("\nsimulated time:"), std::string::npos) << run.out;
  EXPECT_TRUE(
      HasLine(run.out, "== the round's page, to open in a browser: chessboard_round/report.html"))
      << run.out;
  EXPECT_TRUE(HasLine(run.out,
                      "   event log: chessboard_round/events.jsonl; picture report: "
                      "chessboard_round/report.md, chessboard_round/pictures.png"))
      << run.out;
  for (const char* file : {"events.jsonl", "report.html", "report.md", "pictures.png"}) {
    EXPECT_TRUE(fs::is_regular_file(dir_.File("chessboard_round/") + file)) << file;
  }
  EXPECT_TRUE(fs::is_regular_file(dir_.File("chessboard_round/pictures/pic/chessboard.bmp")));
  // The log in the folder is the one a pipe gets.
  EXPECT_EQ(ReadFile(dir_.File("chessboard_round/events.jsonl")), piped);

  // A second round replaces the first, and spares others' files.
  const testsupport::PtyRun again = OnTerminal("'" + kScenario + "'");
  ASSERT_EQ(again.status, 0) << again.out;
  EXPECT_TRUE(HasLine(again.out,
                      "kivrun: writing the round into chessboard_round/, in place of the round "
                      "written there before (piped, or with --log -, the event log goes to "
                      "standard output)"))
      << again.out;
  EXPECT_FALSE(fs::exists(dir_.File("chessboard_round-2")));

  std::ofstream(dir_.File("chessboard_round/mine.txt")) << "mine";
  const testsupport::PtyRun third = OnTerminal("'" + kScenario + "'");
  ASSERT_EQ(third.status, 0) << third.out;
  EXPECT_TRUE(HasLine(third.out,
                      "kivrun: chessboard_round/ holds files that are not a round kivrun wrote; "
                      "they stay as they are and this round goes to chessboard_round-2/"))
      << third.out;
  EXPECT_TRUE(HasLine(third.out,
                      "== the round's page, to open in a browser: chessboard_round-2/report.html"))
      << third.out;
  EXPECT_EQ(ReadFile(dir_.File("chessboard_round/mine.txt")), "mine");
  EXPECT_TRUE(fs::is_regular_file(dir_.File("chessboard_round-2/events.jsonl")));
}

TEST_F(KivrunTerminalTest, LogFileOnATerminalIsAsBefore) {
  const testsupport::PtyRun run = OnTerminal("--log round.jsonl '" + kScenario + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(HasLogLine(ReadFile(dir_.File("round.jsonl"))));
  EXPECT_FALSE(fs::exists(dir_.File("chessboard_round")));
}

TEST_F(KivrunTerminalTest, ReportFolderTakesTheLog) {
  const testsupport::PtyRun run = OnTerminal("--report R '" + kScenario + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_FALSE(HasLogLine(run.out)) << run.out;
  EXPECT_TRUE(HasLine(run.out, "== the round's page, to open in a browser: R/report.html"))
      << run.out;
  EXPECT_TRUE(HasLogLine(ReadFile(dir_.File("R/events.jsonl"))));
  EXPECT_FALSE(fs::exists(dir_.File("chessboard_round")));

  // An events.jsonl there that is not kivrun's is not written over.
  fs::create_directory(dir_.File("S"));
  std::ofstream(dir_.File("S/events.jsonl")) << "my notes\n";
  const testsupport::PtyRun refused = OnTerminal("--report S '" + kScenario + "'");
  EXPECT_EQ(refused.status, 2) << refused.out;
  EXPECT_NE(refused.out.find("kivrun: S/events.jsonl is not an event log of kivrun's, so the "
                             "round does not write over it; name the log with --log FILE (or "
                             "--log - for standard output)"),
            std::string::npos)
      << refused.out;
  EXPECT_EQ(ReadFile(dir_.File("S/events.jsonl")), "my notes\n");
}

TEST_F(KivrunTerminalTest, ExitCodeIsTheRoundsOnATerminalToo) {
  const testsupport::PtyRun run = OnTerminal("'" + kRunsOut + "'");
  EXPECT_EQ(run.status, 4) << run.out;
  EXPECT_FALSE(HasLogLine(run.out)) << run.out;
  EXPECT_TRUE(
      HasLine(run.out, "== the round's page, to open in a browser: repeat_runs_out/report.html"))
      << run.out;

  // A scenario that cannot be read stops before any folder is made.
  std::ofstream(dir_.File("broken.json")) << "{";
  EXPECT_EQ(OnTerminal("broken.json").status, 1);
  EXPECT_FALSE(fs::exists(dir_.File("broken")));
}

}  // namespace
