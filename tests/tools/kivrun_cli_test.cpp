// kivrun's command line, run as a program: values after "=" or as the next
// argument, prefixes, "--", help, and the messages of a bad command line;
// the echo of the node's console lines, folded or raw; replaying a log.
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

TEST_F(KivrunCliTest, ValuesFollowAnEqualsSign) {
  ExpectBuiltFromConfig(Kivrun("--log=" + Path("log.jsonl") + " --config=" + config_), "log.jsonl");
}

TEST_F(KivrunCliTest, ValuesAreTheNextArgument) {
  ExpectBuiltFromConfig(Kivrun("--log " + Path("log.jsonl") + " --config " + config_), "log.jsonl");
}

TEST_F(KivrunCliTest, PluginTakesItsPathEitherWay) {
  for (const std::string option : {"--plugin=", "--plugin "}) {
    SCOPED_TRACE(option);
    const KivrunRun run =
        Kivrun(option + Path("none.so") + " --config=" + config_ + " --log=" + Path("log.jsonl"));
    EXPECT_EQ(run.status, 1);
    ASSERT_FALSE(run.err.empty());
    EXPECT_EQ(run.err[0].rfind("kivrun: cannot load plug-in '" + Path("none.so") + "'", 0), 0u)
        << run.err[0];
  }
  ExpectBuiltFromConfig(Kivrun(std::string("--plugin=") + LASERCALI_PLUGIN_PATH +
                               " --config=" + config_ + " --log=" + Path("log.jsonl")),
                        "log.jsonl");
}

TEST_F(KivrunCliTest, ScenarioMayStandBeforeOrAmongTheOptions) {
  const std::string scenario =
      Write("scenario.json", R"({"config_file": "config.json", "steps": []})");
  ExpectBuiltFromConfig(Kivrun(scenario + " --log=" + Path("first.jsonl")), "first.jsonl");
  ExpectBuiltFromConfig(Kivrun("--echo " + scenario + " --log " + Path("among.jsonl")),
                        "among.jsonl");
}

TEST_F(KivrunCliTest, AnUnambiguousPrefixStandsForItsOption) {
  ExpectBuiltFromConfig(Kivrun("--con=" + config_ + " --lo " + Path("log.jsonl")), "log.jsonl");
}

TEST_F(KivrunCliTest, DoubleDashEndsTheOptions) {
  Write("-scenario.json", R"({"config_file": "config.json", "steps": []})");
  ExpectBuiltFromConfig(Kivrun("--log=" + Path("log.jsonl") + " -- -scenario.json"), "log.jsonl");
  fs::remove(dir_ / "log.jsonl");
  ExpectUsageError("-scenario.json", "unknown option -s");
}

TEST_F(KivrunCliTest, BadCommandLinesNameTheProblem) {
  const std::string log = " --log=" + Path("log.jsonl");
  ExpectUsageError("--frobnicate --config=" + config_ + log, "unknown option --frobnicate");
  ExpectUsageError("--frobnicate=1 --config=" + config_ + log, "unknown option --frobnicate");
  ExpectUsageError("-x --config=" + config_ + log, "unknown option -x");
  ExpectUsageError(log + " --config", "--config needs a file");
  ExpectUsageError("--config=" + config_ + " --log", "--log needs a file");
  ExpectUsageError("--config=" + config_ + log + " --report", "--report needs a folder");
  ExpectUsageError("--config=" + config_ + log + " --plugin", "--plugin needs a path");
  ExpectUsageError("--config=" + config_ + log + " --trace-times", "--trace-times needs a file");
  ExpectUsageError("--config=" + config_ + " --log=", "--log needs a file, not ''");
  ExpectUsageError("--config=" + config_ + log + " --echo=x",
                   "--echo takes no value or the value raw, not 'x'");
  ExpectUsageError("--config=" + config_ + log + " --ech=",
                   "--echo takes no value or the value raw, not ''");
  ExpectUsageError("--config=" + config_ + log + " --realtime=1", "--realtime takes no value");
  ExpectUsageError("--config=" + config_ + log + " --re " + Path("report"),
                   "ambiguous option --re (--realtime, --report or --replay)");
  ExpectUsageError("--config=" + config_ + log + " --p=x",
                   "ambiguous option --p (--plugin, --progress, --private-tmp, --pictures-out or "
                   "--pictures)");
  ExpectUsageError("a.json b.json" + log, "one scenario at a time (got a.json and b.json)");
  ExpectUsageError(log, "give a scenario, a --config or a --replay");
  ExpectUsageError(log + " --replay", "--replay needs an event log");
  ExpectUsageError(log + " --replay=", "--replay needs an event log, not ''");
  ExpectUsageError(log + " --replay old.jsonl a.json",
                   "--replay plays a recorded log, not a scenario (got a.json)");
  ExpectUsageError(log + " --replay old.jsonl --config " + config_,
                   "--replay builds the node from the recorded configuration; leave out --config");
  ExpectUsageError(log + " --repl old.jsonl --realtime",
                   "--replay plays on the virtual clock; leave out --realtime");
  EXPECT_FALSE(fs::exists(dir_ / "report"));
}

TEST_F(KivrunCliTest, EchoTakesRawAsItsOnlyValue) {
  for (const std::string echo : {"--echo", "--echo=raw", "--ec=raw", "--echo --echo=raw"}) {
    SCOPED_TRACE(echo);
    ExpectBuiltFromConfig(Kivrun(echo + " --config=" + config_ + " --log=" + Path("log.jsonl")),
                          "log.jsonl");
  }
  // After "--" it is a scenario's name; as a value it is the value.
  const KivrunRun run = Kivrun("--config=" + config_ + " --log --echo=raw");
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(fs::exists(dir_ / "--echo=raw"));
}

TEST_F(KivrunCliTest, AnOutputThatCannotBeOpenedIsNoUsageMistake) {
  const KivrunRun run = Kivrun("--config=" + config_ + " --log=" + Path("missing/log.jsonl"));
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: cannot write " + Path("missing/log.jsonl") + ": No such file or directory");
}

TEST_F(KivrunCliTest, VersionShowsTheVersionAndTheNodesTags) {
  for (const std::string args : {"--version", "--config=x.json --version"}) {
    SCOPED_TRACE(args);
    const KivrunRun run = Kivrun(args);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, std::string("kivrun " LASERCALI_VERSION "\nbuild commit tag ") +
                           LASERCALI_BUILD_COMMIT_TAG + ", framework tag " +
                           LASERCALI_FRAMEWORK_TAG + "\n");
    EXPECT_TRUE(run.err.empty());
  }
  ExpectUsageError("--version=2", "--version takes no value");
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
  for (const std::string args : {"-h", "--help", "--he", "--config=x.json --help"}) {
    SCOPED_TRACE(args);
    const KivrunRun run = Kivrun(args);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind("usage: kivrun [OPTIONS] [SCENARIO.json]\n", 0), 0u) << run.out;
    EXPECT_NE(run.out.find("--log=FILE"), std::string::npos);
    EXPECT_TRUE(run.err.empty());
  }
  const std::string usage = Kivrun("--help").out;
  for (const std::string& line : Lines(usage)) EXPECT_LE(line.size(), 79u) << line;
  for (const char* line :
       {"\n       kivrun [OPTIONS] --replay OLD.jsonl\n",
        "\n  --replay OLD.jsonl  play the inputs recorded in the event log OLD.jsonl\n",
        "\n                      with a count: \"[STB] return_res success cc  (x10)\"\n",
        "\n  --echo=raw          the same, every line as it comes\n",
        "\n  --trace-times FILE  write the framework's time per delivery to FILE\n",
        "; 5 --replay: the\nnew log differs from the old one (the first difference is shown); "
        "6\n"}) {
    EXPECT_NE(usage.find(line), std::string::npos) << line;
  }
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

TEST_F(EchoTest, ARunOfTheSameLineIsEchoedAsOneLineWithItsCount) {
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
}

TEST_F(EchoTest, RawEchoKeepsEveryLineAndTheLogStaysTheSame) {
  const KivrunRun raw = Kivrun("--echo=raw --log=" + Path("raw.jsonl") + " " + round_);
  ASSERT_EQ(raw.status, 0);
  EXPECT_EQ(raw.err, ConsoleTexts(Log("raw.jsonl")));
  ASSERT_EQ(Kivrun("--echo --log=" + Path("folded.jsonl") + " " + round_).status, 0);
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
  // Plays the round into "old.jsonl".
  void Record() { ASSERT_EQ(Kivrun("--log=" + Path("old.jsonl") + " " + round_).status, 0); }
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
