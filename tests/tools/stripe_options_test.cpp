// stripe-inspect's command line, read in process: every refusal with its
// message, the numbers it takes, the laser of a picture, and which command
// lines make a list.
#include "tools/stripe_tool/stripe_options.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"
#include "tests/support/temp_folder.h"
#include "tools/command_line.h"
#include "tools/stripe_tool/findings.h"

namespace {

namespace fs = std::filesystem;
using stripetool::Options;

constexpr int kLeft = kivplugcali::kStripeWalkLeft;
constexpr int kRight = kivplugcali::kStripeWalkRight;

// The command line "stripe-inspect ARGS...", read.
std::optional<Options> Parse(std::vector<std::string> args) {
  args.insert(args.begin(), "stripe-inspect");
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  return stripetool::ParseArgs(static_cast<int>(args.size()), argv.data());
}

// The options of a command line that must be taken.
Options Taken(const std::vector<std::string>& args) {
  const std::optional<Options> options = Parse(args);
  EXPECT_TRUE(options.has_value());
  return options.value_or(Options{});
}

// The message a command line is refused with; "" when it is taken.
std::string Refusal(const std::vector<std::string>& args) {
  try {
    Parse(args);
  } catch (const toolcli::UsageError& e) {
    return e.what();
  }
  return "";
}

// Each test runs in a folder of its own holding a picture file (never read
// here) and a folder of pictures, named as the command lines name them.
class StripeOptionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    cwd_ = cwd;
    ASSERT_FALSE(folder_.path().empty());
    ASSERT_EQ(chdir(folder_.path().c_str()), 0);
    std::ofstream("bent.png") << "x";
    fs::create_directories("session/left");
    std::ofstream("session/left/500.bmp") << "x";
  }
  void TearDown() override { ASSERT_EQ(chdir(cwd_.c_str()), 0); }

  testsupport::TempFolder folder_;
  std::string cwd_;
};

TEST_F(StripeOptionsTest, BadCommandLinesNameTheProblem) {
  const std::string path = "bent.png";
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{}, "no picture given"},
      {{path, "--side", "up"}, "--side needs left or right, not 'up'"},
      {{path, "--side="}, "--side needs left or right, not ''"},
      {{path, "--side"}, "--side needs left or right"},
      {{path, "--frobnicate"}, "unknown option --frobnicate"},
      {{path, "--frobnicate=3"}, "unknown option --frobnicate"},
      {{path, "-x"}, "unknown option -x"},
      {{path, "--overlay"}, "--overlay needs a file name"},
      {{path, "--out="}, "--out needs a file name, not ''"},
      {{path, "--json=1"}, "--json takes no value"},
      {{path, "--gray="}, "--gray takes no value"},
      {{path, "--d", "5"}, "ambiguous option --d (--distance or --delt)"},
      {{path, "--o=x.png"}, "ambiguous option --o (--overlay or --out)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Refusal(c.args), c.message);
  }
}

TEST_F(StripeOptionsTest, NumbersArePlainDecimalDigitsFrom0To65535) {
  const std::string range = " needs a whole number from 0 to 65535, not '";
  for (const std::string option : {"--distance", "--delt"}) {
    for (const std::string text : {"+5", " 5", "5 ", "0x5", "5.0", "1e2", "", "-1", "-0", "65536",
                                   "99999999999999999999", "5x", "\t5"}) {
      SCOPED_TRACE(option + " '" + text + "'");
      EXPECT_EQ(Refusal({"bent.png", option + "=" + text}), option + range + text + "'");
      if (!text.empty()) {
        EXPECT_EQ(Refusal({"bent.png", option, text}), option + range + text + "'");
      }
    }
    EXPECT_EQ(Refusal({"bent.png", option}), option + " needs a whole number from 0 to 65535");
  }
}

TEST_F(StripeOptionsTest, PlainNumbersAreTakenEitherWay) {
  // The file is the cut picture's name as the node would store it, which
  // the numbers make: distance * 100 + delt.
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(testsupport::BentStripePicture(), kLeft, &cut);
  ASSERT_EQ(cut.result, 0);
  const struct {
    std::vector<std::string> args;
    int distance;
    int delt;
    std::string file;
  } cases[] = {
      {{"--distance=30", "--delt=7"}, 30, 7, "/tmp/left/3007.bmp"},
      {{"--distance", "30", "--delt", "7"}, 30, 7, "/tmp/left/3007.bmp"},
      {{"--distance=0", "--delt=0"}, 0, 0, "/tmp/left/0.bmp"},
      {{"--distance", "65535", "--delt", "65535"}, 65535, 65535, ""},
      {{"--distance=007", "--delt=00"}, 7, 0, "/tmp/left/700.bmp"},
      {{"--dist=12", "--del", "3"}, 12, 3, "/tmp/left/1203.bmp"},
      {{}, 20, 0, "/tmp/left/2000.bmp"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    std::vector<std::string> args = {"bent.png", "--json"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Options options = Taken(args);
    EXPECT_EQ(options.distance, c.distance);
    EXPECT_EQ(options.delt, c.delt);
    const stripetool::Inspection inspection =
        stripetool::Describe(cut, "bent.png", kLeft, options.distance, options.delt, "/tmp/left");
    if (!c.file.empty()) {
      ASSERT_TRUE(inspection.file.has_value());
      EXPECT_EQ(*inspection.file, c.file);
      EXPECT_NE(stripetool::TextReport(inspection).find("\nfile         " + c.file + "\n"),
                std::string::npos);
    }
  }
}

TEST_F(StripeOptionsTest, JobsAreFrom1To256AndDefaultToOnePerProcessor) {
  EXPECT_EQ(Taken({"session"}).jobs, 0u);
  const struct {
    std::vector<std::string> args;
    unsigned jobs;
  } taken[] = {
      {{"-j1"}, 1},
      {{"-j2"}, 2},
      {{"-j", "3"}, 3},
      {{"--jobs=8"}, 8},
      {{"--jobs", "256"}, 256},
      {{"--jo=4"}, 4},
      {{"-j", "007"}, 7},
  };
  for (const auto& c : taken) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    std::vector<std::string> args = {"session"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    EXPECT_EQ(Taken(args).jobs, c.jobs);
  }
  const struct {
    std::vector<std::string> args;
    std::string message;
  } refused[] = {
      {{"session", "-j", "0"}, "--jobs needs a whole number from 1 to 256, not '0'"},
      {{"session", "--jobs=257"}, "--jobs needs a whole number from 1 to 256, not '257'"},
      {{"session", "-j", "x"}, "--jobs needs a whole number from 1 to 256, not 'x'"},
      {{"session", "-j"}, "--jobs needs a whole number from 1 to 256"},
      {{"session", "-j", "-1"}, "--jobs needs a whole number from 1 to 256, not '-1'"},
      {{"session", "-j="}, "--jobs needs a whole number from 1 to 256, not '='"},
  };
  for (const auto& c : refused) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Refusal(c.args), c.message);
  }
}

TEST_F(StripeOptionsTest, OptionsForOnePictureAreRefusedForMany) {
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"session", "--overlay", "o.png"},
       "--overlay needs one picture, and 'session' is a folder (--sheet draws many)"},
      {{"session/left/500.bmp", "session/left/1000.bmp", "--overlay", "o.png"},
       "--overlay needs one picture, not 2 (--sheet draws many)"},
      {{"session/left/500.bmp", "--csv", "--overlay", "o.png"},
       "--overlay goes with the report of one picture, not with --csv"},
      {{"session/left/500.bmp", "--sheet", "s.png", "--out", "c.bmp"},
       "--out goes with the report of one picture, not with --sheet"},
      {{"session", "--out", "c.bmp"}, "--out needs one picture, and 'session' is a folder"},
      {{"a.bmp", "b.bmp", "c.bmp", "--out", "c.bmp"}, "--out needs one picture, not 3"},
      {{"session", "--csv", "--json"}, "--csv and --json do not go together"},
      {{"session", "--sheet"}, "--sheet needs a file name"},
      {{"session", "--sheet="}, "--sheet needs a file name, not ''"},
      {{"session", "--csv=1"}, "--csv takes no value"},
      {{"session", "--s", "left"}, "ambiguous option --s (--side or --sheet)"},
      {{"session", "--j"}, "ambiguous option --j (--json or --jobs)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Refusal(c.args), c.message);
  }
  // Nothing is written while reading a command line.
  EXPECT_FALSE(fs::exists("o.png"));
  EXPECT_FALSE(fs::exists("c.bmp"));
  EXPECT_FALSE(fs::exists("s.png"));
}

TEST_F(StripeOptionsTest, SeveralPicturesAFolderCsvOrASheetMakeAList) {
  const struct {
    std::vector<std::string> args;
    bool list;
  } cases[] = {
      {{"bent.png"}, false},
      {{"bent.png", "--json"}, false},
      {{"bent.png", "--overlay", "o.png", "--out", "c.bmp"}, false},
      {{"bent.png", "bent.png"}, true},
      {{"session"}, true},
      {{"bent.png", "--csv"}, true},
      {{"bent.png", "--sheet", "s.png"}, true},
      {{"missing.png"}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Taken(c.args).list, c.list);
  }
  const Options all = Taken({"--side=right", "--distance", "9", "--delt=4", "--overlay", "o.png",
                             "--out=c.bmp", "--gray", "bent.png", "-j5", "--json"});
  EXPECT_EQ(all.pictures, std::vector<std::string>{"bent.png"});
  EXPECT_EQ(all.mode, kRight);
  EXPECT_EQ(all.distance, 9);
  EXPECT_EQ(all.delt, 4);
  EXPECT_EQ(all.overlay, "o.png");
  EXPECT_EQ(all.out, "c.bmp");
  EXPECT_TRUE(all.gray);
  EXPECT_TRUE(all.json);
  EXPECT_FALSE(all.csv);
  EXPECT_EQ(all.jobs, 5u);
  EXPECT_FALSE(all.list);
  const Options sheet = Taken({"session", "--sheet=s.png", "--csv"});
  EXPECT_EQ(sheet.sheet, "s.png");
  EXPECT_TRUE(sheet.csv);
}

TEST_F(StripeOptionsTest, OptionsMayFollowThePicturesAndDoubleDashEndsThem) {
  const Options after = Taken({"pictures/-bent.png", "--side=right", "--json"});
  EXPECT_EQ(after.pictures, std::vector<std::string>{"pictures/-bent.png"});
  EXPECT_EQ(after.mode, kRight);
  EXPECT_TRUE(after.json);

  // Alone, a name that begins with a dash reads as options.
  EXPECT_EQ(Refusal({"--json", "-bent.png"}), "unknown option -b");
  const Options ended = Taken({"--json", "--", "-bent.png", "--csv"});
  EXPECT_EQ(ended.pictures, (std::vector<std::string>{"-bent.png", "--csv"}));
  EXPECT_TRUE(ended.json);
  EXPECT_FALSE(ended.csv);

  const Options order = Taken({"c.png", "--gray", "a.png", "session", "b.png"});
  EXPECT_EQ(order.pictures, (std::vector<std::string>{"c.png", "a.png", "session", "b.png"}));
}

TEST_F(StripeOptionsTest, HelpAndVersionNeedNoPicture) {
  EXPECT_FALSE(Parse({"--help"}).has_value());
  EXPECT_FALSE(Parse({"-h"}).has_value());
  EXPECT_FALSE(Parse({"bent.png", "--he"}).has_value());
  EXPECT_TRUE(Taken({"--version"}).version);
  EXPECT_TRUE(Taken({"--vers"}).version);
  // Whichever comes first is shown; what follows it is not read.
  EXPECT_TRUE(Taken({"--version", "--help"}).version);
  EXPECT_FALSE(Parse({"--help", "--version", "--frobnicate"}).has_value());
  EXPECT_FALSE(Taken({"bent.png"}).version);
}

TEST_F(StripeOptionsTest, TheLaserComesFromThePathUnlessSideIsGiven) {
  const struct {
    std::string path;
    std::vector<std::string> args;
    int mode;
  } cases[] = {
      {"right/2000.bmp", {}, kRight},
      {"RR.bmp", {}, kRight},
      {"LL.bmp", {}, kLeft},
      {"right/2000.bmp", {"--side", "left"}, kLeft},
      {"left_RR.png", {"--side=right"}, kRight},
      {"left_RR.png", {}, kRight},
      {"plain.png", {}, kLeft},
      {"/tmp/right/LL.bmp", {}, kLeft},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + " " + testing::PrintToString(c.args));
    std::vector<std::string> args = {c.path, "--json"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    EXPECT_EQ(stripetool::ModeOf(Taken(args), c.path), c.mode);
  }
}

TEST_F(StripeOptionsTest, EachCommandLineIsReadAfresh) {
  // A refused command line leaves nothing behind for the next one.
  EXPECT_EQ(Refusal({"bent.png", "--side", "up", "--csv"}), "--side needs left or right, not 'up'");
  const Options first = Taken({"session", "--csv", "-j2"});
  EXPECT_EQ(first.pictures, std::vector<std::string>{"session"});
  EXPECT_TRUE(first.csv);
  const Options second = Taken({"bent.png", "--json"});
  EXPECT_EQ(second.pictures, std::vector<std::string>{"bent.png"});
  EXPECT_TRUE(second.json);
  EXPECT_FALSE(second.csv);
  EXPECT_EQ(second.jobs, 0u);
}

}  // namespace
