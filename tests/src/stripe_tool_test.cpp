// stripe-inspect, run as a program on pictures written for the test.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>

#include "lasercali_version.h"
#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"

namespace {

namespace fs = std::filesystem;

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class StripeInspectTest : public ::testing::Test {
 protected:
  // Each test works in a folder of its own, so runs never meet.
  void SetUp() override {
    char pattern[] = "/tmp/stripe_tool_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    fs::remove("/tmp/LL.bmp");
    fs::remove("/tmp/RR.bmp");
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  // Writes `picture` as dir_/name and returns its path.
  std::string Picture(const std::string& name, const cv::Mat& picture) {
    const std::string path = (dir_ / name).string();
    EXPECT_TRUE(cv::imwrite(path, picture));
    return path;
  }

  ToolRun Inspect(const std::string& args) {
    const std::string command = std::string(STRIPE_INSPECT) + " " + args + " >" +
                                (dir_ / "out.txt").string() + " 2>" + (dir_ / "err.txt").string();
    const int raw = std::system(command.c_str());
    ToolRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(dir_ / "out.txt");
    run.err = ReadFile(dir_ / "err.txt");
    return run;
  }

  static rapidjson::Document Json(const ToolRun& run) {
    rapidjson::Document json;
    json.Parse(run.out.c_str());
    EXPECT_FALSE(json.HasParseError()) << run.out;
    EXPECT_TRUE(json.IsObject()) << run.out;
    return json;
  }

  fs::path dir_;  // the test's folder
};

TEST_F(StripeInspectTest, CutPictureIsReportedAndWrittenAsTheNodeWouldStoreIt) {
  const cv::Mat picture = testsupport::NoisyBentStripePicture();
  const std::string path = Picture("bent.png", picture);
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, 8, &cut);
  ASSERT_EQ(cut.result, 0);

  const fs::path out = dir_ / "cut.bmp";
  const fs::path overlay = dir_ / "overlay.png";
  const ToolRun run = Inspect(path + " --side right --distance 30 --delt 7 --json --out " +
                              out.string() + " --overlay " + overlay.string());
  ASSERT_EQ(run.status, 0) << run.err;
  const rapidjson::Document json = Json(run);
  EXPECT_EQ(json["result"].GetInt(), 0);
  EXPECT_STREQ(json["outcome"].GetString(), "cut");
  EXPECT_EQ(json["points"].GetInt(), static_cast<int>(cut.points.size()));
  EXPECT_EQ(json["num2"].GetInt(), cut.num2);
  EXPECT_EQ(json["G"].GetInt(), cut.G);
  EXPECT_EQ(json["cut_line"].GetInt(), cut.cut_line);
  EXPECT_STREQ(json["file"].GetString(), "/tmp/right/3007.bmp");
  EXPECT_STREQ(json["scan_file"].GetString(), "/tmp/RR.bmp");
  EXPECT_TRUE(json["two_stripe_row"].IsNull());

  const cv::Mat written = cv::imread(out.string(), cv::IMREAD_UNCHANGED);
  ASSERT_EQ(written.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(written != cut.picture), 0);
  const cv::Mat drawn = cv::imread(overlay.string(), cv::IMREAD_UNCHANGED);
  EXPECT_EQ(drawn.rows, 480);
  EXPECT_EQ(drawn.cols, 640);
  EXPECT_EQ(drawn.type(), CV_8UC3);
  // The tool reports the node's files but never writes them.
  EXPECT_FALSE(fs::exists("/tmp/RR.bmp"));
  EXPECT_FALSE(fs::exists("/tmp/right/3007.bmp"));
}

TEST_F(StripeInspectTest, TextReportNamesTheOutcome) {
  const ToolRun run = Inspect(Picture("bent.png", testsupport::BentStripePicture()));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("outcome      cut at row "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("result       0\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("file         /tmp/left/2000.bmp\n"), std::string::npos) << run.out;
}

TEST_F(StripeInspectTest, TwoStripesLeaveTheLaterValuesNullAndWriteNoCutPicture) {
  const fs::path out = dir_ / "cut.bmp";
  const ToolRun run =
      Inspect(Picture("two.png", testsupport::TwoStripePicture()) + " --json --overlay " +
              (dir_ / "o.png").string() + " --out " + out.string());
  ASSERT_EQ(run.status, 0) << run.err;
  const rapidjson::Document json = Json(run);
  EXPECT_EQ(json["result"].GetInt(), 1);
  EXPECT_STREQ(json["outcome"].GetString(), "two_stripes");
  EXPECT_TRUE(json["points"].IsNull());
  EXPECT_TRUE(json["num2"].IsNull());
  EXPECT_TRUE(json["G"].IsNull());
  EXPECT_TRUE(json["cut_line"].IsNull());
  EXPECT_TRUE(json["file"].IsNull());
  EXPECT_TRUE(json["two_stripe_row"].IsInt());
  EXPECT_FALSE(fs::exists(out));
  EXPECT_TRUE(fs::exists(dir_ / "o.png"));
  EXPECT_NE(run.err.find("not cut"), std::string::npos) << run.err;
}

TEST_F(StripeInspectTest, TooFewPointsKnowsOnlyThePointCount) {
  cv::Mat picture = testsupport::BlankPicture();
  testsupport::PaintStripe(picture, 479, std::vector<double>(30, 300.0));
  const ToolRun run = Inspect(Picture("few.bmp", picture) + " --json");
  ASSERT_EQ(run.status, 0) << run.err;
  const rapidjson::Document json = Json(run);
  EXPECT_EQ(json["result"].GetInt(), 2);
  EXPECT_STREQ(json["outcome"].GetString(), "too_few_points");
  EXPECT_EQ(json["points"].GetInt(), 30);
  EXPECT_TRUE(json["num2"].IsNull());
  EXPECT_TRUE(json["G"].IsNull());
  EXPECT_TRUE(json["cut_line"].IsNull());
}

TEST_F(StripeInspectTest, NoCutLineHasCountersButNoCutLine) {
  cv::Mat picture = testsupport::BlankPicture();
  std::vector<double> centres;
  for (int j = 0; j < 200; ++j) centres.push_back(200 + 0.5 * j);
  testsupport::PaintStripe(picture, 479, centres);
  const ToolRun run = Inspect(Picture("shallow.png", picture) + " --json");
  ASSERT_EQ(run.status, 0) << run.err;
  const rapidjson::Document json = Json(run);
  EXPECT_EQ(json["result"].GetInt(), 2);
  EXPECT_STREQ(json["outcome"].GetString(), "no_cut_line");
  EXPECT_EQ(json["num2"].GetInt(), 0);
  EXPECT_EQ(json["G"].GetInt(), 180);
  EXPECT_TRUE(json["cut_line"].IsNull());
}

TEST_F(StripeInspectTest, ColourPictureIsRefusedUnlessGrayIsAsked) {
  const cv::Mat gray = testsupport::BentStripePicture();
  cv::Mat colour;
  cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, colour);
  const std::string path = Picture("colour.png", colour);

  const ToolRun refused = Inspect(path);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("640 x 480 with one 8-bit channel"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find("--gray"), std::string::npos) << refused.err;

  const ToolRun converted = Inspect(path + " --gray --json");
  ASSERT_EQ(converted.status, 0) << converted.err;
  EXPECT_EQ(Json(converted)["result"].GetInt(), 0);
}

TEST_F(StripeInspectTest, WrongSizeAndUnreadablePicturesFail) {
  const ToolRun small = Inspect(Picture("small.png", cv::Mat::zeros(100, 200, CV_8UC1)));
  EXPECT_EQ(small.status, 1);
  EXPECT_NE(small.err.find("200 x 100"), std::string::npos) << small.err;
  EXPECT_EQ(small.out, "");

  const ToolRun deep = Inspect(Picture("deep.png", cv::Mat::zeros(480, 640, CV_16UC1)));
  EXPECT_EQ(deep.status, 1);
  EXPECT_NE(deep.err.find("16-bit"), std::string::npos) << deep.err;

  const ToolRun missing = Inspect((dir_ / "missing.png").string());
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("cannot open"), std::string::npos) << missing.err;

  std::ofstream(dir_ / "text.png") << "not a picture";
  const ToolRun text = Inspect((dir_ / "text.png").string());
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.err.find("is not a BMP or PNG picture"), std::string::npos) << text.err;

  // A picture the decoders could read, in another format, is refused unread.
  ASSERT_TRUE(cv::imwrite((dir_ / "good.jpg").string(), cv::Mat(480, 640, CV_8UC1, cv::Scalar(9))));
  const ToolRun jpeg = Inspect((dir_ / "good.jpg").string());
  EXPECT_EQ(jpeg.status, 1);
  EXPECT_NE(jpeg.err.find("good.jpg' is not a BMP or PNG picture"), std::string::npos) << jpeg.err;
}

TEST_F(StripeInspectTest, ADamagedPictureGivesOneMessageNamingIt) {
  // The start of a good BMP: its header is right, its pixels are missing.
  const std::string whole = Picture("whole.bmp", testsupport::BentStripePicture());
  const std::string bytes = ReadFile(whole).substr(0, 2000);
  std::ofstream(dir_ / "cut.bmp", std::ios::binary) << bytes;
  const ToolRun run = Inspect((dir_ / "cut.bmp").string());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  // The decoder's own complaint, which does not name the file, is not shown.
  EXPECT_EQ(run.err,
            "stripe-inspect: cannot read a picture from '" + (dir_ / "cut.bmp").string() + "'\n");
}

TEST_F(StripeInspectTest, TheLaserComesFromThePathUnlessSideIsGiven) {
  fs::create_directories(dir_ / "right");
  const cv::Mat picture = testsupport::BentStripePicture();
  const struct {
    std::string name;
    std::string args;
    std::string side;
  } cases[] = {
      {"right/2000.bmp", "", "right"},
      {"RR.bmp", "", "right"},
      {"LL.bmp", "", "left"},
      {"right/2000.bmp", "--side left", "left"},
      {"left_RR.png", "--side=right", "right"},
      {"plain.png", "", "left"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name + " " + c.args);
    const ToolRun run = Inspect(Picture(c.name, picture) + " --json " + c.args);
    ASSERT_EQ(run.status, 0) << run.err;
    const rapidjson::Document json = Json(run);
    EXPECT_STREQ(json["side"].GetString(), c.side.c_str());
    EXPECT_STREQ(json["scan_file"].GetString(), c.side == "left" ? "/tmp/LL.bmp" : "/tmp/RR.bmp");
  }
  const ToolRun text = Inspect((dir_ / "right/2000.bmp").string());
  EXPECT_NE(text.out.find(" (right laser, mode 8)\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("file         /tmp/right/2000.bmp\n"), std::string::npos) << text.out;
}

TEST_F(StripeInspectTest, SeveralPicturesGiveAList) {
  const std::string bent = Picture("bent.png", testsupport::BentStripePicture());
  const std::string two = Picture("two.png", testsupport::TwoStripePicture());
  const ToolRun run = Inspect(bent + " " + two);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out.rfind("picture", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("\n2 pictures: 1 cut, 1 refused, 0 unreadable\n"), std::string::npos)
      << run.out;
}

// The first line of standard error, without its newline.
std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// stripe-inspect refused the command line with `message` and the hint, and
// printed no report.
void ExpectUsageError(const ToolRun& run, const std::string& message) {
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "stripe-inspect: " + message + "\nTry 'stripe-inspect --help' for usage.\n");
  EXPECT_EQ(run.out, "");
}

TEST_F(StripeInspectTest, BadCommandLinesExitWith2AndNameTheProblem) {
  const std::string path = Picture("bent.png", testsupport::BentStripePicture());
  const struct {
    std::string args;
    std::string message;
  } cases[] = {
      {"", "no picture given"},
      {path + " --side up", "--side needs left or right, not 'up'"},
      {path + " --side=", "--side needs left or right, not ''"},
      {path + " --side", "--side needs left or right"},
      {path + " --frobnicate", "unknown option --frobnicate"},
      {path + " --frobnicate=3", "unknown option --frobnicate"},
      {path + " -x", "unknown option -x"},
      {path + " --overlay", "--overlay needs a file name"},
      {path + " --out=", "--out needs a file name, not ''"},
      {path + " --json=1", "--json takes no value"},
      {path + " --gray=", "--gray takes no value"},
      {path + " --d 5", "ambiguous option --d (--distance or --delt)"},
      {path + " --o=x.png", "ambiguous option --o (--overlay or --out)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("args: " + c.args);
    ExpectUsageError(Inspect(c.args), c.message);
  }
}

TEST_F(StripeInspectTest, NumbersArePlainDecimalDigitsFrom0To65535) {
  const std::string path = Picture("bent.png", testsupport::BentStripePicture());
  const std::string range = " needs a whole number from 0 to 65535, not '";
  for (const std::string option : {"--distance", "--delt"}) {
    for (const std::string& text :
         {std::string("+5"), std::string(" 5"), std::string("5 "), std::string("0x5"),
          std::string("5.0"), std::string("1e2"), std::string(""), std::string("-1"),
          std::string("-0"), std::string("65536"), std::string("99999999999999999999"),
          std::string("5x"), std::string("\t5")}) {
      SCOPED_TRACE(option + " '" + text + "'");
      ExpectUsageError(Inspect(path + " '" + option + "=" + text + "'"),
                       option + range + text + "'");
      if (!text.empty()) {
        ExpectUsageError(Inspect(path + " " + option + " '" + text + "'"),
                         option + range + text + "'");
      }
    }
    ExpectUsageError(Inspect(path + " " + option),
                     option + " needs a whole number from 0 to 65535");
  }
}

TEST_F(StripeInspectTest, PlainNumbersAreTakenEitherWay) {
  const std::string path = Picture("bent.png", testsupport::BentStripePicture());
  const struct {
    std::string args;
    int distance;
    int delt;
    std::string file;
  } cases[] = {
      {"--distance=30 --delt=7", 30, 7, "/tmp/left/3007.bmp"},
      {"--distance 30 --delt 7", 30, 7, "/tmp/left/3007.bmp"},
      {"--distance=0 --delt=0", 0, 0, "/tmp/left/0.bmp"},
      {"--distance 65535 --delt 65535", 65535, 65535, ""},
      {"--distance=007 --delt=00", 7, 0, "/tmp/left/700.bmp"},
      {"--dist=12 --del 3", 12, 3, "/tmp/left/1203.bmp"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("args: " + c.args);
    const ToolRun run = Inspect(path + " --json " + c.args);
    ASSERT_EQ(run.status, 0) << run.err;
    const rapidjson::Document json = Json(run);
    EXPECT_EQ(json["distance"].GetInt(), c.distance);
    EXPECT_EQ(json["delt"].GetInt(), c.delt);
    if (!c.file.empty()) {
      EXPECT_STREQ(json["file"].GetString(), c.file.c_str());
    }
  }
}

TEST_F(StripeInspectTest, OptionsMayFollowThePictureAndDoubleDashEndsThem) {
  const std::string path = Picture("-bent.png", testsupport::BentStripePicture());
  const ToolRun after = Inspect(path + " --side=right --json");
  ASSERT_EQ(after.status, 0) << after.err;
  EXPECT_STREQ(Json(after)["side"].GetString(), "right");

  // From the picture's folder, its name alone looks like an option.
  const std::string command = "cd " + dir_.string() + " && " + std::string(STRIPE_INSPECT) +
                              " --json -- -bent.png >" + (dir_ / "out.txt").string() + " 2>" +
                              (dir_ / "err.txt").string();
  const int raw = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(raw));
  EXPECT_EQ(WEXITSTATUS(raw), 0) << ReadFile(dir_ / "err.txt");
  EXPECT_EQ(FirstLine(ReadFile(dir_ / "out.txt")).rfind("{\"image\":\"-bent.png\"", 0), 0u);
}

TEST_F(StripeInspectTest, VersionShowsTheVersionAndTheNodesTags) {
  const ToolRun run = Inspect("--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string("stripe-inspect " LASERCALI_VERSION "\nbuild commit tag ") +
                         LASERCALI_BUILD_COMMIT_TAG + ", framework tag " + LASERCALI_FRAMEWORK_TAG +
                         "\n");
  EXPECT_EQ(run.err, "");
}

TEST_F(StripeInspectTest, HelpExplainsUsage) {
  const ToolRun run = Inspect("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("Usage: stripe-inspect IMAGE", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("--overlay"), std::string::npos);
}

}  // namespace
