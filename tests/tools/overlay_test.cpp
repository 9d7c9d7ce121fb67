// The overlay's marks and their legend: every colour the overlay draws is in
// the legend, drawn there in that colour.
#include "tools/stripe_tool/overlay.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"

namespace {

using Colour = std::tuple<int, int, int>;

Colour Of(const cv::Scalar& scalar) {
  return {static_cast<int>(scalar[0]), static_cast<int>(scalar[1]), static_cast<int>(scalar[2])};
}

// Every colour in an 8-bit BGR picture.
std::set<Colour> Colours(const cv::Mat& picture) {
  std::set<Colour> colours;
  for (int r = 0; r < picture.rows; ++r) {
    for (int c = 0; c < picture.cols; ++c) {
      const cv::Vec3b& p = picture.at<cv::Vec3b>(r, c);
      colours.insert({p[0], p[1], p[2]});
    }
  }
  return colours;
}

TEST(OverlayMarksTest, EveryColourOfTheOverlayIsAMarkAndNoTwoMarksLookAlike) {
  namespace colour = stripeinspect::colour;
  const std::vector<cv::Scalar> all = {
      colour::kScannedRow, colour::kUnscannedRow, colour::kUnchecked, colour::kOutside,
      colour::kStray,      colour::kShallow,      colour::kSteep,     colour::kAfterCut,
      colour::kCutCheck,   colour::kCutLine,      colour::kKept,      colour::kRefused,
      colour::kTwoStripes, colour::kPeak};
  const auto& marks = stripeinspect::OverlayMarks();
  ASSERT_EQ(marks.size(), all.size());
  for (const cv::Scalar& c : all) {
    bool found = false;
    for (const auto& mark : marks) found = found || mark.colour == c;
    EXPECT_TRUE(found) << c;
  }
  // Red and magenta mean two things each, told apart by their shape.
  std::set<std::tuple<int, int, int, int>> looks;
  for (const auto& mark : marks) {
    EXPECT_NE(std::string(mark.words), "");
    const Colour c = Of(mark.colour);
    EXPECT_TRUE(
        looks.insert({std::get<0>(c), std::get<1>(c), std::get<2>(c), static_cast<int>(mark.shape)})
            .second)
        << mark.words;
  }
}

TEST(OverlayMarksTest, TheLegendShowsEveryMarkInItsColour) {
  for (const int width : {1328, 500}) {
    SCOPED_TRACE(width);
    const cv::Mat legend = stripeinspect::DrawLegend(width);
    ASSERT_EQ(legend.cols, width);
    ASSERT_EQ(legend.type(), CV_8UC3);
    const std::set<Colour> colours = Colours(legend);
    for (const auto& mark : stripeinspect::OverlayMarks()) {
      EXPECT_EQ(colours.count(Of(mark.colour)), 1u) << mark.words;
    }
  }
  // A narrower legend takes more rows.
  EXPECT_GT(stripeinspect::DrawLegend(500).rows, stripeinspect::DrawLegend(1328).rows);
}

TEST(OverlayMarksTest, TheOverlaysOfACutAndOfTwoStripesUseTheLegendsColours) {
  const cv::Mat bent = testsupport::BentStripePicture();
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(bent, kivplugcali::kStripeWalkLeft, &cut);
  ASSERT_EQ(cut.result, 0);
  std::set<Colour> drawn = Colours(stripeinspect::DrawOverlay(bent, cut, ""));
  namespace colour = stripeinspect::colour;
  for (const cv::Scalar& c :
       {colour::kScannedRow, colour::kUnscannedRow, colour::kShallow, colour::kSteep,
        colour::kAfterCut, colour::kCutLine, colour::kKept, colour::kUnchecked}) {
    EXPECT_EQ(drawn.count(Of(c)), 1u) << c;
  }

  const cv::Mat two = testsupport::TwoStripePicture();
  kivplugcali::CutStripe(two, kivplugcali::kStripeWalkLeft, &cut);
  ASSERT_EQ(cut.result, 1);
  drawn = Colours(stripeinspect::DrawOverlay(two, cut, ""));
  EXPECT_EQ(drawn.count(Of(colour::kTwoStripes)), 1u);
}

}  // namespace
