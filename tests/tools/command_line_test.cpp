// The host tools' command line, read in process: long options and their
// prefixes, values in both forms, short options, operands in order, "--",
// every refusal with its message, and one command line after another.
#include "tools/command_line.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using toolcli::CommandLine;
using toolcli::UsageError;

enum Id { kQuiet = 'q', kJobs = 'j', kLog = 256, kEcho, kRealtime, kReport, kReplay };

const std::vector<toolcli::Option> kOptions = {
    {"log", 0, "a file", kLog},          {"echo", 0, nullptr, kEcho},
    {"realtime", 0, nullptr, kRealtime}, {"report", 0, "a folder", kReport},
    {"replay", 0, "a log", kReplay},     {"jobs", 'j', "a number", kJobs},
    {"quiet", 'q', nullptr, kQuiet},
};

// argv for "tool ARGS...", kept alive beside the command line reading it.
class Argv {
 public:
  explicit Argv(std::vector<std::string> args) : args_(std::move(args)) {
    args_.insert(args_.begin(), "tool");
    for (std::string& arg : args_) pointers_.push_back(arg.data());
    pointers_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(args_.size()); }
  char** argv() { return pointers_.data(); }

 private:
  std::vector<std::string> args_;
  std::vector<char*> pointers_;
};

struct Read {
  std::vector<std::pair<int, std::string>> options;  // id and value, in order
  std::vector<std::string> operands;
};

// Reads a whole command line.
Read ReadAll(std::vector<std::string> args) {
  Argv argv(std::move(args));
  CommandLine command_line(argv.argc(), argv.argv(), kOptions);
  Read read;
  int id = 0;
  std::string value;
  while (command_line.Next(&id, &value)) read.options.emplace_back(id, value);
  read.operands = command_line.Operands();
  return read;
}

// The message a command line is refused with; "" when it is taken.
std::string Refusal(std::vector<std::string> args) {
  try {
    ReadAll(std::move(args));
  } catch (const UsageError& e) {
    return e.what();
  }
  return "";
}

using Options = std::vector<std::pair<int, std::string>>;
using Operands = std::vector<std::string>;

TEST(CommandLineTest, OptionsAndOperandsComeInTheOrderGiven) {
  const Read read = ReadAll({"a", "--echo", "b", "-q", "c", "--log", "f.txt", "d", "--log=g.txt"});
  EXPECT_EQ(read.options, (Options{{kEcho, ""}, {kQuiet, ""}, {kLog, "f.txt"}, {kLog, "g.txt"}}));
  EXPECT_EQ(read.operands, (Operands{"a", "b", "c", "d"}));
}

TEST(CommandLineTest, ValuesFollowTheirOptionEitherWay) {
  EXPECT_EQ(ReadAll({"--log", "x"}).options, (Options{{kLog, "x"}}));
  EXPECT_EQ(ReadAll({"--log=x"}).options, (Options{{kLog, "x"}}));
  EXPECT_EQ(ReadAll({"--log=a=b"}).options, (Options{{kLog, "a=b"}}));
  // A value may look like an option.
  EXPECT_EQ(ReadAll({"--log", "--echo"}).options, (Options{{kLog, "--echo"}}));
  EXPECT_EQ(ReadAll({"-j", "3"}).options, (Options{{kJobs, "3"}}));
  EXPECT_EQ(ReadAll({"-j3"}).options, (Options{{kJobs, "3"}}));
  EXPECT_EQ(ReadAll({"-qj3"}).options, (Options{{kQuiet, ""}, {kJobs, "3"}}));
  EXPECT_EQ(ReadAll({"-qq"}).options, (Options{{kQuiet, ""}, {kQuiet, ""}}));
}

TEST(CommandLineTest, APrefixNamingOneOptionStandsForIt) {
  EXPECT_EQ(ReadAll({"--l", "x"}).options, (Options{{kLog, "x"}}));
  EXPECT_EQ(ReadAll({"--rea"}).options, (Options{{kRealtime, ""}}));
  EXPECT_EQ(ReadAll({"--repo=r"}).options, (Options{{kReport, "r"}}));
  EXPECT_EQ(ReadAll({"--repl", "l"}).options, (Options{{kReplay, "l"}}));
  EXPECT_EQ(ReadAll({"--j", "2"}).options, (Options{{kJobs, "2"}}));
  // A whole name is never ambiguous.
  EXPECT_EQ(ReadAll({"--echo"}).options, (Options{{kEcho, ""}}));
}

TEST(CommandLineTest, AmbiguousPrefixesNameEveryCandidate) {
  EXPECT_EQ(Refusal({"--re"}), "ambiguous option --re (--realtime, --report or --replay)");
  EXPECT_EQ(Refusal({"--re=x"}), "ambiguous option --re (--realtime, --report or --replay)");
  EXPECT_EQ(Refusal({"--rep", "x"}), "ambiguous option --rep (--report or --replay)");
  EXPECT_EQ(Refusal({"a", "--r"}), "ambiguous option --r (--realtime, --report or --replay)");
}

TEST(CommandLineTest, DoubleDashEndsTheOptions) {
  const Read read = ReadAll({"--echo", "a", "--", "--log", "-q", "--", "b"});
  EXPECT_EQ(read.options, (Options{{kEcho, ""}}));
  EXPECT_EQ(read.operands, (Operands{"a", "--log", "-q", "--", "b"}));
  // A lone dash is an operand (standard input, for a tool that reads it).
  EXPECT_EQ(ReadAll({"-", "--echo"}).operands, (Operands{"-"}));
  EXPECT_EQ(ReadAll({"--"}).operands, Operands{});
}

TEST(CommandLineTest, BadCommandLinesNameTheProblem) {
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"--frobnicate"}, "unknown option --frobnicate"},
      {{"--frobnicate=3"}, "unknown option --frobnicate"},
      {{"a", "--x"}, "unknown option --x"},
      {{"-x"}, "unknown option -x"},
      {{"-qx"}, "unknown option -x"},
      {{"--log"}, "--log needs a file"},
      {{"a", "--report"}, "--report needs a folder"},
      {{"-j"}, "--jobs needs a number"},
      {{"-qj"}, "--jobs needs a number"},
      {{"--log="}, "--log needs a file, not ''"},
      {{"--log", ""}, "--log needs a file, not ''"},
      {{"-j", ""}, "--jobs needs a number, not ''"},
      {{"--echo=x"}, "--echo takes no value"},
      {{"--echo="}, "--echo takes no value"},
      {{"--q=1"}, "--quiet takes no value"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Refusal(c.args), c.message);
  }
}

TEST(CommandLineTest, BadValuesAndUsageErrorsAreWordedAsEveryToolShowsThem) {
  Argv argv({});
  const CommandLine command_line(argv.argc(), argv.argv(), kOptions);
  EXPECT_EQ(command_line.BadValue(kJobs, "1e2"), "--jobs needs a number, not '1e2'");
  EXPECT_EQ(command_line.BadValue(kLog, ""), "--log needs a file, not ''");
  std::ostringstream err;
  toolcli::ReportUsageError(err, "tool", "--log needs a file");
  EXPECT_EQ(err.str(), "tool: --log needs a file\nTry 'tool --help' for usage.\n");
}

TEST(CommandLineTest, EachCommandLineIsReadFromItsStart) {
  EXPECT_EQ(ReadAll({"a", "--echo", "b"}).options, (Options{{kEcho, ""}}));
  const Read second = ReadAll({"--log", "x", "c"});
  EXPECT_EQ(second.options, (Options{{kLog, "x"}}));
  EXPECT_EQ(second.operands, Operands{"c"});

  // After a refusal, and after a command line left half read in the middle
  // of a cluster of short options.
  EXPECT_EQ(Refusal({"--echo", "--frobnicate", "--log", "y"}), "unknown option --frobnicate");
  {
    Argv argv({"-qqq", "--echo"});
    CommandLine half(argv.argc(), argv.argv(), kOptions);
    int id = 0;
    std::string value;
    ASSERT_TRUE(half.Next(&id, &value));
    EXPECT_EQ(id, kQuiet);
  }
  const Read third = ReadAll({"d", "--rea", "-j", "4"});
  EXPECT_EQ(third.options, (Options{{kRealtime, ""}, {kJobs, "4"}}));
  EXPECT_EQ(third.operands, Operands{"d"});
}

}  // namespace
