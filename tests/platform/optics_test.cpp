// The physical renderer's optics and light, measured in its noise-free
// light (RenderLight): the stripe's width against the thin-lens formula,
// its brightness against range and incidence, speckle, vignetting and
// ambient light.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;
constexpr double kPi = 3.14159265358979323846;

class OpticsTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }

  // A pinhole camera high above the floor looking straight at a wall that
  // fills the picture, a laser beside it pointing ahead (its stripe upright
  // through the picture), no vignetting, no ambient light. The sheet is
  // 1.2 mm thick, so the stripe is at least 0.6 pixels wide (sigma) and
  // its samples sum and spread as the profile does (a narrower one, sampled
  // at whole pixels, would not).
  void StraightAtAWall(double distance, const std::string& more = "") {
    char json[600];
    std::snprintf(json, sizeof json,
                  R"({"reset": true, "distance": %g, "scene": {"renderer": "physical",
                  "camera": {"fx": 500, "fy": 500, "cx": 320, "cy": 240, "height": 100,
                  "pitch": 0}, "left_laser": {"x": 0, "y": 1, "z": 100, "yaw": 0, "roll": 0},
                  "optics": {"focus": 20, "f_number": 2, "pixel_size": 3, "vignetting": 1},
                  "laser_light": {"power": 100, "width": 1.2, "divergence": 1.5},
                  "background": {"ambient": 0}%s}})",
                  distance, more.c_str());
    APPLY_SIM(json);
  }

  std::vector<double> Light(unsigned lasers = 1, bool speckle = false) {
    sim::LightOptions options;
    options.speckle = speckle;
    return sim::RenderLight(sim::GetScene(), lasers, options);
  }
};

// The centre row's profile: its sum and its second moment about its centroid.
struct Profile {
  double sum = 0, centre = 0, variance = 0;
};
Profile RowProfile(const std::vector<double>& light, int v) {
  Profile p;
  const double* row = light.data() + v * sim::kWidth;
  for (int u = 0; u < sim::kWidth; ++u) {
    p.sum += row[u];
    p.centre += u * row[u];
  }
  p.centre /= p.sum;
  for (int u = 0; u < sim::kWidth; ++u) p.variance += (u - p.centre) * (u - p.centre) * row[u];
  p.variance /= p.sum;
  return p;
}

// The thin lens: the circle of confusion's diameter (mm) at depth z (mm).
double CircleOfConfusion(double f, double n, double focus, double z) {
  return (f / n) * f * std::fabs(z - focus) / (z * (focus - f));
}

TEST_F(OpticsTest, TheStripesWidthIsTheSheetsAndTheThinLensBlurTogether) {
  const double fx = 500, pixel_mm = 0.003, f = fx * pixel_mm;
  // Near the lens, in focus (20 cm), beyond it, and far beyond at f/1.
  const double cases[][2] = {{6, 2}, {10, 2}, {20, 2}, {35, 2}, {100, 1}};
  for (const auto& c : cases) {
    const double distance = c[0], f_number = c[1];
    char more[80];
    std::snprintf(more, sizeof more, R"(, "optics": {"f_number": %g})", f_number);
    StraightAtAWall(distance, more);
    const Profile p = RowProfile(Light(), 240);
    // The sheet: 4 sigma = 1.2 mm at the emitter, growing 1.5 mrad; the
    // point on the wall is `distance` from the emitter and the camera.
    const double sheet_cm = std::hypot(0.12 / 4, 0.0015 / 4 * distance);
    const double sheet_px = sheet_cm * fx / distance;
    const double blur_px = CircleOfConfusion(f, f_number, 200, distance * 10) / 4 / pixel_mm;
    const double expected = sheet_px * sheet_px + blur_px * blur_px + 1.0 / 12;
    EXPECT_NEAR(p.variance, expected, 0.02 * expected) << distance << " cm";
    std::printf(
        "%5.1f cm, f/%g: sheet %.3f px, blur %.3f px, width (sigma) %.3f px, measured %.3f px\n",
        distance, f_number, sheet_px, blur_px, std::sqrt(expected), std::sqrt(p.variance));
  }
  // In focus the lens adds nothing; the stripe is wide near and thin far.
  EXPECT_EQ(CircleOfConfusion(f, 2, 200, 200), 0.0);
}

TEST_F(OpticsTest, TheStripesLightFallsWithRangeAndIncidence) {
  // Across the stripe its light sums to power 10 sigma_L(10) sqrt(2 pi)
  // fx cos(yaw) / d^2 (the line's light spreads along its length, 1 / r,
  // and a turned plane meets the wall at an angle).
  const double sheet10 = std::hypot(0.12 / 4, 0.0015 / 4 * 10);
  for (double distance : {10.0, 30.0}) {
    for (double yaw : {0.0, distance < 20 ? 15.0 : 30.0}) {  // the stripe in view
      char more[80];
      std::snprintf(more, sizeof more, R"(, "left_laser": {"yaw": %g})", yaw);
      StraightAtAWall(distance, more);
      const Profile p = RowProfile(Light(), 240);
      const double expected = 100 * 10 * sheet10 * std::sqrt(2 * kPi) * 500 *
                              std::cos(yaw * kPi / 180) / (distance * distance);
      EXPECT_NEAR(p.sum, expected, 0.005 * expected) << distance << " cm, yaw " << yaw;
    }
  }
}

TEST_F(OpticsTest, SpeckleHasItsContrastAndGrainAndIsFixedPerSeed) {
  for (double contrast : {0.3, 0.4, 0.5}) {
    sim::LaserLight light;
    light.speckle = contrast;
    light.speckle_grain = 1.0;
    const std::vector<double>& field = sim::SpeckleField(light, 7, 0);
    double sum = 0, sum2 = 0, lag = 0;
    for (std::size_t i = 0; i < field.size(); ++i) {
      sum += field[i];
      sum2 += field[i] * field[i];
      if (i % sim::kWidth != 0) lag += (field[i] - 1) * (field[i - 1] - 1);
    }
    const double n = static_cast<double>(field.size());
    const double mean = sum / n, variance = sum2 / n - mean * mean;
    EXPECT_NEAR(mean, 1.0, 0.01);
    EXPECT_NEAR(std::sqrt(variance), contrast, 0.1 * contrast);
    // Correlated over a pixel: neighbours are alike.
    EXPECT_GT(lag / n / variance, 0.6) << contrast;
  }
  // In the picture: the stripe's light with speckle over its light without.
  StraightAtAWall(15, R"(, "laser_light": {"speckle": 0.4, "speckle_grain": 0.5})");
  const std::vector<double> clean = Light(1, false), speckled = Light(1, true);
  double sum = 0, sum2 = 0;
  int n = 0;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    if (clean[i] < 10) continue;
    const double m = speckled[i] / clean[i];
    sum += m;
    sum2 += m * m;
    ++n;
  }
  ASSERT_GT(n, 500);
  const double mean = sum / n;
  EXPECT_NEAR(std::sqrt(sum2 / n - mean * mean) / mean, 0.4, 0.04);
  // The same seed, the same speckle; another seed, another.
  sim::LaserLight light;
  light.speckle = 0.4;
  const std::vector<double> a = sim::SpeckleField(light, 3, 0);
  const std::vector<double> b = sim::SpeckleField(light, 4, 0);
  EXPECT_EQ(a, sim::SpeckleField(light, 3, 0));
  EXPECT_NE(a, b);
  EXPECT_NE(a, sim::SpeckleField(light, 3, 1));  // each laser its own
}

TEST_F(OpticsTest, VignettingDarkensTheFarthestCornerToItsSetting) {
  StraightAtAWall(30, R"(, "optics": {"vignetting": 0.6}, "background": {"ambient": 50})");
  const std::vector<double> light = Light(0);
  // The principal point (320, 240): the farthest corner is (0, 0) (or any
  // corner at the same distance).
  EXPECT_NEAR(light[240 * sim::kWidth + 320], 50, 1e-9);
  EXPECT_NEAR(light[0], 0.6 * 50, 1e-9);
  // Halfway out: (1 + a / 4)^-2 with a = 1 / sqrt(0.6) - 1.
  const double a = 1 / std::sqrt(0.6) - 1;
  const double half = 50 / ((1 + a / 4) * (1 + a / 4));
  EXPECT_NEAR(light[120 * sim::kWidth + 160], half, 1e-9);
}

}  // namespace
