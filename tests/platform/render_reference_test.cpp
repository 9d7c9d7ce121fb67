// The physical renderer's short cuts against the plain ways they replace:
// each pixel's direction kept per camera against Newton's method for that
// pixel, the stripes worked out within reach against every pixel, the
// chessboard within the box around its outline against every pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/lens.h"
#include "platform/sunxi_cam/stripe_light.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;
constexpr std::size_t kPixels = static_cast<std::size_t>(sim::kWidth) * sim::kHeight;

class RenderReferenceTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }
};

TEST_F(RenderReferenceTest, KeptDirectionsAreNewtonsForEveryPixel) {
  for (const char* preset : {"robot", "harsh"}) {
    APPLY_SIM(std::string(R"({"preset": ")") + preset + "\"}");
    const sim::CameraModel camera = sim::GetScene().camera;
    const sim::PixelDirections& kept = sim::DirectionsOf(camera);
    const sim::Lens lens(camera);
    for (int v = 0; v < sim::kHeight; ++v) {
      for (int u = 0; u < sim::kWidth; ++u) {
        const std::size_t i = static_cast<std::size_t>(v) * sim::kWidth + u;
        double x = 0, y = 0;
        ASSERT_EQ(lens.Unproject(u, v, &x, &y), kept.ok[i] == 1);
        // Bit for bit: the same arithmetic, done once.
        ASSERT_EQ(std::memcmp(&x, &kept.x[i], sizeof x), 0) << u << " " << v;
        ASSERT_EQ(std::memcmp(&y, &kept.y[i], sizeof y), 0) << u << " " << v;
      }
    }
  }
}

// Stripes far and near, turned, with a copy and a gap: every pixel the
// stripe lights is within its reach, and inside it the light is the same
// (up to the faint light from beyond the reach that the plain way adds).
TEST_F(RenderReferenceTest, StripesWithinReachLoseNoLight) {
  const char* const scenes[] = {
      R"({"preset": "robot", "distance": 5})",
      R"({"preset": "robot", "distance": 30, "scene": {"left_laser": {"yaw": -12, "roll": 8}}})",
      R"({"preset": "harsh", "distance": 45, "scene": {"second_stripe": 40, "gap_rows": [100, 140]}})",
      R"({"preset": "harsh", "distance": 12, "scene": {"wall": false}})",
  };
  for (const char* json : scenes) {
    APPLY_SIM(json);
    const sim::Scene& scene = sim::GetScene();
    const sim::Lens lens(scene.camera);
    std::vector<double> within(kPixels, 0.0), every(kPixels, 0.0);
    sim::AddStripeLight(scene, lens, scene.left, nullptr, within.data());
    sim::AddStripeLight(scene, lens, scene.left, nullptr, every.data(), true);
    const double peak = *std::max_element(every.begin(), every.end());
    ASSERT_GT(peak, 10) << json;
    int lit = 0;
    for (std::size_t i = 0; i < kPixels; ++i) {
      if (within[i] != 0) {
        ASSERT_NEAR(within[i], every[i], 1e-5 * peak) << json << " pixel " << i;
        ++lit;
      } else {
        // Beyond five standard deviations: less than 4e-6 of the peak.
        ASSERT_LT(every[i], 1e-5 * peak) << json << " pixel " << i;
      }
    }
    EXPECT_GT(lit, 1000) << json;
  }
}

TEST_F(RenderReferenceTest, TheBoardWithinItsBoxLosesNoLight) {
  const char* const views[] = {
      R"({"preset": "robot", "scene": {"board": {"on": true, "z": 40, "yaw": 40}}})",
      R"({"preset": "harsh", "scene": {"board": {"on": true, "x": -16, "y": -10, "z": 50,
          "yaw": -15, "pitch": 10}}})",
      R"({"preset": "robot", "scene": {"board": {"on": true, "z": 30, "yaw": 25, "pitch": 20,
          "roll": 30}}})",
  };
  for (const char* json : views) {
    APPLY_SIM(json);
    const sim::Scene& scene = sim::GetScene();
    const sim::Lens lens(scene.camera);
    std::vector<double> within(kPixels, 0.0), every(kPixels, 0.0);
    sim::AddBoardLight(scene, lens, true, within.data());
    sim::AddBoardLight(scene, lens, true, every.data(), true);
    EXPECT_EQ(within, every) << json;
  }
}

}  // namespace
