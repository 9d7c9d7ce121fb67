// KivNode_caligetpic::pic_carveup: the stripe cut of pic_save with the
// node's picture files and console lines.
//
// The left and right picture folders point into a folder of this test's own,
// so that every file written there can be listed; "/tmp/LL.bmp" and
// "/tmp/RR.bmp" are fixed names.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "src/caligetpic.h"
#include "src/stripecut.h"
#include "tests/support/console_capture.h"
#include "tests/support/node_harness.h"
#include "tests/support/stripe_pictures.h"

namespace {

namespace fs = std::filesystem;
using testsupport::JumpCentres;
using testsupport::PaintStripe;
using testsupport::PaintStripePoint;

const fs::path kRoot = "/tmp/pic_carveup_test";
const fs::path kLeftScan = "/tmp/LL.bmp";
const fs::path kRightScan = "/tmp/RR.bmp";

// An upright stripe of `count` points from the bottom row up, on the
// patterned dark floor, with the points before `jump_at` six columns to the
// left: jump_at 3 gives three checks that are not steep before the cut.
cv::Mat Stripe(int count, int jump_at = 0) {
  cv::Mat picture = testsupport::PatternedDarkPicture();
  PaintStripe(picture, 479, JumpCentres(count, jump_at, 300, 306));
  return picture;
}

// The stripe that is cut: G 10, num2 80, cut line 460.
cv::Mat CutStripePicture() { return Stripe(110, 3); }

std::vector<std::string> Repeat(const std::string& line, int times) {
  return std::vector<std::string>(times, line);
}

std::vector<std::string> Join(std::initializer_list<std::vector<std::string>> parts) {
  std::vector<std::string> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

std::vector<std::string> FilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// True when the BMP file at `path` holds exactly `expected` (480 x 640, 8-bit gray).
::testing::AssertionResult HoldsPicture(const fs::path& path, const cv::Mat& expected) {
  std::ifstream file(path, std::ios::binary);
  char magic[2] = {};
  if (!file.read(magic, 2) || magic[0] != 'B' || magic[1] != 'M') {
    return ::testing::AssertionFailure() << path << " is not a BMP file";
  }
  const cv::Mat read = cv::imread(path.string(), cv::IMREAD_UNCHANGED);
  if (read.rows != 480 || read.cols != 640 || read.type() != CV_8UC1) {
    return ::testing::AssertionFailure()
           << path << " holds " << read.rows << " x " << read.cols << " of type " << read.type();
  }
  const int differing = cv::countNonZero(read != expected);
  if (differing != 0) {
    return ::testing::AssertionFailure() << path << " differs in " << differing << " pixels";
  }
  return ::testing::AssertionSuccess();
}

// Rows 30 to last_row, columns 1 to 638, of `picture`; zeros elsewhere.
cv::Mat Kept(const cv::Mat& picture, int last_row) {
  cv::Mat kept = cv::Mat::zeros(480, 640, CV_8UC1);
  const cv::Rect area(1, 30, 638, last_row - 30 + 1);
  picture(area).copyTo(kept(area));
  return kept;
}

class PicCarveupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testsupport::ResetPluginGlobals();
    fs::remove(kLeftScan);
    fs::remove(kRightScan);
    fs::remove_all(kRoot);
    fs::create_directories(kRoot / "left");
    fs::create_directories(kRoot / "right");
    kivplugcali::left_path = (kRoot / "left").string();
    kivplugcali::right_path = (kRoot / "right").string();
  }

  void TearDown() override {
    fs::remove_all(kRoot);
    fs::remove(kLeftScan);
    fs::remove(kRightScan);
    testsupport::ResetPluginGlobals();
  }

  // Runs pic_carveup on `picture` and keeps its console lines.
  unsigned char Carve(const cv::Mat& picture, int mode) {
    kivplugcali::pic_save = picture.clone();
    testsupport::ConsoleCapture console;
    const unsigned char result = kivplugcali::C_caligetpic.pic_carveup(mode);
    lines = console.OutLines();
    err = console.Err();
    return result;
  }

  static bool FilenameIsEmpty() {
    const char* buffer = kivplugcali::filename;
    return std::all_of(buffer, buffer + sizeof(kivplugcali::filename),
                       [](char c) { return c == 0; });
  }

  std::vector<std::string> lines;
  std::string err;
};

TEST_F(PicCarveupTest, TwoStripesWriteOnlyTheScanPictureAndReturn1) {
  cv::Mat picture = Stripe(100);
  PaintStripePoint(picture, 379, 300);
  PaintStripePoint(picture, 379, 500);

  EXPECT_EQ(Carve(picture, 1), 1);
  EXPECT_EQ(lines, (std::vector<std::string>{"xxx peak_num >= 2"}));
  EXPECT_EQ(err, "");
  EXPECT_TRUE(HoldsPicture(kLeftScan, picture));
  EXPECT_FALSE(fs::exists(kRightScan));
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  EXPECT_TRUE(FilesIn(kRoot / "right").empty());
  EXPECT_TRUE(FilenameIsEmpty());
}

TEST_F(PicCarveupTest, FortyNinePointsPrintOnlyTheNum1Line) {
  const cv::Mat picture = Stripe(49);
  EXPECT_EQ(Carve(picture, 1), 2);
  EXPECT_EQ(lines, (std::vector<std::string>{"xxx qualified point num1 : 49"}));
  EXPECT_TRUE(HoldsPicture(kLeftScan, picture));
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  EXPECT_TRUE(FilenameIsEmpty());
}

TEST_F(PicCarveupTest, EmptyPictureHasNoPoints) {
  EXPECT_EQ(Carve(testsupport::EmptyPicture(), 8), 2);
  EXPECT_EQ(lines, (std::vector<std::string>{"xxx qualified point num1 : 0"}));
  EXPECT_TRUE(fs::exists(kRightScan));
  EXPECT_FALSE(fs::exists(kLeftScan));
}

TEST_F(PicCarveupTest, FiftyPointsPrintEveryCheckTheCutLineAndNum2) {
  // Upright: seven steep checks (points 10..16) cut at row 463; G 7 is too few.
  EXPECT_EQ(Carve(Stripe(50), 1), 2);
  EXPECT_EQ(lines, Join({{"xxx qualified point num1 : 50"},
                         Repeat("xxx abs(k1)  20", 6),
                         {"xxx cut_line  463", "xxx abs(k1)  20"},
                         {"xxx qualified point num2 : 23 G 7"}}));
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  EXPECT_TRUE(FilenameIsEmpty());
}

TEST_F(PicCarveupTest, ShallowStripePrintsNoCutLineAndReturns2) {
  cv::Mat picture = testsupport::BlankPicture();
  std::vector<double> centres;
  for (int j = 0; j < 200; ++j) centres.push_back(200 + 0.5 * j);
  PaintStripe(picture, 479, centres);

  EXPECT_EQ(Carve(picture, 1), 2);
  EXPECT_EQ(lines, Join({{"xxx qualified point num1 : 200"},
                         Repeat("xxx abs(k1)  2", 180),
                         {"xxx qualified point num2 : 0 G 180"}}));
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
}

TEST_F(PicCarveupTest, CutStoresTheCutPictureUnderTheLeftFolder) {
  kivplugcali::distance_curr = 20;
  kivplugcali::distance_delt = 5;
  const cv::Mat picture = CutStripePicture();

  EXPECT_EQ(Carve(picture, 1), 0);
  EXPECT_EQ(lines, Join({{"xxx qualified point num1 : 110"},
                         Repeat("xxx abs(k1)  3", 3),
                         Repeat("xxx abs(k1)  20", 6),
                         {"xxx cut_line  460", "xxx abs(k1)  20"},
                         {"xxx qualified point num2 : 80 G 10"}}));
  EXPECT_EQ(err, "");
  EXPECT_TRUE(HoldsPicture(kLeftScan, picture));
  EXPECT_FALSE(fs::exists(kRightScan));
  EXPECT_EQ(FilesIn(kRoot / "left"), (std::vector<std::string>{"2005.bmp"}));
  EXPECT_TRUE(FilesIn(kRoot / "right").empty());
  EXPECT_TRUE(HoldsPicture(kRoot / "left" / "2005.bmp", Kept(picture, 429)));
  EXPECT_STREQ(kivplugcali::filename, (kRoot / "left" / "2005.bmp").c_str());
  // The picture in memory is left as it was.
  EXPECT_EQ(cv::countNonZero(kivplugcali::pic_save != picture), 0);
}

TEST_F(PicCarveupTest, RightLaserAtDistance30StoresRight3000) {
  kivplugcali::right_path = "/tmp/right";
  fs::create_directories("/tmp/right");
  fs::remove("/tmp/right/3000.bmp");
  kivplugcali::distance_curr = 30;
  kivplugcali::distance_delt = 0;
  const cv::Mat picture = testsupport::Mirrored(CutStripePicture());

  EXPECT_EQ(Carve(picture, 8), 0);
  EXPECT_TRUE(HoldsPicture(kRightScan, picture));
  EXPECT_FALSE(fs::exists(kLeftScan));
  EXPECT_TRUE(HoldsPicture("/tmp/right/3000.bmp", Kept(picture, 429)));
  EXPECT_STREQ(kivplugcali::filename, "/tmp/right/3000.bmp");
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  fs::remove("/tmp/right/3000.bmp");
}

TEST_F(PicCarveupTest, ModesOtherThan1UseTheRightNames) {
  kivplugcali::distance_curr = 10;
  const cv::Mat picture = testsupport::Mirrored(CutStripePicture());
  EXPECT_EQ(Carve(picture, 2), 0);
  EXPECT_TRUE(fs::exists(kRightScan));
  EXPECT_FALSE(fs::exists(kLeftScan));
  EXPECT_EQ(FilesIn(kRoot / "right"), (std::vector<std::string>{"1000.bmp"}));
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
}

TEST_F(PicCarveupTest, PictureNumberIsDistanceTimes100PlusDelt) {
  kivplugcali::distance_curr = 655;
  kivplugcali::distance_delt = 65535;
  EXPECT_EQ(Carve(CutStripePicture(), 1), 0);
  EXPECT_EQ(FilesIn(kRoot / "left"), (std::vector<std::string>{"131035.bmp"}));
}

TEST_F(PicCarveupTest, CutPictureOverwritesAnEarlierOne) {
  kivplugcali::distance_curr = 20;
  cv::imwrite((kRoot / "left" / "2000.bmp").string(), cv::Mat(480, 640, CV_8UC1, cv::Scalar(77)));
  const cv::Mat picture = CutStripePicture();
  EXPECT_EQ(Carve(picture, 1), 0);
  EXPECT_TRUE(HoldsPicture(kRoot / "left" / "2000.bmp", Kept(picture, 429)));
}

TEST_F(PicCarveupTest, GOf9WritesNoCutPicture) {
  kivplugcali::distance_curr = 20;
  EXPECT_EQ(Carve(Stripe(110, 2), 1), 2);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "xxx qualified point num2 : 81 G 9");
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  EXPECT_TRUE(FilenameIsEmpty());
}

TEST_F(PicCarveupTest, Num2Of79WritesNoCutPicture) {
  kivplugcali::distance_curr = 20;
  EXPECT_EQ(Carve(Stripe(109, 3), 1), 2);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "xxx qualified point num2 : 79 G 10");
  EXPECT_TRUE(FilesIn(kRoot / "left").empty());
  EXPECT_TRUE(FilenameIsEmpty());
}

TEST_F(PicCarveupTest, BentStripeFromTheCameraIsCutAndLoggedAsFound) {
  kivplugcali::distance_curr = 20;
  const cv::Mat picture = testsupport::NoisyBentStripePicture();
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, 1, &cut);
  ASSERT_EQ(cut.result, 0);

  std::vector<std::string> expected = {"xxx qualified point num1 : " +
                                       std::to_string(cut.points.size())};
  for (const kivplugcali::SlopeCheck& check : cut.checks) {
    if (check.cut) expected.push_back("xxx cut_line  " + std::to_string(cut.cut_line));
    expected.push_back("xxx abs(k1)  " + std::to_string(check.k1));
  }
  expected.push_back("xxx qualified point num2 : " + std::to_string(cut.num2) + " G " +
                     std::to_string(cut.G));

  EXPECT_EQ(Carve(picture, 1), 0);
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(FilesIn(kRoot / "left"), (std::vector<std::string>{"2000.bmp"}));
  EXPECT_TRUE(HoldsPicture(kRoot / "left" / "2000.bmp", cut.picture));
}

}  // namespace
