// stripe-inspect, run as a program on pictures written for the test: one
// run for each way the program's parts meet (the report of one picture, its
// outputs and failures, a list, the command line's refusal, help and
// version). Reading the command line is stripe_options_test's, in process.
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
#include <vector>

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

TEST_F(StripeInspectTest, TextReportNamesTheOutcomeAndTheLaserThePathNames) {
  fs::create_directories(dir_ / "right");
  const ToolRun run = Inspect(Picture("right/2000.bmp", testsupport::BentStripePicture()));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_NE(run.out.find("outcome      cut at row "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("result       0\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find(" (right laser, mode 8)\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("file         /tmp/right/2000.bmp\n"), std::string::npos) << run.out;
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

// The JSON lines of a list, each checked to be an object.
std::vector<rapidjson::Document> JsonLines(const ToolRun& run) {
  std::vector<rapidjson::Document> lines;
  std::istringstream in(run.out);
  for (std::string line; std::getline(in, line);) {
    lines.emplace_back();
    lines.back().Parse(line.c_str());
    EXPECT_FALSE(lines.back().HasParseError()) << line;
    EXPECT_TRUE(lines.back().IsObject()) << line;
  }
  return lines;
}

TEST_F(StripeInspectTest, ARefusedPictureKnowsOnlyWhatTheCutReached) {
  // Too few points: only the point count.
  cv::Mat few = testsupport::BlankPicture();
  testsupport::PaintStripe(few, 479, std::vector<double>(30, 300.0));
  // No cut line: the counters, but no cut line.
  cv::Mat shallow = testsupport::BlankPicture();
  std::vector<double> centres;
  for (int j = 0; j < 200; ++j) centres.push_back(200 + 0.5 * j);
  testsupport::PaintStripe(shallow, 479, centres);

  const ToolRun run =
      Inspect(Picture("few.bmp", few) + " " + Picture("shallow.png", shallow) + " --json");
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<rapidjson::Document> json = JsonLines(run);
  ASSERT_EQ(json.size(), 2u) << run.out;
  EXPECT_EQ(json[0]["result"].GetInt(), 2);
  EXPECT_STREQ(json[0]["outcome"].GetString(), "too_few_points");
  EXPECT_EQ(json[0]["points"].GetInt(), 30);
  EXPECT_TRUE(json[0]["num2"].IsNull());
  EXPECT_TRUE(json[0]["G"].IsNull());
  EXPECT_TRUE(json[0]["cut_line"].IsNull());

  EXPECT_EQ(json[1]["result"].GetInt(), 2);
  EXPECT_STREQ(json[1]["outcome"].GetString(), "no_cut_line");
  EXPECT_EQ(json[1]["num2"].GetInt(), 0);
  EXPECT_EQ(json[1]["G"].GetInt(), 180);
  EXPECT_TRUE(json[1]["cut_line"].IsNull());
}

TEST_F(StripeInspectTest, ColourPictureIsRefusedUnlessGrayIsAsked) {
  const cv::Mat gray = testsupport::BentStripePicture();
  cv::Mat colour;
  cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, colour);
  const std::string path = Picture("colour.png", colour);

  // Without --gray it is refused: WrongSizeAndUnreadablePicturesAreNamedWithWhy.
  const ToolRun converted = Inspect(path + " --gray --json");
  ASSERT_EQ(converted.status, 0) << converted.err;
  EXPECT_EQ(Json(converted)["result"].GetInt(), 0);
}

TEST_F(StripeInspectTest, WrongSizeAndUnreadablePicturesAreNamedWithWhy) {
  // Each picture's refusal, word for word, is picture_input_test's; here
  // every kind shows in one list, and the run fails.
  const std::string small = Picture("small.png", cv::Mat::zeros(100, 200, CV_8UC1));
  const std::string deep = Picture("deep.png", cv::Mat::zeros(480, 640, CV_16UC1));
  const std::string missing = (dir_ / "missing.png").string();
  std::ofstream(dir_ / "text.png") << "not a picture";
  // A picture the decoders could read, in another format, is refused unread.
  ASSERT_TRUE(cv::imwrite((dir_ / "good.jpg").string(), cv::Mat(480, 640, CV_8UC1, cv::Scalar(9))));
  // A colour picture is refused unless --gray is given.
  const cv::Mat gray = testsupport::BentStripePicture();
  cv::Mat colour;
  cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, colour);
  const std::string coloured = Picture("colour.png", colour);
  const ToolRun run =
      Inspect(small + " " + deep + " " + missing + " " + (dir_ / "text.png").string() + " " +
              (dir_ / "good.jpg").string() + " " + coloured);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "stripe-inspect: 6 of 6 pictures could not be read\n");
  std::istringstream in(run.out);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GE(lines.size(), 7u) << run.out;
  EXPECT_NE(lines[1].find("200 x 100"), std::string::npos) << lines[1];
  EXPECT_NE(lines[2].find("16-bit"), std::string::npos) << lines[2];
  EXPECT_NE(lines[3].find("cannot open"), std::string::npos) << lines[3];
  EXPECT_NE(lines[4].find("text.png' is not a BMP or PNG picture"), std::string::npos) << lines[4];
  EXPECT_NE(lines[5].find("good.jpg' is not a BMP or PNG picture"), std::string::npos) << lines[5];
  EXPECT_NE(lines[6].find("640 x 480 with one 8-bit channel"), std::string::npos) << lines[6];
  EXPECT_NE(lines[6].find("--gray"), std::string::npos) << lines[6];
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

TEST_F(StripeInspectTest, TheLaserComesFromThePath) {
  // --side over the path is stripe_options_test's; --side reaching the
  // cut is CutPictureIsReportedAndWrittenAsTheNodeWouldStoreIt's.
  fs::create_directories(dir_ / "right");
  const cv::Mat picture = testsupport::BentStripePicture();
  const struct {
    std::string name;
    std::string side;
  } cases[] = {
      {"right/2000.bmp", "right"}, {"RR.bmp", "right"},   {"LL.bmp", "left"},
      {"left_RR.png", "right"},    {"plain.png", "left"},
  };
  std::string args = "--json";
  for (const auto& c : cases) args += " " + Picture(c.name, picture);
  const ToolRun run = Inspect(args);
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<rapidjson::Document> json = JsonLines(run);
  ASSERT_EQ(json.size(), 5u) << run.out;
  for (std::size_t i = 0; i < json.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    EXPECT_STREQ(json[i]["side"].GetString(), cases[i].side.c_str());
    EXPECT_STREQ(json[i]["scan_file"].GetString(),
                 cases[i].side == "left" ? "/tmp/LL.bmp" : "/tmp/RR.bmp");
  }
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

// Every bad command line, each number option's forms and the list rules
// are stripe_options_test's, in process; here, that a refusal reaches the
// user as every tool shows one, and nothing else is done.
TEST_F(StripeInspectTest, ABadCommandLineExitsWith2AndNamesTheProblem) {
  const std::string path = Picture("bent.png", testsupport::BentStripePicture());
  const ToolRun run =
      Inspect(path + " --json --overlay " + (dir_ / "o.png").string() + " --distance=1e2");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err,
            "stripe-inspect: --distance needs a whole number from 0 to 65535, not '1e2'\n"
            "Try 'stripe-inspect --help' for usage.\n");
  EXPECT_EQ(run.out, "");
  EXPECT_FALSE(fs::exists(dir_ / "o.png"));
}

TEST_F(StripeInspectTest, DoubleDashEndsTheOptions) {
  Picture("-bent.png", testsupport::BentStripePicture());
  // From the picture's folder, its name alone looks like an option.
  const std::string command = "cd " + dir_.string() + " && " + std::string(STRIPE_INSPECT) +
                              " --json -- -bent.png >" + (dir_ / "out.txt").string() + " 2>" +
                              (dir_ / "err.txt").string();
  const int raw = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(raw));
  EXPECT_EQ(WEXITSTATUS(raw), 0) << ReadFile(dir_ / "err.txt");
  const std::string out = ReadFile(dir_ / "out.txt");
  EXPECT_EQ(out.substr(0, out.find('\n')).rfind("{\"image\":\"-bent.png\"", 0), 0u) << out;
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
