// The grid the page draws of a measured camera against the truth.
#include "tools/report_page/camera_grid.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>

namespace {

using reportpage::LensFigures;

const LensFigures kTruth{500, 500, 320, 240, 0};

TEST(CameraGrid, TheSameCameraLiesOnTheTruth) {
  const reportpage::CameraGrid grid = reportpage::GridOf(kTruth, kTruth, 640, 480);
  // Columns every 80 px from 0 to 640 and rows from 0 to 480.
  ASSERT_EQ(grid.truth.size(), 9u + 7u);
  ASSERT_EQ(grid.recovered.size(), grid.truth.size());
  EXPECT_EQ(grid.largest_difference_px, 0);
  // Without distortion the lines are the picture's own columns and rows.
  for (std::size_t i = 0; i < grid.truth[0].columns.size(); ++i) {
    EXPECT_NEAR(grid.truth[0].columns[i], 0, 1e-9);
    EXPECT_NEAR(grid.truth[8].columns[i], 640, 1e-9);
  }
  EXPECT_NEAR(grid.truth[0].rows.front(), 0, 1e-9);
  EXPECT_NEAR(grid.truth[0].rows.back(), 480, 1e-9);
}

TEST(CameraGrid, TheLargestDifferenceIsWhereTheCamerasPartMost) {
  LensFigures longer = kTruth;
  longer.fx += 1;
  // One pixel more focal length moves a point by its x: most at the picture's
  // left and right edges, 320 / 500 of a pixel.
  const reportpage::CameraGrid grid = reportpage::GridOf(kTruth, longer, 640, 480);
  EXPECT_NEAR(grid.largest_difference_px, 320.0 / 500.0, 1e-9);
  // A barrel lens draws the picture's corner inwards.
  LensFigures barrel = kTruth;
  barrel.k1 = -0.3;
  const reportpage::CameraGrid bent = reportpage::GridOf(barrel, barrel, 640, 480);
  EXPECT_GT(bent.truth[0].columns.front(), 0);
  EXPECT_GT(bent.truth[0].rows.front(), 0);
  EXPECT_NEAR(bent.truth[4].columns[16], 320, 1e-9) << "the centre stays";
}

TEST(CameraGrid, LensOfNeedsFiveNumbersAndFocalLengthsAboveZero) {
  rapidjson::Document d;
  d.Parse(R"({"fx": 520.1, "fy": 519.97, "cx": 322.95, "cy": 235.89, "k1": -0.2999, "views": 15})");
  const auto lens = reportpage::LensOf(d);
  ASSERT_TRUE(lens.has_value());
  EXPECT_EQ(lens->fy, 519.97);
  EXPECT_EQ(lens->k1, -0.2999);
  for (const char* text :
       {R"({"fx": 520, "fy": 520, "cx": 320, "cy": 240})",
        R"({"fx": 0, "fy": 520, "cx": 320, "cy": 240, "k1": 0})",
        R"({"fx": 520, "fy": "520", "cx": 320, "cy": 240, "k1": 0})", "[1]", "null"}) {
    d.Parse(text);
    EXPECT_FALSE(reportpage::LensOf(d).has_value()) << text;
  }
}

TEST(CameraGrid, ACameraThatMapsNowhereGivesNoGrid) {
  LensFigures wild = kTruth;
  wild.fx = 1e-300;  // the picture's edge lies at an infinite angle
  const reportpage::CameraGrid grid = reportpage::GridOf(wild, kTruth, 640, 480);
  EXPECT_FALSE(grid.finite);
  EXPECT_TRUE(reportpage::GridOf(kTruth, kTruth, 640, 480).finite);
}

}  // namespace
