// Stripe centres row by row: sub-pixel centres of symmetric profiles on any
// background, rows without a stripe, with two stripes or at the edge.
#include "tools/calc/stripe_centres.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/calc/target_pictures.h"

namespace {

constexpr int kWidth = 640, kHeight = 480;

// A picture with background `level` and in each row a Gaussian stripe of
// `sigma` and `peak` centred at column centre(row), rounded to whole values.
template <typename Centre>
std::vector<uint8_t> Stripe(Centre centre, double sigma = 1.2, double peak = 200, int level = 10) {
  std::vector<uint8_t> p(static_cast<std::size_t>(kWidth) * kHeight);
  for (int v = 0; v < kHeight; ++v) {
    const double c = centre(v);
    for (int u = 0; u < kWidth; ++u) {
      const double d = (u - c) / sigma;
      p[static_cast<std::size_t>(v) * kWidth + u] =
          static_cast<uint8_t>(std::lround(level + peak * std::exp(-d * d / 2)));
    }
  }
  return p;
}

calc::StripeScan Scan(const std::vector<uint8_t>& p, const calc::StripeOptions& o = {}) {
  return calc::FindStripeCentres(p.data(), kWidth, kHeight, kWidth, o);
}

TEST(StripeCentresTest, AnUprightStripeIsFoundToAHundredthOfAPixelAtAnyPhase) {
  for (double phase : {0.0, 0.1, 0.25, 0.5, 0.75, 0.9}) {
    const auto p = Stripe([&](int) { return 300 + phase; });
    const calc::StripeScan scan = Scan(p);
    ASSERT_EQ(scan.centres.size(), 480u) << phase;
    for (const auto& c : scan.centres) ASSERT_NEAR(c.u, 300 + phase, 0.01) << phase;
    EXPECT_EQ(scan.centres.front().v, 0);
    EXPECT_EQ(scan.centres.back().v, 479);
    EXPECT_GE(scan.centres.front().contrast, 180);  // the peak between two pixels
    EXPECT_LE(scan.centres.front().contrast, 200);
  }
}

TEST(StripeCentresTest, ASlantedStripeIsFoundInEveryRow) {
  const auto centre = [](int v) { return 150 + 0.44 * v; };
  const calc::StripeScan scan = Scan(Stripe(centre, 1.6));
  ASSERT_EQ(scan.centres.size(), 480u);
  for (const auto& c : scan.centres) EXPECT_NEAR(c.u, centre(c.v), 0.015) << c.v;
}

TEST(StripeCentresTest, TheBackgroundLevelDoesNotPullTheCentre) {
  for (int level : {0, 40, 50}) {
    const calc::StripeScan scan = Scan(Stripe([](int) { return 200.3; }, 1.2, 150, level));
    ASSERT_EQ(scan.centres.size(), 480u) << level;
    EXPECT_NEAR(scan.centres[10].u, 200.3, 0.01) << level;
  }
}

TEST(StripeCentresTest, AWiderStripeGetsAWiderWindow) {
  const calc::StripeScan narrow = Scan(Stripe([](int) { return 320.0; }, 1.0));
  const calc::StripeScan wide = Scan(Stripe([](int) { return 320.4; }, 4.0));
  ASSERT_FALSE(wide.centres.empty());
  EXPECT_GT(wide.centres[0].half_window, narrow.centres[0].half_window + 4);
  EXPECT_NEAR(wide.centres[0].u, 320.4, 0.015);
}

TEST(StripeCentresTest, RowsWithoutEnoughContrastGiveNoCentre) {
  std::vector<uint8_t> dark(static_cast<std::size_t>(kWidth) * kHeight, 12);
  EXPECT_TRUE(Scan(dark).centres.empty());
  // A faint stripe, 30 above the background: found only with a lower limit.
  const auto faint = Stripe([](int) { return 100.0; }, 1.2, 30);
  EXPECT_TRUE(Scan(faint).centres.empty());
  calc::StripeOptions low;
  low.min_contrast = 20;
  EXPECT_EQ(Scan(faint, low).centres.size(), 480u);
}

TEST(StripeCentresTest, RowsShowingTwoStripesAreLeftOut) {
  auto p = Stripe([](int) { return 200.0; });
  // A copy 40 columns to the right in rows 100 to 149.
  for (int v = 100; v < 150; ++v) {
    for (int u = 230; u < 250; ++u) {
      p[v * kWidth + u] = std::max(p[v * kWidth + u], p[v * kWidth + u - 40]);
    }
  }
  const calc::StripeScan scan = Scan(p);
  EXPECT_EQ(scan.rows_two_stripes, 50);
  EXPECT_EQ(scan.centres.size(), 430u);
  for (const auto& c : scan.centres) EXPECT_TRUE(c.v < 100 || c.v >= 150) << c.v;
}

TEST(StripeCentresTest, AStripeAtThePicturesEdgeIsLeftOut) {
  const calc::StripeScan scan = Scan(Stripe([](int v) { return v < 240 ? 3.0 : 636.0; }));
  EXPECT_TRUE(scan.centres.empty());
  EXPECT_EQ(scan.rows_at_border, 480);
}

TEST(StripeCentresTest, TheSimulatorsStripeIsFoundWhereItsPlaneProjects) {
  namespace sim = sunxi_cam::sim;
  sim::Reset();
  sim::Scene scene = sim::GetScene();
  scene.background.noise = 0;
  scene.distance = 20;
  scene.right.roll = -2;
  sim::SetScene(scene);
  const sim::SceneTruth truth = sim::Truth();
  const calc::CameraGeometry g(calctest::CameraOf(truth.camera));
  const calc::Plane plane = calctest::PlaneOf(truth.right);
  const calc::StripeScan scan = calc::FindStripeCentres(sim::Luminance(8), kWidth, kHeight, kWidth);
  ASSERT_EQ(scan.centres.size(), 480u);
  const double foot = calc::FootRow(g, 20, 320);
  int measured = 0;
  for (const auto& c : scan.centres) {
    if (std::fabs(c.v - foot) < 15) continue;  // where floor and wall stripes meet
    const calc::Surface s = c.v < foot ? calc::Surface::kWall : calc::Surface::kFloor;
    double u = 0;
    ASSERT_TRUE(calc::ColumnAt(g, plane, s, {20, 200}, c.v, &u));
    EXPECT_NEAR(c.u, u, 0.02) << c.v;
    ++measured;
  }
  EXPECT_GT(measured, 400);
  sim::Reset();
}

}  // namespace
