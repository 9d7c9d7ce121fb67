// The laser stripe cut as a computation: picture in; points, slope checks,
// counters, cut line and cut picture out.
//
// Most pictures hold one narrow stripe section per row with a known centre
// (tests/support/stripe_pictures.h). Point j of such a stripe lies on row
// bottom_row - j. Rules that hold alike for both lasers run for both walks:
// the picture is drawn for the left laser's walk and mirrored for the right.
#include "src/stripecut.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <stdexcept>
#include <vector>

#include "tests/support/stripe_pictures.h"

namespace {

using kivplugcali::CutStripe;
using kivplugcali::SlopeCheck;
using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;
using kivplugcali::StripePointRole;
using testsupport::BlankPicture;
using testsupport::JumpCentres;
using testsupport::Mirrored;
using testsupport::MirroredCol;
using testsupport::PaintRun;
using testsupport::PaintStripe;
using testsupport::PaintStripePoint;

constexpr int kLeft = 1;
constexpr int kRight = 8;
constexpr int kRow = 300;  // the row of single-row pictures

StripeCut Cut(const cv::Mat& picture, int mode) {
  StripeCut cut;
  CutStripe(picture, mode, &cut);
  return cut;
}

// A picture with one stripe of `centres`, from the bottom row up.
cv::Mat StripeFromBottom(const std::vector<double>& centres) {
  cv::Mat picture = BlankPicture();
  PaintStripe(picture, 479, centres);
  return picture;
}

// The slope check made on point `point`, or null.
const SlopeCheck* CheckOn(const StripeCut& cut, int point) {
  for (const SlopeCheck& check : cut.checks) {
    if (check.point == point) return &check;
  }
  return nullptr;
}

// The picture of a one-row test: `values` on row 300 from column `col` on.
cv::Mat RowPicture(int col, std::initializer_list<int> values) {
  cv::Mat picture = BlankPicture();
  PaintRun(picture, kRow, col, values);
  return picture;
}

class BothWalksTest : public ::testing::TestWithParam<int> {
 protected:
  bool Right() const { return GetParam() != kLeft; }
  // Cuts `drawn` as the current walk meets it.
  StripeCut CutAsDrawn(const cv::Mat& drawn) const {
    return Cut(Right() ? Mirrored(drawn) : drawn, GetParam());
  }
  float X(float drawn_x) const { return Right() ? 639.0f - drawn_x : drawn_x; }
  int Col(int drawn_col) const { return Right() ? MirroredCol(drawn_col) : drawn_col; }
};

INSTANTIATE_TEST_SUITE_P(Walks, BothWalksTest, ::testing::Values(kLeft, kRight),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return info.param == kLeft ? "Left" : "Right";
                         });

// --- The peak rule ---------------------------------------------------------

TEST_P(BothWalksTest, PeakNeedsThePixelBeforeItAtLeast80) {
  EXPECT_TRUE(CutAsDrawn(RowPicture(300, {79, 150, 100})).points.empty());

  const StripeCut cut = CutAsDrawn(RowPicture(300, {80, 150, 100}));
  ASSERT_EQ(cut.points.size(), 1u);
  // The centre weighs 150 at 301 and 100 at 302; the 80 is not bright enough.
  EXPECT_FLOAT_EQ(cut.points[0].x, X(75350.0f / 250.0f));
  EXPECT_EQ(cut.points[0].y, kRow);
}

TEST_P(BothWalksTest, PeakNeedsThePixelAfterItAtLeast100) {
  EXPECT_TRUE(CutAsDrawn(RowPicture(300, {80, 150, 99})).points.empty());
  EXPECT_EQ(CutAsDrawn(RowPicture(300, {80, 150, 100})).points.size(), 1u);
}

TEST_P(BothWalksTest, PeakOf100WithAnEqualPixelAfterItCounts) {
  const StripeCut cut = CutAsDrawn(RowPicture(300, {80, 100, 100}));
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, X(301.5f));
}

TEST_P(BothWalksTest, PeakNeedsARiseOntoIt) {
  // 150 150 100: the second 150 does not rise above the first, and the first
  // has a dark pixel before it.
  EXPECT_TRUE(CutAsDrawn(RowPicture(300, {150, 150, 100})).points.empty());
}

TEST_P(BothWalksTest, CentreWeighsTheRunOfPixelsOf100AndMore) {
  const StripeCut cut = CutAsDrawn(RowPicture(300, {80, 150, 200, 120, 99}));
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, X((150.0f * 301 + 200.0f * 302 + 120.0f * 303) / 470.0f));
}

TEST(StripeCutTest, CentreIsTheQuotientOfTheIntegerSumsAsFloats) {
  // 80, then 101 from column 4 to 639: one peak at 4, a run from 4 to 638.
  // The weighted sum 101 * (4 + ... + 638) = 20587335 is beyond the 24 bits
  // a float holds exactly, so the centre is not the run's exact middle, 321.
  cv::Mat picture = RowPicture(3, {80});
  for (int c = 4; c < 640; ++c) picture.at<uint8_t>(kRow, c) = 101;
  const StripeCut cut = Cut(picture, kLeft);
  ASSERT_EQ(cut.points.size(), 1u);
  const float weighted = 20587335.0f;  // rounded to a float
  const float sum = 101.0f * 635;
  EXPECT_EQ(cut.points[0].x, weighted / sum);
  EXPECT_NE(cut.points[0].x, 321.0f);
}

// --- The stripe's end in a row: dark gaps and far rises ---------------------

TEST_P(BothWalksTest, PixelOf9EndsTheStripeSoAFurtherPeakIsASecondStripe) {
  const StripeCut cut = CutAsDrawn(RowPicture(300, {80, 150, 100, 9, 80, 150, 100}));
  EXPECT_EQ(cut.result, 1);
  EXPECT_EQ(cut.stop, StripeCutStop::kTwoStripes);
  EXPECT_EQ(cut.two_stripe_row, kRow);
  EXPECT_EQ(cut.first_peak_col, Col(301));
  EXPECT_EQ(cut.second_peak_col, Col(305));
  EXPECT_TRUE(cut.points.empty());
}

TEST_P(BothWalksTest, PixelOf10KeepsTheStripeAndNearRisesAreIgnored) {
  const StripeCut cut = CutAsDrawn(RowPicture(300, {80, 150, 100, 10, 80, 150, 100}));
  EXPECT_EQ(cut.result, 2);
  ASSERT_EQ(cut.points.size(), 1u);
  // The first section's run ends at the 10.
  EXPECT_FLOAT_EQ(cut.points[0].x, X(75350.0f / 250.0f));
}

// A row with a peak at 301 on a plateau of 50 (never dark), an optional step
// up to 60 at `step_col`, and a second section 90 150 100 at 340..342.
// The rises onto the second section at 340 and 341 are far rises.
cv::Mat FarRiseRow(int step_col) {
  cv::Mat picture = BlankPicture();
  for (int c = 303; c < 400; ++c) picture.at<uint8_t>(kRow, c) = 50;
  if (step_col > 0) {
    for (int c = step_col; c < 400; ++c) picture.at<uint8_t>(kRow, c) = 60;
  }
  PaintRun(picture, kRow, 300, {80, 150, 100});
  PaintRun(picture, kRow, 340, {90, 150, 100});
  return picture;
}

TEST_P(BothWalksTest, FirstFarRiseKeepsTheStripeAndTheSecondEndsItOnItsOwnColumn) {
  // The rise at 340 is the first far rise and keeps the stripe; the rise at
  // 341 is the second and ends it, and 341 itself is not taken as a peak.
  const StripeCut cut = CutAsDrawn(FarRiseRow(0));
  EXPECT_EQ(cut.stop, StripeCutStop::kTooFewPoints);
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, X(75350.0f / 250.0f));
}

TEST_P(BothWalksTest, RiseFifteenColumnsFromThePeakIsAFarRise) {
  // Far rises at 316 and 340: the stripe ends at 340 and 341 is a second peak.
  const StripeCut cut = CutAsDrawn(FarRiseRow(316));
  EXPECT_EQ(cut.result, 1);
  EXPECT_EQ(cut.two_stripe_row, kRow);
  EXPECT_EQ(cut.first_peak_col, Col(301));
  EXPECT_EQ(cut.second_peak_col, Col(341));
}

TEST_P(BothWalksTest, RiseFourteenColumnsFromThePeakIsIgnored) {
  const StripeCut cut = CutAsDrawn(FarRiseRow(315));
  EXPECT_EQ(cut.result, 2);
  EXPECT_EQ(cut.points.size(), 1u);
}

TEST_P(BothWalksTest, TwoStripesStopTheScanAndDropThePointsFound) {
  // Stripe points in rows 479..380, then two stripes in row 379.
  cv::Mat drawn = StripeFromBottom(std::vector<double>(100, 300.0));
  PaintStripePoint(drawn, 379, 300);
  PaintStripePoint(drawn, 379, 500);
  const StripeCut cut = CutAsDrawn(drawn);
  EXPECT_EQ(cut.result, 1);
  EXPECT_EQ(cut.two_stripe_row, 379);
  EXPECT_TRUE(cut.points.empty());
  EXPECT_TRUE(cut.roles.empty());
  EXPECT_TRUE(cut.checks.empty());
  EXPECT_TRUE(cut.picture.empty());
}

// --- Where each walk starts and ends -----------------------------------------

TEST(StripeCutTest, LeftWalkFindsAPeakInColumn638AndLeavesColumn639OutOfTheCentre) {
  const StripeCut cut = Cut(RowPicture(637, {80, 200, 200}), kLeft);
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, 638.0f);
}

TEST(StripeCutTest, RightWalkFindsAPeakInColumn2AndLeavesColumn1OutOfTheCentre) {
  const StripeCut cut = Cut(RowPicture(1, {200, 200, 80}), kRight);
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, 2.0f);
}

// A peak at column 1 (for the left walk), a dark 5, and a stripe at 301.
cv::Mat PeakInColumn1Picture(bool with_stripe) {
  cv::Mat picture = RowPicture(0, {100, 200, 150, 5});
  if (with_stripe) PaintStripePoint(picture, kRow, 301);
  return picture;
}

TEST(StripeCutTest, LeftWalkCountsAPeakInColumn1ButTakesNoPointFromIt) {
  EXPECT_TRUE(Cut(PeakInColumn1Picture(false), kLeft).points.empty());

  const StripeCut cut = Cut(PeakInColumn1Picture(true), kLeft);
  EXPECT_EQ(cut.result, 1);
  EXPECT_EQ(cut.first_peak_col, 1);
  EXPECT_EQ(cut.second_peak_col, 301);
}

TEST(StripeCutTest, RightWalkNeverLooksAtColumn1) {
  const StripeCut cut = Cut(PeakInColumn1Picture(true), kRight);
  EXPECT_EQ(cut.result, 2);
  ASSERT_EQ(cut.points.size(), 1u);
  EXPECT_FLOAT_EQ(cut.points[0].x, 301.0f);
}

TEST(StripeCutTest, CentreNeverCountsColumn1) {
  // 200 200 220 100 in columns 1..4: both walks peak at 3.
  const cv::Mat picture = RowPicture(1, {200, 200, 220, 100});
  for (int mode : {kLeft, kRight}) {
    const StripeCut cut = Cut(picture, mode);
    ASSERT_EQ(cut.points.size(), 1u) << "mode " << mode;
    EXPECT_FLOAT_EQ(cut.points[0].x, (200.0f * 2 + 220.0f * 3 + 100.0f * 4) / 520.0f)
        << "mode " << mode;
  }
}

TEST(StripeCutTest, CentreNeverCountsColumn639) {
  // 100 220 200 200 250 in columns 635..639: both walks peak at 636.
  const cv::Mat picture = RowPicture(635, {100, 220, 200, 200, 250});
  for (int mode : {kLeft, kRight}) {
    const StripeCut cut = Cut(picture, mode);
    ASSERT_EQ(cut.points.size(), 1u) << "mode " << mode;
    EXPECT_FLOAT_EQ(cut.points[0].x,
                    (100.0f * 635 + 220.0f * 636 + 200.0f * 637 + 200.0f * 638) / 720.0f)
        << "mode " << mode;
  }
}

TEST(StripeCutTest, ScanCoversRows479To2AndNeverRows1And0) {
  for (int row : {479, 2}) {
    cv::Mat picture = BlankPicture();
    PaintStripePoint(picture, row, 100);
    PaintStripePoint(picture, row, 400);
    const StripeCut cut = Cut(picture, kLeft);
    EXPECT_EQ(cut.result, 1) << "row " << row;
    EXPECT_EQ(cut.two_stripe_row, row);
  }
  for (int row : {1, 0}) {
    cv::Mat picture = BlankPicture();
    PaintStripePoint(picture, row, 100);
    PaintStripePoint(picture, row, 400);
    const StripeCut cut = Cut(picture, kLeft);
    EXPECT_EQ(cut.result, 2) << "row " << row;
    EXPECT_TRUE(cut.points.empty()) << "row " << row;
  }
}

TEST(StripeCutTest, ModesOtherThan1WalkFromTheRight) {
  const cv::Mat picture = PeakInColumn1Picture(true);
  for (int mode : {0, 2, 8, -1}) {
    const StripeCut cut = Cut(picture, mode);
    EXPECT_EQ(cut.result, 2) << "mode " << mode;
    EXPECT_EQ(cut.points.size(), 1u) << "mode " << mode;
  }
}

// --- Points ---------------------------------------------------------------

TEST_P(BothWalksTest, PointsRunFromTheBottomRowUpOnePerRowWithAStripe) {
  cv::Mat drawn = BlankPicture();
  PaintStripe(drawn, 400, {100, 101.5, 103});
  PaintStripePoint(drawn, 390, 120);  // rows 396..391 have no stripe
  const StripeCut cut = CutAsDrawn(drawn);
  ASSERT_EQ(cut.points.size(), 4u);
  EXPECT_FLOAT_EQ(cut.points[0].x, X(100.0f));
  EXPECT_EQ(cut.points[0].y, 400.0f);
  EXPECT_FLOAT_EQ(cut.points[1].x, X(101.5f));
  EXPECT_EQ(cut.points[1].y, 399.0f);
  EXPECT_FLOAT_EQ(cut.points[2].x, X(103.0f));
  EXPECT_EQ(cut.points[2].y, 398.0f);
  EXPECT_FLOAT_EQ(cut.points[3].x, X(120.0f));
  EXPECT_EQ(cut.points[3].y, 390.0f);
}

TEST_P(BothWalksTest, FortyNinePointsAreTooFew) {
  const StripeCut cut = CutAsDrawn(StripeFromBottom(std::vector<double>(49, 300.0)));
  EXPECT_EQ(cut.result, 2);
  EXPECT_EQ(cut.stop, StripeCutStop::kTooFewPoints);
  EXPECT_EQ(cut.points.size(), 49u);
  EXPECT_TRUE(cut.roles.empty());
  EXPECT_TRUE(cut.checks.empty());
}

TEST_P(BothWalksTest, FiftyPointsAreSearchedForTheCutLine) {
  // Upright everywhere: every check is steep, the seventh (point 16) cuts.
  const StripeCut cut = CutAsDrawn(StripeFromBottom(std::vector<double>(50, 300.0)));
  EXPECT_EQ(cut.points.size(), 50u);
  EXPECT_EQ(cut.stop, StripeCutStop::kCutRefused);
  EXPECT_EQ(cut.result, 2);
  ASSERT_TRUE(cut.cut_found);
  EXPECT_EQ(cut.cut_line, 479 - 16);
  EXPECT_EQ(cut.G, 7);
  EXPECT_EQ(cut.num2, 39 - 16);  // points 17..39 agree after the cut
}

// --- The neighbour test ---------------------------------------------------

// An upright stripe of 100 points at 300 with points first..last at `moved`.
cv::Mat MovedNeighbours(int first, int last, double moved) {
  std::vector<double> centres(100, 300.0);
  for (int j = first; j <= last; ++j) centres[j] = moved;
  return StripeFromBottom(centres);
}

TEST_P(BothWalksTest, ElevenAgreeingNeighboursAreTooFew) {
  // Point 40: neighbours 43..49 are four columns away, 11 of 18 agree.
  const StripeCut cut = CutAsDrawn(MovedNeighbours(43, 49, 304));
  EXPECT_EQ(cut.roles[40], StripePointRole::kStray);
}

TEST_P(BothWalksTest, TwelveAgreeingNeighboursAreEnough) {
  // Point 40: neighbours 44..49 are four columns away, 12 of 18 agree. The
  // cut is at point 16, so point 40 counts in num2.
  const StripeCut cut = CutAsDrawn(MovedNeighbours(44, 49, 304));
  EXPECT_EQ(cut.roles[40], StripePointRole::kAfterCut);
}

TEST_P(BothWalksTest, NeighbourThreeColumnsAwayAgreesAndThreeAndAHalfDoesNot) {
  // Point 40: neighbours 41..47 moved; 11 agree unless they still do.
  EXPECT_EQ(CutAsDrawn(MovedNeighbours(41, 47, 303)).roles[40], StripePointRole::kAfterCut);
  EXPECT_EQ(CutAsDrawn(MovedNeighbours(41, 47, 303.5)).roles[40], StripePointRole::kStray);
}

// Upright stripe: 41 points up from row 479 (point 40 on row 439), `gap` rows
// without stripe, then 60 more points.
cv::Mat GapAbovePoint40(int gap) {
  cv::Mat picture = StripeFromBottom(std::vector<double>(41, 300.0));
  PaintStripe(picture, 439 - gap - 1, std::vector<double>(60, 300.0));
  return picture;
}

TEST_P(BothWalksTest, NeighbourTenRowsAwayAgreesAndElevenDoesNot) {
  // Gap 7: the points above lie 8, 9, 10, 11... rows away: 9 + 3 agree.
  EXPECT_EQ(CutAsDrawn(GapAbovePoint40(7)).roles[40], StripePointRole::kAfterCut);
  // Gap 8: 9, 10, 11...: 9 + 2 agree.
  EXPECT_EQ(CutAsDrawn(GapAbovePoint40(8)).roles[40], StripePointRole::kStray);
}

TEST_P(BothWalksTest, StrayPointsCountNeitherInGNorInNum2NorBreakTheSteepRun) {
  // Upright stripe of 100 points with points 13 and 60 ten columns off.
  std::vector<double> centres(100, 300.0);
  centres[13] = 310;
  centres[60] = 310;
  const StripeCut cut = CutAsDrawn(StripeFromBottom(centres));
  EXPECT_EQ(cut.roles[13], StripePointRole::kStray);
  EXPECT_EQ(cut.roles[60], StripePointRole::kStray);
  EXPECT_EQ(CheckOn(cut, 13), nullptr);
  // Checks on 10, 11, 12, 14, 15, 16 and 17: the seventh steep one is 17.
  EXPECT_EQ(cut.G, 7);
  ASSERT_TRUE(cut.cut_found);
  EXPECT_EQ(cut.cut_line, 479 - 17);
  EXPECT_EQ(cut.num2, (89 - 17) - 1);  // points 18..89 but 60
}

TEST_P(BothWalksTest, RolesOfAllPoints) {
  const StripeCut cut = CutAsDrawn(StripeFromBottom(std::vector<double>(100, 300.0)));
  ASSERT_EQ(cut.roles.size(), 100u);
  for (int j = 0; j < 100; ++j) {
    StripePointRole expected = StripePointRole::kUnchecked;
    if (j >= 10 && j <= 16) expected = StripePointRole::kSlopeCheck;
    if (j >= 17 && j <= 89) expected = StripePointRole::kAfterCut;
    EXPECT_EQ(cut.roles[j], expected) << "point " << j;
  }
}

// --- Slope checks -----------------------------------------------------------

TEST_P(BothWalksTest, UprightStretchHasDxOf1) {
  const StripeCut cut = CutAsDrawn(StripeFromBottom(std::vector<double>(100, 300.0)));
  ASSERT_FALSE(cut.checks.empty());
  EXPECT_EQ(cut.checks[0].point, 10);
  EXPECT_EQ(cut.checks[0].dx, 1);
  EXPECT_EQ(cut.checks[0].dy, 20);
  EXPECT_EQ(cut.checks[0].k1, 20);
}

TEST_P(BothWalksTest, SixColumnsOverTwentyRowsIsK1Of3AndNotSteep) {
  // Points 3 on moved six columns: the checks on 10, 11 and 12 span the jump.
  const StripeCut cut = CutAsDrawn(StripeFromBottom(JumpCentres(110, 3, 300, 306)));
  ASSERT_GE(cut.checks.size(), 4u);
  EXPECT_EQ(cut.checks[0].dx, Right() ? 6 : -6);
  EXPECT_EQ(cut.checks[0].k1, 3);
  EXPECT_EQ(cut.checks[1].k1, 3);
  EXPECT_EQ(cut.checks[2].k1, 3);
  EXPECT_EQ(cut.checks[3].k1, 20);
  // Seven steep checks from point 13 on.
  EXPECT_EQ(cut.cut_line, 479 - 19);
}

TEST_P(BothWalksTest, FiveColumnsOverTwentyRowsIsK1Of4AndSteep) {
  const StripeCut cut = CutAsDrawn(StripeFromBottom(JumpCentres(110, 3, 300, 305)));
  ASSERT_FALSE(cut.checks.empty());
  EXPECT_EQ(cut.checks[0].dx, Right() ? 5 : -5);
  EXPECT_EQ(cut.checks[0].k1, 4);
  // Seven steep checks from point 10 on.
  EXPECT_EQ(cut.cut_line, 479 - 16);
}

TEST_P(BothWalksTest, DxIsTruncatedTowardZero) {
  // 6.5 columns truncate to 6 (k1 3), 5.5 to 5 (k1 4), in either direction.
  const StripeCut wide = CutAsDrawn(StripeFromBottom(JumpCentres(110, 3, 300, 306.5)));
  ASSERT_FALSE(wide.checks.empty());
  EXPECT_EQ(wide.checks[0].dx, Right() ? 6 : -6);
  EXPECT_EQ(wide.checks[0].k1, 3);
  const StripeCut narrow = CutAsDrawn(StripeFromBottom(JumpCentres(110, 3, 300, 305.5)));
  ASSERT_FALSE(narrow.checks.empty());
  EXPECT_EQ(narrow.checks[0].dx, Right() ? 5 : -5);
  EXPECT_EQ(narrow.checks[0].k1, 4);
}

TEST_P(BothWalksTest, SeventhSteepCheckInARowIsTheCut) {
  // Jump at 27: the checks on 10..16 are steep; 17..23 would span the jump.
  const StripeCut cut = CutAsDrawn(StripeFromBottom(JumpCentres(100, 27, 300, 306)));
  ASSERT_TRUE(cut.cut_found);
  ASSERT_EQ(cut.G, 7);
  for (int n = 0; n < 7; ++n) {
    EXPECT_EQ(cut.checks[n].point, 10 + n);
    EXPECT_EQ(cut.checks[n].k1, 20);
    EXPECT_EQ(cut.checks[n].cut, n == 6);
  }
  EXPECT_EQ(cut.cut_line, 479 - 16);
}

TEST_P(BothWalksTest, SixthSteepCheckInARowIsNotTheCut) {
  // Jump at 26: checks on 10..15 are steep, the one on 16 is not. Points
  // 23..28 lie too near the jump to agree; 16..22 and 29..35 are not steep;
  // the next seven steep checks are 36..42.
  const StripeCut cut = CutAsDrawn(StripeFromBottom(JumpCentres(100, 26, 300, 306)));
  for (int point = 10; point <= 15; ++point) {
    const SlopeCheck* check = CheckOn(cut, point);
    ASSERT_NE(check, nullptr) << "point " << point;
    EXPECT_EQ(check->k1, 20);
    EXPECT_FALSE(check->cut);
  }
  const SlopeCheck* sixteen = CheckOn(cut, 16);
  ASSERT_NE(sixteen, nullptr);
  EXPECT_EQ(sixteen->k1, 3);
  EXPECT_FALSE(sixteen->cut);
  for (int point = 23; point <= 28; ++point) {
    EXPECT_EQ(cut.roles[point], StripePointRole::kStray) << "point " << point;
  }
  ASSERT_TRUE(cut.cut_found);
  EXPECT_EQ(cut.checks.back().point, 42);
  EXPECT_TRUE(cut.checks.back().cut);
  EXPECT_EQ(cut.cut_line, 479 - 42);
  EXPECT_EQ(cut.G, 7 + 7 + 6 + 7);  // 10..16, 17..22, 29..35, 36..42
}

TEST_P(BothWalksTest, StraightShallowStripeFindsNoCut) {
  // Half a column per row: dx -10 over 20 rows, k1 2 everywhere; the six
  // nearest neighbours on either side agree, so every point is checked.
  std::vector<double> centres;
  for (int j = 0; j < 200; ++j) centres.push_back(200 + 0.5 * j);
  const StripeCut cut = CutAsDrawn(StripeFromBottom(centres));
  EXPECT_EQ(cut.result, 2);
  EXPECT_EQ(cut.stop, StripeCutStop::kNoCutLine);
  EXPECT_FALSE(cut.cut_found);
  EXPECT_EQ(cut.num2, 0);
  EXPECT_EQ(cut.G, 180);
  for (const SlopeCheck& check : cut.checks) {
    EXPECT_EQ(check.k1, 2) << "point " << check.point;
    EXPECT_FALSE(check.cut);
  }
  EXPECT_TRUE(cut.picture.empty());
}

// --- Success: num2 and G ------------------------------------------------------

// Three checks that are not steep (10, 11, 12), seven steep (13..19, cut at
// row 460), then `count` - 30 agreeing points after the cut.
cv::Mat TenChecksThenUpright(int count) {
  return StripeFromBottom(JumpCentres(count, 3, 300, 306));
}

TEST_P(BothWalksTest, Num2Of80AndGOf10Cut) {
  const StripeCut cut = CutAsDrawn(TenChecksThenUpright(110));
  EXPECT_EQ(cut.G, 10);
  EXPECT_EQ(cut.num2, 80);
  EXPECT_EQ(cut.cut_line, 460);
  EXPECT_EQ(cut.stop, StripeCutStop::kCut);
  EXPECT_EQ(cut.result, 0);
  EXPECT_FALSE(cut.picture.empty());
}

TEST_P(BothWalksTest, Num2Of79IsTooFew) {
  const StripeCut cut = CutAsDrawn(TenChecksThenUpright(109));
  EXPECT_EQ(cut.G, 10);
  EXPECT_EQ(cut.num2, 79);
  EXPECT_TRUE(cut.cut_found);
  EXPECT_EQ(cut.stop, StripeCutStop::kCutRefused);
  EXPECT_EQ(cut.result, 2);
  EXPECT_TRUE(cut.picture.empty());
}

TEST_P(BothWalksTest, GOf9IsTooFew) {
  // Jump at 2: two checks that are not steep, seven steep (12..18).
  const StripeCut cut = CutAsDrawn(StripeFromBottom(JumpCentres(110, 2, 300, 306)));
  EXPECT_EQ(cut.G, 9);
  EXPECT_EQ(cut.num2, 81);
  EXPECT_EQ(cut.cut_line, 479 - 18);
  EXPECT_EQ(cut.stop, StripeCutStop::kCutRefused);
  EXPECT_EQ(cut.result, 2);
}

// --- The cut picture ------------------------------------------------------------

// Expects `out` to hold rows 30 to last_row, columns 1 to 638, of `in`, and
// zeros everywhere else.
void ExpectKeptRows(const cv::Mat& in, const cv::Mat& out, int last_row) {
  ASSERT_EQ(out.rows, 480);
  ASSERT_EQ(out.cols, 640);
  ASSERT_EQ(out.type(), CV_8UC1);
  int wrong = 0;
  for (int r = 0; r < 480; ++r) {
    for (int c = 0; c < 640; ++c) {
      const bool kept = r >= 30 && r <= last_row && c >= 1 && c <= 638;
      const int expected = kept ? in.at<uint8_t>(r, c) : 0;
      if (out.at<uint8_t>(r, c) != expected && ++wrong <= 5) {
        ADD_FAILURE() << "row " << r << " column " << c << ": " << int(out.at<uint8_t>(r, c))
                      << " instead of " << expected;
      }
    }
  }
  EXPECT_EQ(wrong, 0);
}

TEST_P(BothWalksTest, CutPictureKeepsRows30ToCutLineMinus31AndColumns1To638) {
  cv::Mat drawn = testsupport::PatternedDarkPicture();
  PaintStripe(drawn, 479, JumpCentres(110, 3, 300, 306));
  const cv::Mat in = Right() ? Mirrored(drawn) : drawn;
  const StripeCut cut = Cut(in, GetParam());
  ASSERT_EQ(cut.result, 0);
  ASSERT_EQ(cut.cut_line, 460);
  ExpectKeptRows(in, cut.picture, 429);
}

TEST_P(BothWalksTest, HighestCutLineKeepsRows30To61) {
  // The same stripe from row 111 up to row 2: the cut is at row 92, and just
  // enough points (80) lie above it.
  cv::Mat drawn = testsupport::PatternedDarkPicture();
  PaintStripe(drawn, 111, JumpCentres(110, 3, 300, 306));
  const cv::Mat in = Right() ? Mirrored(drawn) : drawn;
  const StripeCut cut = Cut(in, GetParam());
  ASSERT_EQ(cut.result, 0);
  ASSERT_EQ(cut.cut_line, 92);
  EXPECT_EQ(cut.num2, 80);
  ExpectKeptRows(in, cut.picture, 61);
}

// --- Camera-like pictures -----------------------------------------------------------

TEST_P(BothWalksTest, BentStripeIsCutWhereFloorMeetsWall) {
  // On the floor the stripe moves about 7 columns in 20 rows (k1 2); on the
  // wall it is nearly upright. Checks turn steep once their 20-row span
  // reaches a few rows past the bend, so the seventh steep one lies within
  // ten rows of the bend.
  for (const cv::Mat& drawn :
       {testsupport::BentStripePicture(), testsupport::NoisyBentStripePicture(1),
        testsupport::NoisyBentStripePicture(7)}) {
    const StripeCut cut = CutAsDrawn(drawn);
    EXPECT_EQ(cut.result, 0);
    EXPECT_GE(cut.cut_line, testsupport::kBendRow - 10);
    EXPECT_LE(cut.cut_line, testsupport::kBendRow + 10);
    EXPECT_GT(cut.num2, 200);  // the wall runs up to row 40
  }
}

TEST_P(BothWalksTest, ReflectionBesideTheStripeIsTwoStripes) {
  const StripeCut cut = CutAsDrawn(testsupport::TwoStripePicture());
  EXPECT_EQ(cut.result, 1);
  // The reflection runs from about row 280 up; the scan meets it at its foot.
  EXPECT_GE(cut.two_stripe_row, 276);
  EXPECT_LE(cut.two_stripe_row, 284);
}

TEST_P(BothWalksTest, EmptyPictureHasNoPoints) {
  const StripeCut cut = CutAsDrawn(testsupport::EmptyPicture());
  EXPECT_EQ(cut.result, 2);
  EXPECT_EQ(cut.stop, StripeCutStop::kTooFewPoints);
  EXPECT_TRUE(cut.points.empty());
}

// --- Calling contract -------------------------------------------------------------

TEST(StripeCutTest, RefusesPicturesOfAnotherShapeOrType) {
  StripeCut cut;
  EXPECT_THROW(CutStripe(cv::Mat::zeros(480, 641, CV_8UC1), kLeft, &cut), std::invalid_argument);
  EXPECT_THROW(CutStripe(cv::Mat::zeros(479, 640, CV_8UC1), kLeft, &cut), std::invalid_argument);
  EXPECT_THROW(CutStripe(cv::Mat::zeros(480, 640, CV_8UC3), kLeft, &cut), std::invalid_argument);
  EXPECT_THROW(CutStripe(cv::Mat::zeros(480, 640, CV_16UC1), kLeft, &cut), std::invalid_argument);
  EXPECT_THROW(CutStripe(cv::Mat(), kLeft, &cut), std::invalid_argument);
}

TEST(StripeCutTest, ReadsAPictureThatIsNotContinuous) {
  cv::Mat drawn = testsupport::PatternedDarkPicture();
  PaintStripe(drawn, 479, JumpCentres(110, 3, 300, 306));
  cv::Mat wide = cv::Mat::zeros(480, 700, CV_8UC1);
  drawn.copyTo(wide(cv::Rect(30, 0, 640, 480)));
  const cv::Mat view = wide(cv::Rect(30, 0, 640, 480));
  ASSERT_FALSE(view.isContinuous());
  const StripeCut cut = Cut(view, kLeft);
  ASSERT_EQ(cut.result, 0);
  EXPECT_EQ(cut.cut_line, 460);
  ExpectKeptRows(drawn, cut.picture, 429);
}

TEST(StripeCutTest, ReusedResultHoldsOnlyTheLatestCut) {
  StripeCut cut;
  CutStripe(TenChecksThenUpright(110), kLeft, &cut);
  ASSERT_EQ(cut.result, 0);
  const uint8_t* buffer = cut.picture.data;

  CutStripe(TenChecksThenUpright(110), kLeft, &cut);
  EXPECT_EQ(cut.result, 0);
  EXPECT_EQ(cut.picture.data, buffer);  // the cut picture's buffer is reused
  EXPECT_EQ(cut.checks.size(), 10u);

  cv::Mat two = BlankPicture();
  PaintStripePoint(two, 479, 100);
  PaintStripePoint(two, 479, 400);
  CutStripe(two, kLeft, &cut);
  EXPECT_EQ(cut.result, 1);
  EXPECT_TRUE(cut.picture.empty());
  EXPECT_TRUE(cut.points.empty());
  EXPECT_TRUE(cut.checks.empty());
  EXPECT_TRUE(cut.roles.empty());
  EXPECT_FALSE(cut.cut_found);
  EXPECT_EQ(cut.num2, 0);
  EXPECT_EQ(cut.G, 0);

  CutStripe(testsupport::EmptyPicture(), kLeft, &cut);
  EXPECT_EQ(cut.result, 2);
  EXPECT_EQ(cut.two_stripe_row, -1);
  EXPECT_EQ(cut.first_peak_col, -1);
}

}  // namespace
