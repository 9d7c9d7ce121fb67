// The pictures of the round's page: how each is read, encoded and cut, and
// the layer of the stripe cut's marks.
#include "tools/report_page/page_pictures.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "tests/support/stripe_pictures.h"
#include "tools/stripe_tool/overlay.h"

namespace {

namespace fs = std::filesystem;
using reportpage::PagePicture;
using reportpage::Side;

std::vector<unsigned char> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

PagePicture Picture(const std::string& path) {
  PagePicture p;
  p.path = path;
  return p;
}

std::string Written(const cv::Mat& picture, const std::string& name) {
  fs::create_directories("/tmp/page_pictures/left");
  const std::string path = "/tmp/page_pictures/" + name;
  cv::imwrite(path, picture);
  return path;
}

TEST(Base64, EncodesAsRfc4648) {
  EXPECT_EQ(reportpage::Base64({}), "");
  EXPECT_EQ(reportpage::Base64(Bytes("f")), "Zg==");
  EXPECT_EQ(reportpage::Base64(Bytes("fo")), "Zm8=");
  EXPECT_EQ(reportpage::Base64(Bytes("foo")), "Zm9v");
  EXPECT_EQ(reportpage::Base64(Bytes("foobar")), "Zm9vYmFy");
  EXPECT_EQ(reportpage::Base64({0xff, 0xfe, 0x00}), "//4A");
}

TEST(SideOf, FromTheFolderOrTheName) {
  EXPECT_EQ(reportpage::SideOf(Picture("/tmp/left/560.bmp")), Side::kLeft);
  EXPECT_EQ(reportpage::SideOf(Picture("/tmp/right/4560.bmp")), Side::kRight);
  EXPECT_EQ(reportpage::SideOf(Picture("/tmp/pic/dis_left.bmp")), Side::kLeft);
  EXPECT_EQ(reportpage::SideOf(Picture("/tmp/RR.bmp")), Side::kRight);
  EXPECT_EQ(reportpage::SideOf(Picture("/tmp/pic/chessboard.bmp")), Side::kUnknown);
  PagePicture told = Picture("/tmp/LL.bmp");
  told.side = Side::kRight;
  EXPECT_EQ(reportpage::SideOf(told), Side::kRight);
}

TEST(ShowPicture, SaysWhyAMissingPictureIsNotShown) {
  const reportpage::ShownPicture shown = reportpage::ShowPicture(Picture("/tmp/left/nothing.bmp"));
  EXPECT_EQ(shown.problem, "no such file");
  EXPECT_TRUE(shown.image.empty());
  EXPECT_FALSE(shown.cut);
}

TEST(ShowPicture, SaysWhyADamagedPictureIsNotShown) {
  const std::string path = Written(testsupport::BentStripePicture(), "left/cut_short.bmp");
  fs::resize_file(path, 2000);
  EXPECT_NE(reportpage::ShowPicture(Picture(path)).problem, "");
  std::ofstream(Written(testsupport::BentStripePicture(), "left/not_a_picture.bmp"))
      << "this is no picture";
  EXPECT_NE(reportpage::ShowPicture(Picture("/tmp/page_pictures/left/not_a_picture.bmp")).problem,
            "");
  std::ofstream("/tmp/page_pictures/empty.bmp");
  EXPECT_EQ(reportpage::ShowPicture(Picture("/tmp/page_pictures/empty.bmp")).problem, "empty file");
  PagePicture version = Picture("/tmp/LL.bmp");
  version.version = 2;
  version.bytes = Bytes("BM and then nothing a picture needs");
  EXPECT_NE(reportpage::ShowPicture(version).problem, "");
}

TEST(ShowPicture, AClearPictureGoesInExactlyWithTheCutsMarks) {
  const reportpage::ShownPicture shown =
      reportpage::ShowPicture(Picture(Written(testsupport::BentStripePicture(), "left/1060.bmp")));
  ASSERT_EQ(shown.problem, "");
  EXPECT_TRUE(shown.exact);
  EXPECT_EQ(shown.image.rfind("data:image/png;base64,", 0), 0u);
  EXPECT_EQ(shown.width, 640);
  EXPECT_EQ(shown.height, 480);
  ASSERT_TRUE(shown.cut);
  EXPECT_EQ(shown.findings.side, Side::kLeft);
  EXPECT_EQ(shown.findings.outcome, "cut");
  EXPECT_EQ(shown.findings.result, 0);
  EXPECT_GT(shown.findings.cut_line, 0);
  EXPECT_EQ(shown.overlay.rfind("data:image/png;base64,", 0), 0u);
}

TEST(ShowPicture, ANoisyPictureGoesInAsJpegWithItsLargestDifference) {
  const reportpage::ShownPicture shown = reportpage::ShowPicture(
      Picture(Written(testsupport::NoisyBentStripePicture(), "left/2060.bmp")));
  ASSERT_EQ(shown.problem, "");
  EXPECT_FALSE(shown.exact);
  EXPECT_EQ(shown.image.rfind("data:image/jpeg;base64,", 0), 0u);
  EXPECT_GT(shown.largest_difference, 0);
  EXPECT_LE(shown.largest_difference, 40);
}

TEST(ShowPicture, NoCutWithoutALaserOrOfAnotherShape) {
  const reportpage::ShownPicture unknown =
      reportpage::ShowPicture(Picture(Written(testsupport::BentStripePicture(), "chessboard.bmp")));
  EXPECT_FALSE(unknown.cut);
  EXPECT_NE(unknown.no_cut.find("no laser"), std::string::npos);
  const reportpage::ShownPicture small =
      reportpage::ShowPicture(Picture(Written(cv::Mat(100, 200, CV_8UC1, 9), "left/small.bmp")));
  EXPECT_EQ(small.problem, "");
  EXPECT_FALSE(small.cut);
  EXPECT_NE(small.no_cut.find("640 x 480"), std::string::npos);
}

TEST(ShowPicture, ACutPictureIsNotCutAgain) {
  PagePicture cut = Picture(Written(testsupport::BentStripePicture(), "left/1020.bmp"));
  cut.label = "app distance 10, cut picture";
  const reportpage::ShownPicture shown = reportpage::ShowPicture(cut);
  EXPECT_EQ(shown.problem, "");
  EXPECT_FALSE(shown.cut);
  EXPECT_NE(shown.no_cut.find("what the stripe cut kept"), std::string::npos);
}

// The layer over the picture dimmed as the page dims it is stripe-inspect's
// overlay, to within the rounding of the blend: the layer's colour and its
// weight are 8 bits each, so a faint smoothed edge may be 3 grey levels off.
TEST(OverlayLayer, OverTheDimmedPictureItIsStripeInspectsOverlay) {
  for (const cv::Mat& picture :
       {testsupport::BentStripePicture(), testsupport::NoisyBentStripePicture(),
        testsupport::TwoStripePicture(), testsupport::EmptyPicture()}) {
    kivplugcali::StripeCut cut;
    kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
    const cv::Mat layer = reportpage::OverlayLayer(cut);
    const cv::Mat expected = stripeinspect::DrawOverlay(picture, cut, "");
    cv::Mat dimmed;
    picture.convertTo(dimmed, CV_8UC1, reportpage::kDimmed);
    int worst = 0, marks = 0;
    for (int r = 0; r < picture.rows; ++r) {
      for (int c = 0; c < picture.cols; ++c) {
        const cv::Vec4b m = layer.at<cv::Vec4b>(r, c);
        marks += m[3] > 0;
        for (int k = 0; k < 3; ++k) {
          const double shown = dimmed.at<uchar>(r, c) * (1 - m[3] / 255.0) + m[k] * m[3] / 255.0;
          worst =
              std::max(worst, static_cast<int>(std::abs(shown - expected.at<cv::Vec3b>(r, c)[k])));
        }
      }
    }
    EXPECT_LE(worst, 3);
    EXPECT_GE(marks, 480 * 6);  // at least the bars at both edges
  }
}

}  // namespace
