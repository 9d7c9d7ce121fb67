// kivrun's command line, run as a program: one run for each way a setting
// reaches the round (the options' values, a plug-in, the scenario), the
// message and exit code of a bad command line, help and version on standard
// output, an output that cannot be opened; the echo of the node's console
// lines, folded or raw; replaying a log. Which command lines are taken and
// the message of each refused one: kivrun_command_line_test, in process.
//
// The runs that get as far as the node use a configuration without
// "delt_app": the plug-in loads and the builder is called with it, then the
// construction stops (exit code 3) before the node makes its picture
// folders. So a run writes nothing but its files in the test's own folder.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "lasercali_version.h"
#include "tests/support/program_run.h"
#include "tools/kivrun/usage.h"

namespace {

namespace fs = std::filesystem;

const char kHint[] = "Try 'kivrun --help' for usage.";

using KivrunRun = testsupport::ProgramRun;
using testsupport::Lines;
using testsupport::ReadFile;

class KivrunCliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/kivrun_cli_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    config_ = Write("config.json", R"({"name": "cli_test", "delt_factory": 7})");
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  // Writes `text` as the test folder's file `name`; returns its path.
  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name) << text;
    return (dir_ / name).string();
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs kivrun with `args` from the test folder.
  KivrunRun Kivrun(const std::string& args) {
    const std::string command = "cd '" + dir_.string() + "' && " + std::string(KIVRUN) + " " +
                                args + " >" + Path("out.txt") + " 2>" + Path("err.txt");
    const int raw = std::system(command.c_str());
    KivrunRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(Path("out.txt"));
    run.err = Lines(ReadFile(Path("err.txt")));
    return run;
  }

  // The event log in the test folder's file `name`, one document per line.
  std::vector<rapidjson::Document> Log(const std::string& name) {
    std::vector<rapidjson::Document> events;
    for (const std::string& line : Lines(ReadFile(Path(name)))) {
      events.emplace_back();
      events.back().Parse(line.c_str());
      EXPECT_FALSE(events.back().HasParseError()) << line;
    }
    return events;
  }

  // The configuration the builder got, as logged in `log`; "" when it was not called.
  std::string BuiltName(const std::string& log) {
    for (const auto& event : Log(log)) {
      if (event.IsObject() && std::string(event["event"].GetString()) == "build") {
        return event["config"]["name"].GetString();
      }
    }
    return "";
  }

  // The run got as far as the builder with the test's configuration and
  // wrote its log into `log`.
  void ExpectBuiltFromConfig(const KivrunRun& run, const std::string& log) {
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "") << "the log goes to the file";
    EXPECT_EQ(BuiltName(log), "cli_test");
    const auto events = Log(log);
    ASSERT_FALSE(events.empty());
    EXPECT_STREQ(events.back()["event"].GetString(), "end");
    EXPECT_EQ(events.back()["exit"].GetInt(), 3);
  }

  // kivrun refused the command line with `message` and the hint, and wrote nothing.
  void ExpectUsageError(const std::string& args, const std::string& message) {
    SCOPED_TRACE("kivrun " + args);
    const KivrunRun run = Kivrun(args);
    EXPECT_EQ(run.status, 2);
    ASSERT_EQ(run.err.size(), 2u);
    EXPECT_EQ(run.err[0], "kivrun: " + message);
    EXPECT_EQ(run.err[1], kHint);
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(fs::exists(dir_ / "log.jsonl"));
  }

  fs::path dir_;
  std::string config_;
};

TEST_F(KivrunCliTest, OptionValuesReachTheRound) {
  ExpectBuiltFromConfig(Kivrun("--log=" + Path("log.jsonl") + " --config " + config_), "log.jsonl");
}

TEST_F(KivrunCliTest, APluginGivenIsTheOneLoaded) {
  const KivrunRun run = Kivrun("--plugin " + Path("none.so") + " --config=" + config_ +
                               " --log=" + Path("log.jsonl"));
  EXPECT_EQ(run.status, 1);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("kivrun: cannot load plug-in '" + Path("none.so") + "'", 0), 0u)
      << run.err[0];
}

TEST_F(KivrunCliTest, TheScenarioGivenIsPlayed) {
  const std::string scenario =
      Write("scenario.json", R"({"config_file": "config.json", "steps": []})");
  ExpectBuiltFromConfig(Kivrun("--echo " + scenario + " --log " + Path("among.jsonl")),
                        "among.jsonl");
}

TEST_F(KivrunCliTest, ABadCommandLineIsNamedWithTheHintAndExitCode2) {
  ExpectUsageError("--frobnicate --config=" + config_ + " --log=" + Path("log.jsonl"),
                   "unknown option --frobnicate");
}

TEST_F(KivrunCliTest, AnOutputThatCannotBeOpenedIsNoUsageMistake) {
  const KivrunRun run = Kivrun("--config=" + config_ + " --log=" + Path("missing/log.jsonl"));
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: cannot write " + Path("missing/log.jsonl") + ": No such file or directory");
}

TEST_F(KivrunCliTest, VersionShowsTheVersionAndTheNodesTags) {
  const KivrunRun run = Kivrun("--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string("kivrun " LASERCALI_VERSION "\nbuild commit tag ") +
                         LASERCALI_BUILD_COMMIT_TAG + ", framework tag " + LASERCALI_FRAMEWORK_TAG +
                         "\n");
  EXPECT_TRUE(run.err.empty());
}

// With --pictures-out kivrun gives the node a /tmp of its own and copies
// what the node wrote there to the folder at the end. The test's own /tmp
// (private to this binary) gets none of the node's pictures, and the log,
// named under /tmp, is still written where it was named.
TEST_F(KivrunCliTest, PicturesOutKeepsThePicturesOfThePrivateTmp) {
  const std::string round =
      std::string(LASERCALI_SOURCE_DIR) + "/scenarios/factory_plane_round.json";
  const KivrunRun run =
      Kivrun("--pictures-out=" + Path("pictures") + " --log=" + Path("round.jsonl") + " " + round);
  EXPECT_EQ(run.status, 0);
  const auto events = Log("round.jsonl");
  ASSERT_FALSE(events.empty());
  EXPECT_STREQ(events.back()["event"].GetString(), "end");
  constexpr std::uintmax_t kBmpSize = 54 + 1024 + 640 * 480;  // header, gray palette, pixels
  int pictures = 0;
  for (int distance = 5; distance <= 45; distance += 5) {
    for (const std::string side : {"left", "right"}) {
      const std::string name = side + "/" + std::to_string(distance * 100 + 60) + ".bmp";
      SCOPED_TRACE(name);
      ASSERT_TRUE(fs::exists(dir_ / "pictures" / name));
      EXPECT_EQ(fs::file_size(dir_ / "pictures" / name), kBmpSize);
      EXPECT_FALSE(fs::exists("/tmp/" + name)) << "the node wrote into the test's /tmp";
      ++pictures;
    }
  }
  EXPECT_EQ(pictures, 18);
  int copied = 0;
  for (const auto& entry : fs::recursive_directory_iterator(dir_ / "pictures")) {
    if (entry.is_regular_file()) ++copied;
  }
  EXPECT_EQ(copied, 18) << "only what the node wrote is copied";
}

TEST_F(KivrunCliTest, APicturesOutFolderThatCannotBeWrittenIsReported) {
  Write("file", "not a folder");
  const std::string round =
      std::string(LASERCALI_SOURCE_DIR) + "/scenarios/factory_plane_round.json";
  const KivrunRun run = Kivrun("--pictures-out " + Path("file/pictures") +
                               " --log=" + Path("round.jsonl") + " " + round);
  EXPECT_EQ(run.status, 2);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err.back().rfind("kivrun: --pictures-out: cannot copy /tmp/", 0), 0u)
      << run.err.back();
}

TEST_F(KivrunCliTest, HelpShowsTheUsage) {
  const KivrunRun run = Kivrun("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, kivrun::kUsage);
  EXPECT_TRUE(run.err.empty());
}

// The console texts of a log, in order.
std::vector<std::string> ConsoleTexts(const std::vector<rapidjson::Document>& events) {
  std::vector<std::string> texts;
  for (const auto& event : events) {
    if (std::string(event["event"].GetString()) == "console")
      texts.push_back(event["text"].GetString());
  }
  return texts;
}

// `lines` with each folded line "<line>  (xN)" written out N times.
std::vector<std::string> Unfolded(const std::vector<std::string>& lines) {
  std::vector<std::string> out;
  for (const std::string& line : lines) {
    const auto at = line.rfind("  (x");
    if (at == std::string::npos || line.back() != ')') {
      out.push_back(line);
      continue;
    }
    const int count = std::stoi(line.substr(at + 4));
    EXPECT_GT(count, 1) << line;
    for (int i = 0; i < count; ++i) out.push_back(line.substr(0, at));
  }
  return out;
}

class EchoTest : public KivrunCliTest {
 protected:
  const std::string round_ =
      std::string(LASERCALI_SOURCE_DIR) + "/tests/scenarios/realtime_one_distance.json";
};

// One round three ways: echoed folded, echoed raw and quiet.
TEST_F(EchoTest, ARunOfTheSameLineIsFoldedRawKeepsEveryLineAndTheLogStaysTheSame) {
  const KivrunRun run = Kivrun("--echo --log=" + Path("folded.jsonl") + " " + round_);
  ASSERT_EQ(run.status, 0);
  const std::vector<std::string> texts = ConsoleTexts(Log("folded.jsonl"));
  ASSERT_GT(texts.size(), 20u);
  // The frame timer's line comes ten times between two requests.
  int folded = 0;
  for (const std::string& line : run.err) folded += line == "[STB] return_res success cc  (x10)";
  EXPECT_GE(folded, 5);
  for (std::size_t i = 1; i < run.err.size(); ++i) {
    EXPECT_NE(run.err[i], run.err[i - 1]) << "a run left unfolded at " << i;
  }
  // Nothing is lost and the order holds: written out, the echo is the log's console.
  EXPECT_EQ(Unfolded(run.err), texts);

  const KivrunRun raw = Kivrun("--echo=raw --log=" + Path("raw.jsonl") + " " + round_);
  ASSERT_EQ(raw.status, 0);
  EXPECT_EQ(raw.err, ConsoleTexts(Log("raw.jsonl")));
  ASSERT_EQ(Kivrun("--log=" + Path("quiet.jsonl") + " " + round_).status, 0);
  EXPECT_EQ(ReadFile(Path("folded.jsonl")), ReadFile(Path("raw.jsonl")));
  EXPECT_EQ(ReadFile(Path("quiet.jsonl")), ReadFile(Path("raw.jsonl")));
}

TEST_F(EchoTest, AFoldedRunComesOutBeforeAProgressLine) {
  const KivrunRun run = Kivrun("--echo --progress --log=" + Path("log.jsonl") + " " + round_);
  ASSERT_EQ(run.status, 0);
  const auto events = Log("log.jsonl");
  // The console lines logged before the distance was accepted are all
  // echoed before its progress line, and no later one.
  std::vector<std::string> before;
  for (const auto& event : events) {
    const std::string kind = event["event"].GetString();
    if (kind == "matched") break;
    if (kind == "console") before.push_back(event["text"].GetString());
  }
  std::size_t at = 0;
  while (at < run.err.size() && run.err[at].rfind("[0.", 0) != 0) ++at;
  ASSERT_LT(at, run.err.size()) << "no progress line";
  EXPECT_NE(run.err[at].find("distance 30 accepted: "), std::string::npos) << run.err[at];
  EXPECT_EQ(Unfolded(std::vector<std::string>(run.err.begin(), run.err.begin() + at)), before);
}

class ReplayCliTest : public KivrunCliTest {
 protected:
  const std::string round_ =
      std::string(LASERCALI_SOURCE_DIR) + "/tests/scenarios/realtime_one_distance.json";
  // The round's log in "old.jsonl": played by the suite's first test, the
  // same text for the others.
  void Record() {
    static std::string recorded;
    if (recorded.empty()) {
      ASSERT_EQ(Kivrun("--log=" + Path("old.jsonl") + " " + round_).status, 0);
      recorded = ReadFile(Path("old.jsonl"));
      ASSERT_FALSE(recorded.empty());
    } else {
      Write("old.jsonl", recorded);
    }
  }
};

TEST_F(ReplayCliTest, TheLogOfARealRunReplaysTheSame) {
  Record();
  const KivrunRun run = Kivrun("--replay " + Path("old.jsonl") + " --log=" + Path("new.jsonl"));
  EXPECT_EQ(run.status, 0);
  const std::string old_log = ReadFile(Path("old.jsonl"));
  EXPECT_EQ(ReadFile(Path("new.jsonl")), old_log);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: the replay of " + Path("old.jsonl") + " gave the same " +
                            std::to_string(Lines(old_log).size()) + " events");
}

TEST_F(ReplayCliTest, APlantedChangeIsShownAtItsLineWithExitCode5) {
  Record();
  std::vector<std::string> lines = Lines(ReadFile(Path("old.jsonl")));
  std::size_t planted = 0;
  for (std::size_t i = 0; i < lines.size() && planted == 0; ++i) {
    const auto at = lines[i].find("\"distance\":30,");
    if (lines[i].find("\"event\":\"publish\"") != std::string::npos && at != std::string::npos) {
      lines[i].replace(at, 14, "\"distance\":31,");
      planted = i + 1;
    }
  }
  ASSERT_NE(planted, 0u) << "no publication of distance 30";
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  Write("planted.jsonl", text);
  const KivrunRun run = Kivrun("--replay=" + Path("planted.jsonl") + " --log " + Path("new.jsonl"));
  EXPECT_EQ(run.status, 5);
  const std::string n = std::to_string(planted);
  ASSERT_EQ(run.err.size(), 7u);
  EXPECT_EQ(run.err[0], "kivrun: the replay differs from " + Path("planted.jsonl") + " at line " +
                            n + " (- recorded, + replayed):");
  for (int k = 1; k <= 3; ++k) {
    const std::string m = std::to_string(planted - 4 + static_cast<std::size_t>(k));
    EXPECT_EQ(run.err[static_cast<std::size_t>(k)],
              "    " + std::string(n.size() - m.size(), ' ') + m + "  " +
                  lines[planted - 5 + static_cast<std::size_t>(k)]);
  }
  EXPECT_EQ(run.err[4], "  - " + n + "  " + lines[planted - 1]);
  EXPECT_EQ(run.err[5], "  + " + n + "  " + Lines(ReadFile(Path("new.jsonl")))[planted - 1]);
  EXPECT_NE(run.err[5].find("\"distance\":30,"), std::string::npos);
  EXPECT_EQ(run.err[6], "  the events before line " + n +
                            " are the same in both; the replay's log is " + Path("new.jsonl"));
}

TEST_F(ReplayCliTest, TheRecordedVersionTagsOfAnotherBuildAreANoteNotADifference) {
  Record();
  std::string text = ReadFile(Path("old.jsonl"));
  const std::string tag = LASERCALI_BUILD_COMMIT_TAG;
  const auto at = text.find("\"" + tag + "\"");
  ASSERT_NE(at, std::string::npos);
  text.replace(at + 1, tag.size(), "lasercali-0.0.1-0123456789abc");
  Write("other.jsonl", text);
  const KivrunRun run = Kivrun("--replay " + Path("other.jsonl") + " --log " + Path("new.jsonl"));
  EXPECT_EQ(run.status, 0);
  ASSERT_EQ(run.err.size(), 2u);
  EXPECT_EQ(run.err[0], "kivrun: note: " + Path("other.jsonl") +
                            " was recorded with version tags lasercali-0.0.1-0123456789abc and " +
                            LASERCALI_FRAMEWORK_TAG + "; this plug-in registers " + tag + " and " +
                            LASERCALI_FRAMEWORK_TAG + " (version tags are not compared)");
}

TEST_F(ReplayCliTest, ALogThatCannotBeReplayedIsNamedWithItsLine) {
  Record();
  std::vector<std::string> lines = Lines(ReadFile(Path("old.jsonl")));
  std::string text;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) text += lines[i] + "\n";
  Write("cut.jsonl", text);
  const KivrunRun run = Kivrun("--replay " + Path("cut.jsonl") + " --log " + Path("new.jsonl"));
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: " + Path("cut.jsonl") + ":" + std::to_string(lines.size() - 1) +
                            ": the log stops without its \"end\" event: it is cut short");
  EXPECT_FALSE(fs::exists(dir_ / "new.jsonl")) << "nothing is played";
}

TEST_F(ReplayCliTest, TheNewLogDoesNotOverwriteTheOld) {
  Record();
  const std::string old_log = ReadFile(Path("old.jsonl"));
  ExpectUsageError(
      "--replay " + Path("old.jsonl") + " --log " + Path("old.jsonl"),
      "--log " + Path("old.jsonl") + " is the log being replayed; write the new log elsewhere");
  EXPECT_EQ(ReadFile(Path("old.jsonl")), old_log);
}

}  // namespace
