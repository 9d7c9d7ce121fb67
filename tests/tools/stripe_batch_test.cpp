// stripe-inspect on many pictures, run as a program: a session folder with
// pictures that are cut, refused and unreadable; the list, its summary, CSV
// and JSON, the same output for every number of jobs, the contact sheet, the
// exit codes, and outputs that cannot be written. Each run shows as much as
// it can at once; the command line's rules are stripe_options_test's.
//
// The test binary runs in a /tmp of its own; every file is written into the
// test's own folder, and the program runs from there.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/csv_fields.h"
#include "tests/support/program_run.h"
#include "tests/support/stripe_pictures.h"
#include "tools/stripe_tool/overlay.h"

namespace {

namespace fs = std::filesystem;
using testsupport::Lines;
using testsupport::ProgramRun;
using testsupport::ReadFile;

constexpr int kLeft = kivplugcali::kStripeWalkLeft;
constexpr int kRight = kivplugcali::kStripeWalkRight;

// The outcome in words of `picture` cut with `mode`, as the tool shows it.
std::string Words(const cv::Mat& picture, int mode) {
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, mode, &cut);
  return stripeinspect::DescribeCut(cut);
}

class StripeBatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/stripe_batch_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  void Picture(const std::string& name, const cv::Mat& picture) {
    fs::create_directories((dir_ / name).parent_path());
    ASSERT_TRUE(cv::imwrite(Path(name), picture)) << name;
  }
  void File(const std::string& name, const std::string& text) {
    fs::create_directories((dir_ / name).parent_path());
    std::ofstream(dir_ / name, std::ios::binary) << text;
  }

  // A robot's session: two pictures that are cut, two that are refused, two
  // that cannot be read, and a file that is no picture.
  void Session() {
    Picture("session/left/500.bmp", testsupport::BentStripePicture());
    Picture("session/left/1000.bmp", testsupport::TwoStripePicture());
    Picture("session/left/1500.png", cv::Mat::zeros(100, 200, CV_8UC1));
    Picture("session/right/500.bmp", testsupport::Mirrored(testsupport::NoisyBentStripePicture()));
    Picture("session/right/1000.png", testsupport::EmptyPicture());
    File("session/right/damaged.bmp", "not a picture");
    File("session/notes.txt", "calibration failed at 15");
  }

  // More pictures than jobs, in a second folder: more/0.png ... more/11.png.
  void More() {
    for (int i = 0; i < 12; ++i) {
      Picture("more/" + std::to_string(i) + ".png", testsupport::NoisyBentStripePicture(i + 2));
    }
  }

  // Runs stripe-inspect with `args` from the test folder; standard output
  // goes to `out` (a file of the test folder unless given).
  ProgramRun Inspect(const std::string& args, const std::string& out = "") {
    const std::string out_file = out.empty() ? Path("out.txt") : out;
    const std::string command = "cd '" + dir_.string() + "' && " + std::string(STRIPE_INSPECT) +
                                " " + args + " >" + out_file + " 2>" + Path("err.txt");
    const int raw = std::system(command.c_str());
    ProgramRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    if (out.empty()) run.out = ReadFile(out_file);
    run.err = Lines(ReadFile(Path("err.txt")));
    return run;
  }

  fs::path dir_;
};

TEST_F(StripeBatchTest, ASessionFolderGivesALinePerPictureASummaryAndASheet) {
  Session();
  const std::string left_cut = Words(testsupport::BentStripePicture(), kLeft);
  const std::string two = Words(testsupport::TwoStripePicture(), kLeft);
  const std::string right_cut =
      Words(testsupport::Mirrored(testsupport::NoisyBentStripePicture()), kRight);
  ASSERT_EQ(left_cut.rfind("cut at row ", 0), 0u);
  ASSERT_EQ(right_cut.rfind("cut at row ", 0), 0u);
  ASSERT_EQ(two.rfind("two stripes at row ", 0), 0u);
  const std::string small =
      "'session/left/1500.png' is 200 x 100 with 1 8-bit channel; the stripe cut needs 640 x 480 "
      "with one 8-bit channel";
  const std::string damaged =
      "'session/right/damaged.bmp' is not a BMP or PNG picture; the stripe cut needs 640 x 480 "
      "with one 8-bit channel";

  const ProgramRun run = Inspect("session --sheet sheet.png");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, std::vector<std::string>{"stripe-inspect: 2 of 6 pictures could not be read"});
  EXPECT_EQ(
      run.out,
      "picture                    laser  outcome\n"
      "session/left/500.bmp       left   " +
          left_cut +
          "\n"
          "session/left/1000.bmp      left   " +
          two +
          "\n"
          "session/left/1500.png      left   unreadable: " +
          small +
          "\n"
          "session/right/500.bmp      right  " +
          right_cut +
          "\n"
          "session/right/1000.png     right  too few points: 0 (50 needed)"
          "; would spoil a calibration: no stripe (0 rows with a centre, at least 20)\n"
          "session/right/damaged.bmp  right  unreadable: " +
          damaged +
          "\n"
          "\n"
          "6 pictures: 2 cut, 2 refused, 2 unreadable\n"
          "outcome           pictures\n"
          "cut                      2\n"
          "two stripes              1\n"
          "too few points           1\n"
          "no cut line              0\n"
          "cut line refused         0\n"
          "unreadable               2\n"
          "\n"
          "refused (2):\n"
          "  session/left/1000.bmp      left   " +
          two +
          "\n"
          "  session/right/1000.png     right  too few points: 0 (50 needed)"
          "; would spoil a calibration: no stripe (0 rows with a centre, at least 20)\n"
          "\n"
          "would spoil a calibration (1):\n"
          "  session/right/1000.png     right  no stripe (0 rows with a centre, at least 20)\n"
          "\n"
          "unreadable (2):\n"
          "  " +
          small +
          "\n"
          "  " +
          damaged +
          "\n"
          "\n"
          "passed over in the folders: 1 file not named .bmp or .png\n"
          "contact sheet: sheet.png\n");
  const cv::Mat sheet = cv::imread(Path("sheet.png"), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(sheet.empty());
  EXPECT_EQ(sheet.type(), CV_8UC3);
  EXPECT_EQ(sheet.cols, 1360);
  EXPECT_FALSE(fs::exists(Path("sheet-2.png")));
}

TEST_F(StripeBatchTest, CsvHasAHeaderAndARowPerPictureWhateverTheJobs) {
  Session();
  More();
  const ProgramRun run = Inspect("--csv -j 3 session more");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            std::vector<std::string>{"stripe-inspect: 2 of 18 pictures could not be read"});
  const ProgramRun one = Inspect("--csv -j1 session more");
  EXPECT_EQ(one.status, run.status);
  EXPECT_EQ(one.out, run.out);
  EXPECT_EQ(one.err, run.err);
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(lines.size(), 19u) << run.out;
  const std::vector<std::string> header = testsupport::CsvFields(lines[0]);
  ASSERT_EQ(header.size(), 22u);
  EXPECT_EQ(header[0], "image");
  EXPECT_EQ(header[1], "side");
  EXPECT_EQ(header[5], "result");
  EXPECT_EQ(header[6], "outcome");
  EXPECT_EQ(header[7], "description");
  const struct {
    std::string image, side, result, outcome;
  } expected[] = {
      {"session/left/500.bmp", "left", "0", "cut"},
      {"session/left/1000.bmp", "left", "1", "two_stripes"},
      {"session/left/1500.png", "left", "", "unreadable"},
      {"session/right/500.bmp", "right", "0", "cut"},
      {"session/right/1000.png", "right", "2", "too_few_points"},
      {"session/right/damaged.bmp", "right", "", "unreadable"},
  };
  for (std::size_t i = 0; i < 6; ++i) {
    SCOPED_TRACE(lines[i + 1]);
    const std::vector<std::string> row = testsupport::CsvFields(lines[i + 1]);
    ASSERT_EQ(row.size(), header.size());
    EXPECT_EQ(row[0], expected[i].image);
    EXPECT_EQ(row[1], expected[i].side);
    EXPECT_EQ(row[5], expected[i].result);
    EXPECT_EQ(row[6], expected[i].outcome);
  }
  EXPECT_EQ(testsupport::CsvFields(lines[6])[7],
            "'session/right/damaged.bmp' is not a BMP or PNG picture; the stripe cut needs 640 x "
            "480 with one 8-bit channel");
  EXPECT_EQ(testsupport::CsvFields(lines[1])[19], "/tmp/left/2000.bmp");
  EXPECT_EQ(testsupport::CsvFields(lines[4])[19], "/tmp/right/2000.bmp");
  EXPECT_EQ(testsupport::CsvFields(lines[1])[20], "usable");
  EXPECT_EQ(testsupport::CsvFields(lines[5])[20], "no_stripe");
  EXPECT_EQ(testsupport::CsvFields(lines[5])[21], "no stripe (0 rows with a centre, at least 20)");
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(testsupport::CsvFields(lines[7 + i])[0], "more/" + std::to_string(i) + ".png");
  }
}

TEST_F(StripeBatchTest, JsonIsOneObjectPerPictureAsForOnePictureWhateverTheJobs) {
  Session();
  More();
  const ProgramRun run = Inspect("--json -j2 session more");
  EXPECT_EQ(run.status, 1);
  const ProgramRun one = Inspect("--json -j1 session more");
  EXPECT_EQ(one.status, run.status);
  EXPECT_EQ(one.out, run.out);
  EXPECT_EQ(one.err, run.err);
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(lines.size(), 18u) << run.out;
  const char* outcomes[] = {"cut", "two_stripes",    "unreadable",
                            "cut", "too_few_points", "unreadable"};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    rapidjson::Document json;
    json.Parse(lines[i].c_str());
    ASSERT_FALSE(json.HasParseError()) << lines[i];
    if (i < 6) {
      EXPECT_STREQ(json["outcome"].GetString(), outcomes[i]) << lines[i];
    } else {
      EXPECT_EQ(json["image"].GetString(), "more/" + std::to_string(i - 6) + ".png");
    }
  }
  // A picture's object is the one the report of that picture alone shows.
  for (const std::size_t i : {0u, 1u, 3u, 4u}) {
    rapidjson::Document json;
    json.Parse(lines[i].c_str());
    const ProgramRun alone = Inspect(std::string(json["image"].GetString()) + " --json");
    EXPECT_EQ(alone.status, 0);
    EXPECT_EQ(alone.out, lines[i] + "\n");
  }
}

TEST_F(StripeBatchTest, TheTextListIsTheSameByteForByteWhateverTheJobs) {
  Session();
  More();
  const ProgramRun one = Inspect("-j1 session more");
  ASSERT_FALSE(one.out.empty());
  const ProgramRun many = Inspect("--jobs=8 session more");
  EXPECT_EQ(many.status, one.status);
  EXPECT_EQ(many.out, one.out);
  EXPECT_EQ(many.err, one.err);
}

TEST_F(StripeBatchTest, EveryPictureReadMeansExitZeroWhateverTheOutcomes) {
  Session();
  const ProgramRun run =
      Inspect("session/left/500.bmp session/left/1000.bmp session/right/1000.png");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.err.empty());
  EXPECT_NE(run.out.find("\n3 pictures: 1 cut, 2 refused, 0 unreadable\n"), std::string::npos)
      << run.out;
  EXPECT_EQ(run.out.find("unreadable ("), std::string::npos) << run.out;
}

TEST_F(StripeBatchTest, FilesAndFoldersKeepTheirOrderAndSideGivenAppliesToEveryPicture) {
  Session();
  const ProgramRun run =
      Inspect("--csv --side left session/right/500.bmp session/left session/left/500.bmp");
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(lines.size(), 6u) << run.out;
  const char* images[] = {"session/right/500.bmp", "session/left/500.bmp", "session/left/1000.bmp",
                          "session/left/1500.png", "session/left/500.bmp"};
  for (std::size_t i = 0; i < 5; ++i) {
    SCOPED_TRACE(lines[i + 1]);
    const std::vector<std::string> row = testsupport::CsvFields(lines[i + 1]);
    EXPECT_EQ(row[0], images[i]);
    EXPECT_EQ(row[1], "left");
    EXPECT_EQ(row[2], "1");
  }
}

TEST_F(StripeBatchTest, AFolderWithoutPicturesIsReported) {
  File("empty/notes.txt", "nothing here");
  const ProgramRun run = Inspect("empty");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, std::vector<std::string>{"stripe-inspect: 1 of 1 picture could not be read"});
  EXPECT_NE(run.out.find("unreadable: the folder 'empty' holds no .bmp or .png file\n"),
            std::string::npos)
      << run.out;
}

TEST_F(StripeBatchTest, TheContactSheetHasAPageForEveryFortyPictures) {
  // One page, and the list's last line naming it: see
  // ASessionFolderGivesALinePerPictureASummaryAndASheet.
  Session();
  // 41 pictures: links to one picture, which are followed.
  fs::create_directories(dir_ / "many");
  for (int i = 0; i < 41; ++i) {
    fs::create_symlink(dir_ / "session/left/500.bmp",
                       dir_ / ("many/" + std::to_string(i) + ".bmp"));
  }
  const ProgramRun many = Inspect("many --json --sheet out.png");
  EXPECT_EQ(many.status, 0);
  EXPECT_TRUE(many.err.empty());
  EXPECT_EQ(Lines(many.out).size(), 41u);
  const cv::Mat first = cv::imread(Path("out.png"), cv::IMREAD_UNCHANGED);
  const cv::Mat second = cv::imread(Path("out-2.png"), cv::IMREAD_UNCHANGED);
  ASSERT_FALSE(first.empty());
  ASSERT_FALSE(second.empty());
  EXPECT_GT(first.rows, second.rows);
}

TEST_F(StripeBatchTest, ASheetThatCannotBeWrittenIsReportedAndTheListStillShown) {
  Session();
  fs::create_symlink("/dev/full", dir_ / "full.png");
  const ProgramRun run = Inspect("session --sheet full.png");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            (std::vector<std::string>{
                "stripe-inspect: cannot write the contact sheet to 'full.png': No space left on "
                "device",
                "stripe-inspect: 2 of 6 pictures could not be read"}));
  EXPECT_NE(run.out.find("\n6 pictures: 2 cut, 2 refused, 2 unreadable\n"), std::string::npos);
  EXPECT_EQ(run.out.find("contact sheet:"), std::string::npos);

  // A name no picture can be written under is refused before any work.
  const ProgramRun odd = Inspect("session --sheet sheet.xyz");
  EXPECT_EQ(odd.status, 1);
  EXPECT_EQ(odd.err, std::vector<std::string>{"stripe-inspect: cannot write the contact sheet to "
                                              "'sheet.xyz': no picture format for the extension "
                                              "'.xyz'"});
  EXPECT_EQ(odd.out, "");
}

TEST_F(StripeBatchTest, AListThatCannotBeWrittenIsReported) {
  Session();
  for (const std::string args : {"session", "session --csv", "session --json -j2"}) {
    const ProgramRun run = Inspect(args, "/dev/full");
    EXPECT_EQ(run.status, 1) << args;
    EXPECT_EQ(run.err,
              std::vector<std::string>{
                  "stripe-inspect: cannot write standard output: No space left on device"})
        << args;
  }
}

TEST_F(StripeBatchTest, OptionsForOnePictureAreRefusedForManyBeforeAnyWork) {
  // Every such refusal, word for word, is stripe_options_test's.
  Session();
  const ProgramRun run = Inspect("session/left/500.bmp --sheet s.png --out c.bmp");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err,
            (std::vector<std::string>{
                "stripe-inspect: --out goes with the report of one picture, not with --sheet",
                "Try 'stripe-inspect --help' for usage."}));
  EXPECT_EQ(run.out, "");
  EXPECT_FALSE(fs::exists(Path("c.bmp")));
  EXPECT_FALSE(fs::exists(Path("s.png")));
}

}  // namespace
