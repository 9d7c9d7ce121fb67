// kivrun's command line, read in process: values after "=" or as the next
// argument, prefixes, "--", the scenario among the options, --help and
// --version, --echo's value, and the message of every command line kivrun
// refuses. What a refusal looks like on the terminal, and that each setting
// reaches the round, is kivrun_cli_test's (it runs the program).
#include "tools/kivrun/kivrun_command_line.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tools/command_line.h"
#include "tools/kivrun/usage.h"

namespace {

using kivrun::CommandLineRequest;
using Action = CommandLineRequest::Action;

// The arguments of a command line, split at blanks, after the program's name.
std::vector<std::string> Args(const std::string& line) {
  std::vector<std::string> args = {"kivrun"};
  std::istringstream in(line);
  for (std::string arg; in >> arg;) args.push_back(arg);
  return args;
}

CommandLineRequest Read(const std::string& line) { return kivrun::ReadCommandLine(Args(line)); }

// The message kivrun refuses `line` with, or "" when it takes it.
std::string Refusal(const std::vector<std::string>& args) {
  try {
    kivrun::ReadCommandLine(args);
    return "";
  } catch (const toolcli::UsageError& e) {
    return e.what();
  }
}
std::string Refusal(const std::string& line) { return Refusal(Args(line)); }

TEST(KivrunCommandLineTest, ValuesFollowAnEqualsSignOrAreTheNextArgument) {
  for (const std::string line : {"--log=l.jsonl --config=c.json", "--log l.jsonl --config c.json",
                                 "--con=c.json --lo l.jsonl"}) {
    SCOPED_TRACE(line);
    const CommandLineRequest request = Read(line);
    EXPECT_EQ(request.action, Action::kRun);
    EXPECT_EQ(request.config_path, "c.json");
    EXPECT_EQ(request.log_path, "l.jsonl");
    EXPECT_FALSE(request.log_to_stdout);
    EXPECT_EQ(request.scenario_path, "");
  }
}

TEST(KivrunCommandLineTest, EveryOptionIsTaken) {
  const CommandLineRequest request = Read(
      "--trace-times t.txt --report R --progress --realtime --private-tmp --pictures-out P "
      "s.json");
  EXPECT_EQ(request.scenario_path, "s.json");
  EXPECT_EQ(request.trace_path, "t.txt");
  EXPECT_EQ(request.report_dir, "R");
  EXPECT_TRUE(request.progress);
  EXPECT_TRUE(request.realtime);
  EXPECT_TRUE(request.private_tmp);
  EXPECT_FALSE(request.machine_tmp);
  EXPECT_EQ(request.pictures_out, "P");
  EXPECT_FALSE(request.echo);
  EXPECT_TRUE(request.plugins.empty());
  EXPECT_TRUE(Read("--machine-tmp s.json").machine_tmp);
  EXPECT_EQ(Read("--replay old.jsonl").replay_path, "old.jsonl");
}

TEST(KivrunCommandLineTest, PluginsComeInTheOrderGivenEitherWay) {
  EXPECT_EQ(Read("--plugin=a.so --plugin b.so --config c.json").plugins,
            (std::vector<std::string>{"a.so", "b.so"}));
}

TEST(KivrunCommandLineTest, LogDashMeansStandardOutputAndNamesNoFile) {
  for (const std::string line : {"--log - s.json", "--log=- s.json"}) {
    SCOPED_TRACE(line);
    const CommandLineRequest request = Read(line);
    EXPECT_TRUE(request.log_to_stdout);
    EXPECT_EQ(request.log_path, "");
  }
}

TEST(KivrunCommandLineTest, ScenarioMayStandBeforeOrAmongTheOptions) {
  EXPECT_EQ(Read("s.json --log=l.jsonl").scenario_path, "s.json");
  const CommandLineRequest among = Read("--echo s.json --log l.jsonl");
  EXPECT_EQ(among.scenario_path, "s.json");
  EXPECT_EQ(among.log_path, "l.jsonl");
  EXPECT_TRUE(among.echo);
}

TEST(KivrunCommandLineTest, DoubleDashEndsTheOptions) {
  EXPECT_EQ(Read("--log=l.jsonl -- -scenario.json").scenario_path, "-scenario.json");
  EXPECT_EQ(Refusal("-scenario.json"), "unknown option -s");
}

TEST(KivrunCommandLineTest, EchoTakesRawAsItsOnlyValue) {
  const struct {
    const char* line;
    bool fold;
  } cases[] = {{"--echo", true},
               {"--echo=raw", false},
               {"--ec=raw", false},
               {"--echo --echo=raw", false},
               {"--echo=raw --echo", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const CommandLineRequest request = Read(std::string(c.line) + " --config=c.json");
    EXPECT_TRUE(request.echo);
    EXPECT_EQ(request.fold_echo, c.fold);
  }
  // As a value it is the value.
  const CommandLineRequest value = Read("--config=c.json --log --echo=raw");
  EXPECT_FALSE(value.echo);
  EXPECT_EQ(value.log_path, "--echo=raw");
}

TEST(KivrunCommandLineTest, HelpAndVersionAreAnsweredWhateverFollows) {
  for (const std::string line : {"-h", "--help", "--he", "--config=x.json --help",
                                 "--help --frobnicate", "--help a.json b.json"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(Read(line).action, Action::kHelp);
  }
  for (const std::string line : {"--version", "--config=x.json --version", "--version --replay"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(Read(line).action, Action::kVersion);
  }
  EXPECT_EQ(Refusal("--version=2"), "--version takes no value");
  EXPECT_EQ(Refusal("--frobnicate --help"), "unknown option --frobnicate");
}

TEST(KivrunCommandLineTest, BadCommandLinesNameTheProblem) {
  const std::string log = " --log=l.jsonl";
  const struct {
    std::string line, message;
  } cases[] = {
      {"--frobnicate --config=c.json" + log, "unknown option --frobnicate"},
      {"--frobnicate=1 --config=c.json" + log, "unknown option --frobnicate"},
      {"-x --config=c.json" + log, "unknown option -x"},
      {log + " --config", "--config needs a file"},
      {"--config=c.json --log", "--log needs a file"},
      {"--config=c.json" + log + " --report", "--report needs a folder"},
      {"--config=c.json" + log + " --plugin", "--plugin needs a path"},
      {"--config=c.json" + log + " --trace-times", "--trace-times needs a file"},
      {"--config=c.json --log=", "--log needs a file, not ''"},
      {"--config=c.json" + log + " --echo=x", "--echo takes no value or the value raw, not 'x'"},
      {"--config=c.json" + log + " --ech=", "--echo takes no value or the value raw, not ''"},
      {"--config=c.json" + log + " --realtime=1", "--realtime takes no value"},
      {"--config=c.json" + log + " --re report",
       "ambiguous option --re (--realtime, --report or --replay)"},
      {"--config=c.json" + log + " --p=x",
       "ambiguous option --p (--plugin, --progress, --private-tmp, --pictures-out or "
       "--pictures)"},
      {"a.json b.json" + log, "one scenario at a time (got a.json and b.json)"},
      {log, "give a scenario, a --config or a --replay"},
      {log + " --replay", "--replay needs an event log"},
      {log + " --replay=", "--replay needs an event log, not ''"},
      {log + " --replay old.jsonl a.json",
       "--replay plays a recorded log, not a scenario (got a.json)"},
      {log + " --replay old.jsonl --config c.json",
       "--replay builds the node from the recorded configuration; leave out --config"},
      {log + " --repl old.jsonl --realtime",
       "--replay plays on the virtual clock; leave out --realtime"},
      {"--machine-tmp --private-tmp s.json",
       "--machine-tmp and --private-tmp ask for two different /tmp; give one"},
      {"--machine-tmp --pictures-out P s.json",
       "--pictures-out copies the node's pictures out of its private /tmp; with --machine-tmp "
       "they stay in the machine's /tmp"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("kivrun " + c.line);
    EXPECT_EQ(Refusal(c.line), c.message);
  }
  // An empty operand names no scenario.
  EXPECT_EQ(Refusal(std::vector<std::string>{"kivrun", ""}),
            "give a scenario, a --config or a --replay");
}

TEST(KivrunCommandLineTest, PictureFoldersThatCannotServeAreRefused) {
  const testsupport::TempFolder dir;
  const std::string nowhere = dir.File("nowhere");
  EXPECT_EQ(Refusal("--pictures " + nowhere + " s.json"),
            "--pictures needs a folder, not '" + nowhere + "' (there is no such folder)");
  const std::string refused = Refusal("--pictures /tmp/left/.. s.json");
  EXPECT_EQ(refused.rfind("--pictures /tmp is where the node writes its own pictures", 0), 0u)
      << refused;
  EXPECT_EQ(Refusal("--pictures " + dir.path() + " --replay s.json"),
            "--replay plays the camera settings as recorded; leave out --pictures");
  EXPECT_EQ(Read("--pictures " + dir.path() + " s.json").pictures, dir.path());
  // A folder named from the working folder is made absolute: the camera
  // finds it from anywhere.
  std::filesystem::create_directories(dir.File("p"));
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  const std::string relative = Read("--pictures p s.json").pictures;
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::path(relative).is_absolute()) << relative;
  EXPECT_TRUE(std::filesystem::equivalent(relative, dir.File("p"))) << relative;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(KivrunUsageTest, TheUsageFitsATerminalAndNamesEveryOption) {
  const std::string usage = kivrun::kUsage;
  EXPECT_EQ(usage.rfind("usage: kivrun [OPTIONS] [SCENARIO.json]\n", 0), 0u) << usage;
  EXPECT_NE(usage.find("--log=FILE"), std::string::npos);
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

}  // namespace
