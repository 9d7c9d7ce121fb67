// stripe-inspect, run as a program on pictures written for the test.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"

namespace {

namespace fs = std::filesystem;

const fs::path kDir = "/tmp/stripe_tool_test";

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
  void SetUp() override {
    fs::remove_all(kDir);
    fs::create_directories(kDir);
    fs::remove("/tmp/LL.bmp");
    fs::remove("/tmp/RR.bmp");
  }
  void TearDown() override { fs::remove_all(kDir); }

  // Writes `picture` as kDir/name and returns its path.
  static std::string Picture(const std::string& name, const cv::Mat& picture) {
    const std::string path = (kDir / name).string();
    EXPECT_TRUE(cv::imwrite(path, picture));
    return path;
  }

  static ToolRun Inspect(const std::string& args) {
    const std::string command = std::string(STRIPE_INSPECT) + " " + args + " >" +
                                (kDir / "out.txt").string() + " 2>" + (kDir / "err.txt").string();
    const int raw = std::system(command.c_str());
    ToolRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(kDir / "out.txt");
    run.err = ReadFile(kDir / "err.txt");
    return run;
  }

  static rapidjson::Document Json(const ToolRun& run) {
    rapidjson::Document json;
    json.Parse(run.out.c_str());
    EXPECT_FALSE(json.HasParseError()) << run.out;
    EXPECT_TRUE(json.IsObject()) << run.out;
    return json;
  }
};

TEST_F(StripeInspectTest, CutPictureIsReportedAndWrittenAsTheNodeWouldStoreIt) {
  const cv::Mat picture = testsupport::NoisyBentStripePicture();
  const std::string path = Picture("bent.png", picture);
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, 8, &cut);
  ASSERT_EQ(cut.result, 0);

  const fs::path out = kDir / "cut.bmp";
  const fs::path overlay = kDir / "overlay.png";
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
  const fs::path out = kDir / "cut.bmp";
  const ToolRun run =
      Inspect(Picture("two.png", testsupport::TwoStripePicture()) + " --json --overlay " +
              (kDir / "o.png").string() + " --out " + out.string());
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
  EXPECT_TRUE(fs::exists(kDir / "o.png"));
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

  const ToolRun missing = Inspect((kDir / "missing.png").string());
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("cannot open"), std::string::npos) << missing.err;

  std::ofstream(kDir / "text.png") << "not a picture";
  const ToolRun text = Inspect((kDir / "text.png").string());
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.err.find("cannot read a picture"), std::string::npos) << text.err;
}

TEST_F(StripeInspectTest, BadCommandLinesExitWith2) {
  const std::string path = Picture("bent.png", testsupport::BentStripePicture());
  for (const std::string& args :
       {std::string(""), path + " --side up", path + " --distance 65536", path + " --delt -1",
        path + " --distance 3x", path + " --frobnicate", path + " --overlay", path + " --json=1",
        path + " " + path}) {
    const ToolRun run = Inspect(args);
    EXPECT_EQ(run.status, 2) << "args: " << args;
    EXPECT_NE(run.err.find("stripe-inspect: "), std::string::npos) << "args: " << args;
    EXPECT_EQ(run.out, "") << "args: " << args;
  }
}

TEST_F(StripeInspectTest, HelpExplainsUsage) {
  const ToolRun run = Inspect("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("Usage: stripe-inspect IMAGE", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("--overlay"), std::string::npos);
}

}  // namespace
