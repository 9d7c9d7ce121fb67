// The node's exposure tables on the robot's camera: at each factory and
// app distance, the exposure and gain the node chooses (param_choose) give
// each laser's stripe, through the "robot" preset's sensor, a picture that
// is neither saturated over more than a third of the stripe's rows nor
// dimmer than 40 grey levels above the background in its median row (the
// contrast below which the computing plane node takes no stripe point).
// docs/camera-sim.md has the table of every setting at every distance.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "src/caligetpic.h"
#include "tests/support/node_harness.h"
#include "tests/support/sim_settings.h"
#include "tests/support/stripe_exposure.h"

namespace {

namespace sim = sunxi_cam::sim;

constexpr double kMaxSaturatedShare = 1.0 / 3.0;
constexpr double kMinMedianContrast = 40;

class ExposureTablesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testsupport::ResetPluginGlobals();
    sim::Reset();
  }
  void TearDown() override {
    sim::Reset();
    testsupport::ResetPluginGlobals();
  }
  // The node's choice for a distance, factory (app 0) or app (1).
  void Choose(int app, int distance) {
    kivplugcali::APP_USE = static_cast<uint8_t>(app);
    kivplugcali::distance_curr = static_cast<uint16_t>(distance);
    capture_.param_choose();
  }
  void Check(const char* who, int app, int distance) {
    Choose(app, distance);
    const int exposure = kivplugcali::exposure_value, gain = kivplugcali::gain_value;
    APPLY_SIM(R"({"preset": "robot", "distance": )" + std::to_string(distance) + "}");
    for (unsigned laser : {1u, 8u}) {
      const testsupport::StripeExposure m =
          testsupport::MeasureStripe(sim::GetScene(), laser, exposure, gain);
      std::printf("%s %2d cm, %s: %4d/%-2d  rows %3d  saturated %4.1f %%  median contrast %3.0f\n",
                  who, distance, laser == 1 ? "left " : "right", exposure, gain, m.rows,
                  100 * m.saturated_share(), m.median_contrast);
      EXPECT_GT(m.rows, 100) << who << " " << distance << " " << laser;
      EXPECT_LE(m.saturated_share(), kMaxSaturatedShare) << who << " " << distance << " " << laser;
      EXPECT_GE(m.median_contrast, kMinMedianContrast) << who << " " << distance << " " << laser;
    }
  }
  kivplugcali::KivNode_caligetpic capture_;
};

TEST_F(ExposureTablesTest, TheFactoryTableExposesEveryFactoryDistance) {
  for (int distance = 5; distance <= 45; distance += 5) Check("factory", 0, distance);
}

TEST_F(ExposureTablesTest, TheAppTableExposesEveryAppDistance) {
  for (int distance : {10, 20, 30}) Check("app", 1, distance);
}

}  // namespace
